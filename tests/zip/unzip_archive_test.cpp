#include "zip/unzip_archive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/status_names.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::crcOf;
using testing::deflatedEntry;
using testing::endRecord;
using testing::HandEntry;
using testing::patchLE;
using testing::storedEntry;

// Text that deflates well and spans several input blocks once compressed badly.
std::string sampleText(size_t size) {
  std::string text;
  for (size_t i = 0; text.size() < size; ++i) text += "line " + std::to_string(i * 7919 % 10007) + "\n";
  text.resize(size);
  return text;
}

// Bytes that do not compress, from a fixed linear congruential sequence.
std::string noise(size_t size) {
  std::string bytes(size, '\0');
  uint32_t state = 12345;
  for (char& byte : bytes) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

struct ReadOutcome {
  int openStatus;
  int lastRead;  // 0 when the entry was read to its end, else the failing status
  std::string data;
  int closeStatus;
};

class ReadingCore : public testing::TempDirTest {
 protected:
  bool openBytes(const std::string& bytes) {
    return openArchive(archive, writeFile("t.zip", bytes).c_str(), nullptr);
  }

  std::string currentName() {
    char name[1024] = {};
    const int status = getCurrentEntryInfo(archive, nullptr, name, sizeof name - 1, nullptr, 0, nullptr, 0);
    return status == StatusOk ? name : "<" + testing::describeStatus(status) + ">";
  }

  // Opens the current entry, reads it in pieces of `piece` bytes and closes it.
  ReadOutcome readCurrent(uint32_t piece = 8192, int raw = 0) {
    ReadOutcome outcome{openCurrentEntry(archive, nullptr, nullptr, raw), 0, "", 0};
    if (outcome.openStatus != StatusOk) return outcome;
    std::vector<char> buffer(piece);
    int count = 0;
    while ((count = readCurrentEntry(archive, buffer.data(), piece)) > 0) outcome.data.append(buffer.data(), count);
    outcome.lastRead = count;
    outcome.closeStatus = closeCurrentEntry(archive);
    return outcome;
  }

  // One line per entry: name, CRC, sizes, method, then the content's CRC as read.
  std::string walkListing() {
    std::ostringstream out;
    int status = goToFirstEntry(archive);
    for (; status == StatusOk; status = goToNextEntry(archive)) {
      EntryInfo info{};
      char name[1024] = {};
      EXPECT_STATUS(StatusOk, getCurrentEntryInfo(archive, &info, name, sizeof name - 1, nullptr, 0, nullptr, 0));
      const ReadOutcome read = readCurrent();
      EXPECT_STATUS(StatusOk, read.closeStatus) << name;
      out << name << ' ' << info.crc << ' ' << info.compressedSize << ' ' << info.uncompressedSize << ' '
          << info.compressionMethod << ' ' << crcOf(read.data) << ' ' << read.data.size() << '\n';
    }
    EXPECT_STATUS(StatusEndOfList, status);
    return out.str();
  }

  // The same listing as walkListing, from Python's zipfile, the independent judge.
  std::string pythonListing(const std::string& file) {
    const std::string script =
        "import sys, zipfile, zlib\n"
        "z = zipfile.ZipFile(sys.argv[1])\n"
        "for i in z.infolist():\n"
        "    d = z.read(i)\n"
        "    print(i.filename, i.CRC, i.compress_size, i.file_size, i.compress_type, zlib.crc32(d), len(d))\n";
    std::ofstream("listing.py") << script;
    if (testing::runCommand("python3 listing.py '" + file + "' > listing.txt") != 0) return "<python failed>";
    return readFile("listing.txt");
  }

  UnzipArchive archive;
};

// --- Finding the end record -------------------------------------------------

TEST_F(ReadingCore, EndRecordIsFoundWithinItsSearchReach) {
  // Comment lengths chosen so that the record lies at window boundaries, near
  // the 65,535-byte reach, and just beyond it. The entry is large enough that
  // no search window is cut short by the start of the file.
  const HandEntry entry = storedEntry("a", std::string(5000, 'x'));
  const struct {
    size_t commentLength;
    bool opens;
  } rows[] = {
      {0, true},      {1001, true}, {1002, true},  {1003, true},  {1004, true},  {1005, true},
      {1006, true},   {1007, true}, {2028, true},  {2029, true},  {2030, true},  {2031, true},
      {65000, true},  {65513, true},  // the record starts exactly 65,535 bytes from the end
      {65514, false}, {65535, false},
  };
  for (const auto& row : rows) {
    const std::string comment(row.commentLength, 'c');
    const std::string bytes = buildArchive({entry}, comment);
    UnzipArchive fresh;
    EXPECT_EQ(openArchive(fresh, writeFile("t.zip", bytes).c_str(), nullptr), row.opens) << row.commentLength;
    if (!row.opens) continue;
    EXPECT_EQ(fresh.endRecordPosition, bytes.size() - 22 - row.commentLength);
    uint64_t count = 0;
    uint64_t commentLength = 0;
    EXPECT_STATUS(StatusOk, getGlobalInfo(fresh, &count, &commentLength));
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(commentLength, row.commentLength);
    std::vector<char> back(row.commentLength + 1, 'z');
    EXPECT_EQ(getGlobalComment(fresh, back.data(), back.size()), static_cast<int>(row.commentLength));
    EXPECT_EQ(std::string(back.data()), comment);
  }
}

TEST_F(ReadingCore, ArchiveCommentIsCutToTheBuffer) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("a", "x")}, "hello")));
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(getGlobalComment(archive, buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 4), "hel#");  // no room: not terminated
  EXPECT_EQ(getGlobalComment(archive, buffer, 5), 5);
  EXPECT_EQ(std::string(buffer, 6), "hello#");
  EXPECT_EQ(getGlobalComment(archive, buffer, 6), 5);
  EXPECT_STREQ(buffer, "hello");
  EXPECT_EQ(getGlobalComment(archive, nullptr, 0), 0);
  // A comment length that runs past the end of the file.
  std::string lying = buildArchive({storedEntry("a", "x")}, "hello");
  patchLE(lying, lying.size() - 5 - 2, 9, 2);  // comment length: 9, only 5 present
  UnzipArchive other;
  ASSERT_TRUE(openArchive(other, writeFile("lying.zip", lying).c_str(), nullptr));
  EXPECT_STATUS(StatusIoError, getGlobalComment(other, buffer, sizeof buffer));
}

