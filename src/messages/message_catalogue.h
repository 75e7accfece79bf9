// The numbered message catalogue: every diagnostic, warning, prompt and
// heading the library prints. Numbers are facility 59 in the upper half and
// the index in the lower half; texts are printf formats with %s and %d only.
// Every number, symbol and text comes from the rows of message_catalogue.def.
#ifndef KXZEF_MESSAGES_MESSAGE_CATALOGUE_H
#define KXZEF_MESSAGES_MESSAGE_CATALOGUE_H

#include <cstdint>

#include "host/host.h"

namespace kxzef {

constexpr uint32_t MessageFacility = 59;

constexpr uint32_t messageNumber(uint32_t index) { return (MessageFacility << 16) | index; }

// One constant per row of the catalogue, named by its symbol.
#define KXZEF_MESSAGE(index, symbol, text) constexpr uint32_t symbol = messageNumber(index);
#include "messages/message_catalogue.def"
#undef KXZEF_MESSAGE

constexpr uint32_t MessageCount = 0
#define KXZEF_MESSAGE(index, symbol, text) +1
#include "messages/message_catalogue.def"
#undef KXZEF_MESSAGE
    ;

// The catalogue as registered with the message service, whole.
extern const host::MessageTable MessageCatalogue;

}  // namespace kxzef

#endif
