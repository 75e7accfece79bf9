// The channels are built at load time, in this order: the iostream
// initialiser, the two buffers, the two streams; unloading destroys them in
// reverse. Keep the definitions below in that order.
#include "messages/channels.h"

#include <cstdio>
#include <cstring>
#include <ios>
#include <string>

namespace kxzef {

namespace {

std::ios_base::Init iostreamInitialiser;
CallbackOutputBuffer outputBuffer(defaultTextHandler);
CallbackOutputBuffer errorBuffer(defaultTextHandler);
std::ostream outputStream(&outputBuffer);
std::ostream errorStream(&errorBuffer);

}  // namespace

std::streamsize CallbackOutputBuffer::xsputn(const char* s, std::streamsize n) {
  // Writers may hand over characters without a terminator (the standard
  // library formats numbers that way); terminate a copy so that the handler
  // never reads past what was written.
  const std::string text(s, static_cast<size_t>(n));
  handler_(text.c_str());
  return n;
}

CallbackOutputBuffer::int_type CallbackOutputBuffer::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::eof();
  const char text[2] = {traits_type::to_char_type(c), '\0'};
  return handler_(text) == 1 ? c : traits_type::eof();
}

int defaultTextHandler(const char* text) {
  if (text == nullptr) return 0;
  std::fputs(text, stdout);
  return static_cast<int>(std::strlen(text));
}

std::ostream& getOutputStream() { return outputStream; }
std::ostream& getErrorStream() { return errorStream; }
CallbackOutputBuffer& getOutputBuffer() { return outputBuffer; }
CallbackOutputBuffer& getErrorBuffer() { return errorBuffer; }

}  // namespace kxzef
