// The worker pool behind zef extract -j. Jobs sit in a ring in the order the
// driver hands them; workers take them in that order and finish them in any
// order; the driver collects outcomes in hand order, so the failures it gets
// back are in archive order. A worker does exactly the driver's steps for a
// regular file, and any step that does not succeed fails the job: the
// driver then does it again itself and reports what it finds.
#include "engine/parallel_extract.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "engine/worker_threads.h"
#include "zip/file_system.h"
#include "zip/unzip_archive.h"

namespace kxzef {

namespace {

constexpr size_t QueuedPerWorker = 64;
constexpr uint32_t WorkerBufferSize = 64 << 10;
constexpr mode_t NewFileMode = 0666;  // less the umask, as fopen creates files

bool writeAll(int fd, const unsigned char* bytes, size_t length) {
  while (length > 0) {
    const ssize_t written = write(fd, bytes, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}

// The current entry's data into `target`, created or truncated.
bool inflateInto(UnzipArchive& core, const std::string& target, unsigned char* buffer) {
  const int fd = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, NewFileMode);
  if (fd < 0) return false;
  bool ok = true;
  for (;;) {
    const int count = core.readCurrentEntry(buffer, WorkerBufferSize);
    if (count <= 0) {
      ok = count == 0;
      break;
    }
    if (!writeAll(fd, buffer, static_cast<size_t>(count))) {
      ok = false;
      break;
    }
  }
  return close(fd) == 0 && ok;
}

// One job, step by step as the driver takes them.
bool writeFile(UnzipArchive& core, const FileJob& job, unsigned char* buffer) {
  EntryInfo info{};
  if (core.goToEntryPosition(job.centralPosition, job.entryIndex) != StatusOk ||
      core.getCurrentEntryInfo(&info, nullptr, 0, nullptr, 0, nullptr, 0) != StatusOk) {
    return false;
  }
  // The driver's file and this core's could differ if the archive was replaced meanwhile.
  if (info.crc != job.crc || info.compressedSize != job.compressedSize ||
      info.uncompressedSize != job.uncompressedSize) {
    return false;
  }
  if (core.openCurrentEntry(nullptr, nullptr, 0) != StatusOk) return false;
  if (!inflateInto(core, job.target, buffer)) return false;
  setFileTime(job.target.c_str(), job.dosDate, job.modified);
  if (chmod(job.target.c_str(), static_cast<mode_t>(job.mode)) != 0) return false;
  return core.closeCurrentEntry() == StatusOk;
}

}  // namespace

ParallelExtract::ParallelExtract(unsigned workers, std::string archivePath)
    : workerCount_(workers), archivePath_(std::move(archivePath)) {}

ParallelExtract::~ParallelExtract() { end(); }

bool ParallelExtract::begin() {
  end();
  slots_ = std::vector<Slot>(size_t{workerCount_} * QueuedPerWorker);
  handed_ = started_ = collected_ = 0;
  failed_.clear();
  stopping_ = false;
  startWorkers(workerCount_, threads_, [this] { work(); });
  return !threads_.empty();
}

void ParallelExtract::end() {
  stopWorkers(mutex_, changed_, stopping_, threads_);
  slots_.clear();
}

bool ParallelExtract::hand(const FileJob& job) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (threads_.empty()) return false;
  for (;;) {
    collect();
    if (!failed_.empty()) return false;  // the run stops at that file: nothing more is started
    if (handed_ - collected_ < slots_.size()) break;
    changed_.wait(lock);
  }
  Slot& slot = slotFor(handed_);
  slot.job = job;  // the target's text reuses the slot's storage
  slot.state = JobState::Queued;
  ++handed_;
  changed_.notify_all();
  return true;
}

const std::vector<FailedFile>& ParallelExtract::finish() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (collect(); collected_ < handed_; collect()) changed_.wait(lock);
  reported_.swap(failed_);
  failed_.clear();
  return reported_;
}

// Takes the outcomes of the jobs finished in hand order so far.
void ParallelExtract::collect() {
  while (collected_ < handed_) {
    Slot& slot = slotFor(collected_);
    if (slot.state != JobState::Written && slot.state != JobState::Failed) return;
    if (slot.state == JobState::Failed) failed_.push_back(FailedFile{slot.job.centralPosition, slot.job.entryIndex});
    slot.state = JobState::Free;
    ++collected_;
  }
}

void ParallelExtract::work() {
  UnzipArchive core;
  const bool opened = core.openArchive(archivePath_.c_str());
  const std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[WorkerBufferSize]);
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || started_ < handed_; });
    if (stopping_) return;
    Slot& slot = slotFor(started_++);
    slot.state = JobState::Working;
    lock.unlock();
    const bool written = opened && buffer && writeFile(core, slot.job, buffer.get());
    lock.lock();
    slot.state = written ? JobState::Written : JobState::Failed;
    changed_.notify_all();
  }
}

}  // namespace kxzef
