// zef's extraction engine: worker threads inflate and write the regular
// files extractAll hands them, each through a reading core of its own opened
// on the same archive, while the calling thread makes directories and links
// in archive order; without workers, with libdeflate, the calling thread
// writes each file as it is handed. Workers print nothing and call no host
// code; a file that fails with them is reported by the driver, which extracts
// it again. Memory stays bounded whatever the entries' sizes: an entry within
// WholeEntryBudget is inflated whole with libdeflate (its compressed and
// its inflated bytes held once per thread), a larger one streams through one
// buffer, and at most QueuedPerWorker files per worker wait in the queue.
#ifndef KXZEF_ENGINE_PARALLEL_EXTRACT_H
#define KXZEF_ENGINE_PARALLEL_EXTRACT_H

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "extract/file_dispatch.h"
#include "whole/whole_buffer.h"
#include "whole/whole_inflate.h"
#include "zip/unzip_archive.h"

namespace kxzef {

// What inflates the files: zlib's stream throughout, or libdeflate for every
// entry within WholeEntryBudget.
enum class ExtractInflater { Zlib, Whole };

class ParallelExtract : public FileDispatch {
 public:
  // `workers` threads read the archive at `archivePath`, which must be the
  // file the driver reads. With 0, or when no thread can be started, the
  // calling thread writes each file in hand() with Whole, and begin()
  // returns false with Zlib.
  ParallelExtract(unsigned workers, std::string archivePath, ExtractInflater inflater = ExtractInflater::Zlib);
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
  // What one thread keeps from file to file.
  struct Tools {
    UnzipArchive core;
    std::unique_ptr<unsigned char[]> buffer;  // zlib's pieces
    WholeInflater whole;
    WholeBuffer compressed;
    WholeBuffer inflated;
  };

  void work();
  bool handHere(const FileJob& job);
  bool openTools(Tools& tools) const;
  bool writeFile(Tools& tools, const FileJob& job) const;
  bool writeWhole(Tools& tools, const FileJob& job) const;
  void collect();
  Slot& slotFor(uint64_t number) { return slots_[number % slots_.size()]; }

  const unsigned workerCount_;
  const std::string archivePath_;
  const ExtractInflater inflater_;
  const mode_t umask_;  // spares fchmod where a new file gets its mode as it is made
  std::unique_ptr<Tools> here_;  // the calling thread's, without workers
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
