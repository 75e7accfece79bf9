// libdeflate's compressor behind WholeDeflater, zlib's levels mapped onto
// libdeflate's, and zlib's text verdict taken from the bytes themselves.
#include "whole/whole_deflate.h"

#include <libdeflate.h>

#include <cstdint>

namespace kxzef {

namespace {

constexpr int LowestLevel = 1;
constexpr int HighestLevel = 9;

// libdeflate's level for each of zlib's, from 1 to 9: the fastest whose
// output is no larger than zlib's at that level on both the benchmark's
// application tree and a sample of real files (bench/README.md), except
// that 7 to 9 keep their numbers, for those who ask for the smallest. Each
// is 1.3 to 3.6 times as fast as zlib's level.
constexpr int MappedLevels[HighestLevel + 1] = {0, 1, 1, 2, 3, 5, 5, 7, 8, 9};

// Bytes 0-6, 14-25 and 28-31 make zlib call data binary, as its block list says.
constexpr uint32_t BinaryControls = 0xf3ffc07f;
constexpr unsigned char FirstPrintable = 32;

bool textControl(unsigned char byte) { return byte == '\t' || byte == '\n' || byte == '\r'; }

}  // namespace

int wholeDeflateLevel(int level) {
  if (level < LowestLevel) level = LowestLevel;
  if (level > HighestLevel) level = HighestLevel;
  return MappedLevels[level];
}

// zlib judges the literals of its first block. A byte value's first
// appearance is always a literal (a match only repeats earlier bytes), so
// the values among the block's literals are the values in the input the block
// covers, and judging those bytes gives zlib's verdict. How far the block
// reaches depends on zlib's matching: 16,383 symbols of one to 258 bytes
// each. The one difference: the whole entry is judged here, so a listed byte
// past the end of zlib's first block makes this verdict binary and not
// zlib's. Judging only the 16,383 bytes the block always covers errs the
// other way, and more often: on the benchmark's application tree it missed
// zlib's verdict on 17 of 2,538 files, the whole entry on none at level 6
// (2 at level 1, whose matches are shorter).
bool zlibJudgesText(const unsigned char* bytes, size_t size) {
  bool text = false;
  for (size_t i = 0; i < size; ++i) {
    const unsigned char byte = bytes[i];
    if (byte >= FirstPrintable || textControl(byte)) {
      text = true;
    } else if ((BinaryControls >> byte) & 1U) {
      return false;
    }
  }
  return text;
}

WholeDeflater::~WholeDeflater() {
  if (compressor_ != nullptr) libdeflate_free_compressor(compressor_);
}

bool WholeDeflater::start(int level) {
  if (compressor_ != nullptr && level_ == level) return true;
  if (compressor_ != nullptr) libdeflate_free_compressor(compressor_);
  compressor_ = libdeflate_alloc_compressor(wholeDeflateLevel(level));
  level_ = level;
  return compressor_ != nullptr;
}

size_t WholeDeflater::bound(size_t size) const { return libdeflate_deflate_compress_bound(compressor_, size); }

size_t WholeDeflater::compress(const unsigned char* in, size_t size, unsigned char* out, size_t capacity) {
  if (compressor_ == nullptr) return 0;
  return libdeflate_deflate_compress(compressor_, in, size, out, capacity);
}

}  // namespace kxzef