TEST_F(ReadingCore, FilesWithoutAUsableEndRecordDoNotOpen) {
  const std::string good = buildArchive({storedEntry("a", "x")});
  const size_t end = good.size() - 22;
  const auto patched = [&](size_t offset, uint64_t value) {
    std::string bytes = good;
    patchLE(bytes, end + offset, value, offset >= 12 && offset < 20 ? 4 : 2);
    return bytes;
  };
  const struct {
    std::string bytes;
    const char* why;
  } rows[] = {
      {"", "empty file"},
      {"PK\x05\x06", "a bare signature at offset 0"},
      {endRecord(0, 0, 0, 0, ""), "an empty archive's record lies at offset 0, which counts as none"},
      {noise(100000), "no signature in the last 65,535 bytes"},
      {good.substr(0, good.size() - 4), "the record is cut short"},
      {patched(8, 3).replace(end + 10, 2, std::string("\x04\x00", 2)), "3 entries on this disk, 4 in total"},
      {patched(4, 1), "disk number not 0"},
      {patched(6, 1), "central directory on another disk"},
      {patched(16, end - 45), "central directory claimed to reach beyond the end record"},
      {patched(12, end + 1), "central directory larger than the space before the record"},
  };
  for (const auto& row : rows) {
    UnzipArchive fresh;
    EXPECT_FALSE(openArchive(fresh, writeFile("t.zip", row.bytes).c_str(), nullptr)) << row.why;
    EXPECT_FALSE(fresh.isOpen) << row.why;
    EXPECT_STATUS(StatusBadParameter, goToFirstEntry(fresh)) << row.why;
  }
  EXPECT_FALSE(openArchive(archive, path("missing.zip").c_str(), nullptr));
}

TEST_F(ReadingCore, EmptyArchiveBehindAPrefixOpensWithNoEntry) {
  ASSERT_TRUE(openBytes("#!" + endRecord(0, 0, 0, 0, "")));
  EXPECT_EQ(archive.bytesBefore, 2u);
  uint64_t count = 99;
  EXPECT_STATUS(StatusOk, getGlobalInfo(archive, &count, nullptr));
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(archive.currentValid);
  EXPECT_STATUS(StatusEndOfList, goToNextEntry(archive));
  EXPECT_STATUS(StatusEndOfList, locateEntry(archive, "a", CaseInsensitive));
  EXPECT_STATUS(StatusBadParameter, openCurrentEntry(archive, nullptr, nullptr, 0));
}

// --- Archives made by other tools -------------------------------------------

