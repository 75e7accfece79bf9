// The worker pool behind zef create. A worker claims the next input, opens
// it only if it is a regular file it may take, reserves room for the worst
// case of its output, and compresses it in one pass. Anything unusual ends the
// job as failed; take() then tries the file once more on the calling thread
// (libdeflate), or sends it down the run's own path (zlib), which reads the
// file again, which is harmless (reading has no side effects) and gives a
// failure its usual message in archive order.
#include "engine/parallel_prefetch.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include <zlib.h>

#include "engine/worker_threads.h"
#include "whole/whole_inflate.h"

namespace kxzef {

namespace {

constexpr size_t WorkerReadSize = size_t{64} << 10;

class FileDescriptor {
 public:
  FileDescriptor() = default;
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  void reset(int fd) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }
  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

// Opens `path` when `named`, its lstat, shows a regular file of 1 to
// `largest` bytes, and it still is that file. A link, a FIFO or a device is
// never opened: they are the run's to handle.
bool openNamed(const std::string& path, const struct stat& named, uint64_t largest, FileDescriptor& fd,
               struct stat& file) {
  if (!S_ISREG(named.st_mode) || named.st_size <= 0 || static_cast<uint64_t>(named.st_size) > largest) return false;
  fd.reset(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (fd.get() < 0 || fstat(fd.get(), &file) != 0) return false;
  return S_ISREG(file.st_mode) && file.st_dev == named.st_dev && file.st_ino == named.st_ino &&
         file.st_size == named.st_size;
}

bool openEligible(const std::string& path, uint64_t largest, FileDescriptor& fd, struct stat& file) {
  struct stat named {};
  return lstat(path.c_str(), &named) == 0 && openNamed(path, named, largest, fd, file);
}

ssize_t readSome(int fd, unsigned char* into, size_t size) {
  for (;;) {
    const ssize_t count = read(fd, into, size);
    if (count >= 0 || errno != EINTR) return count;
  }
}

// Deflates all of `fd` into `out` through `stream`, readied at the run's
// level. False when a read fails, the file is empty, or the output does not
// fit (the file grew).
bool deflateFile(int fd, z_stream& stream, unsigned char* readBuffer, unsigned char* out, uint64_t capacity,
                 PrefetchedEntry& entry) {
  stream.next_out = out;
  stream.avail_out = static_cast<uInt>(capacity);
  uLong crc = crc32(0, Z_NULL, 0);
  uint64_t total = 0;
  for (;;) {
    const ssize_t count = readSome(fd, readBuffer, WorkerReadSize);
    if (count < 0) return false;
    if (count == 0) break;
    crc = crc32(crc, readBuffer, static_cast<uInt>(count));
    total += static_cast<uint64_t>(count);
    stream.next_in = readBuffer;
    stream.avail_in = static_cast<uInt>(count);
    if (deflate(&stream, Z_NO_FLUSH) != Z_OK || stream.avail_in != 0) return false;
  }
  if (total == 0 || deflate(&stream, Z_FINISH) != Z_STREAM_END) return false;
  entry = PrefetchedEntry{out, capacity - stream.avail_out, total, static_cast<uint32_t>(crc),
                          stream.data_type == Z_TEXT};
  return true;
}

// Reads all of `fd`, a regular file of `expected` bytes when it was opened,
// into `out`, which has room for one byte more. Each read asks for that one
// byte more, so a read that stops short at `expected` bytes has met the end
// and no read is spent on finding nothing; false when a read fails, the file
// is empty, or it holds more (it grew).
bool readWhole(int fd, unsigned char* out, uint64_t expected, uint64_t& total) {
  total = 0;
  for (;;) {
    const ssize_t count = readSome(fd, out + total, expected + 1 - total);
    if (count < 0) return false;
    if (count == 0) break;
    total += static_cast<uint64_t>(count);
    if (total > expected) return false;
    if (total == expected) break;
  }
  return total != 0;
}

// Reads all of `fd` into `out` as it is, for stored entries.
bool copyFile(int fd, unsigned char* out, uint64_t fileSize, PrefetchedEntry& entry) {
  uint64_t total = 0;
  if (!readWhole(fd, out, fileSize, total)) return false;
  const uLong crc = crc32(crc32(0, Z_NULL, 0), out, static_cast<uInt>(total));
  entry = PrefetchedEntry{out, total, total, static_cast<uint32_t>(crc), false};
  return true;
}

// Reads all of `fd` into `input` and deflates it in one call into `out`;
// false as readWhole is, or when the output does not fit.
bool deflateWhole(int fd, WholeBuffer& input, uint64_t fileSize, WholeDeflater& deflater, unsigned char* out,
                  uint64_t capacity, PrefetchedEntry& entry) {
  uint64_t total = 0;
  if (!input.reserve(fileSize + 1) || !readWhole(fd, input.data(), fileSize, total)) return false;
  const size_t size = deflater.compress(input.data(), total, out, capacity);
  if (size == 0) return false;
  entry = PrefetchedEntry{out, size, total, wholeCrc(input.data(), total), zlibJudgesText(input.data(), total)};
  return true;
}

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

ParallelPrefetch::ParallelPrefetch(unsigned workers, PrefetchLimits limits, PrefetchDeflater deflater)
    : workerCount_(workers), limits_(limits), deflater_(deflater) {}

ParallelPrefetch::~ParallelPrefetch() { end(); }

void ParallelPrefetch::begin(std::vector<std::string> sources, int level) {
  end();
  sources_ = std::move(sources);
  level_ = level;
  slots_ = std::vector<Slot>(size_t{workerCount_} * SlotsPerWorker);
  next_ = 0;
  position_ = 0;
  held_ = 0;
  peakHeld_ = 0;
  stopping_ = false;
  startWorkers(workerCount_, threads_, [this] { work(); });
}

void ParallelPrefetch::end() {
  stopWorkers(mutex_, changed_, stopping_, threads_);
  slots_.clear();
  sources_.clear();
  held_ = 0;
}

uint64_t ParallelPrefetch::peakHeld() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return peakHeld_;
}

void ParallelPrefetch::settle() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] {
    for (const Slot& slot : slots_) {
      if (slot.state == SlotState::Opening || slot.state == SlotState::Working) return false;
    }
    return threads_.empty() || !claimable();
  });
}

