// A most-significant-bit-first CRC over the generator 0x04C11DB7, kept for
// callers of the writer; archives carry zlib's CRC-32 instead.
#ifndef KXZEF_CREATE_BLOCK_CRC_H
#define KXZEF_CREATE_BLOCK_CRC_H

#include <cstdint>

namespace kxzef {

// Fills the process-wide table. Every writer refills it (same values).
void fillCrcTable();

// The CRC of `length` bytes. Aborts the process when `length` is below 4:
// the register is loaded from the first four bytes.
uint32_t blockCrc(const unsigned char* buffer, int length);

// 1 when the text from the last "." of `name` on is, ignoring case, one of
// ".com", ".bat", ".exe", ".dll", ".cmd", ".btm"; else 0.
int isExecutableName(const char* name);

}  // namespace kxzef

#endif
