// Deflating a whole entry in one call, with libdeflate, for zef's engine:
// faster than zlib's stream at every level and no larger on the benchmark's
// application tree, but not the bytes zlib writes, so never used where an
// archive must be the one a host writes.
#ifndef KXZEF_WHOLE_WHOLE_DEFLATE_H
#define KXZEF_WHOLE_WHOLE_DEFLATE_H

#include <cstddef>

struct libdeflate_compressor;

namespace kxzef {

// The libdeflate level that stands for zlib's `level` (1 to 9).
int wholeDeflateLevel(int level);

// Whether zlib's stream would call `bytes` (a whole entry) text, which sets
// the entry's text attribute.
bool zlibJudgesText(const unsigned char* bytes, size_t size);

// One compressor, kept while the level stays the same.
class WholeDeflater {
 public:
  WholeDeflater() = default;
  ~WholeDeflater();
  WholeDeflater(const WholeDeflater&) = delete;
  WholeDeflater& operator=(const WholeDeflater&) = delete;

  // Readies the compressor for zlib's `level` (1 to 9); false when it cannot
  // be made.
  bool start(int level);

  // The most bytes compress() can produce from `size` bytes.
  size_t bound(size_t size) const;

  // Deflates `size` bytes at `in` into `out`, which has room for `capacity`
  // bytes; the count written, 0 when they do not fit or nothing is started.
  size_t compress(const unsigned char* in, size_t size, unsigned char* out, size_t capacity);

 private:
  libdeflate_compressor* compressor_ = nullptr;
  int level_ = 0;
};

}  // namespace kxzef

#endif
