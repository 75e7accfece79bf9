#include "audit/archive_audit.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::edited;
using testing::HandEntry;
using testing::leBytes;
using testing::patchLE;
using testing::storedEntry;
using testing::withMode;

// Puts a ZIP64 end record and its locator between the directory and the end
// record, which then marks its counts, size and offset as the format asks.
std::string withZip64End(std::string bytes, uint64_t entries) {
  const size_t end = bytes.size() - 22;  // no archive comment
  const std::string directorySize = bytes.substr(end + 12, 4), directoryOffset = bytes.substr(end + 16, 4);
  const std::string record = leBytes(0x06064B50, 4)  // signature
                             + leBytes(44, 8)        // size of the rest of the record
                             + leBytes(45, 2)        // version made by
                             + leBytes(45, 2)        // version needed
                             + leBytes(0, 4)         // this disk
                             + leBytes(0, 4)         // disk where the directory starts
                             + leBytes(entries, 8)   // entries on this disk
                             + leBytes(entries, 8)   // entries in total
                             + directorySize + leBytes(0, 4)     // directory size, 8 bytes
                             + directoryOffset + leBytes(0, 4);  // directory offset, 8 bytes
  const std::string locator = leBytes(0x07064B50, 4)  // signature
                              + leBytes(0, 4)         // disk of the ZIP64 end record
                              + leBytes(end, 8)       // its offset
                              + leBytes(1, 4);        // disks in total
  std::string tail = bytes.substr(end);
  patchLE(tail, 8, 0xFFFF, 2);
  patchLE(tail, 10, 0xFFFF, 2);
  patchLE(tail, 12, 0xFFFFFFFF, 4);
  patchLE(tail, 16, 0xFFFFFFFF, 4);
  return bytes.substr(0, end) + record + locator + tail;
}

HandEntry unixLink(const std::string& name, const std::string& target) {
  return withMode(storedEntry(name, target), 0120777);
}

// The library's own link: a regular mode, the target in the Unix extra block.
HandEntry blockLink(const std::string& name, const std::string& target) {
  return edited(storedEntry(name, target), [&](HandEntry& e) { e.centralExtra = testing::linkBlock(target); });
}

std::string archiveOf(const std::vector<HandEntry>& entries) { return buildArchive(entries); }
std::string oneEntry(const std::string& name) { return buildArchive({storedEntry(name, "1")}); }

// An archive of one entry whose local header is `change`d.
template <typename Change>
std::string localChanged(Change change) {
  const HandEntry entry = storedEntry("a", "12345");
  const std::vector<HandEntry> locals{edited(entry, change)};
  return buildArchive({entry}, "", &locals);
}

std::string withPatch(std::string bytes, size_t offset, uint64_t value, int width) {
  patchLE(bytes, offset, value, width);
  return bytes;
}

// Offset of the end record in an archive without a comment.
size_t endOf(const std::string& bytes) { return bytes.size() - 22; }

// The end record's field at `offset` set to `value`.
std::string endPatched(const std::string& bytes, size_t offset, uint64_t value, int width) {
  return withPatch(bytes, endOf(bytes) + offset, value, width);
}

// One line per finding: the entry's index (or "archive"), the kind, the detail.
std::vector<std::string> rendered(const AuditReport& report) {
  std::vector<std::string> lines;
  for (const AuditFinding& finding : report.findings) {
    const std::string where = finding.entryIndex < 0 ? "archive" : std::to_string(finding.entryIndex);
    lines.push_back(where + " " + findingText(finding.kind) + ": " + finding.detail);
  }
  return lines;
}

using Lines = std::vector<std::string>;

class ArchiveAudit : public testing::TempDirTest {
 protected:
  AuditReport audit(const std::string& bytes, const AuditOptions& options = {}) {
    AuditReport report;
    EXPECT_EQ(auditArchive(writeFile("t.zip", bytes).c_str(), options, report), AuditOk);
    return report;
  }
};

struct Case {
  std::string bytes;
  Lines findings;  // exactly these, in this order
  const char* why;
};

const std::string TooLong = "has a name of 300 bytes, more than the 255 the reader keeps";

