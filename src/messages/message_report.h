// Printing a catalogue message by number on a channel. The one formatting
// buffer is shared by every message of the process and is never overrun.
#ifndef KXZEF_MESSAGES_MESSAGE_REPORT_H
#define KXZEF_MESSAGES_MESSAGE_REPORT_H

#include <cstdint>
#include <ostream>

namespace kxzef {

constexpr size_t MessageBufferSize = 2048;

// The library's single formatting context.
struct MessageContext {
  char buffer[MessageBufferSize];    // the last message formatted
  uint8_t registered;                // the catalogue has been registered
  int (*registration)();             // registers the catalogue; set on creation
};

// The process's one context, created on first use (thread-safe). Creating it
// arms the registration but does not register the catalogue.
MessageContext& getMessageContext();

// Registers the whole catalogue with the message service. Returns 0.
int registerMessageCatalogue();

// Formats message `number` with the printf-style arguments that follow and
// writes it, with a newline added, to `channel` in one write. Registers the
// catalogue first if no message was printed before. Returns count + 2, where
// count is the formatted length; when formatting yields nothing (count 0 or
// less) nothing is written and count + 1 is returned.
int reportMessage(MessageContext& context, std::ostream& channel, uint32_t number, ...);

// As reportMessage without the newline; writes the buffer whatever the
// formatter returned and returns its count.
int reportMessageNoNewline(MessageContext& context, std::ostream& channel, uint32_t number, ...);

// Reports ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT with strerror(errno) on the
// error channel when errno is non-zero; the follow-up of every failing system
// call's own message.
void reportSystemErrorText();

}  // namespace kxzef

#endif