TEST_F(ReadingCore, ReadsArchivesMadeByZipWithAndWithoutAPrefix) {
  if (!testing::haveProgram("zip")) GTEST_SKIP() << "Info-ZIP zip is not installed";
  if (!testing::haveProgram("python3")) GTEST_SKIP() << "python3 (the judge) is not installed";
  writeFile("stored.bin", noise(40000));
  writeFile("empty", "");
  writeFile("dir/text.txt", sampleText(100000));
  writeFile("stub", "#!/bin/sh\necho self-extracting\nexit 0\n");
  ASSERT_EQ(testing::runCommand("zip -q -X -0 z.zip stored.bin empty && zip -q -X -9 -r z.zip dir"), 0);
  ASSERT_EQ(testing::runCommand("cat stub z.zip > sfx.zip && cat stub z.zip > adjusted.zip && zip -q -A adjusted.zip"),
            0);
  for (const char* file : {"z.zip", "sfx.zip", "adjusted.zip"}) {
    closeArchive(archive);
    ASSERT_TRUE(openArchive(archive, path(file).c_str(), nullptr)) << file;
    const std::string listing = walkListing();
    EXPECT_EQ(listing, pythonListing(path(file))) << file;
    EXPECT_NE(listing.find("dir/text.txt "), std::string::npos);
    EXPECT_NE(listing.find(" 8 "), std::string::npos) << "a deflated entry";
    EXPECT_EQ(archive.bytesBefore, std::string(file) == "sfx.zip" ? readFile(path("stub")).size() : 0u) << file;
    ASSERT_STATUS(StatusOk, locateEntry(archive, "stored.bin", CaseInsensitive));
    EXPECT_EQ(readCurrent(1000).data, noise(40000)) << file;
  }
}

TEST_F(ReadingCore, ReadsArchiveMadeByPythonWithCommentsAndExtraFields) {
  if (!testing::haveProgram("python3")) GTEST_SKIP() << "python3 is not installed";
  const std::string script =
      "import zipfile\n"
      "with zipfile.ZipFile('p.zip', 'w') as z:\n"
      "    z.comment = b'archive comment'\n"
      "    i = zipfile.ZipInfo('Stored.TXT', (2008, 3, 5, 9, 18, 6))\n"
      "    i.comment = b'entry comment'\n"
      "    i.extra = b'\\xfe\\xca\\x04\\x00abcd'\n"
      "    z.writestr(i, b'hello stored', compress_type=zipfile.ZIP_STORED)\n"
      "    z.writestr('deflated.txt', b'deflate me ' * 3000, compress_type=zipfile.ZIP_DEFLATED)\n"
      "    z.writestr('empty', b'', compress_type=zipfile.ZIP_STORED)\n";
  std::ofstream("make.py") << script;
  ASSERT_EQ(testing::runCommand("python3 make.py && printf 'MZ-stub' > sfx.zip && cat p.zip >> sfx.zip"), 0);
  ASSERT_TRUE(openArchive(archive, path("sfx.zip").c_str(), nullptr));
  EXPECT_EQ(archive.bytesBefore, 7u);
  EXPECT_EQ(walkListing(), pythonListing(path("p.zip")));

  char comment[64];
  EXPECT_EQ(getGlobalComment(archive, comment, sizeof comment), 15);
  EXPECT_STREQ(comment, "archive comment");
  ASSERT_STATUS(StatusOk, locateEntry(archive, "stored.txt", CaseInsensitive));
  EntryInfo info{};
  char extra[16] = {};
  char entryComment[64];
  ASSERT_STATUS(StatusOk, getCurrentEntryInfo(archive, &info, nullptr, 0, extra, sizeof extra, entryComment,
                                              sizeof entryComment));
  EXPECT_EQ(std::string(extra, info.extraFieldLength), std::string("\xfe\xca\x04\x00" "abcd", 8));
  EXPECT_STREQ(entryComment, "entry comment");
  EXPECT_EQ(info.modified.year, 2008u);
  EXPECT_EQ(info.modified.month, 2u);
  EXPECT_EQ(info.modified.dayOfMonth, 5u);
  EXPECT_EQ(info.modified.hour, 9u);
  EXPECT_EQ(info.modified.minute, 18u);
  EXPECT_EQ(info.modified.second, 6u);
  EXPECT_EQ(readCurrent().data, "hello stored");
}

// --- Walking the central directory ------------------------------------------

