// Directory and symbolic-link readers. Neither touches a stream; the link
// reader sizes its buffer from lstat and never reads past it.
#include "input/path_readers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "input/reader_status.h"

namespace kxzef {

namespace {

// Copies the first min(n, content size) bytes, with n capped so that the
// count fits the int that read returns.
int copyPrefix(const ZEFByteArray& content, char* buf, unsigned n) {
  const uint64_t limit = std::min<uint64_t>(n, INT_MAX);
  const uint64_t count = buf == nullptr ? 0 : std::min<uint64_t>(limit, content.size);
  if (count != 0) std::memcpy(buf, content.data, count);
  return static_cast<int>(count);
}

}  // namespace

ZEFPathReader::ZEFPathReader(std::string path) : ZEFFileReader(nullptr, false), path_(std::move(path)) {}

const char* ZEFPathReader::name() { return ""; }

int ZEFPathReader::checkInput() { return statusNumber(ReaderStatus::Ok); }

int ZEFDirectoryReader::read(char* buf, unsigned n) { return copyPrefix(content_, buf, n); }

ZEFByteArray* ZEFDirectoryReader::getContent(ZEFResultHolder*) {
  content_.clear();
  return &content_;
}

int ZEFSymbolicLinkReader::read(char* buf, unsigned n) {
  getContent(nullptr);
  return copyPrefix(content_, buf, n);
}

ZEFByteArray* ZEFSymbolicLinkReader::getContent(ZEFResultHolder*) {
  content_.clear();
  struct stat status;
  if (lstat(path_.c_str(), &status) != 0 || status.st_size <= 0) return &content_;
  if (!content_.allocate(static_cast<uint64_t>(status.st_size))) return &content_;
  // The link may have changed since lstat; readlink stops at the buffer's end.
  const ssize_t length = readlink(path_.c_str(), reinterpret_cast<char*>(content_.data), content_.size);
  if (length <= 0) {
    content_.clear();
  } else {
    content_.size = static_cast<uint64_t>(length);
  }
  return &content_;
}

}  // namespace kxzef
