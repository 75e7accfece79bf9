// Starting the engine's worker threads. Workers take no signals, so that
// zef's handlers (which remove temporary files) run on the calling thread.
#ifndef KXZEF_ENGINE_WORKER_THREADS_H
#define KXZEF_ENGINE_WORKER_THREADS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kxzef {

// Starts up to `count` threads running `body`, appended to `threads`, with
// every signal blocked in them; fewer, or none, when the system refuses more.
void startWorkers(unsigned count, std::vector<std::thread>& threads, const std::function<void()>& body);

// Sets `stopping` under `mutex`, wakes every thread waiting on `changed`,
// and joins `threads`, which is then empty.
void stopWorkers(std::mutex& mutex, std::condition_variable& changed, bool& stopping,
                 std::vector<std::thread>& threads);

}  // namespace kxzef

#endif