TEST_F(ReadingCore, NameBufferIsTerminatedOnlyWhenThereIsRoom) {
  HandEntry entry = storedEntry("name", "x");
  entry.centralExtra = "EXTRA";
  entry.comment = "remark";
  ASSERT_TRUE(openBytes(buildArchive({entry})));
  char name[8];
  std::memset(name, '#', sizeof name);
  ASSERT_STATUS(StatusOk, getCurrentEntryInfo(archive, nullptr, name, 4, nullptr, 0, nullptr, 0));
  EXPECT_EQ(std::string(name, 5), "name#");  // fills the buffer: unterminated
  ASSERT_STATUS(StatusOk, getCurrentEntryInfo(archive, nullptr, name, 2, nullptr, 0, nullptr, 0));
  EXPECT_EQ(std::string(name, 5), "name#");  // cut, and the rest of the buffer untouched
  ASSERT_STATUS(StatusOk, getCurrentEntryInfo(archive, nullptr, name, 5, nullptr, 0, nullptr, 0));
  EXPECT_STREQ(name, "name");

  // The parts after a short name buffer are still found where they are.
  char extra[3];
  char comment[16];
  std::memset(comment, '#', sizeof comment);
  ASSERT_STATUS(StatusOk, getCurrentEntryInfo(archive, nullptr, name, 1, extra, 3, comment, 16));
  EXPECT_EQ(std::string(extra, 3), "EXT");
  EXPECT_STREQ(comment, "remark");
  std::memset(comment, '#', sizeof comment);
  ASSERT_STATUS(StatusOk, getCurrentEntryInfo(archive, nullptr, nullptr, 0, nullptr, 0, comment, 3));
  EXPECT_EQ(std::string(comment, 4), "rem#");
}

TEST_F(ReadingCore, WalkStopsAtTheLastEntryAndPositionsRoundTrip) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("a", "1"), storedEntry("b", "22"), storedEntry("c", "333")})));
  EXPECT_EQ(currentName(), "a");
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));
  uint64_t position = 0;
  uint64_t index = 0;
  ASSERT_STATUS(StatusOk, getEntryPosition(archive, &position, &index));
  EXPECT_EQ(index, 1u);
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));
  EXPECT_STATUS(StatusEndOfList, goToNextEntry(archive));
  EXPECT_STATUS(StatusEndOfList, goToNextEntry(archive));
  EXPECT_EQ(currentName(), "c");
  EXPECT_EQ(readCurrent().data, "333");

  ASSERT_STATUS(StatusOk, goToEntryPosition(archive, position, index));
  EXPECT_EQ(currentName(), "b");
  EXPECT_EQ(readCurrent().data, "22");
  EXPECT_STATUS(StatusBadParameter, getEntryPosition(archive, nullptr, &index));

  // A position that holds no header leaves no entry current.
  EXPECT_STATUS(StatusBadArchive, goToEntryPosition(archive, position + 1, 1));
  EXPECT_STATUS(StatusIoError, goToEntryPosition(archive, UINT64_MAX - 3, 1));
  EXPECT_STATUS(StatusEndOfList, getEntryPosition(archive, &position, &index));
  EXPECT_STATUS(StatusEndOfList, goToNextEntry(archive));
  EXPECT_STATUS(StatusBadParameter, openCurrentEntry(archive, nullptr, nullptr, 0));
  EXPECT_STATUS(StatusOk, goToFirstEntry(archive));
  EXPECT_EQ(currentName(), "a");
}

TEST_F(ReadingCore, PositionsThatWouldWrapAroundAreNotRead) {
  // The prefix holds a central header of its own at offset 0: a position
  // that wrapped around past the prefix would land on it.
  const std::string prefix = testing::centralHeader(storedEntry("decoy", ""), 0);
  ASSERT_TRUE(openBytes(prefix + buildArchive({storedEntry("real", "x")})));
  ASSERT_EQ(archive.bytesBefore, prefix.size());
  EXPECT_STATUS(StatusIoError, goToEntryPosition(archive, UINT64_MAX - prefix.size() + 1, 0));
  EXPECT_STATUS(StatusEndOfList, goToNextEntry(archive));
}

