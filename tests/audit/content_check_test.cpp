#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "audit/archive_audit.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::deflatedEntry;
using testing::edited;
using testing::HandEntry;
using testing::sampleText;
using testing::storedEntry;

// One line per failure: the entry's index and the cause.
std::vector<std::string> failureLines(const std::string& file) {
  AuditReport report;
  EXPECT_EQ(auditArchive(file.c_str(), {}, report), AuditOk);
  std::vector<AuditFinding> failures;
  EXPECT_EQ(testArchive(file.c_str(), report, failures), AuditOk);
  std::vector<std::string> lines;
  for (const AuditFinding& failure : failures) {
    EXPECT_EQ(failure.kind, FindingKind::BadData);
    lines.push_back(std::to_string(failure.entryIndex) + " " + failure.detail);
  }
  return lines;
}

class IntegrityTest : public testing::TempDirTest {};

TEST_F(IntegrityTest, DamagedDataIsNamedWithItsEntry) {
  const std::string text = sampleText(3 << 20);  // several input and output buffers' worth
  const HandEntry good = deflatedEntry("good", text);
  const HandEntry stored = storedEntry("stored", "0123456789");
  // Each row changes both headers alike, so that only the data can disagree.
  const struct { HandEntry entry; std::string failure; const char* why; } rows[] = {
      {good, "", "intact, over many buffers"},
      {deflatedEntry("empty", ""), "", "an empty deflate stream"},
      {edited(good, [](HandEntry& e) { e.crc ^= 0x80; }), "failed its CRC check", "CRC flipped"},
      {edited(stored, [](HandEntry& e) { e.data[3] ^= 1; }), "failed its CRC check", "stored byte flipped"},
      {edited(good, [](HandEntry& e) { e.data.resize(e.data.size() / 2), e.compressedSize = e.data.size(); }),
       "ends before its declared size", "deflate stream cut in half"},
      {edited(stored, [](HandEntry& e) { e.uncompressedSize = 11; }), "ends before its declared size",
       "stored data shorter than declared"},
      {edited(deflatedEntry("bomb", std::string(1 << 20, '\0')), [](HandEntry& e) { e.uncompressedSize = 1000; }),
       "inflates past its declared size", "a bomb stops at its declared size"},
      {edited(stored, [](HandEntry& e) { e.uncompressedSize = 9; }), "inflates past its declared size",
       "stored data longer than declared"},
      {edited(good, [](HandEntry& e) { e.data.replace(0, 4, "\xff\xff\xff\xff"); }), "has damaged compressed data",
       "invalid block type"},
      {edited(stored, [](HandEntry& e) { e.method = 14; }), "", "an LZMA entry is the audit's to refuse"},
  };
  for (const auto& row : rows) {
    // The damaged entry sits second, between intact ones, to show the index and that the test goes on.
    const std::string file = writeFile("t.zip", buildArchive({stored, row.entry, deflatedEntry("last", "tail")}));
    const std::vector<std::string> expected =
        row.failure.empty() ? std::vector<std::string>{} : std::vector<std::string>{"1 " + row.failure};
    EXPECT_EQ(failureLines(file), expected) << row.why;
  }
}

TEST_F(IntegrityTest, MissingFileGivesAStatus) {
  std::vector<AuditFinding> failures;
  EXPECT_EQ(testArchive(path("missing.zip").c_str(), AuditReport{}, failures), AuditCannotOpen);
}

}  // namespace
}  // namespace kxzef
