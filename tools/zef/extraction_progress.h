// Feedback during a staged extraction. The library reports nothing per
// entry, so zef watches it work: ten times a second a thread of its own
// looks for the file the library has open below the staging directory (in
// /proc/self/fd) and how far it has written it. The entries before that
// one, in the library's order, are done.
#ifndef KXZEF_TOOLS_ZEF_EXTRACTION_PROGRESS_H
#define KXZEF_TOOLS_ZEF_EXTRACTION_PROGRESS_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "audit/archive_audit.h"
#include "feedback.h"

namespace zef {

class ExtractionProgress {
 public:
  // Counts the entries marked in `selected`; `report` must outlive this.
  ExtractionProgress(const Verbosity& verbosity, const kxzef::AuditReport& report, const std::vector<bool>& selected);
  ~ExtractionProgress();
  ExtractionProgress(const ExtractionProgress&) = delete;
  ExtractionProgress& operator=(const ExtractionProgress&) = delete;

  // Starts watching the library write below the directory `stagingFd`, with
  // entry names relative to it. Does nothing when there is nothing to show,
  // or when /proc cannot show it.
  void follow(int stagingFd);

  // Ends following. With `complete`, every entry counts as done: -v prints
  // the names not printed yet.
  void stop(bool complete);

  // The entry `index` is about to be extracted on its own.
  void entry(size_t index);

  // Packed and unpacked bytes of the selected entries.
  uint64_t packedBytes() const { return packed_; }
  uint64_t unpackedBytes() const { return unpacked_; }
  uint64_t entries() const { return order_.size(); }

 private:
  void watch();
  void look();
  void catchUp(size_t current, uint64_t written);

  const kxzef::AuditReport& report_;
  std::vector<size_t> order_;  // the selected entries, in the library's order
  uint64_t packed_ = 0;
  uint64_t unpacked_ = 0;
  Feedback feedback_;
  bool oneByOne_ = false;   // entry() counted the entries
  size_t passed_ = 0;       // entries of order_ done
  uint64_t passedBytes_ = 0;
  std::string stagingPrefix_;                      // the staging directory's absolute path and "/"
  std::unordered_map<std::string, size_t> ranks_;  // staged path to its place in order_
  std::thread watcher_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
};

}  // namespace zef

#endif