TEST_F(ReadingCore, LyingDirectoryFieldsEndTheWalkWithAStatus) {
  const std::vector<HandEntry> entries = {storedEntry("a", "1"), storedEntry("b", "2")};
  const std::string good = buildArchive(entries);
  const size_t end = good.size() - 22;
  const size_t secondCentral = end - (46 + 1);
  const struct {
    size_t offset;
    uint64_t value;
    int width;
    int status;  // of the step onto the second entry
    const char* why;
  } rows[] = {
      {secondCentral, 0x02014B51, 4, StatusBadArchive, "second central signature wrong"},
      {secondCentral - 47 + 28, 60000, 2, StatusIoError, "first name length runs off the file"},
      {secondCentral - 47 + 30, 3, 2, StatusBadArchive, "first extra length lands inside the next header"},
  };
  for (const auto& row : rows) {
    std::string bytes = good;
    patchLE(bytes, row.offset, row.value, row.width);
    UnzipArchive fresh;
    ASSERT_TRUE(openArchive(fresh, writeFile("t.zip", bytes).c_str(), nullptr)) << row.why;
    EXPECT_STATUS(row.status, goToNextEntry(fresh)) << row.why;
    EXPECT_FALSE(fresh.currentValid) << row.why;
    EXPECT_STATUS(StatusEndOfList, goToNextEntry(fresh)) << row.why;
  }
  // More entries counted than there are headers: the walk meets the end
  // record, too short for a central header, and the failed read wins.
  std::string bytes = good;
  patchLE(bytes, end + 8, 5, 2);   // entries on this disk
  patchLE(bytes, end + 10, 5, 2);  // entries in total
  ASSERT_TRUE(openBytes(bytes));
  EXPECT_STATUS(StatusOk, goToNextEntry(archive));
  EXPECT_STATUS(StatusIoError, goToNextEntry(archive));
  ASSERT_TRUE(openBytes(bytes + std::string(30, '\0')));  // now long enough: the signature is wrong
  EXPECT_STATUS(StatusOk, goToNextEntry(archive));
  EXPECT_STATUS(StatusBadArchive, goToNextEntry(archive));
  // A first header that is not there still opens, with nothing current.
  bytes = good;
  patchLE(bytes, end + 16, 1, 4);  // central directory offset: inside the first local header
  patchLE(bytes, end + 12, 1, 4);  // central directory size, to keep offset + size below the record
  UnzipArchive bad;
  ASSERT_TRUE(openArchive(bad, writeFile("bad.zip", bytes).c_str(), nullptr));
  EXPECT_FALSE(bad.currentValid);
  EXPECT_STATUS(StatusEndOfList, goToNextEntry(bad));
}

// --- Looking up names --------------------------------------------------------

TEST_F(ReadingCore, CompareEntryNamesFollowsItsRule) {
  const struct {
    const char* a;
    const char* b;
    int rule;
    int sign;
  } rows[] = {
      {"Readme.TXT", "README.txt", CaseInsensitive, 0},
      {"Readme.TXT", "README.txt", 2, 0},  // every rule but 1 ignores case
      {"Readme.TXT", "README.txt", CaseSensitive, 1},
      {"ab", "abc", CaseInsensitive, -1},
      {"abc", "AB", CaseInsensitive, 1},
      {"", "", CaseInsensitive, 0},
      {"[", "a", CaseInsensitive, 1},        // 'a' compares as 'A' (0x41) against 0x5B
      {"{", "[", CaseInsensitive, 1},        // only letters are folded
      {"\xC3\xA9", "e", CaseInsensitive, -1},  // bytes above 0x7F compare as negative
      {"\xC3\xA9", "e", CaseSensitive, 1},     // but not byte by byte
      {"\xC3\xA9", "\xC3\x89", CaseInsensitive, 1},  // no folding outside ASCII
  };
  for (const auto& row : rows) {
    const int result = compareEntryNames(row.a, row.b, row.rule);
    EXPECT_EQ((result > 0) - (result < 0), row.sign) << row.a << " vs " << row.b << " rule " << row.rule;
  }
}

