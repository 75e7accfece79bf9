#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "audit/archive_audit.h"
#include "engine/parallel_test.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::deflatedEntry;
using testing::HandEntry;
using testing::sampleText;

std::vector<std::string> lines(const std::vector<AuditFinding>& failures) {
  std::vector<std::string> result;
  for (const AuditFinding& failure : failures) result.push_back(std::to_string(failure.entryIndex) + " " + failure.detail);
  return result;
}

class ParallelIntegrityTest : public testing::TempDirTest {};

// Ranges are cut by compressed size and claimed in any order; the failures
// must still come back as one thread lists them, each once.
TEST_F(ParallelIntegrityTest, FailuresComeInEntryOrderWhateverTheThreads) {
  std::vector<HandEntry> entries;
  for (int i = 0; i < 40; ++i) entries.push_back(deflatedEntry("e" + std::to_string(i), sampleText(1000 + 997 * i)));
  entries[7].crc ^= 1;
  entries[31].uncompressedSize -= 1;
  entries[39].crc ^= 2;
  const std::string file = writeFile("t.zip", buildArchive(entries));
  AuditReport report;
  ASSERT_EQ(auditArchive(file.c_str(), {}, report), AuditOk);
  const std::vector<std::string> expected = {"7 failed its CRC check", "31 inflates past its declared size",
                                             "39 failed its CRC check"};
  for (unsigned threads : {1u, 2u, 3u, 8u}) {
    std::vector<AuditFinding> failures;
    EXPECT_EQ(testArchiveInParallel(file.c_str(), report, threads, failures), AuditOk) << threads;
    EXPECT_EQ(lines(failures), expected) << threads << " threads";
  }
}

}  // namespace
}  // namespace kxzef
