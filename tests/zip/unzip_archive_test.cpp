#include "zip/unzip_archive.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::HandEntry;
using testing::sampleText;
using testing::storedEntry;

// lastRead: the last read's result, 0 at the entry's end, a failing status, or a count.
struct ReadOutcome { int openStatus, lastRead; std::string data; int closeStatus; };

// An entry changed after it was built, and how reading it ends. lastRead: 0
// at the entry's end, the failing status, or the count when cut short at `limit`.
struct DataChange {
  HandEntry entry;
  void (*change)(HandEntry&);
  size_t limit;
  int lastRead, closeStatus;
};

class ReadingCore : public testing::TempDirTest {
 protected:
  bool openBytes(const std::string& bytes) {
    archive.closeArchive();
    return archive.openArchive(writeFile("t.zip", bytes).c_str(), nullptr);
  }

  // Opens the current entry, reads it in pieces until its end or `limit` bytes, and closes it.
  ReadOutcome readCurrent(uint32_t piece = 8192, size_t limit = SIZE_MAX) {
    ReadOutcome outcome{archive.openCurrentEntry(nullptr, nullptr, 0), 0, "", 0};
    if (outcome.openStatus != StatusOk) return outcome;
    std::vector<char> buffer(piece);
    int count = 0;
    while (outcome.data.size() < limit && (count = archive.readCurrentEntry(buffer.data(), piece)) > 0)
      outcome.data.append(buffer.data(), count);
    outcome.lastRead = count;
    outcome.closeStatus = archive.closeCurrentEntry();
    return outcome;
  }

  // Reads the changed entry of `row` in pieces of 777 bytes (2,500 when cut short).
  void expectOutcome(const DataChange& row, size_t rowNumber) {
    HandEntry entry = row.entry;
    row.change(entry);
    ASSERT_TRUE(openBytes(buildArchive({entry}))) << rowNumber;
    const ReadOutcome read = readCurrent(row.limit == SIZE_MAX ? 777 : 2500, row.limit);
    EXPECT_EQ(read.lastRead, row.lastRead) << rowNumber;
    EXPECT_EQ(read.closeStatus, row.closeStatus) << rowNumber;
  }

  // One line per entry: name, CRC, sizes, method, then CRC and size of the content read.
  std::string walkListing() {
    std::ostringstream out;
    int status = archive.goToFirstEntry();
    for (; status == StatusOk; status = archive.goToNextEntry()) {
      EntryInfo info{};
      char name[512] = {};
      EXPECT_EQ(archive.getCurrentEntryInfo(&info, name, sizeof name - 1, nullptr, 0, nullptr, 0), StatusOk);
      const ReadOutcome read = readCurrent();
      EXPECT_EQ(read.closeStatus, StatusOk) << name;
      out << name << ' ' << info.crc << ' ' << info.compressedSize << ' ' << info.uncompressedSize << ' '
          << info.compressionMethod << ' ' << testing::crcOf(read.data) << ' ' << read.data.size() << '\n';
    }
    EXPECT_EQ(status, StatusEndOfList);
    return out.str();
  }

  UnzipArchive archive;
};

TEST_F(ReadingCore, ArchiveOpensOnlyWithAReachableConsistentEndRecord) {
  // The entry is large enough that no search window is cut short by the start of the file.
  const HandEntry entry = storedEntry("a", std::string(5000, 'x'));
  const std::string good = buildArchive({entry});
  const size_t end = good.size() - 22;
  const auto patched = [&](size_t offset, uint64_t value, int width, std::string bytes = {}) {
    return testing::patchLE(bytes = good, end + offset, value, width), bytes;
  };
  const auto commented = [&](size_t length) { return buildArchive({entry}, std::string(length, 'c')); };
  const struct { std::string bytes; bool opens; const char* why; } rows[] = {
      {good, true, "no comment"},
      {commented(1002), true, "record at the first search window's edge"},
      {commented(65513), true, "record starts exactly 65,535 bytes from the end"},
      {commented(65514), false, "record one byte further away"},
      {"", false, "empty file"},
      {testing::endRecord(0, 0, 0, 0, ""), false, "a record at offset 0 counts as none"},
      {std::string(100000, 'x'), false, "no signature"},
      {good.substr(0, good.size() - 4), false, "the record is cut short"},
      {patched(8, 0x00040003, 4), false, "3 entries on this disk, 4 in total (two adjacent fields)"},
      {patched(4, 1, 2), false, "disk number not 0"},
      {patched(16, end - 45, 4), false, "central directory claimed to reach beyond the end record"},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(openBytes(row.bytes), row.opens) << row.why;
    EXPECT_EQ(readCurrent().data, row.opens ? entry.data : "") << row.why;
  }
}