TEST_F(ReadingCore, LocateEntryFindsByRuleAndRestoresThePositionWhenNot) {
  const std::string longName(255, 'n');
  const std::string tooLong(300, 'n');
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("README.txt", "r"), storedEntry(tooLong, "t"),
                                      storedEntry(longName, "l"), storedEntry("x/y", "xy")})));
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));  // the 255-character name is current

  const struct {
    std::string name;
    int rule;
    int status;
    const char* content;  // of the entry current afterwards
  } rows[] = {
      {"readme.TXT", CaseInsensitive, StatusOk, "r"},
      {"readme.TXT", CaseSensitive, StatusEndOfList, "l"},
      {"README.txt", CaseSensitive, StatusOk, "r"},
      {"X/Y", 2, StatusOk, "xy"},
      {longName, CaseSensitive, StatusOk, "l"},
      {std::string(256, 'n'), CaseInsensitive, StatusBadParameter, "l"},  // longer than any name sought
      {"absent", CaseInsensitive, StatusEndOfList, "l"},
  };
  for (const auto& row : rows) {
    ASSERT_STATUS(StatusOk, locateEntry(archive, longName.c_str(), CaseSensitive));
    EXPECT_STATUS(row.status, locateEntry(archive, row.name.c_str(), row.rule)) << row.name.substr(0, 20);
    EXPECT_EQ(readCurrent().data, row.content) << row.name.substr(0, 20);
  }
  // After a failed search the walk goes on from the entry that was current.
  EXPECT_STATUS(StatusEndOfList, locateEntry(archive, "absent", CaseInsensitive));
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));
  EXPECT_EQ(currentName(), "x/y");
  EXPECT_STATUS(StatusBadParameter, locateEntry(archive, nullptr, CaseInsensitive));
}

// --- Reading entries ---------------------------------------------------------

TEST_F(ReadingCore, LocalHeaderMustAgreeWithTheCentralOne) {
  const HandEntry central = storedEntry("name", "content");
  const auto withLocal = [&](auto change) {
    HandEntry local = central;
    change(local);
    return std::vector<HandEntry>{local};
  };
  const struct {
    std::vector<HandEntry> locals;
    int openStatus;
    const char* why;
  } rows[] = {
      {withLocal([](HandEntry& e) { e.compressedSize = 6; }), StatusBadArchive, "compressed size differs"},
      {withLocal([](HandEntry& e) { e.uncompressedSize = 6; }), StatusBadArchive, "uncompressed size differs"},
      {withLocal([](HandEntry& e) { e.crc ^= 1; }), StatusBadArchive, "CRC differs"},
      {withLocal([](HandEntry& e) { e.method = 8; }), StatusBadArchive, "method differs"},
      {withLocal([](HandEntry& e) { e.nameLengthField = 3; }), StatusBadArchive, "name length differs"},
      {withLocal([](HandEntry& e) { e.flags = 8;
         e.compressedSize = e.uncompressedSize = e.crc = 0; }), StatusOk,
       "sizes and CRC follow the data"},
      {withLocal([](HandEntry& e) { e.localExtra = "local-only extra"; }), StatusOk, "extra length may differ"},
      {withLocal([](HandEntry& e) { e.versionNeeded = 99;
         e.dosDate = 0; }), StatusOk, "version, date not compared"},
  };
  for (const auto& row : rows) {
    UnzipArchive fresh;
    ASSERT_TRUE(openArchive(fresh, writeFile("t.zip", buildArchive({central}, "", &row.locals)).c_str(), nullptr));
    EXPECT_STATUS(row.openStatus, openCurrentEntry(fresh, nullptr, nullptr, 0)) << row.why;
    if (row.openStatus != StatusOk) continue;
    char data[16] = {};
    EXPECT_EQ(readCurrentEntry(fresh, data, sizeof data), 7) << row.why;
    EXPECT_STREQ(data, "content") << row.why;
    EXPECT_STATUS(StatusOk, closeCurrentEntry(fresh)) << row.why;
  }
}

TEST_F(ReadingCore, EntriesWithUnusableLocalHeadersDoNotOpen) {
  HandEntry unknownMethod = storedEntry("m", "data");
  unknownMethod.method = 12;
  HandEntry offsetOutside = storedEntry("o", "data");
  offsetOutside.localHeaderOffset = 0xFFFFFFF0;
  HandEntry offsetIntoData = storedEntry("d", "data");
  offsetIntoData.localHeaderOffset = 3;
  for (const HandEntry& entry : {unknownMethod, offsetOutside, offsetIntoData}) {
    UnzipArchive fresh;
    ASSERT_TRUE(openArchive(fresh, writeFile("t.zip", buildArchive({entry})).c_str(), nullptr));
    EXPECT_STATUS(StatusBadArchive, openCurrentEntry(fresh, nullptr, nullptr, 0)) << entry.name;
    EXPECT_STATUS(StatusBadParameter, readCurrentEntry(fresh, nullptr, 1)) << entry.name;
  }
}