std::vector<Case> nameCases() {
  const std::string a300(300, 'a');
  return {
      {oneEntry("a/..b/c.."), {}, "dots inside components are ordinary names"},
      {oneEntry("..\\..\\x"), {"0 backslash in name: contains a backslash"}, "a Windows path climbs for other tools"},
      {oneEntry(""), {"0 empty name: has an empty name"}, "no name"},
      {oneEntry(std::string("a\0/../../x", 10)),
       {"0 '..' in name: contains a '..' component", "0 NUL byte in name: has a NUL byte inside its name"},
       "the part after the NUL is still checked: other tools may not cut there"},
      {archiveOf({storedEntry(a300, "1"), storedEntry(a300.substr(1) + "b", "2")}),
       {"0 name too long: " + TooLong, "1 name too long: " + TooLong, "1 name collision: has the same path as '" + a300 + "'"},
       "the reader would cut both names to one path"},
      {archiveOf({storedEntry("a", "1"), storedEntry("a", "2")}), {"1 name collision: appears more than once"}, "duplicate"},
      {archiveOf({storedEntry("d/a", "1"), storedEntry("./d//a", "2")}), {"1 name collision: has the same path as 'd/a'"},
       "empty and '.' components write the same path"},
      {archiveOf({storedEntry("a", "1"), withMode(storedEntry("a/", ""), 040755)}),
       {"1 name collision: has the same path as 'a'"}, "a file and a directory of one name"},
  };
}

std::vector<Case> linkCases() {
  const std::string throughD = "passes through the link entry 'd'";
  return {
      {archiveOf({blockLink("d", "../.."), withMode(storedEntry("d/made/", ""), 040755)}),
       {"1 path through a link entry: " + throughD}, "the library's own link form, a directory below it"},
      {archiveOf({storedEntry("a/d/x", "1"), unixLink("a/./d", "/tmp")}),
       {"0 path through a link entry: passes through the link entry 'a/./d'"}, "the link comes later, spelt otherwise"},
      {archiveOf({unixLink("d", "../.."), storedEntry("e/x", "1")}), {}, "a link leaving the tree is no finding by itself"},
      {archiveOf({withMode(storedEntry("d/", ""), 0120777), storedEntry("d/x", "1")}), {},
       "a name ending in '/' is a directory whatever its mode"},
  };
}

std::vector<Case> recordCases() {
  const std::pair<int, const char*> methods[] = {{1, "shrink"}, {7, "method 7"}, {9, "Deflate64"}, {99, "AES"}};
  std::vector<HandEntry> methodEntries;
  Lines methodFindings;
  for (const auto& method : methods) {
    methodEntries.push_back(edited(storedEntry(method.second, "1"), [&](HandEntry& e) { e.method = method.first; }));
    methodFindings.push_back(std::to_string(methodFindings.size()) + " unsupported method: uses " + method.second +
                             ", which is not supported");
  }
  const auto flagged = [](uint64_t flags) { return edited(storedEntry("f", "1"), [=](HandEntry& e) { e.flags = flags; }); };
  const auto moded = [](uint64_t mode) { return archiveOf({withMode(storedEntry("s", "1"), mode)}); };
  const HandEntry described = flagged(8);
  const std::vector<HandEntry> zeroedLocal{edited(described, [](HandEntry& e) { e.crc = e.compressedSize = e.uncompressedSize = 0; })};
  return {
      {archiveOf(methodEntries), methodFindings, "methods other than stored and deflated, by name"},
      {buildArchive({described}, "", &zeroedLocal), {"0 data descriptor: keeps its sizes and CRC in a data descriptor"},
       "zeroed local fields are no mismatch when a descriptor follows"},
      {moded(0107755), {"0 set-ID or sticky bit: has the set-user-ID, set-group-ID and sticky bits"}, "all three"},
      {archiveOf({edited(withMode(storedEntry("s", "1"), 0104755), [](HandEntry& e) { e.versionMadeBy = 0x0014; })}), {},
       "made on FAT: the high half is no Unix mode"},
  };
}

std::vector<Case> layoutCases() {
  const auto sized = [](const char* name, const char* data, uint64_t size) {
    return edited(storedEntry(name, data), [=](HandEntry& e) { e.compressedSize = e.uncompressedSize = size; });
  };
  const std::string two = archiveOf({storedEntry("a", "1"), storedEntry("b", "2")});
  return {
      {archiveOf({sized("a", "aaaa", 36), storedEntry("b", "x")}),  // 36: a's data, then b's header and data
       {"1 overlapping data: overlaps the data of 'a'"}, "one entry's data holds the next entry"},
      {archiveOf({sized("a", "abc", 10)}), {"0 overlapping data: runs into the central directory"}, "data sized past its end"},
      {withPatch(two, endOf(two) - 47, 0, 4),  // the second central signature
       {"archive entry count mismatch: the end record counts 2 entries, the directory holds 1"},
       "the walk stops at a record that is not one"},
      {endPatched(oneEntry("a"), 4, 1, 2), {"archive multi-disk archive: spans several disks"}, "end record on disk 1"},
      {"MZ-stub" + archiveOf({storedEntry("a", "1"), unixLink("l", "a")}), {}, "a self-extractor's stub shifts every offset"},
  };
}

