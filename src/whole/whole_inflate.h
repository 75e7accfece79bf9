// Inflating a whole entry in one call, with libdeflate, for zef's engine and
// integrity test. The sizes come from the archive and are untrusted: callers
// take this path only for entries within WholeEntryBudget, and anything but
// a clean result sends them to zlib's stream, whose verdict they report.
#ifndef KXZEF_WHOLE_WHOLE_INFLATE_H
#define KXZEF_WHOLE_WHOLE_INFLATE_H

#include <cstddef>
#include <cstdint>

#include "whole/whole_buffer.h"

struct libdeflate_decompressor;

namespace kxzef {

// Whether an entry with these declared sizes may be inflated whole.
inline bool inflatesWhole(uint64_t compressedSize, uint64_t uncompressedSize) {
  return compressedSize <= WholeEntryBudget && uncompressedSize <= WholeEntryBudget;
}

// CRC-32 of `size` bytes, as zlib's crc32 gives it.
uint32_t wholeCrc(const unsigned char* bytes, size_t size);

// One decompressor, kept for every entry.
class WholeInflater {
 public:
  WholeInflater() = default;
  ~WholeInflater();
  WholeInflater(const WholeInflater&) = delete;
  WholeInflater& operator=(const WholeInflater&) = delete;

  // Inflates the raw deflate stream in the `inSize` bytes at `in` into `out`;
  // true only when the stream is sound and ends after exactly `size` bytes
  // (bytes after its end are ignored, as zlib's stream ignores them). Never
  // writes past `out + size`.
  bool inflate(const unsigned char* in, size_t inSize, unsigned char* out, size_t size);

 private:
  libdeflate_decompressor* decompressor_ = nullptr;
};

}  // namespace kxzef

#endif
