// The library's own stand-ins for the host application's runtime: the message
// service (table registration and number-to-text formatting), the console, and
// multibyte stepping. Nothing here knows the library's catalogue or channels.
#ifndef KXZEF_HOST_HOST_H
#define KXZEF_HOST_HOST_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace kxzef::host {

// One message identifier of a table: the low and high halves of a number.
struct MessageIdentifier {
  uint16_t index;
  uint16_t facility;
};

// A message table as the message service takes it. The service keeps the
// pointer, so a table must outlive the process's use of it. Kept whole: the
// layout is the service's, the parallel tables, empty text and reserved
// pointers included, though the lookup reads only some of it.
struct MessageTable {
  uint32_t count;
  uint32_t facility;
  const MessageIdentifier* identifiers;  // `count` entries
  const char* const* symbols;            // `count` entries
  const char* const* texts;              // `count` printf-style texts
  const char* empty;                     // ""
  void* reserved[3];                     // all null
};

// Kept: the contexts below belong to the host's signatures; the stand-in has
// one service and reads neither.
void* utGetMemoryContext();
void* utGetMessageContext();

// Adds `table` to the service. Returns 0; a null table is ignored.
int ut_mem_add_primary_message_table(void* memoryContext, const MessageTable* table);

// Expands the text registered for `number` with printf conventions into
// `buffer`, cutting at `size` - 1 characters. Returns the number of
// characters in the buffer, 0 (buffer emptied) when no registered table
// knows the number, or a negative value when formatting fails.
int ut_vsprintm(void* messageContext, char* buffer, size_t size, uint32_t number, va_list args);

// How many times a table was registered since the process started; lets
// tests prove that registration happens exactly once.
unsigned messageTableRegistrations();

// Prints `text` on standard output. Returns its length, or -1 when printing
// fails or the text is null.
int utPuts(const char* text);

// True when the current locale's characters may span several bytes.
bool utIsMultiByteCharSet();

// True when the byte at `text` starts a character of two or more bytes in the
// current locale.
bool utIsMultiByteLeadEx(const char* text);

// The first byte after the character at `text`; always advances at least one
// byte unless `text` is at its terminator.
const char* utMultiByteNextChar(const char* text);

// Like strchr, but never matches a byte inside a multibyte character.
char* utMultiByteStrChr(char* text, int c);
const char* utMultiByteStrChr(const char* text, int c);

}  // namespace kxzef::host

#endif