std::vector<Case> zip64Cases() {
  // Tag, size, the true sizes.
  const std::string zip64Extra = leBytes(1, 2) + leBytes(16, 2) + leBytes(5, 8) + leBytes(5, 8);
  const auto marked = [&](bool central) {
    return edited(storedEntry("a", "12345"), [&](HandEntry& e) {
      e.compressedSize = e.uncompressedSize = 0xFFFFFFFF;
      e.localExtra = zip64Extra;
      if (central) e.centralExtra = zip64Extra;
    });
  };
  const std::vector<HandEntry> markedLocal{marked(false)};
  return {
      {withZip64End(oneEntry("a"), 1), {"archive ZIP64: has a ZIP64 end record"}, "ZIP64 end record and locator"},
      {withZip64End(oneEntry("a"), uint64_t{1} << 32),
       {"archive ZIP64: has a ZIP64 end record",
        "archive entry count mismatch: the end record counts 4294967296 entries, the directory holds 1"},
       "a huge claimed count costs nothing"},
      {endPatched(oneEntry("a"), 4, 0xFFFF, 2),
       {"archive ZIP64: marks its end record for ZIP64 without a ZIP64 end record",
        "archive multi-disk archive: spans several disks"},
       "a marker and nothing behind it"},
      {endPatched(endPatched(oneEntry("a"), 8, 0xFFFF, 2), 10, 0xFFFF, 2),
       {"archive entry count mismatch: the end record counts 65535 entries, the directory holds 1"},
       "a count of 65535 is no ZIP64 marker by itself"},
      {archiveOf({marked(true)}),
       {"0 ZIP64: has ZIP64 sizes or offsets in its central record", "0 ZIP64: has ZIP64 sizes in its local header"},
       "sizes from the ZIP64 extra fields agree"},
      {buildArchive({storedEntry("a", "12345")}, "", &markedLocal), {"0 ZIP64: has ZIP64 sizes in its local header"},
       "forced ZIP64 sizes, which the reader compares as they stand"},
  };
}

std::vector<Case> localHeaderCases() {
  const std::string differs = "0 local header mismatch: has a local header with ";
  return {
      {localChanged([](HandEntry& e) { e.name = "b"; }), {differs + "another name"}, "name"},
      {localChanged([](HandEntry& e) { e.method = 8; }), {differs + "another method"}, "method"},
      {localChanged([](HandEntry& e) { e.crc ^= 1; }), {differs + "another CRC"}, "CRC"},
      {localChanged([](HandEntry& e) { e.uncompressedSize = 9; }), {differs + "other sizes"}, "size"},
      {localChanged([](HandEntry& e) { e.flags = 1; }), {differs + "other flags"}, "a reader of the local header decrypts"},
      {archiveOf({edited(storedEntry("a", "1"), [](HandEntry& e) { e.localHeaderOffset = 5; })}),
       {"0 local header mismatch: has no local header where its record points"}, "offset into nothing"},
      {withPatch(oneEntry("a"), 28, 0xFFFF, 2), {"0 local header mismatch: has a local header cut short by the file's end"},
       "extra field longer than the file"},
  };
}

TEST_F(ArchiveAudit, HostileArchivesGiveExactlyTheirFindings) {
  for (const auto& table : {nameCases(), linkCases(), recordCases(), layoutCases(), zip64Cases(), localHeaderCases()}) {
    for (const Case& row : table) EXPECT_EQ(rendered(audit(row.bytes)), row.findings) << row.why;
  }
  const std::string eleven = archiveOf({storedEntry("a", "12345"), storedEntry("b", "123456")});
  const struct { uint64_t limit; Lines findings; } limits[] = {
      {10, {"archive total size over the limit: declares 11 bytes in all, more than the limit of 10"}},
      {11, {}},
      {0, {}},  // no limit
  };
  for (const auto& row : limits) {
    const AuditReport report = audit(eleven, {row.limit, ""});
    EXPECT_EQ(rendered(report), row.findings) << row.limit;
    EXPECT_EQ(report.totalUncompressed, 11u);
  }
}

