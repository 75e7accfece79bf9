// Printing a catalogue message by number on a channel, and the calls every
// layer reports through. The one formatting buffer is shared by every message
// of the process and is never overrun.
#ifndef KXZEF_MESSAGES_MESSAGE_REPORT_H
#define KXZEF_MESSAGES_MESSAGE_REPORT_H

#include <cstdint>
#include <ostream>
#include <type_traits>

#include "messages/channels.h"

namespace kxzef {

constexpr size_t MessageBufferSize = 2048;

// The library's single formatting context.
struct MessageContext {
  char buffer[MessageBufferSize];    // the last message formatted
  uint8_t registered;                // the catalogue has been registered
  // Registers the catalogue; set on creation. Kept though it never changes:
  // registration goes through it and its null test, as it always has.
  int (*registration)();
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

// Reports catalogue message `number` with a newline on the error channel, its
// %s placeholders filled from `texts` in order: the one call for a catalogue
// message on the error channel.
template <typename... Texts>
void reportError(uint32_t number, Texts... texts) {
  static_assert((std::is_convertible_v<Texts, const char*> && ...), "catalogue arguments are C strings");
  reportMessage(getMessageContext(), getErrorStream(), number, static_cast<const char*>(texts)...);
}

// Reports ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT with strerror(error) on the
// error channel, unless `error` is 0.
void reportSystemErrorText(int error);

// As above for errno as it is at this call, after whatever was reported since
// the failure.
void reportSystemErrorText();

// Reports a failed system call: `number` with `text`, then the system error
// text for errno as it was before that first report (writing it may change
// errno). errno holds that value again when the second report starts.
void reportSystemFailure(uint32_t number, const char* text);

}  // namespace kxzef

#endif
