// Threads inherit the signal mask of the thread that starts them.
#include "engine/worker_threads.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>

namespace kxzef {

namespace {

// Blocks every signal on this thread for as long as it lives.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &previous_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

}  // namespace

void startWorkers(unsigned count, std::vector<std::thread>& threads, const std::function<void()>& body) {
  const SignalsBlocked inherited;
  for (unsigned i = 0; i < count; ++i) {
    try {
      threads.emplace_back(body);
    } catch (const std::system_error&) {
      return;  // the callers work with fewer threads, or none
    }
  }
}

void stopWorkers(std::mutex& mutex, std::condition_variable& changed, bool& stopping,
                 std::vector<std::thread>& threads) {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  for (std::thread& thread : threads) thread.join();
  threads.clear();
}

}  // namespace kxzef
