// Extraction into files, directories and links: archives from Info-ZIP zip
// and Python's zipfile judge what must come out (and that zef's audit passes
// them); hand-built bytes give the links and the failures.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "audit/archive_audit.h"
#include "extract/extract_fixture.h"
#include "extract/unzip_driver.h"

namespace kxzef {
namespace {

namespace fs = std::filesystem;
using testing::HandEntry;
using testing::storedEntry;
using Extraction = testing::ExtractTest;

// The one test of archives made by other tools: zef's audit must find
// nothing in them, and the library must extract what they hold.
TEST_F(Extraction, PeerArchivesExtractWholeWithoutFindings) {
  if (!makePeerArchives()) GTEST_SKIP() << "needs zip, unzip and python3";
  for (const std::string archive : testing::PeerArchives) {
    AuditReport report;
    ASSERT_EQ(auditArchive(archive.c_str(), {defaultMaxTotalSize(0), path()}, report), AuditOk) << archive;
    std::vector<AuditFinding> failures;
    EXPECT_EQ(testArchive(archive.c_str(), report, failures), AuditOk) << archive;
    EXPECT_TRUE(report.findings.empty() && failures.empty()) << archive;
    EXPECT_EQ(newReader()->unzipAllTo(archive.c_str(), ("out-" + archive).c_str()), 0);
    for (const testing::PeerFile& file : testing::PeerFiles) {
      const std::string extracted = "out-" + archive + "/" + file.name;
      struct stat status {};
      stat(extracted.c_str(), &status);
      EXPECT_EQ(readFile(extracted), file.content) << extracted;
      EXPECT_EQ(status.st_mode & 07777, file.mode) << extracted;
      EXPECT_EQ(status.st_mtime, file.modified) << extracted;
    }
    EXPECT_TRUE(fs::is_directory("out-" + archive + "/tree/hollow")) << archive;
  }
  EXPECT_EQ(capture.error(), "");
}

// Without paths, directories and regular files are skipped and links are made
// under their file name in the current directory.
TEST_F(Extraction, LinksCarryTheirTargetWithOrWithoutPaths) {
  HandEntry link = storedEntry("x/l", "y.txt");
  link.centralExtra = testing::linkBlock("y.txt");
  const std::vector<HandEntry> entries = {storedEntry("x/d/", ""), storedEntry("x/y.txt", "why"), link};
  EXPECT_EQ(openArchive(entries, true, false)->extractAll(true), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status("x")));
  EXPECT_EQ(fs::read_symlink("l"), "y.txt");
  EXPECT_EQ(openArchive(entries)->extractAll(true), 0);
  EXPECT_TRUE(fs::is_directory("x/d"));
  EXPECT_EQ(fs::read_symlink("x/l"), "y.txt");
}

TEST_F(Extraction, EachObstacleGivesItsOwnStatusWithItsMessages) {
  HandEntry badCrc = storedEntry("bad-crc.txt", "payload");
  badCrc.crc ^= 1;
  HandEntry corrupt = testing::deflatedEntry("corrupt.bin", "data");
  corrupt.data.assign(corrupt.data.size(), '\xFF');  // deflate block type 3 does not exist
  const std::tuple<HandEntry, int, std::string, std::string> cases[] = {  // entry, status, error, output
      {storedEntry("file", "new"), 0, "", ""},       // an existing file is replaced
      {storedEntry("empty-dir", "new"), 0, "", ""},  // so is an empty directory
      // A directory with content cannot be removed.
      {storedEntry("busy", "new"), StatusOutputFileError,
       "Failed to remove \n 'busy'. \n Verify file ownership and access permissions.\nError opening 'busy'\n", ""},
      // A file stands where a parent directory must go.
      {storedEntry("file/sub/f.txt", "x"), StatusOutputFileError,
       "Failed to create a directory required to extract the ZEF file.\n Please make sure that you have appropriate "
       "permissions and re-run the\n application.\nSystem error text: 'Not a directory'Error opening 'file/sub'\n",
       "\nCode: " + std::to_string(ENOTDIR) + "\n"},
      {badCrc, StatusCrcError, "Error\nwith zipfile in CloseCurrentFile\n", ""},   // found when the entry closes
      {corrupt, Z_DATA_ERROR, "Error\nwith zipfile in unzReadCurrentFile\n", ""},  // found while inflating
  };
  for (const auto& [entry, status, error, output] : cases) {
    writeFile("file", "old content");
    writeFile("busy/inside.txt", "keep");
    mkdir("empty-dir", 0755);  // a file from the second case on
    capture.clear();
    EXPECT_EQ(openArchive({entry, storedEntry("after.txt", "x")})->extractAll(true), status) << entry.name;
    EXPECT_EQ(capture.error(), error) << entry.name;
    EXPECT_EQ(capture.output(), output) << entry.name;
    EXPECT_EQ(std::remove("after.txt") == 0, status == 0) << "the run stops at a failure";
  }
  EXPECT_EQ(readFile("empty-dir"), "new");
  EXPECT_EQ(readFile("bad-crc.txt"), "payload");  // written in place before the check
}

TEST_F(Extraction, OverwriteQuestionFollowsTheAnswerGiven) {
  const std::string one = "The file 'one' exists. Overwrite ? [y]es, [n]o, [A]ll:\n";
  const std::string two = "The file 'two' exists. Overwrite ? [y]es, [n]o, [A]ll:\n";
  const std::string cases[][3] = {  // answers, contents of one and two, questions
      {"x\ny\nn\n", "new|old", one + one + two},  // an unknown answer asks again; yes, then no
      {"A", "new|new", one},                     // all: no later question
      {"", "old|old", one + two},                // the end of input answers no
  };
  for (const auto& [answers, contents, questions] : cases) {
    writeFile("one", "old");
    writeFile("two", "old");
    capture.clear();
    ASSERT_TRUE(testing::feedStandardInput(answers));
    EXPECT_EQ(openArchive({storedEntry("one", "new"), storedEntry("two", "new")}, false)->extractAll(true), 0);
    EXPECT_EQ(readFile("one") + "|" + readFile("two"), contents) << answers;
    EXPECT_EQ(capture.error(), questions) << answers;
  }
}

}  // namespace
}  // namespace kxzef
