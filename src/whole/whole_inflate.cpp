// libdeflate's decompressor behind WholeInflater; its result is trusted only
// when it is clean, and the callers' zlib stream judges everything else.
#include "whole/whole_inflate.h"

#include <libdeflate.h>

namespace kxzef {

uint32_t wholeCrc(const unsigned char* bytes, size_t size) { return libdeflate_crc32(0, bytes, size); }

WholeInflater::~WholeInflater() {
  if (decompressor_ != nullptr) libdeflate_free_decompressor(decompressor_);
}

bool WholeInflater::inflate(const unsigned char* in, size_t inSize, unsigned char* out, size_t size) {
  if (decompressor_ == nullptr) decompressor_ = libdeflate_alloc_decompressor();
  if (decompressor_ == nullptr) return false;
  size_t produced = 0;
  const libdeflate_result result =
      libdeflate_deflate_decompress_ex(decompressor_, in, inSize, out, size, nullptr, &produced);
  return result == LIBDEFLATE_SUCCESS && produced == size;
}

}  // namespace kxzef
