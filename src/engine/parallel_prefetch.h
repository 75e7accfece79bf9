// zef's creation engine: worker threads read and compress plain files ahead
// of the creation run, which copies their output into the archive in its own
// order, so the archive is the one a single thread writes. With libdeflate
// (PrefetchDeflater::Whole) every file within `largestWhole` is deflated in
// one call, by a worker or, when none has it ready, by the calling thread in
// take(), so the archive does not depend on the number of workers or their
// timing. Larger files, and every file with zlib, go through zlib's stream,
// which gives the bytes the run writes itself: a file no worker has ready is
// then left to the run. Workers never call host code (they only read files
// and compress), and memory stays bounded: finished data of at most
// `inFlightCap` bytes, one file's input and output per thread within
// `largestWhole`, and files larger than `largestFile` are left to the run,
// which streams them through zlib as always.
#ifndef KXZEF_ENGINE_PARALLEL_PREFETCH_H
#define KXZEF_ENGINE_PARALLEL_PREFETCH_H

#include <sys/stat.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "create/entry_prefetch.h"
#include "whole/whole_buffer.h"
#include "whole/whole_deflate.h"
#include "zip/zlib_stream.h"

namespace kxzef {

constexpr uint64_t DefaultInFlightCap = uint64_t{64} << 20;
// Half the cap, so that two such files can be in flight at once.
constexpr uint64_t DefaultLargestPrefetch = DefaultInFlightCap / 2;
constexpr size_t SlotsPerWorker = 32;  // how many inputs each worker may run ahead of the run

struct PrefetchLimits {
  uint64_t inFlightCap = DefaultInFlightCap;     // bytes of output buffers held at once
  uint64_t largestFile = DefaultLargestPrefetch; // larger files are never prefetched
  uint64_t largestWhole = WholeEntryBudget;      // larger files are deflated by zlib's stream
};

// What deflates the files: zlib's stream, giving the bytes the run would
// write itself, or libdeflate, one call per file, faster and as small.
enum class PrefetchDeflater { Zlib, Whole };

class ParallelPrefetch : public EntryPrefetch {
 public:
  // `workers` threads are started by begin() and stopped by end(). With 0,
  // or when no thread can be started, take() deflates a file within
  // `largestWhole` itself with Whole, and returns null otherwise.
  // `largestWhole` must stay within WholeEntryBudget.
  explicit ParallelPrefetch(unsigned workers, PrefetchLimits limits = PrefetchLimits{},
                            PrefetchDeflater deflater = PrefetchDeflater::Zlib);
  ~ParallelPrefetch() override;  // ends a run still going
  ParallelPrefetch(const ParallelPrefetch&) = delete;
  ParallelPrefetch& operator=(const ParallelPrefetch&) = delete;

  void begin(std::vector<std::string> sources, int level) override;
  const PrefetchedEntry* take(size_t index, const struct stat& seen) override;
  void end() override;

  // The most bytes of output buffers held at once since begin(); for tests.
  uint64_t peakHeld() const;

  // Waits until no worker is reading or compressing and none may start
  // another input before the run moves on; for tests.
  void settle();

 private:
  enum class SlotState { Free, Opening, WaitingMemory, Working, Done, Failed, Cancelled };
  // What one thread keeps from file to file.
  struct Tools {
    DeflateStream stream;
    WholeDeflater whole;
    std::unique_ptr<unsigned char[]> readBuffer;  // zlib's pieces
    WholeBuffer input;                            // a whole file, for libdeflate
    WholeBuffer output;                           // the calling thread's own output
  };
  struct Slot {
    size_t index = 0;
    SlotState state = SlotState::Free;
    std::unique_ptr<unsigned char[]> buffer;
    uint64_t capacity = 0;
    struct stat file {};  // what the worker opened
    PrefetchedEntry entry;
  };
  void work();
  bool deflatesWhole(uint64_t fileSize) const;
  bool sizeJob(Tools& tools, uint64_t fileSize, uint64_t& capacity);
  bool runJob(Tools& tools, int fd, uint64_t fileSize, unsigned char* out, uint64_t capacity,
              PrefetchedEntry& entry);
  const PrefetchedEntry* takeReady(size_t index, const struct stat& seen);
  const PrefetchedEntry* prepareHere(size_t index, const struct stat& seen);
  bool claim(std::unique_lock<std::mutex>& lock, size_t& index);
  bool claimable() const;
  bool reserve(std::unique_lock<std::mutex>& lock, Slot& slot, uint64_t capacity);
  bool reclaimIdle(uint64_t wanted, const Slot& keep);
  void finishJob(Slot& slot, bool done);
  bool busy(const Slot& slot) const;
  bool obsolete(const Slot& slot) const;
  Slot& slotFor(size_t index) { return slots_[index % slots_.size()]; }

  const unsigned workerCount_;
  const PrefetchLimits limits_;
  const PrefetchDeflater deflater_;
  Tools here_;                 // the calling thread's, for take()
  PrefetchedEntry hereEntry_;  // what take() made itself
  std::vector<std::string> sources_;
  int level_ = 0;
  std::vector<Slot> slots_;
  std::vector<std::thread> threads_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;  // any slot's state, the run's position, or stopping
  size_t next_ = 0;                  // the next input a worker may claim
  size_t position_ = 0;              // the input the run asked about last
  uint64_t held_ = 0;                // bytes of all slots' buffers
  uint64_t peakHeld_ = 0;
  bool stopping_ = false;
};

}  // namespace kxzef

#endif