TEST_F(ReadingCore, CrcIsCheckedOnlyAfterTheWholeEntryWasRead) {
  for (HandEntry entry : {storedEntry("s", sampleText(5000)), deflatedEntry("d", sampleText(5000))}) {
    entry.crc ^= 0x80000000u;
    ASSERT_TRUE(openBytes(buildArchive({entry})));
    const ReadOutcome whole = readCurrent(777);
    EXPECT_EQ(whole.data, sampleText(5000));
    EXPECT_STATUS(StatusCrcError, whole.closeStatus) << entry.name;

    ASSERT_STATUS(StatusOk, openCurrentEntry(archive, nullptr, nullptr, 0));
    char half[2500];
    EXPECT_EQ(readCurrentEntry(archive, half, sizeof half), 2500);
    EXPECT_EQ(atEndOfCurrentEntry(archive), 0);
    EXPECT_EQ(currentEntryOffset(archive), 2500);
    EXPECT_STATUS(StatusOk, closeCurrentEntry(archive)) << entry.name;
    closeArchive(archive);
  }
}

TEST_F(ReadingCore, EmptyStoredEntryReadsNothingAndCloses) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("empty", "")})));
  int method = -1;
  int level = -1;
  ASSERT_STATUS(StatusOk, openCurrentEntry(archive, &method, &level, 0));
  EXPECT_EQ(method, MethodStored);
  EXPECT_EQ(level, 6);  // no hint in the flags
  EXPECT_EQ(atEndOfCurrentEntry(archive), 1);
  char buffer[4];
  EXPECT_EQ(readCurrentEntry(archive, buffer, sizeof buffer), 0);
  EXPECT_STATUS(StatusOk, closeCurrentEntry(archive));
  EXPECT_STATUS(StatusBadParameter, closeCurrentEntry(archive));
}

TEST_F(ReadingCore, LargeEntriesAreReadAcrossInputBlocks) {
  const std::string text = sampleText(300000);
  const std::string bytes = noise(50000);  // deflates to more than three input blocks
  ASSERT_TRUE(openBytes(buildArchive({deflatedEntry("text", text), deflatedEntry("noise", bytes),
                                      storedEntry("stored", bytes)})));
  for (const std::string& expected : {text, bytes, bytes}) {
    for (uint32_t piece : {1u, 4096u, 16384u, 1000000u}) {
      if (piece == 1 && expected.size() > 60000) continue;  // byte by byte only where it is quick
      const ReadOutcome read = readCurrent(piece);
      EXPECT_EQ(read.lastRead, 0) << piece;
      EXPECT_TRUE(read.data == expected) << currentName() << " in pieces of " << piece;
      EXPECT_STATUS(StatusOk, read.closeStatus);
    }
    goToNextEntry(archive);
  }
}

TEST_F(ReadingCore, BrokenDataEndsReadingWithAStatus) {
  const std::string text = sampleText(20000);
  HandEntry corrupt = deflatedEntry("corrupt", text);
  corrupt.data[0] = '\xFF';  // block type 3 does not exist
  HandEntry cut = deflatedEntry("cut", text);
  cut.data.resize(cut.data.size() / 2);
  cut.compressedSize = cut.data.size();
  HandEntry pastEnd = storedEntry("past-end", "abc");
  pastEnd.compressedSize = pastEnd.uncompressedSize = 100000;
  const struct {
    HandEntry entry;
    int status;
  } rows[] = {{corrupt, Z_DATA_ERROR}, {cut, Z_BUF_ERROR}, {pastEnd, StatusIoError}};
  for (const auto& row : rows) {
    ASSERT_TRUE(openBytes(buildArchive({row.entry})));
    const ReadOutcome read = readCurrent(4096);
    EXPECT_STATUS(row.status, read.lastRead) << row.entry.name;
    EXPECT_STATUS(StatusOk, read.closeStatus) << row.entry.name;  // never read to the end: no CRC verdict
    closeArchive(archive);
  }
}

TEST_F(ReadingCore, StoredSizesThatDisagreeStopAtTheSmaller) {
  HandEntry shortData = storedEntry("short", "abcdef");
  shortData.uncompressedSize = 10;  // only six bytes to copy
  HandEntry longData = storedEntry("long", "abcdef");
  longData.uncompressedSize = 3;
  ASSERT_TRUE(openBytes(buildArchive({shortData, longData})));
  ReadOutcome read = readCurrent(4);
  EXPECT_EQ(read.data, "abcdef");
  EXPECT_STATUS(StatusOk, read.closeStatus);  // not at its end, so no CRC verdict
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));
  read = readCurrent(4);
  EXPECT_EQ(read.data, "abc");
  EXPECT_STATUS(StatusCrcError, read.closeStatus);
}

