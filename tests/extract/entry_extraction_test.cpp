// Extraction into files, directories and links: archives from Info-ZIP zip
// and Python's zipfile judge what must come out; hand-built bytes give the
// links and every kind of failure.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "extract/extract_fixture.h"
#include "extract/unzip_driver.h"
#include "support/archive_bytes.h"
#include "support/standard_input.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::HandEntry;
using testing::localSeconds;
using testing::statusOf;
using testing::storedEntry;

class Extraction : public testing::ExtractTest {
 protected:
  // Extracts `bytes`, as "app.zef", into the current directory; extractAll's status.
  int extract(const std::string& bytes, bool overwrite = true, bool usePaths = true) {
    writeFile("app.zef", bytes);
    auto reader = newReader();
    if (reader->openWithRoot("app.zef", "", overwrite, usePaths) != 0) return -9999;
    return reader->extractAll(true);
  }
  int extract(const std::vector<HandEntry>& entries, bool overwrite = true, bool usePaths = true) {
    return extract(testing::buildArchive(entries), overwrite, usePaths);
  }

  static HandEntry linkEntry(const std::string& name, const std::string& target) {
    HandEntry entry = storedEntry(name, target);
    entry.centralExtra = testing::linkBlock(target);
    entry.externalAttributes = 0120777u << 16;
    return entry;
  }
};

// Over several transfer buffers, compressible in parts.
std::string mixedBytes(size_t size) {
  std::string bytes(size, '\0');
  uint32_t state = 12345;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1103515245u + 12345u;
    bytes[i] = static_cast<char>(i % 8192 < 4096 ? 'a' + i % 7 : state >> 24);
  }
  return bytes;
}

// Info-ZIP zip takes modes and times from the files; Python's zipfile is
// given them explicitly (external_attr, date_time).
TEST_F(Extraction, PeerArchivesExtractToTheBytesModesAndTimesTheyHold) {
  if (!testing::haveProgram("zip") || !testing::haveProgram("python3")) GTEST_SKIP() << "needs zip and python3";
  struct Source {
    std::string name, content;
    unsigned mode;
    int64_t modified;
  };
  const Source sources[] = {
      {"tree/plain.txt", "plain text\n", 0640, localSeconds(2019, 7, 14, 13, 45, 26)},
      {"tree/nested/deeper/data.bin", mixedBytes(300000), 0751, localSeconds(2003, 1, 2, 3, 4, 6)},
      {"tree/nested/empty.txt", "", 0400, localSeconds(1995, 12, 31, 23, 59, 58)},
  };
  for (const Source& source : sources) {
    writeFile(source.name, source.content, source.mode);
    const utimbuf times{source.modified, source.modified};
    ASSERT_EQ(utime(source.name.c_str(), &times), 0);
  }
  ASSERT_EQ(mkdir("tree/hollow", 0700), 0);
  ASSERT_EQ(testing::runCommand("zip -qr deflated.zip tree && zip -qr0 stored.zip tree"), 0);
  ASSERT_EQ(testing::runPython(R"(import os, time, zipfile
with zipfile.ZipFile('python.zip', 'w') as archive:
    for directory, _, files in sorted(os.walk('tree')):
        archive.writestr(zipfile.ZipInfo(directory + '/'), b'')
        for path in [os.path.join(directory, name) for name in files]:
            info = zipfile.ZipInfo(path, date_time=time.localtime(os.stat(path).st_mtime)[:6])
            info.external_attr = os.stat(path).st_mode << 16
            info.compress_type = zipfile.ZIP_DEFLATED if 'data' in path else zipfile.ZIP_STORED
            archive.writestr(info, open(path, 'rb').read())
)"),
            0);
  for (const std::string archive : {"deflated", "stored", "python"}) {
    EXPECT_EQ(newReader()->unzipAllTo((archive + ".zip").c_str(), archive.c_str()), 0);
    for (const Source& source : sources) {
      const std::string extracted = archive + "/" + source.name;
      EXPECT_EQ(readFile(extracted), source.content) << extracted;
      EXPECT_EQ(statusOf(extracted).permissions, source.mode) << extracted;
      EXPECT_EQ(statusOf(extracted).modified, source.modified) << extracted;
    }
    EXPECT_TRUE(statusOf(archive + "/tree/hollow").isDirectory);
  }
  EXPECT_EQ(capture.error(), "");
}

