// Catalogue messages: lazy one-time registration, formatting into the
// context's buffer, one write per message.
#include "messages/message_report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "host/host.h"
#include "messages/message_catalogue.h"

namespace kxzef {

namespace {

// Kept: registered when the context is created, as hosts have always seen it;
// there is nothing to release.
void onExit() {}

MessageContext* createContext() {
  static MessageContext context{};
  context.registered = 0;
  context.registration = registerMessageCatalogue;
  std::atexit(onExit);
  return &context;
}

void registerOnce(MessageContext& context) {
  if (context.registered == 0 && context.registration != nullptr) {
    context.registration();
    context.registered = 1;
  }
}

int format(MessageContext& context, uint32_t number, va_list args) {
  return host::ut_vsprintm(host::utGetMessageContext(), context.buffer, MessageBufferSize, number, args);
}

}  // namespace

MessageContext& getMessageContext() {
  static MessageContext* context = createContext();
  return *context;
}

int registerMessageCatalogue() {
  host::ut_mem_add_primary_message_table(host::utGetMemoryContext(), &MessageCatalogue);
  return 0;
}

int reportMessage(MessageContext& context, std::ostream& channel, uint32_t number, ...) {
  registerOnce(context);
  va_list args;
  va_start(args, number);
  const int count = format(context, number, args);
  va_end(args);
  if (count <= 0) return count + 1;
  // A message cut at the buffer's end still gets its newline, inside the buffer.
  const size_t end = static_cast<size_t>(count) < MessageBufferSize - 1 ? static_cast<size_t>(count)
                                                                        : MessageBufferSize - 2;
  context.buffer[end] = '\n';
  context.buffer[end + 1] = '\0';
  channel << context.buffer;
  return count + 2;
}

int reportMessageNoNewline(MessageContext& context, std::ostream& channel, uint32_t number, ...) {
  registerOnce(context);
  registerOnce(context);  // Kept: this variant has always tested twice; the second finds the flag set
  va_list args;
  va_start(args, number);
  const int count = format(context, number, args);
  va_end(args);
  channel << context.buffer;
  return count;
}

void reportSystemErrorText(int error) {
  if (error != 0) reportError(ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT, std::strerror(error));
}

void reportSystemErrorText() { reportSystemErrorText(errno); }

void reportSystemFailure(uint32_t number, const char* text) {
  const int error = errno;
  reportError(number, text);
  errno = error;
  reportSystemErrorText();
}

}  // namespace kxzef
