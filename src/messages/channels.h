// The two process-wide text channels. Everything the library prints goes
// through them; nothing else writes to the standard streams but the default
// handler.
#ifndef KXZEF_MESSAGES_CHANNELS_H
#define KXZEF_MESSAGES_CHANNELS_H

#include <ostream>
#include <streambuf>

#include "kxzefarchiver/zefarchiver.h"

namespace kxzef {

// A stream buffer without a put area: every write reaches the handler at once.
class CallbackOutputBuffer : public std::streambuf {
 public:
  explicit CallbackOutputBuffer(TextHandler handler) : handler_(handler) {}

  void setHandler(TextHandler handler) { handler_ = handler; }
  TextHandler handler() const { return handler_; }

 protected:
  // Hands the text up to its first NUL to the handler and claims all `n`
  // characters; the handler's result is ignored.
  std::streamsize xsputn(const char* s, std::streamsize n) override;

  // Hands one character to the handler; fails (end-of-file) unless the
  // handler returns exactly 1.
  int_type overflow(int_type c) override;

 private:
  TextHandler handler_;
};

// Prints `text` on standard output; returns its length, 0 for null.
int defaultTextHandler(const char* text);

std::ostream& getOutputStream();
std::ostream& getErrorStream();

CallbackOutputBuffer& getOutputBuffer();
CallbackOutputBuffer& getErrorBuffer();

}  // namespace kxzef

#endif
