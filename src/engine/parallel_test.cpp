#include "engine/parallel_test.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "engine/worker_threads.h"

namespace kxzef {

namespace {

constexpr size_t RangesPerThread = 4;  // enough that one slow range leaves the others work to share

struct TestRange {
  size_t first = 0;
  size_t last = 0;
  int status = AuditOk;
  std::vector<AuditFinding> failures;
};

// Cuts the entries into `count` ranges of about equal compressed size. A
// claimed size is never taken past the archive's own size.
std::vector<TestRange> cutRanges(const AuditReport& report, size_t count) {
  const auto weight = [&report](const AuditEntry& entry) {
    return std::min<uint64_t>(entry.compressedSize, report.archiveSize) + 1;
  };
  uint64_t total = 0;
  for (const AuditEntry& entry : report.entries) total += weight(entry);
  std::vector<TestRange> ranges;
  const uint64_t share = total / count + 1;
  uint64_t filled = 0;
  TestRange range;
  for (size_t i = 0; i < report.entries.size(); ++i) {
    filled += weight(report.entries[i]);
    if (filled >= share) {
      range.last = i + 1;
      ranges.push_back(range);
      range.first = range.last;
      filled = 0;
    }
  }
  range.last = report.entries.size();
  if (range.first < range.last) ranges.push_back(range);
  return ranges;
}

}  // namespace

int testArchiveInParallel(const char* path, const AuditReport& report, unsigned threads,
                          std::vector<AuditFinding>& failures) {
  if (threads <= 1 || report.entries.size() < 2) return testArchive(path, report, failures);
  std::vector<TestRange> ranges = cutRanges(report, size_t{threads} * RangesPerThread);
  std::atomic<size_t> next{0};
  const auto work = [&]() {
    for (size_t r = next++; r < ranges.size(); r = next++) {
      ranges[r].status = testEntries(path, report, ranges[r].first, ranges[r].last, ranges[r].failures);
    }
  };
  std::vector<std::thread> workers;
  startWorkers(threads - 1, workers, work);
  work();
  for (std::thread& worker : workers) worker.join();
  for (TestRange& range : ranges) {
    failures.insert(failures.end(), range.failures.begin(), range.failures.end());
    if (range.status != AuditOk) return range.status;
  }
  return AuditOk;
}

}  // namespace kxzef