// Names and data of every length up to a few hundred bytes, a large entry
// among them: the central directory spans several read blocks, and headers
// and data straddle their edges.
TEST_F(ReadingCore, EntriesAcrossReadBlocksReadWhole) {
  std::vector<HandEntry> entries;
  std::string expected;
  for (size_t i = 0; i < 1500; ++i) {
    const std::string name = std::to_string(i) + "/" + std::string(i % 257, 'n');
    const std::string content = sampleText(i == 700 ? 100000 : i * 13 % 400);
    entries.push_back(i % 2 == 0 ? storedEntry(name, content) : testing::deflatedEntry(name, content));
    const HandEntry& e = entries.back();
    expected += name + " " + std::to_string(e.crc) + " " + std::to_string(e.compressedSize) + " " +
                std::to_string(e.uncompressedSize) + " " + std::to_string(e.method) + " " + std::to_string(e.crc) +
                " " + std::to_string(content.size()) + "\n";
  }
  ASSERT_TRUE(openBytes(buildArchive(entries)));
  EXPECT_EQ(walkListing(), expected);
}

TEST_F(ReadingCore, EntryPositionsRoundTripWithoutWrappingAround) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("a", "1"), storedEntry("b", "22"), storedEntry("c", "333")})));
  ASSERT_EQ(archive.goToNextEntry(), StatusOk);
  uint64_t position = 0, index = 0;
  ASSERT_EQ(archive.getEntryPosition(&position, &index), StatusOk);
  ASSERT_EQ(archive.goToNextEntry(), StatusOk);
  ASSERT_EQ(archive.goToEntryPosition(position, index), StatusOk);
  EXPECT_EQ(readCurrent().data, "22");
  EXPECT_EQ(archive.goToEntryPosition(position + 1, 1), StatusBadArchive);  // no header there
  // The prefix holds a central header of its own at offset 0: a position
  // that wrapped around past the prefix would land on it.
  const std::string prefix = testing::centralHeader(storedEntry("decoy", ""), 0);
  ASSERT_TRUE(openBytes(prefix + buildArchive({storedEntry("real", "x")})));
  ASSERT_EQ(archive.bytesBefore(), prefix.size());
  EXPECT_EQ(archive.goToEntryPosition(UINT64_MAX - prefix.size() + 1, 0), StatusIoError);
  EXPECT_EQ(archive.goToNextEntry(), StatusEndOfList);
}

TEST_F(ReadingCore, LocateEntryFollowsTheCaseRule) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("README.txt", "r"), storedEntry(std::string(255, 'n'), "n"),
                                      storedEntry("x/y", "xy")})));
  const struct { std::string name; int rule, status; const char* content; } rows[] = {
      {"readme.TXT", CaseInsensitive, StatusOk, "r"},
      {"readme.TXT", CaseSensitive, StatusEndOfList, "xy"},
      {"X/Y", 2, StatusOk, "xy"},  // every rule but 1 ignores case
      {std::string(255, 'N'), CaseInsensitive, StatusOk, "n"},  // the longest name there is
  };
  for (const auto& row : rows) {
    ASSERT_EQ(archive.locateEntry("x/y", CaseSensitive), StatusOk);
    EXPECT_EQ(archive.locateEntry(row.name.c_str(), row.rule), row.status) << row.name.substr(0, 20);
    EXPECT_EQ(readCurrent().data, row.content) << row.name.substr(0, 20);
  }
}

