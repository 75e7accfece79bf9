// The catalogue record the message service receives, generated from the rows
// of message_catalogue.def.
#include "messages/message_catalogue.h"

namespace kxzef {

namespace {

constexpr host::MessageIdentifier identifier(uint16_t index) {
  return host::MessageIdentifier{index, static_cast<uint16_t>(MessageFacility)};
}

// Kept: three parallel tables rather than one table of rows, because the
// host's message service takes the catalogue in that layout.
constexpr host::MessageIdentifier identifiers[MessageCount] = {
#define KXZEF_MESSAGE(index, symbol, text) identifier(index),
#include "messages/message_catalogue.def"
#undef KXZEF_MESSAGE
};

const char* const symbols[MessageCount] = {
#define KXZEF_MESSAGE(index, symbol, text) #symbol,
#include "messages/message_catalogue.def"
#undef KXZEF_MESSAGE
};

const char* const texts[MessageCount] = {
#define KXZEF_MESSAGE(index, symbol, text) text,
#include "messages/message_catalogue.def"
#undef KXZEF_MESSAGE
};

// A skipped or repeated index would give two messages one number, or none.
constexpr bool indicesRunFromOne() {
  for (uint32_t i = 0; i < MessageCount; ++i) {
    if (identifiers[i].index != i + 1) return false;
  }
  return true;
}
static_assert(indicesRunFromOne(), "message_catalogue.def: indices must run 1, 2, 3, ... in row order");

}  // namespace

const host::MessageTable MessageCatalogue = {
    MessageCount, MessageFacility, identifiers, symbols, texts, "", {nullptr, nullptr, nullptr}};

}  // namespace kxzef
