// One block of an archive file held in memory. Without memory for it every
// read goes straight to the file, with the same results.
#include "zip/block_reader.h"

#include <climits>
#include <cstring>
#include <new>

#include "zip/status.h"

namespace kxzef {

bool BlockReader::holds(uint64_t position, uint64_t count) const {
  return position >= start_ && count <= length_ && position - start_ <= length_ - count;
}

bool BlockReader::fill(ZipFileIO& io, uint64_t position) {
  length_ = 0;
  if (!block_) block_.reset(new (std::nothrow) unsigned char[BlockSize]);
  if (!block_ || io.seek(static_cast<int64_t>(position), SeekFromStart) != 0) return false;
  const int64_t count = io.read(block_.get(), static_cast<int64_t>(BlockSize));
  start_ = position;
  length_ = count > 0 ? static_cast<uint64_t>(count) : 0;
  return true;
}

int BlockReader::read(ZipFileIO& io, uint64_t base, uint64_t offset, void* out, uint64_t count) {
  // Positions travel as unsigned 64-bit values and the file object takes
  // signed ones, so a sum beyond that range cannot be read.
  constexpr uint64_t limit = static_cast<uint64_t>(INT64_MAX);
  if (count == 0) return StatusOk;
  if (base > limit || offset > limit - base) return StatusIoError;
  const uint64_t position = base + offset;
  if (holds(position, count) || (count <= BlockSize / 2 && fill(io, position) && holds(position, count))) {
    std::memcpy(out, block_.get() + (position - start_), count);
    return StatusOk;
  }
  if (io.seek(static_cast<int64_t>(position), SeekFromStart) != 0) return StatusIoError;
  return io.read(out, static_cast<int64_t>(count)) == static_cast<int64_t>(count) ? StatusOk : StatusIoError;
}

}  // namespace kxzef