TEST_F(ReadingCore, FailedMoveKeepsTheCurrentEntry) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("a", "1"), storedEntry("b", "22"), storedEntry("c", "333")})));
  ASSERT_EQ(archive.goToNextEntry(), StatusOk);
  EXPECT_EQ(archive.locateEntry("absent", CaseInsensitive), StatusEndOfList);
  EXPECT_EQ(archive.locateEntry(std::string(256, 'b').c_str(), CaseInsensitive), StatusBadParameter);
  EXPECT_EQ(readCurrent().data, "22");
  ASSERT_EQ(archive.goToNextEntry(), StatusOk);  // the walk goes on from there
  EXPECT_EQ(archive.goToNextEntry(), StatusEndOfList);
  EXPECT_EQ(readCurrent().data, "333");  // the last entry stays current
}

TEST_F(ReadingCore, LocalHeaderMustAgreeWithTheCentralOne) {
  using Change = std::function<void(HandEntry& central, HandEntry& local)>;
  const struct { Change change; int status; const char* why; } rows[] = {
      {[](HandEntry&, HandEntry& l) { l.compressedSize = 6; }, StatusBadArchive, "compressed size differs"},
      {[](HandEntry&, HandEntry& l) { l.crc ^= 1; }, StatusBadArchive, "CRC differs"},
      {[](HandEntry&, HandEntry& l) { l.nameLengthField = 3; }, StatusBadArchive, "name length differs"},
      // flag bit 3: sizes and CRC follow the data
      {[](auto&, auto& l) { l.flags = 8; l.compressedSize = l.uncompressedSize = l.crc = 0; }, StatusOk, "bit 3"},
      {[](HandEntry&, HandEntry& l) { l.localExtra = "local extra"; }, StatusOk, "extra length may differ"},
      {[](HandEntry& c, HandEntry& l) { c.method = l.method = 12; }, StatusBadArchive, "unknown method"},
      {[](HandEntry& c, HandEntry&) { c.localHeaderOffset = 0xFFFFFFF0; }, StatusBadArchive, "offset outside"},
  };
  for (const auto& row : rows) {
    HandEntry central = storedEntry("name", "content");
    HandEntry local = central;
    row.change(central, local);
    const std::vector<HandEntry> locals{local};
    ASSERT_TRUE(openBytes(buildArchive({central}, "", &locals))) << row.why;
    const ReadOutcome read = readCurrent();
    EXPECT_EQ(read.openStatus, row.status) << row.why;
    EXPECT_EQ(read.data, row.status == StatusOk ? "content" : "") << row.why;
  }
}

// The CRC is judged only after a full read; damaged data ends the reading
// with the status of what found it.
TEST_F(ReadingCore, DamagedDataEndsReadingWithItsStatus) {
  const HandEntry stored = storedEntry("stored", sampleText(20000));
  const HandEntry deflated = testing::deflatedEntry("deflated", sampleText(20000));
  const auto flipCrc = [](HandEntry& e) { e.crc ^= 0x80000000u; };
  const DataChange rows[] = {
      {deflated, flipCrc, SIZE_MAX, 0, StatusCrcError},
      {deflated, flipCrc, 2500, 2500, StatusOk},  // half read: no verdict
      {stored, [](HandEntry& e) { e.uncompressedSize = 3; }, SIZE_MAX, 0, StatusCrcError},  // size too short
      {deflated, [](HandEntry& e) { e.data[0] = '\xFF'; }, SIZE_MAX, Z_DATA_ERROR, StatusOk},  // no block type 3
      {deflated, [](HandEntry& e) { e.data.resize(e.compressedSize /= 2); }, SIZE_MAX, Z_BUF_ERROR, StatusOk},
      {stored, [](HandEntry& e) { e.compressedSize = e.uncompressedSize = 100000; }, SIZE_MAX, StatusIoError,
       StatusOk},  // runs off the end of the file
  };
  for (const auto& row : rows) expectOutcome(row, &row - rows);
}

}  // namespace
}  // namespace kxzef