TEST_F(ArchiveAudit, FilesWithoutAWalkableDirectoryGiveAStatus) {
  const std::string good = archiveOf({storedEntry("a", "1")});
  const struct { std::string bytes; int status; size_t entries; const char* why; } rows[] = {
      {"", AuditNotAnArchive, 0, "empty file"},
      {std::string(70000, 'x'), AuditNotAnArchive, 0, "no end record"},
      {good.substr(0, good.size() - 1), AuditNotAnArchive, 0, "end record cut short"},
      {withPatch(good, endOf(good) + 12, 1000, 4), AuditNotAnArchive, 0, "directory larger than what precedes it"},
      {withPatch(good, endOf(good) + 16, 1000, 4), AuditNotAnArchive, 0, "directory offset past where it must start"},
      {withPatch(good, endOf(good) - 47, 0, 4), AuditNotAnArchive, 0, "one counted entry, no readable record"},
      {withPatch(withPatch(good, endOf(good) - 47, 0, 4), endOf(good) + 10, 0, 2), AuditOk, 0,
       "nothing counted, nothing read"},
      {testing::endRecord(0, 0, 0, 0, ""), AuditOk, 0, "an empty archive"},
      {good + std::string(65535 - 100, 'c'), AuditOk, 1, "garbage after the record, within a comment's reach"},
  };
  for (const auto& row : rows) {
    AuditReport report;
    EXPECT_EQ(auditArchive(writeFile("t.zip", row.bytes).c_str(), {}, report), row.status) << row.why;
    EXPECT_EQ(report.entries.size(), row.entries) << row.why;
  }
  AuditReport report;
  EXPECT_EQ(auditArchive(path("missing.zip").c_str(), {}, report), AuditCannotOpen);
  EXPECT_EQ(auditArchive(path().c_str(), {}, report), AuditCannotOpen) << "a directory";
}

TEST_F(ArchiveAudit, NamesThroughLinksBelowTheDestinationAreFindings) {
  writeFile("dest/real/file", "1");
  ASSERT_EQ(symlink("/tmp", path("dest/out").c_str()), 0);
  ASSERT_EQ(symlink("..", path("dest/real/up").c_str()), 0);
  const std::string bytes = archiveOf({storedEntry("out/x", "1"), storedEntry("real/up/y", "2"),
                                       storedEntry("real/z", "3"), storedEntry("new/out/w", "4"),
                                       storedEntry("out", "5"), storedEntry("../out/v", "6")});
  const Lines expected = {
      "0 path through an existing link: passes through 'out', a link already in the destination",
      "1 path through an existing link: passes through 'real/up', a link already in the destination",
      "5 '..' in name: contains a '..' component",
  };
  for (const std::string& destination : {path("dest"), path("dest") + "/"}) {
    AuditOptions options;
    options.destination = destination;
    EXPECT_EQ(rendered(audit(bytes, options)), expected) << destination;
  }
  EXPECT_EQ(rendered(audit(bytes)), Lines{"5 '..' in name: contains a '..' component"}) << "no destination, no lstat";
}

TEST(AuditText, QuotedNameEscapesAllButPrintableAscii) {
  const struct { std::string name, quoted; } rows[] = {
      {"plain name.txt", "'plain name.txt'"},
      {"it's a\\b", "'it\\'s a\\\\b'"},
      {std::string("\0\n\t\r\x1b\x7f", 6), "'\\x00\\n\\t\\r\\x1b\\x7f'"},
      {"caf\xc3\xa9", "'caf\\xc3\\xa9'"},
  };
  for (const auto& row : rows) EXPECT_EQ(quotedName(row.name), row.quoted);
}

TEST(AuditText, DefaultLimitIsElevenHundredTimesTheArchiveAndAtLeastOneGibibyte) {
  constexpr uint64_t GiB = uint64_t{1} << 30;
  EXPECT_EQ(defaultMaxTotalSize(0), GiB);
  EXPECT_EQ(defaultMaxTotalSize(GiB / 1100), GiB) << "just below the floor";
  EXPECT_EQ(defaultMaxTotalSize(GiB), 1100 * GiB);
  EXPECT_EQ(defaultMaxTotalSize(UINT64_MAX / 1000), UINT64_MAX) << "saturates";
}

}  // namespace
}  // namespace kxzef