TEST_F(Extraction, LinksTimesModesAndNamesComeFromTheEntry) {
  const std::string longName = "d/" + std::string(298, 'n');  // cut at 256 bytes
  HandEntry noLink = storedEntry("nul-at-16", "regular data");
  noLink.centralExtra = testing::linkBlock(std::string("\0abc", 4));
  noLink.externalAttributes = 0;  // no Unix mode: permission bits 0000
  HandEntry tool = storedEntry("bin/tool", "#!/bin/sh\n");
  tool.externalAttributes = 0104755u << 16;  // the file type is ignored, set-uid kept
  tool.dosDate = testing::dosDate(2020, 2, 29, 12, 30, 45);
  EXPECT_EQ(extract({storedEntry("target.txt", "T"), linkEntry("links/deeper/to-target", "../../target.txt"),
                     noLink, tool, storedEntry(longName, "long")}),
            0);
  EXPECT_EQ(readFile(longName.substr(0, EntryNameBufferSize)), "long");
  EXPECT_EQ(testing::linkTargetOf("links/deeper/to-target"), "../../target.txt");
  EXPECT_EQ(readFile("nul-at-16"), "regular data");
  EXPECT_EQ(statusOf("nul-at-16").permissions, 0u);
  EXPECT_EQ(statusOf("nul-at-16").modified, localSeconds(2008, 3, 5, 9, 18, 6));
  EXPECT_EQ(statusOf("bin/tool").permissions, 04755u);
  EXPECT_EQ(statusOf("bin/tool").modified, localSeconds(2020, 2, 29, 12, 30, 44));  // 2-second resolution
}

TEST_F(Extraction, WithoutPathsOnlyLinksAreMadeUnderTheirFileName) {
  const std::vector<HandEntry> entries = {storedEntry("x/d/", ""), storedEntry("x/y.txt", "why"),
                                          linkEntry("x/l", "y.txt")};
  EXPECT_EQ(extract(entries, true, false), 0);
  EXPECT_FALSE(statusOf("x").exists);
  EXPECT_EQ(testing::linkTargetOf("l"), "y.txt");
  EXPECT_EQ(extract(entries, true, true), 0);
  EXPECT_TRUE(statusOf("x/d").isDirectory);
  EXPECT_EQ(readFile("x/y.txt"), "why");
}

