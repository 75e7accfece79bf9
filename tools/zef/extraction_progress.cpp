// Following the library's reads. Only the watcher thread touches the
// feedback while it runs; the main thread waits in the library meanwhile
// and takes the feedback back after joining it.
#include "extraction_progress.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "findings.h"
#include "staged_check.h"

namespace zef {

namespace {

constexpr std::chrono::milliseconds TickInterval{100};

// The target of the link /proc/self/fd/`fd`, "" when it cannot be read.
std::string descriptorPath(int fd) {
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length > 0 && static_cast<size_t>(length) < sizeof target ? std::string(target, static_cast<size_t>(length)) : "";
}

// The file position of descriptor `fd`, from /proc/self/fdinfo; 0 when unknown.
uint64_t positionOf(int fd) {
  const std::string path = "/proc/self/fdinfo/" + std::to_string(fd);
  const int info = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (info < 0) return 0;
  char text[256] = {};
  const ssize_t got = read(info, text, sizeof text - 1);
  close(info);
  if (got <= 0 || std::strncmp(text, "pos:", 4) != 0) return 0;
  return std::strtoull(text + 4, nullptr, 10);
}

}  // namespace

ExtractionProgress::ExtractionProgress(const Verbosity& verbosity, const kxzef::AuditReport& report,
                                       const std::vector<bool>& selected)
    : report_(report), feedback_(verbosity, 0, 0) {
  // The totals are known only once the selected entries are counted.
  for (size_t i = 0; i < report.entries.size(); ++i) {
    if (!selected[i]) continue;
    order_.push_back(i);
    packed_ += report.entries[i].compressedSize;
    unpacked_ += report.entries[i].uncompressedSize;
  }
  feedback_.setTotals(order_.size(), unpacked_);
}

ExtractionProgress::~ExtractionProgress() { stop(false); }

void ExtractionProgress::follow(int stagingFd) {
  if (!feedback_.active() || watcher_.joinable()) return;
  stagingPrefix_ = descriptorPath(stagingFd);
  if (stagingPrefix_.empty()) return;
  stagingPrefix_ += '/';
  ranks_.reserve(order_.size());
  for (size_t rank = 0; rank < order_.size(); ++rank) {
    ranks_.emplace(stagedPath(libraryName(report_.entries[order_[rank]].name)), rank);
  }
  feedback_.advance(0, 0);  // drawn at once, however soon the library is done
  stopping_ = false;
  watcher_ = std::thread(&ExtractionProgress::watch, this);
}

void ExtractionProgress::watch() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    look();
    wake_.wait_for(lock, TickInterval, [this] { return stopping_; });
  }
}

// One look at the descriptors: a file open below the staging directory is
// the entry being written. Small files come and go between two looks; the
// count then moves on at the next one caught.
void ExtractionProgress::look() {
  DIR* listing = opendir("/proc/self/fd");
  if (listing == nullptr) return;
  while (const dirent* entry = readdir(listing)) {
    if (entry->d_name[0] == '.') continue;
    const int fd = std::atoi(entry->d_name);
    const std::string path = descriptorPath(fd);
    if (path.compare(0, stagingPrefix_.size(), stagingPrefix_) != 0) continue;
    const auto found = ranks_.find(path.substr(stagingPrefix_.size()));
    if (found != ranks_.end()) catchUp(found->second, positionOf(fd));
  }
  closedir(listing);
  feedback_.advance(passed_, feedback_.bytes());
}

// The entries before `current` are done; `written` bytes of it are.
void ExtractionProgress::catchUp(size_t current, uint64_t written) {
  while (passed_ < current) {
    const kxzef::AuditEntry& entry = report_.entries[order_[passed_++]];
    passedBytes_ += entry.uncompressedSize;
    feedback_.entry(entry.name);
  }
  feedback_.advance(passed_, passedBytes_ + written);
}

void ExtractionProgress::stop(bool complete) {
  if (watcher_.joinable()) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    watcher_.join();
  }
  if (complete && !oneByOne_) catchUp(order_.size(), 0);
  feedback_.erase();
}

void ExtractionProgress::entry(size_t index) {
  const kxzef::AuditEntry& entry = report_.entries[index];
  oneByOne_ = true;
  feedback_.entry(entry.name);
  feedback_.addBytes(entry.uncompressedSize);
}

}  // namespace zef