TEST_F(ReadingCore, RawReadingDeliversTheStoredBytesUnchecked) {
  HandEntry entry = deflatedEntry("d", sampleText(4000));
  entry.crc = 0;
  ASSERT_TRUE(openBytes(buildArchive({entry})));
  const ReadOutcome read = readCurrent(100, 1);
  EXPECT_EQ(read.data, entry.data);
  EXPECT_STATUS(StatusOk, read.closeStatus);
}

TEST_F(ReadingCore, LocalExtraFieldIsReadWhileTheEntryIsOpen) {
  HandEntry entry = storedEntry("e", "data");
  entry.localExtra = std::string("\x0D\x00\x04\x00wxyz", 8);  // tag, size, data
  ASSERT_TRUE(openBytes(buildArchive({entry})));
  char extra[16] = {};
  EXPECT_STATUS(StatusBadParameter, getLocalExtraField(archive, extra, sizeof extra));
  ASSERT_STATUS(StatusOk, openCurrentEntry(archive, nullptr, nullptr, 0));
  EXPECT_EQ(getLocalExtraField(archive, nullptr, 0), 8);
  EXPECT_EQ(getLocalExtraField(archive, extra, 0), 0);
  EXPECT_EQ(getLocalExtraField(archive, extra, 6), 6);
  EXPECT_EQ(getLocalExtraField(archive, extra, sizeof extra), 8);
  EXPECT_EQ(std::string(extra, 8), entry.localExtra);
  EXPECT_EQ(readCurrent().data, "data");
}

TEST_F(ReadingCore, OpeningAnotherEntryClosesTheFirst) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("a", "first"), storedEntry("b", "second")})));
  ASSERT_STATUS(StatusOk, openCurrentEntry(archive, nullptr, nullptr, 0));
  char buffer[3];
  EXPECT_EQ(readCurrentEntry(archive, buffer, sizeof buffer), 3);
  ASSERT_STATUS(StatusOk, goToNextEntry(archive));
  EXPECT_EQ(readCurrent().data, "second");
}

TEST_F(ReadingCore, ClosedOrNeverOpenedArchiveRefusesEverything) {
  ASSERT_TRUE(openBytes(buildArchive({storedEntry("a", "x")})));
  ASSERT_STATUS(StatusOk, openCurrentEntry(archive, nullptr, nullptr, 0));
  EXPECT_STATUS(StatusOk, closeArchive(archive));
  EXPECT_TRUE(archive.isOpen);  // closing does not clear it
  UnzipArchive never;
  // Every operation that would reach the file object refuses instead.
  for (UnzipArchive* state : {&archive, &never}) {
    char buffer[8];
    EXPECT_STATUS(StatusBadParameter, closeArchive(*state));
    EXPECT_STATUS(StatusBadParameter, getGlobalComment(*state, buffer, sizeof buffer));
    EXPECT_STATUS(StatusBadParameter, goToFirstEntry(*state));
    EXPECT_STATUS(StatusBadParameter, getCurrentEntryInfo(*state, nullptr, buffer, 8, nullptr, 0, nullptr, 0));
    EXPECT_STATUS(StatusBadParameter, goToEntryPosition(*state, 0, 0));
    EXPECT_STATUS(StatusBadParameter, locateEntry(*state, "a", CaseInsensitive));
    EXPECT_STATUS(StatusBadParameter, openCurrentEntry(*state, nullptr, nullptr, 0));
    EXPECT_STATUS(StatusBadParameter, readCurrentEntry(*state, buffer, sizeof buffer));
    EXPECT_STATUS(StatusBadParameter, getLocalExtraField(*state, buffer, sizeof buffer));
  }
  // Reopening installs a new file object.
  ASSERT_TRUE(openArchive(archive, path("t.zip").c_str(), nullptr));
  EXPECT_EQ(readCurrent().data, "x");
}

TEST_F(ReadingCore, ReadLittleEndianTakesUpToEightBytes) {
  const unsigned char bytes[9] = {0x50, 0x4B, 0x03, 0x04, 0x01, 0x02, 0x03, 0x84, 0xFF};
  EXPECT_EQ(readLittleEndian(bytes, 0), 0u);
  EXPECT_EQ(readLittleEndian(bytes, -1), 0u);
  EXPECT_EQ(readLittleEndian(bytes, 2), 0x4B50u);
  EXPECT_EQ(readLittleEndian(bytes, 4), 0x04034B50u);
  EXPECT_EQ(readLittleEndian(bytes, 8), 0x8403020104034B50u);
}

}  // namespace
}  // namespace kxzef
