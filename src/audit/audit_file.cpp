// Reads for the audit and the integrity test. Every request is checked
// against the file's size before anything is read, so no claim in the
// archive can make a read run past the file or a buffer.
#include "audit/audit_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace kxzef {

AuditFile::~AuditFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool AuditFile::open(const char* path) {
  descriptor_ = ::open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0) return false;
  struct stat status;
  if (fstat(descriptor_, &status) != 0) return false;
  // A FIFO or device has no size to search back from and may never end.
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  size_ = static_cast<uint64_t>(status.st_size);
  return true;
}

size_t AuditFile::readAt(uint64_t offset, void* buffer, size_t count) {
  if (offset >= size_) return 0;
  count = static_cast<size_t>(std::min<uint64_t>(count, size_ - offset));
  size_t done = 0;
  while (done < count) {
    const ssize_t got = pread(descriptor_, static_cast<unsigned char*>(buffer) + done, count - done,
                              static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) failed_ = true;
    if (got <= 0) break;  // the file shrank since it was opened, or failed
    done += static_cast<size_t>(got);
  }
  return failed_ ? 0 : done;
}

// No request can be larger than the file, so a small file gets a small buffer.
ReadWindow::ReadWindow(AuditFile& file, size_t capacity)
    : file_(file), capacity_(static_cast<size_t>(std::min<uint64_t>(capacity, file.size()))) {
  buffer_.reset(new (std::nothrow) unsigned char[capacity_]);
}

const unsigned char* ReadWindow::bytesAt(uint64_t offset, size_t count, size_t readAhead) {
  if (!buffer_ || count > capacity_) return nullptr;
  if (offset > file_.size() || count > file_.size() - offset) return nullptr;
  if (offset >= heldStart_ && offset - heldStart_ + count <= heldSize_) {
    return buffer_.get() + (offset - heldStart_);
  }
  heldStart_ = offset;
  heldSize_ = file_.readAt(offset, buffer_.get(), std::max(count, std::min(readAhead, capacity_)));
  return heldSize_ >= count ? buffer_.get() : nullptr;
}

}  // namespace kxzef
