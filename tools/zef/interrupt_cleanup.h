// Removes the staging directory when SIGINT, SIGTERM or SIGHUP ends zef while
// an extraction is under way, so an interrupted run leaves nothing behind.
// The handler uses async-signal-safe calls only; one staging directory at a time.
#ifndef KXZEF_TOOLS_INTERRUPT_CLEANUP_H
#define KXZEF_TOOLS_INTERRUPT_CLEANUP_H

#include <signal.h>

#include <string>

namespace zef {

class InterruptCleanup {
 public:
  // Arms the handlers for `name` below the open directory `parentFd`, which
  // must stay open while this lives. A name too long to hold arms nothing.
  InterruptCleanup(int parentFd, const std::string& name);
  // Puts the previous handlers back.
  ~InterruptCleanup();
  InterruptCleanup(const InterruptCleanup&) = delete;
  InterruptCleanup& operator=(const InterruptCleanup&) = delete;

 private:
  bool armed_ = false;
  struct sigaction previous_[3] = {};
};

}  // namespace zef

#endif