const PrefetchedEntry* ParallelPrefetch::take(size_t index, const struct stat& seen) {
  if (index >= sources_.size()) return nullptr;
  if (const PrefetchedEntry* ready = takeReady(index, seen); ready != nullptr) return ready;
  return prepareHere(index, seen);
}

// A worker's data for input `index`, or null when no worker has it ready.
const PrefetchedEntry* ParallelPrefetch::takeReady(size_t index, const struct stat& seen) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (threads_.empty()) return nullptr;
  position_ = index;  // frees the slots before it and lets workers run further ahead
  changed_.notify_all();
  if (index >= next_) {
    next_ = index + 1;  // no worker will start it now
    return nullptr;
  }
  Slot& slot = slotFor(index);
  changed_.wait(lock, [&slot] { return slot.state != SlotState::Opening && slot.state != SlotState::Working; });
  if (slot.state == SlotState::WaitingMemory) {
    // Memory is held by inputs after this one: doing it here is what frees it.
    slot.state = SlotState::Cancelled;
    changed_.notify_all();
    return nullptr;
  }
  if (slot.state != SlotState::Done || !sameFile(slot.file, seen)) return nullptr;
  return &slot.entry;
}

// With libdeflate, whatever no worker has ready is deflated here, exactly as
// a worker does it, so that the archive does not depend on the workers.
const PrefetchedEntry* ParallelPrefetch::prepareHere(size_t index, const struct stat& seen) {
  if (deflater_ != PrefetchDeflater::Whole || level_ == 0) return nullptr;
  FileDescriptor fd;
  struct stat file {};
  uint64_t capacity = 0;
  const uint64_t largest = std::min(limits_.largestFile, limits_.largestWhole);
  // The run's own lstat a moment ago stands for the one a worker makes.
  if (!openNamed(sources_[index], seen, largest, fd, file) || !sameFile(file, seen)) return nullptr;
  const auto size = static_cast<uint64_t>(file.st_size);
  if (!sizeJob(here_, size, capacity) || !here_.output.reserve(capacity)) return nullptr;
  if (!runJob(here_, fd.get(), size, here_.output.data(), capacity, hereEntry_)) return nullptr;
  return &hereEntry_;
}

void ParallelPrefetch::work() {
  Tools tools;
  tools.readBuffer.reset(new (std::nothrow) unsigned char[WorkerReadSize]);
  std::unique_lock<std::mutex> lock(mutex_);
  size_t index = 0;
  while (claim(lock, index)) {
    Slot& slot = slotFor(index);
    lock.unlock();
    FileDescriptor fd;
    struct stat file {};
    uint64_t capacity = 0;
    bool ok = tools.readBuffer && openEligible(sources_[index], limits_.largestFile, fd, file) &&
              sizeJob(tools, static_cast<uint64_t>(file.st_size), capacity);
    lock.lock();
    if (!ok || !reserve(lock, slot, capacity)) {
      finishJob(slot, false);
      continue;
    }
    slot.state = SlotState::Working;
    slot.file = file;
    unsigned char* out = slot.buffer.get();
    lock.unlock();
    PrefetchedEntry entry;
    ok = runJob(tools, fd.get(), static_cast<uint64_t>(file.st_size), out, capacity, entry);
    lock.lock();
    slot.entry = entry;
    finishJob(slot, ok);
  }
}

