// Holds signals back while zef changes what a user would find half-done if
// a signal ended it there; they are delivered once the change is whole.
#ifndef KXZEF_TOOLS_HELD_SIGNALS_H
#define KXZEF_TOOLS_HELD_SIGNALS_H

#include <signal.h>

namespace zef {

// Blocks `signals` (a range of signal numbers) for as long as it lives, then
// puts back the mask it found.
class HeldSignals {
 public:
  template <typename Signals>
  explicit HeldSignals(const Signals& signals) {
    sigset_t held;
    sigemptyset(&held);
    for (int signal : signals) sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &previous_);
  }
  ~HeldSignals() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  sigset_t previous_;
};

}  // namespace zef

#endif
