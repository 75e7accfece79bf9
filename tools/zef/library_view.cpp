// The reading core's walk over the central directory, compared with the
// audit's. Only headers are read; the walk stops where the core stops.
#include "library_view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "extract/unzip_driver.h"
#include "findings.h"
#include "zip/unzip_archive.h"
#include "zip/zip_file_io.h"

namespace zef {

namespace {

constexpr int64_t WindowSize = 64 * 1024;

// The archive file as the reading core sees it through its usual file object
// (a short read sets the error, a seek clears it, a seek before the start
// leaves the position), served from one window read with pread: the core
// reads a header byte by byte, which its stream-backed object makes slow.
class WindowFileIO : public kxzef::ZipFileIO {
 public:
  ~WindowFileIO() override { close(); }

  bool open(const char* path, int mode) override {
    if (path == nullptr || mode != kxzef::ModeReadExisting) return false;
    fd_ = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) return false;
    size_ = status.st_size;
    return true;
  }

  int64_t read(void* buffer, int64_t count) override {
    if (fd_ < 0 || count <= 0) return 0;
    int64_t done = 0;
    while (done < count && position_ < size_ && (inWindow() || fill())) {
      const int64_t n = std::min(count - done, windowStart_ + windowLength_ - position_);
      std::memcpy(static_cast<char*>(buffer) + done, window_.get() + (position_ - windowStart_),
                  static_cast<size_t>(n));
      done += n;
      position_ += n;
    }
    error_ = done < count;
    return done;
  }

  int64_t write(const void*, int64_t) override { return 0; }
  int64_t tell() override { return fd_ < 0 || error_ ? -1 : position_; }

  int seek(int64_t offset, int origin) override {
    if (origin != kxzef::SeekFromStart && origin != kxzef::SeekFromCurrent && origin != kxzef::SeekFromEnd) return -1;
    const int64_t base = origin == kxzef::SeekFromStart ? 0 : origin == kxzef::SeekFromCurrent ? position_ : size_;
    if (offset >= 0 ? base <= INT64_MAX - offset : base + offset >= 0) position_ = base + offset;
    error_ = false;
    return 0;
  }

  int close() override {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    return 0;
  }

  bool removeFile(const char*) override { return false; }
  bool hasError() override { return fd_ < 0 || error_; }

 private:
  bool inWindow() const { return position_ >= windowStart_ && position_ < windowStart_ + windowLength_; }

  bool fill() {
    if (!window_) window_.reset(new (std::nothrow) char[WindowSize]);
    if (!window_) return false;
    const ssize_t got = pread(fd_, window_.get(), WindowSize, position_);
    windowStart_ = position_;
    windowLength_ = got > 0 ? got : 0;
    return windowLength_ > 0;
  }

  int fd_ = -1;
  int64_t size_ = 0;
  int64_t position_ = 0;
  bool error_ = false;
  std::unique_ptr<char[]> window_;
  int64_t windowStart_ = 0;
  int64_t windowLength_ = 0;
};

// The index of the first entry the core reads differently from the audit,
// or -1 when every entry it reads is the audit's.
int64_t firstDivergence(kxzef::UnzipArchive& archive, const kxzef::AuditReport& report) {
  uint64_t count = 0;
  uint64_t commentLength = 0;
  if (archive.getGlobalInfo(&count, &commentLength) != kxzef::StatusOk) return -1;
  std::array<char, kxzef::EntryNameBufferSize + 1> name{};
  for (uint64_t index = 0; index < count; ++index) {
    if (index > 0 && archive.goToNextEntry() != kxzef::StatusOk) return -1;
    name.fill('\0');
    if (archive.getCurrentEntryInfo(nullptr, name.data(), kxzef::EntryNameBufferSize, nullptr, 0, nullptr, 0) !=
        kxzef::StatusOk) {
      return -1;
    }
    if (index >= report.entries.size() || libraryName(report.entries[index].name) != name.data()) {
      return static_cast<int64_t>(index);
    }
  }
  return -1;
}

}  // namespace

std::vector<kxzef::AuditFinding> divergenceFindings(const char* path, const kxzef::AuditReport& report) {
  kxzef::UnzipArchive archive;
  // A file the core cannot open is one the library cannot extract from
  // either. The archive state owns the file object from here on.
  if (!archive.openArchive(path, std::unique_ptr<kxzef::ZipFileIO>(new (std::nothrow) WindowFileIO()))) return {};
  const int64_t index = firstDivergence(archive, report);
  archive.closeArchive();
  if (index < 0) return {};
  return {{kxzef::FindingKind::CountMismatch, -1,
           "reads differently to the library than to the audit from entry " + std::to_string(index + 1) + " on"}};
}

}  // namespace zef