// With libdeflate, a file too large to be held whole goes through zlib's
// stream, as the run streams it when no worker has it ready.
bool ParallelPrefetch::deflatesWhole(uint64_t fileSize) const {
  return deflater_ == PrefetchDeflater::Whole && fileSize <= limits_.largestWhole;
}

// Readies `tools` for a file of `fileSize` bytes at the run's level and gives
// the room its output may need. Any level but 0 deflates, as the run decides;
// 0 stores.
bool ParallelPrefetch::sizeJob(Tools& tools, uint64_t fileSize, uint64_t& capacity) {
  capacity = fileSize + 1;  // stored as it is, with room for readWhole's byte more
  if (level_ == 0) return true;
  if (deflatesWhole(fileSize)) {
    if (!tools.whole.start(level_)) return false;
    capacity = tools.whole.bound(static_cast<size_t>(fileSize));
    return true;
  }
  if (tools.stream.start(level_) != Z_OK) return false;
  capacity = deflateBound(&tools.stream.get(), static_cast<uLong>(fileSize));
  return true;
}

// `fileSize` is the size the file had when it was opened; one that grew since fails.
bool ParallelPrefetch::runJob(Tools& tools, int fd, uint64_t fileSize, unsigned char* out, uint64_t capacity,
                              PrefetchedEntry& entry) {
  if (level_ == 0) return copyFile(fd, out, fileSize, entry);
  if (deflatesWhole(fileSize)) {
    return deflateWhole(fd, tools.input, fileSize, tools.whole, out, capacity, entry);
  }
  return deflateFile(fd, tools.stream.get(), tools.readBuffer.get(), out, capacity, entry);
}

bool ParallelPrefetch::claimable() const {
  if (next_ >= sources_.size() || next_ >= position_ + slots_.size()) return false;
  return !busy(slots_[next_ % slots_.size()]);
}

bool ParallelPrefetch::claim(std::unique_lock<std::mutex>& lock, size_t& index) {
  changed_.wait(lock, [this] { return stopping_ || claimable(); });
  if (stopping_) return false;
  index = next_++;
  Slot& slot = slotFor(index);
  slot.index = index;
  slot.state = SlotState::Opening;
  slot.entry = PrefetchedEntry{};
  return true;
}

// Makes `slot`'s buffer hold at least `capacity` bytes within the cap,
// taking buffers from slots nobody needs any more, and otherwise waiting for
// the run to move on. False when the run gave up on the input, or stops.
bool ParallelPrefetch::reserve(std::unique_lock<std::mutex>& lock, Slot& slot, uint64_t capacity) {
  if (slot.capacity >= capacity) return true;
  for (;;) {
    if (stopping_ || slot.state == SlotState::Cancelled) return false;
    const uint64_t needed = held_ - slot.capacity + capacity;
    if (needed <= limits_.inFlightCap) break;
    if (reclaimIdle(needed - limits_.inFlightCap, slot)) continue;
    slot.state = SlotState::WaitingMemory;
    changed_.notify_all();
    changed_.wait(lock);
  }
  held_ -= slot.capacity;
  slot.buffer.reset(new (std::nothrow) unsigned char[capacity]);
  slot.capacity = slot.buffer ? capacity : 0;
  held_ += slot.capacity;
  if (held_ > peakHeld_) peakHeld_ = held_;
  slot.state = SlotState::Opening;
  return slot.buffer != nullptr;
}

// Frees buffers of slots whose data nobody will read, until `wanted` bytes
// are free or none is left; true when anything was freed.
bool ParallelPrefetch::reclaimIdle(uint64_t wanted, const Slot& keep) {
  uint64_t freed = 0;
  for (Slot& slot : slots_) {
    if (freed >= wanted) break;
    if (&slot == &keep || slot.capacity == 0 || !obsolete(slot)) continue;
    freed += slot.capacity;
    held_ -= slot.capacity;
    slot.buffer.reset();
    slot.capacity = 0;
  }
  return freed > 0;
}

void ParallelPrefetch::finishJob(Slot& slot, bool done) {
  slot.state = done && slot.state != SlotState::Cancelled ? SlotState::Done : SlotState::Failed;
  changed_.notify_all();
}

bool ParallelPrefetch::busy(const Slot& slot) const {
  return slot.state == SlotState::Opening || slot.state == SlotState::WaitingMemory ||
         slot.state == SlotState::Working || slot.state == SlotState::Cancelled;
}

// A slot no worker uses and whose data the run has passed (or never gets).
bool ParallelPrefetch::obsolete(const Slot& slot) const {
  return !busy(slot) && (slot.state != SlotState::Done || slot.index < position_);
}

}  // namespace kxzef
