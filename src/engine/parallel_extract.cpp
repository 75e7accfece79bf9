// The worker pool behind zef extract. Jobs sit in a ring in the order the
// driver hands them; workers take them in that order and finish them in any
// order; the driver collects outcomes in hand order, so the failures it gets
// back are in archive order. A worker does the driver's steps for a regular
// file, and any step that does not succeed fails the job: the driver then
// does it again itself, through zlib, and reports what it finds. Without
// workers the calling thread does the same job in hand().
#include "engine/parallel_extract.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "engine/worker_threads.h"
#include "zip/file_system.h"
#include "zip/zip_format.h"

namespace kxzef {

namespace {

constexpr size_t QueuedPerWorker = 64;
constexpr uint32_t WorkerBufferSize = 64 << 10;
constexpr mode_t NewFileMode = 0666;  // less the umask, as fopen creates files
constexpr mode_t PermissionBits = 0777;
constexpr mode_t ChmodBits = 07777;

// Read on the calling thread before any worker starts, and put back at once.
mode_t processUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

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

// An open target, and whether it was made with the entry's mode.
struct Target {
  int fd = -1;
  bool hasMode = false;
};

// A new file made with the entry's permission bits has its mode at once when
// the umask takes none of them away, which spares fchmod. Set-ID bits and a
// name already taken go the driver's way: created or truncated as fopen
// does, the mode given afterwards.
Target createTarget(const FileJob& job, mode_t umaskBits) {
  const mode_t mode = static_cast<mode_t>(job.mode) & ChmodBits;
  if ((mode & ~PermissionBits) == 0 && (mode & umaskBits) == 0) {
    const int fd = open(job.target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST) return Target{fd, true};
  }
  return Target{open(job.target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, NewFileMode), false};
}

// The time and mode the driver gives a file by its name, given here through
// the open file, which spares the kernel two lookups of the path. A time
// that cannot be set is passed over, as the driver passes it over.
bool finishTarget(const Target& target, const FileJob& job) {
  const auto seconds = static_cast<time_t>(localTimeSeconds(job.modified));
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  futimens(target.fd, times);
  return target.hasMode || fchmod(target.fd, static_cast<mode_t>(job.mode)) == 0;
}

// The current entry's data into the job's target, created or truncated.
bool inflateInto(UnzipArchive& core, const FileJob& job, unsigned char* buffer, mode_t umaskBits) {
  const Target target = createTarget(job, umaskBits);
  const int fd = target.fd;
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
  ok = ok && finishTarget(target, job);
  return close(fd) == 0 && ok;
}

// Whether the current entry is inflated whole. The core hands raw bytes out
// only up to the entry's inflated size, so data that deflate made larger
// than it was streams.
bool inflatedWhole(const EntryInfo& info) {
  return info.compressionMethod == MethodDeflated && inflatesWhole(info.compressedSize, info.uncompressedSize) &&
         info.compressedSize <= info.uncompressedSize;
}

}  // namespace

// The current entry read raw, inflated in one call and checked against its
// CRC before `job.target` is created, so that nothing is written from data
// that fails.
bool ParallelExtract::writeWhole(Tools& tools, const FileJob& job) const {
  const auto compressed = static_cast<size_t>(job.compressedSize);
  const auto size = static_cast<size_t>(job.uncompressedSize);
  // Room for one byte at least, so that an empty entry has somewhere to go.
  if (!tools.compressed.reserve(compressed) || !tools.inflated.reserve(std::max<size_t>(size, 1))) return false;
  if (tools.core.openCurrentEntry(nullptr, nullptr, 1) != StatusOk ||
      tools.core.readWholeRawEntry(tools.compressed.data(), compressed) != StatusOk) {
    return false;
  }
  unsigned char* out = tools.inflated.data();
  if (!tools.whole.inflate(tools.compressed.data(), compressed, out, size) || wholeCrc(out, size) != job.crc) {
    return false;
  }
  const Target target = createTarget(job, umask_);
  if (target.fd < 0) return false;
  const bool written = writeAll(target.fd, out, size) && finishTarget(target, job);
  return close(target.fd) == 0 && written;
}

// One job, step by step as the driver takes them.
bool ParallelExtract::writeFile(Tools& tools, const FileJob& job) const {
  UnzipArchive& core = tools.core;
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
  if (inflater_ == ExtractInflater::Whole && inflatedWhole(info)) {
    if (!writeWhole(tools, job)) return false;
  } else if (core.openCurrentEntry(nullptr, nullptr, 0) != StatusOk ||
             !inflateInto(core, job, tools.buffer.get(), umask_)) {
    return false;
  }
  return core.closeCurrentEntry() == StatusOk;
}

ParallelExtract::ParallelExtract(unsigned workers, std::string archivePath, ExtractInflater inflater)
    : workerCount_(workers), archivePath_(std::move(archivePath)), inflater_(inflater), umask_(processUmask()) {}

ParallelExtract::~ParallelExtract() { end(); }

bool ParallelExtract::begin() {
  end();
  slots_ = std::vector<Slot>(size_t{workerCount_} * QueuedPerWorker);
  handed_ = started_ = collected_ = 0;
  failed_.clear();
  stopping_ = false;
  startWorkers(workerCount_, threads_, [this] { work(); });
  if (!threads_.empty() || inflater_ != ExtractInflater::Whole) return !threads_.empty();
  here_.reset(new (std::nothrow) Tools());
  if (here_ && !openTools(*here_)) here_.reset();
  return here_ != nullptr;
}

void ParallelExtract::end() {
  stopWorkers(mutex_, changed_, stopping_, threads_);
  slots_.clear();
  here_.reset();
}

// A core of its own on the archive, and a buffer for zlib's pieces.
bool ParallelExtract::openTools(Tools& tools) const {
  const bool opened = tools.core.openArchive(archivePath_.c_str());
  tools.buffer.reset(new (std::nothrow) unsigned char[WorkerBufferSize]);
  return opened && tools.buffer != nullptr;
}

bool ParallelExtract::handHere(const FileJob& job) {
  if (!here_ || !failed_.empty()) return false;  // the run stops at a failed file, as with workers
  if (!writeFile(*here_, job)) failed_.push_back(FailedFile{job.centralPosition, job.entryIndex});
  return true;
}

bool ParallelExtract::hand(const FileJob& job) {
  if (here_) return handHere(job);
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
  const std::unique_ptr<Tools> tools(new (std::nothrow) Tools());
  const bool ready = tools && openTools(*tools);
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || started_ < handed_; });
    if (stopping_) return;
    Slot& slot = slotFor(started_++);
    slot.state = JobState::Working;
    lock.unlock();
    const bool written = ready && writeFile(*tools, slot.job);
    lock.lock();
    slot.state = written ? JobState::Written : JobState::Failed;
    changed_.notify_all();
  }
}

}  // namespace kxzef
