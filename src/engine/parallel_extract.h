// zef's parallel extraction: worker threads inflate and write the regular
// files extractAll hands them, each through a reading core of its own opened
// on the same archive, while the calling thread makes directories and links
// in archive order. Workers print nothing and call no host code; a file that
// fails with them is reported by the driver, which extracts it again. Memory
// stays bounded whatever the entries' sizes: each worker streams through one
// buffer, and at most SlotsPerWorker files per worker wait in the queue.
#ifndef KXZEF_ENGINE_PARALLEL_EXTRACT_H
#define KXZEF_ENGINE_PARALLEL_EXTRACT_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "extract/file_dispatch.h"

namespace kxzef {

class ParallelExtract : public FileDispatch {
 public:
  // `workers` threads read the archive at `archivePath`, which must be the
  // file the driver reads; with 0, begin() returns false.
  ParallelExtract(unsigned workers, std::string archivePath);
  ~ParallelExtract() override;  // ends a run still going
  ParallelExtract(const ParallelExtract&) = delete;
  ParallelExtract& operator=(const ParallelExtract&) = delete;

  bool begin() override;
  bool hand(const FileJob& job) override;
  const std::vector<FailedFile>& finish() override;
  void end() override;

 private:
  enum class JobState { Free, Queued, Working, Written, Failed };
  struct Slot {
    FileJob job;
    JobState state = JobState::Free;
  };

  void work();
  void collect();
  Slot& slotFor(uint64_t number) { return slots_[number % slots_.size()]; }

  const unsigned workerCount_;
  const std::string archivePath_;
  std::vector<Slot> slots_;
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable changed_;  // a job queued or finished, or stopping
  uint64_t handed_ = 0;              // jobs handed over so far
  uint64_t started_ = 0;             // jobs a worker took
  uint64_t collected_ = 0;           // finished jobs whose outcome the driver has
  std::vector<FailedFile> failed_;   // since the last finish()
  std::vector<FailedFile> reported_; // what finish() returned last
  bool stopping_ = false;
};

}  // namespace kxzef

#endif
