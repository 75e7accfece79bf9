// Multibyte stepping over the C library's locale functions. Every step is
// bounded by the text's terminator: an invalid or truncated sequence counts
// as one single-byte character.
#include "host/host.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace kxzef::host {

namespace {

// Bytes taken by the character at `text`: 1 for a single byte, an invalid
// sequence or one cut short by the terminator; 0 at the terminator.
size_t characterLength(const char* text) {
  if (*text == '\0') return 0;
  // A byte below 0x80 where a character starts is a character of its own in
  // every character set a locale can have; only the others need the locale.
  if (static_cast<unsigned char>(*text) < 0x80) return 1;
  std::mbstate_t state{};
  const size_t length = std::mbrlen(text, MB_CUR_MAX, &state);
  if (length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2) || length == 0) return 1;
  return length;
}

}  // namespace

bool utIsMultiByteCharSet() { return MB_CUR_MAX > 1; }

bool utIsMultiByteLeadEx(const char* text) {
  return text != nullptr && characterLength(text) > 1;
}

const char* utMultiByteNextChar(const char* text) {
  if (text == nullptr) return nullptr;
  return text + characterLength(text);
}

const char* utMultiByteStrChr(const char* text, int c) {
  if (text == nullptr) return nullptr;
  const char wanted = static_cast<char>(c);
  for (const char* p = text;; p = utMultiByteNextChar(p)) {
    if (*p == wanted) return p;
    if (*p == '\0') return nullptr;
  }
}

char* utMultiByteStrChr(char* text, int c) {
  return const_cast<char*>(utMultiByteStrChr(static_cast<const char*>(text), c));
}

}  // namespace kxzef::host