TEST_F(Extraction, ExistingFilesAndEmptyDirectoriesGiveWayWhenOverwriting) {
  writeFile("file.txt", "old content that is longer");
  ASSERT_EQ(mkdir("was-a-directory", 0755), 0);
  EXPECT_EQ(extract({storedEntry("file.txt", "new"), storedEntry("was-a-directory", "now a file")}), 0);
  EXPECT_EQ(readFile("file.txt"), "new");
  EXPECT_EQ(readFile("was-a-directory"), "now a file");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(Extraction, FailuresGiveTheirMessagesAndStatusAndStopTheRun) {
  struct Case {
    const char* why;
    std::vector<HandEntry> entries;
    std::function<void(std::string& bytes)> patch;
    int status;
    std::string error;
    std::string output;
  };
  const std::string cannotRemove = "Failed to remove \n 'busy'. \n Verify file ownership and access permissions.\n";
  HandEntry badCrc = storedEntry("bad-crc.txt", "payload");
  badCrc.crc ^= 1;
  HandEntry corrupt = testing::deflatedEntry("corrupt.bin", mixedBytes(40000));
  HandEntry truncated = corrupt;
  corrupt.data = std::string(64, '\xFF');  // deflate block type 3 does not exist
  corrupt.compressedSize = corrupt.data.size();
  truncated.data.resize(truncated.data.size() / 2);
  truncated.compressedSize = truncated.data.size();
  HandEntry misplaced = storedEntry("misplaced.txt", "x");
  misplaced.localHeaderOffset = 1;  // no local header signature there
  HandEntry longName = storedEntry("long-name.txt", "x");
  longName.nameLengthField = 60000;  // runs past the end of the file
  const auto claimThree = [](std::string& bytes) {
    testing::patchLE(bytes, bytes.size() - 14, 3, 2);  // entries on this disk
    testing::patchLE(bytes, bytes.size() - 12, 3, 2);  // entries in total
  };
  const Case cases[] = {
      {"a non-empty directory in the way", {storedEntry("busy", "file")}, nullptr, StatusOutputFileError,
       cannotRemove + "Error opening 'busy'\n", ""},
      {"a file where a directory must go", {storedEntry("blocker/sub/f.txt", "x")}, nullptr,
       StatusOutputFileError,
       "Failed to create a directory required to extract the ZEF file.\n Please make sure that you have appropriate "
       "permissions and re-run the\n application.\nSystem error text: 'Not a directory'Error opening 'blocker/sub'\n",
       "\nCode: " + std::to_string(ENOTDIR) + "\n"},
      {"a CRC found wrong at close", {badCrc, storedEntry("after.txt", "x")}, nullptr, StatusCrcError,
       "Error\nwith zipfile in CloseCurrentFile\n", ""},
      {"corrupt deflate data", {corrupt}, nullptr, Z_DATA_ERROR, "Error\nwith zipfile in unzReadCurrentFile\n", ""},
      {"deflate data cut short", {truncated}, nullptr, Z_BUF_ERROR, "Error\nwith zipfile in unzReadCurrentFile\n", ""},
      {"no local header", {misplaced}, nullptr, StatusBadArchive, "Error\nwith zipfile in OpenCurrentFile\n", ""},
      {"a central name past the end", {longName}, nullptr, StatusIoError,
       "Error\n -1with zipfile in GetCurrentFileInfo\n", ""},
      {"an end record claiming more entries", {storedEntry("only.txt", "1")}, claimThree, StatusIoError,
       "Error\nwith zipfile in GoToNextFile\n", ""},
      {"an existing file where the link goes", {linkEntry("blocker", "target")}, nullptr, StatusOutputError,
       "Failed to create symbolic link from file\n 'blocker' \n to file \n 'target' \n Do you have permission to "
       "create the link? Does the linked-to file exist?\nSystem error text: 'File exists'\n", ""},
      {"a file where the link's directory goes", {linkEntry("blocker/sub/l", "target")}, nullptr, StatusOutputError,
       "Failed to create a directory required by a symbolic link. Symbolic link:\n 'blocker/sub/l'\nSystem error "
       "text: 'Not a directory'\n", ""},
  };
  for (const Case& c : cases) {
    writeFile("busy/inside.txt", "keep");
    writeFile("blocker", "plain file");
    std::string bytes = testing::buildArchive(c.entries);
    if (c.patch) c.patch(bytes);
    capture.clear();
    EXPECT_EQ(extract(bytes), c.status) << c.why;
    EXPECT_EQ(capture.error(), c.error) << c.why;
    EXPECT_EQ(capture.output(), c.output) << c.why;
  }
  EXPECT_EQ(readFile("bad-crc.txt"), "payload");  // written in place before the check
  EXPECT_FALSE(statusOf("after.txt").exists);
  EXPECT_EQ(readFile("blocker"), "plain file");
}

TEST_F(Extraction, WriteFailureIsReportedAndStopsTheEntry) {
  if (!statusOf("/dev/full").exists) GTEST_SKIP() << "no /dev/full on this machine";
  ASSERT_EQ(symlink("/dev/full", "full.txt"), 0);
  HandEntry entry = storedEntry("full.txt", std::string(3 * TransferBufferSize, 'f'));
  entry.externalAttributes = 020666u << 16;  // what /dev/full has, should chmod ever reach it
  EXPECT_EQ(extract({entry}), StatusOutputError);
  EXPECT_EQ(capture.error(), "Error in writing extracted file\n");
}

TEST_F(Extraction, OverwriteAnswersFromStandardInputDecideEachFile) {
  const auto question = [](const std::string& file) {
    return "The file '" + file + "' exists. Overwrite ? [y]es, [n]o, [A]ll:\n";
  };
  const std::string q1 = question("one.txt"), q2 = question("two.txt");
  struct Case {
    const char* answers;
    const char* one;  // content of one.txt afterwards
    const char* two;
    std::string questions;
    bool overwriteAfter;
  };
  const Case cases[] = {
      {"x\ny\nn\n", "new one", "old two", q1 + q1 + q2, false},  // an unknown answer asks again
      {"Y N", "new one", "old two", q1 + q2, false},
      {"A", "new one", "new two", q1, true},  // all: no later question
      {"a\n", "new one", "new two", q1, true},
      {"yes\n", "new one", "old two", q1 + q2 + q2 + q2, false},  // one character per read, then the end
      {"", "old one", "old two", q1 + q2, false},                 // the end of input refuses
  };
  const std::string archive = testing::buildArchive(
      {storedEntry("one.txt", "new one"), storedEntry("new.txt", "n"), storedEntry("two.txt", "new two")});
  for (const Case& c : cases) {
    writeFile("one.txt", "old one");
    writeFile("two.txt", "old two");
    std::remove("new.txt");
    capture.clear();
    ASSERT_TRUE(testing::feedStandardInput(c.answers));
    writeFile("app.zef", archive);
    auto reader = newReader();
    ASSERT_EQ(reader->openWithRoot("app.zef", "", false, true), 0);
    EXPECT_EQ(reader->extractAll(false), 0) << c.answers;
    EXPECT_EQ(readFile("one.txt") + "|" + readFile("new.txt") + "|" + readFile("two.txt"),
              std::string(c.one) + "|n|" + c.two)
        << c.answers;
    EXPECT_EQ(capture.error(), c.questions) << c.answers;
    EXPECT_EQ(reader->getOverwrite(), c.overwriteAfter) << c.answers;
  }
}

}  // namespace
}  // namespace kxzef
