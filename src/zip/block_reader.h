// Reads of an archive file served from one block of it, read whole: records
// that lie one after another cost one seek and one read per block instead of
// one per record. Positions come from the archive and are untrusted; a read
// never reaches outside the block or the caller's buffer.
#ifndef KXZEF_ZIP_BLOCK_READER_H
#define KXZEF_ZIP_BLOCK_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zip/zip_file_io.h"

namespace kxzef {

class BlockReader {
 public:
  static constexpr uint64_t BlockSize = 65536;

  // Exactly `count` bytes at `base` + `offset` into `out`: StatusOk, or
  // StatusIoError when the sum lies beyond what the file object can seek
  // to, or the file ends first, or a read fails. A read the block cannot
  // serve goes to the file exactly as asked, so that the outcome is always
  // that of a seek and a read of `count` bytes.
  int read(ZipFileIO& io, uint64_t base, uint64_t offset, void* out, uint64_t count);

  // Forgets what the block holds, for a file that was closed or replaced.
  void clear() { length_ = 0; }

 private:
  bool holds(uint64_t position, uint64_t count) const;
  bool fill(ZipFileIO& io, uint64_t position);

  std::unique_ptr<unsigned char[]> block_;  // BlockSize bytes, allocated on first use
  uint64_t start_ = 0;                      // the file position of block_[0]
  uint64_t length_ = 0;                     // bytes of block_ that hold the file
};

}  // namespace kxzef

#endif
