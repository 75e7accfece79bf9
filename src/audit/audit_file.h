// The audit's own reading of an archive file: positioned reads that never
// reach past the file's end, and a window that serves small records from one
// large read. Offsets handed in come from the archive and are untrusted.
#ifndef KXZEF_AUDIT_AUDIT_FILE_H
#define KXZEF_AUDIT_AUDIT_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kxzef {

// A file open read-only. Closed by the destructor.
class AuditFile {
 public:
  AuditFile() = default;
  ~AuditFile();
  AuditFile(const AuditFile&) = delete;
  AuditFile& operator=(const AuditFile&) = delete;

  // Opens `path` and learns its size. False with errno set when it cannot be
  // opened or is not a regular file.
  bool open(const char* path);

  uint64_t size() const { return size_; }

  // Reads up to `count` bytes at `offset` into `buffer`, fewer only at the
  // end of the file. Returns the count read; 0 past the end. A failing read
  // returns 0 too and marks the file failed, keeping errno.
  size_t readAt(uint64_t offset, void* buffer, size_t count);

  // True once a read failed for a reason other than the file's end.
  bool failed() const { return failed_; }

 private:
  int descriptor_ = -1;
  uint64_t size_ = 0;
  bool failed_ = false;
};

// Serves byte ranges of a file from one buffer, refilling it only when a
// request falls outside what it holds.
class ReadWindow {
 public:
  // `capacity` is the largest request served (the file's size when that is
  // less); nothing is held until the first request. `valid()` is false when
  // the buffer could not be allocated.
  ReadWindow(AuditFile& file, size_t capacity);

  bool valid() const { return buffer_ != nullptr; }

  // `count` bytes at `offset`, valid until the next call; nullptr when they
  // are not all inside the file, when `count` exceeds the capacity, or when
  // the read failed. A refill reads `readAhead` bytes when that is more (up
  // to the capacity), so that neighbouring records cost one read.
  const unsigned char* bytesAt(uint64_t offset, size_t count, size_t readAhead = 0);

 private:
  AuditFile& file_;
  std::unique_ptr<unsigned char[]> buffer_;
  size_t capacity_;
  uint64_t heldStart_ = 0;
  size_t heldSize_ = 0;
};

}  // namespace kxzef

#endif
