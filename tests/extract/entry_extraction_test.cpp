// Extraction of entries into files, directories and links: archives from
// Info-ZIP zip and Python's zipfile as judges of what must come out, and
// hand-built bytes for links and for every kind of failure.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>
#include <string>
#include <vector>

#include "extract/extract_fixture.h"
#include "extract/unzip_driver.h"
#include "support/archive_bytes.h"
#include "support/zip_records.h"
#include "support/standard_input.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::HandEntry;
using testing::storedEntry;
using testing::linkTargetOf;
using testing::localSeconds;
using testing::statusOf;
using testing::linkBlock;

const std::string ErrorOpening = "Error opening '";
const std::string DirectoryFailure =
    "Failed to create a directory required to extract the ZEF file.\n Please make sure that you have "
    "appropriate permissions and re-run the\n application.\n";

class Extraction : public testing::ExtractTest {
 protected:
  // Writes `entries` as "app.zef" and extracts them all into the current
  // directory with the given flags; returns extractAll's status.
  int extract(const std::vector<HandEntry>& entries, bool overwrite = true, bool usePaths = true) {
    writeFile("app.zef", buildArchive(entries));
    auto reader = newReader();
    if (reader->openWithRoot("app.zef", "", overwrite, usePaths) != 0) return -9999;
    return reader->extractAll(true);
  }

  // Bytes that deflate well in places and not at all in others, over several
  // transfer buffers.
  static std::string mixedBytes(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 12345;
    for (size_t i = 0; i < size; ++i) {
      state = state * 1103515245 + 12345;
      bytes[i] = (i / 4096) % 2 == 0 ? static_cast<char>('a' + i % 7) : static_cast<char>(state >> 24);
    }
    return bytes;
  }

  static void setTime(const std::string& file, int64_t seconds) {
    const utimbuf times{static_cast<time_t>(seconds), static_cast<time_t>(seconds)};
    ASSERT_EQ(utime(file.c_str(), &times), 0);
  }
};

TEST_F(Extraction, InfoZipArchivesExtractToTheBytesModesAndTimesTheyHold) {
  if (!testing::haveProgram("zip")) GTEST_SKIP() << "Info-ZIP zip is not installed";
  struct Source {
    std::string name;
    std::string content;
    unsigned mode;
    int64_t modified;
  };
  const std::vector<Source> sources = {
      {"tree/plain.txt", "plain text\n", 0640, localSeconds(2019, 7, 14, 13, 45, 26)},
      {"tree/nested/deeper/data.bin", mixedBytes(300000), 0755, localSeconds(2003, 1, 2, 3, 4, 6)},
      {"tree/nested/empty.txt", "", 0600, localSeconds(1995, 12, 31, 23, 59, 58)},
  };
  for (const Source& source : sources) {
    writeFile(source.name, source.content, source.mode);
    setTime(source.name, source.modified);
  }
  ASSERT_EQ(mkdir("tree/hollow", 0700), 0);
  ASSERT_EQ(testing::runCommand("zip -qr deflated.zip tree && zip -qr0 stored.zip tree"), 0);
  for (const std::string archive : {"deflated", "stored"}) {
    EXPECT_EQ(newReader()->unzipAllTo((archive + ".zip").c_str(), archive.c_str()), 0) << archive;
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

TEST_F(Extraction, PythonArchivesExtractToTheBytesModesAndTimesTheyHold) {
  if (!testing::haveProgram("python3")) GTEST_SKIP() << "python3 is not installed";
  ASSERT_EQ(testing::runPython(R"(import zipfile
def add(archive, name, data, mode, when, method):
    info = zipfile.ZipInfo(name, date_time=when)
    info.external_attr = mode << 16
    info.compress_type = method
    archive.writestr(info, data)
with zipfile.ZipFile('py.zip', 'w') as archive:
    add(archive, 'top.txt', b'top\n', 0o100644, (2001, 2, 3, 4, 5, 6), zipfile.ZIP_STORED)
    add(archive, 'a/b/c/deep.bin', bytes(range(256)) * 400, 0o100751, (2015, 12, 31, 23, 59, 58), zipfile.ZIP_DEFLATED)
    add(archive, 'a/empty.txt', b'', 0o100400, (1999, 1, 1, 0, 0, 0), zipfile.ZIP_STORED)
    add(archive, 'a/dir/', b'', 0o040755, (2010, 1, 1, 0, 0, 0), zipfile.ZIP_STORED)
)"),
            0);
  std::string deep;
  for (int i = 0; i < 400; ++i)
    for (int byte = 0; byte < 256; ++byte) deep += static_cast<char>(byte);
  EXPECT_EQ(newReader()->unzipAll("py.zip"), 0);
  EXPECT_EQ(readFile("py.zip_qrt/top.txt"), "top\n");
  EXPECT_EQ(readFile("py.zip_qrt/a/b/c/deep.bin"), deep);
  EXPECT_EQ(readFile("py.zip_qrt/a/empty.txt"), "");
  EXPECT_EQ(statusOf("py.zip_qrt/top.txt").permissions, 0644u);
  EXPECT_EQ(statusOf("py.zip_qrt/a/b/c/deep.bin").permissions, 0751u);
  EXPECT_EQ(statusOf("py.zip_qrt/a/empty.txt").permissions, 0400u);
  EXPECT_EQ(statusOf("py.zip_qrt/top.txt").modified, localSeconds(2001, 2, 3, 4, 5, 6));
  EXPECT_EQ(statusOf("py.zip_qrt/a/b/c/deep.bin").modified, localSeconds(2015, 12, 31, 23, 59, 58));
  EXPECT_EQ(statusOf("py.zip_qrt/a/empty.txt").modified, localSeconds(1999, 1, 1, 0, 0, 0));
  EXPECT_TRUE(statusOf("py.zip_qrt/a/dir").isDirectory);
  EXPECT_EQ(capture.error(), "");
}

TEST_F(Extraction, UnixExtraBlockMakesALinkInsideItsOwnDirectory) {
  HandEntry link = storedEntry("links/deeper/to-target", "../../target.txt");
  link.centralExtra = linkBlock("../../target.txt");
  link.externalAttributes = 0120777u << 16;
  EXPECT_EQ(extract({storedEntry("target.txt", "T"), link}), 0);
  EXPECT_TRUE(statusOf("links/deeper/to-target").isLink);
  EXPECT_EQ(linkTargetOf("links/deeper/to-target"), "../../target.txt");
  EXPECT_EQ(readFile("links/deeper/to-target"), "T");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(Extraction, ExtraFieldsThatMarkNoLinkGiveRegularFiles) {
  HandEntry headerOnly = storedEntry("header-only", "data one");
  headerOnly.centralExtra = linkBlock("").substr(0, 16);  // size 16: nothing after the header
  HandEntry nulAt16 = storedEntry("nul-at-16", "data two");
  nulAt16.centralExtra = linkBlock(std::string("\0abc", 4));
  HandEntry otherTag = storedEntry("other-tag", "data three");
  otherTag.centralExtra = linkBlock("target");
  otherTag.centralExtra[0] = 0x0E;
  EXPECT_EQ(extract({headerOnly, nulAt16, otherTag}), 0);
  EXPECT_EQ(readFile("header-only"), "data one");
  EXPECT_EQ(readFile("nul-at-16"), "data two");
  EXPECT_EQ(readFile("other-tag"), "data three");
  EXPECT_TRUE(statusOf("other-tag").isFile);
}

TEST_F(Extraction, EntryTimeAndModeAreApplied) {
  HandEntry noMode = storedEntry("no-mode.txt", "x");
  noMode.externalAttributes = 0;  // no Unix mode: permission bits 0000
  HandEntry executable = storedEntry("bin/tool", "#!/bin/sh\n");
  executable.externalAttributes = 0104755u << 16;  // file type bits are ignored, set-uid kept
  executable.dosDate = testing::dosDate(2020, 2, 29, 12, 30, 45);
  EXPECT_EQ(extract({noMode, executable}), 0);
  EXPECT_EQ(statusOf("no-mode.txt").permissions, 0u);
  EXPECT_EQ(statusOf("no-mode.txt").modified, localSeconds(2008, 3, 5, 9, 18, 6));
  EXPECT_EQ(statusOf("bin/tool").permissions, 04755u);
  EXPECT_EQ(statusOf("bin/tool").modified, localSeconds(2020, 2, 29, 12, 30, 44));  // 2-second resolution
}

TEST_F(Extraction, DirectoryEntriesMakeDirectoriesOnlyWhenPathsAreUsed) {
  EXPECT_EQ(extract({storedEntry("d/e/", "")}), 0);
  EXPECT_TRUE(statusOf("d/e").isDirectory);
  EXPECT_EQ(extract({storedEntry("f/", "")}, true, false), 0);
  EXPECT_FALSE(statusOf("f").exists);
}

TEST_F(Extraction, WithoutPathsOnlyLinksAreMadeUnderTheirFileName) {
  HandEntry link = storedEntry("x/l", "y.txt");
  link.centralExtra = linkBlock("y.txt");
  EXPECT_EQ(extract({storedEntry("x/", ""), storedEntry("x/y.txt", "why"), link}, true, false), 0);
  EXPECT_FALSE(statusOf("x").exists);
  EXPECT_EQ(linkTargetOf("l"), "y.txt");
}

TEST_F(Extraction, ExistingFilesAndEmptyDirectoriesGiveWayWhenOverwriting) {
  writeFile("file.txt", "old content that is longer");
  ASSERT_EQ(mkdir("was-a-directory", 0755), 0);
  EXPECT_EQ(extract({storedEntry("file.txt", "new"), storedEntry("was-a-directory", "now a file")}), 0);
  EXPECT_EQ(readFile("file.txt"), "new");
  EXPECT_EQ(readFile("was-a-directory"), "now a file");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(Extraction, NonEmptyDirectoryInTheWayCannotBeRemoved) {
  writeFile("busy/inside.txt", "keep");
  EXPECT_EQ(extract({storedEntry("busy", "file"), storedEntry("later.txt", "x")}), StatusOutputFileError);
  EXPECT_EQ(capture.error(),
            "Failed to remove \n 'busy'. \n Verify file ownership and access permissions.\n" + ErrorOpening +
                "busy'\n");
  EXPECT_EQ(readFile("busy/inside.txt"), "keep");
  EXPECT_FALSE(statusOf("later.txt").exists);
}

TEST_F(Extraction, FileInTheWayOfADirectoryGivesTheThreePartReport) {
  writeFile("blocker", "plain file");
  EXPECT_EQ(extract({storedEntry("blocker/sub/f.txt", "x")}), StatusOutputFileError);
  EXPECT_EQ(capture.error(), DirectoryFailure + "System error text: 'Not a directory'" + ErrorOpening +
                                 "blocker/sub'\n");
  EXPECT_EQ(capture.output(), "\nCode: " + std::to_string(ENOTDIR) + "\n");
}

TEST_F(Extraction, FileAsTheDirectoryItselfFailsAtOpening) {
  writeFile("blocker", "plain file");
  EXPECT_EQ(extract({storedEntry("blocker/f.txt", "x")}), StatusOutputFileError);
  EXPECT_EQ(capture.error(), "Failed to remove \n 'blocker/f.txt'. \n Verify file ownership and access "
                             "permissions.\n" + ErrorOpening + "blocker/f.txt'\n");
  EXPECT_EQ(readFile("blocker"), "plain file");
}

TEST_F(Extraction, AbsoluteNameWithEmptyRootHasNoDirectoryToMake) {
  // The cut before the file name leaves nothing, and nothing cannot be made.
  EXPECT_EQ(extract({storedEntry("/kxzef-never-written", "x")}), StatusOutputFileError);
  EXPECT_EQ(capture.error(), DirectoryFailure + ErrorOpening + "'\n");
  EXPECT_FALSE(statusOf("/kxzef-never-written").exists);
}

TEST_F(Extraction, WriteFailureIsReportedAndStopsTheEntry) {
  if (!statusOf("/dev/full").exists) GTEST_SKIP() << "no /dev/full on this machine";
  ASSERT_EQ(symlink("/dev/full", "full.txt"), 0);
  HandEntry entry = storedEntry("full.txt", std::string(3 * TransferBufferSize, 'f'));
  entry.externalAttributes = 020666u << 16;  // what /dev/full has, should it ever be reached
  EXPECT_EQ(extract({entry}), StatusOutputError);
  EXPECT_EQ(capture.error(), "Error in writing extracted file\n");
}

TEST_F(Extraction, CrcMismatchIsFoundAtCloseAndTheFileStays) {
  HandEntry bad = storedEntry("bad.txt", "payload");
  bad.crc = 0xDEADBEEF;
  EXPECT_EQ(extract({bad, storedEntry("after.txt", "x")}), StatusCrcError);
  EXPECT_EQ(capture.error(), "Error\nwith zipfile in CloseCurrentFile\n");
  EXPECT_EQ(readFile("bad.txt"), "payload");
  EXPECT_FALSE(statusOf("after.txt").exists);
}

TEST_F(Extraction, CorruptAndTruncatedDeflateDataEndInTheReadFailure) {
  const std::string data = mixedBytes(40000);
  HandEntry corrupt = testing::deflatedEntry("corrupt.bin", data);
  corrupt.data = std::string(64, '\xFF');  // block type 3 does not exist
  corrupt.compressedSize = corrupt.data.size();
  HandEntry truncated = testing::deflatedEntry("truncated.bin", data);
  truncated.data = truncated.data.substr(0, 2000);
  truncated.compressedSize = truncated.data.size();
  for (const HandEntry& entry : {corrupt, truncated}) {
    capture.clear();
    EXPECT_LT(extract({entry}), 0) << entry.name;
    EXPECT_EQ(capture.error(), "Error\nwith zipfile in unzReadCurrentFile\n") << entry.name;
  }
}

TEST_F(Extraction, BadLocalHeaderFailsTheOpeningOfTheEntry) {
  std::string bytes = buildArchive({storedEntry("entry.txt", "data")});
  bytes[3] = 5;  // local header signature "PK\3\5"
  writeFile("app.zef", bytes);
  auto reader = newReader();
  ASSERT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
  EXPECT_EQ(reader->extractAll(true), StatusBadArchive);
  EXPECT_EQ(capture.error(), "Error\nwith zipfile in OpenCurrentFile\n");
  EXPECT_FALSE(statusOf("entry.txt").exists);
}

TEST_F(Extraction, BadCentralHeadersAreReportedWithTheirStatus) {
  std::string bytes = buildArchive({storedEntry("entry.txt", "data")});
  bytes[bytes.find("PK\1\2") + 2] = 9;  // central header signature
  writeFile("app.zef", bytes);
  auto reader = newReader();
  ASSERT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
  EXPECT_EQ(reader->extractAll(true), StatusBadArchive);
  EXPECT_EQ(capture.error(), "Error\n -103with zipfile in GetCurrentFileInfo\n");
}

TEST_F(Extraction, EndRecordClaimingMoreEntriesStopsAtTheMissingOne) {
  std::string bytes = buildArchive({storedEntry("only.txt", "1")});
  testing::patchLE(bytes, bytes.size() - 22 + 8, 3, 2);   // entries on this disk
  testing::patchLE(bytes, bytes.size() - 22 + 10, 3, 2);  // entries in total
  writeFile("app.zef", bytes);
  auto reader = newReader();
  ASSERT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
  // Where the next central header should be, the end record ends the file first.
  EXPECT_EQ(reader->extractAll(true), StatusIoError);
  EXPECT_EQ(capture.error(), "Error\nwith zipfile in GoToNextFile\n");
  EXPECT_EQ(readFile("only.txt"), "1");
}

TEST_F(Extraction, OverlongEntryNameIsCutAt256Bytes) {
  const std::string name = "d/" + std::string(298, 'n');
  EXPECT_EQ(extract({storedEntry(name, "long")}), 0);
  EXPECT_EQ(readFile(name.substr(0, EntryNameBufferSize)), "long");
}

TEST_F(Extraction, ExistingLinkTargetMakesTheLinkFail) {
  writeFile("l", "in the way");
  HandEntry link = storedEntry("l", "target");
  link.centralExtra = linkBlock("target");
  EXPECT_EQ(extract({link}), StatusOutputError);
  EXPECT_EQ(capture.error(),
            "Failed to create symbolic link from file\n 'l' \n to file \n 'target' \n Do you have permission to "
            "create the link? Does the linked-to file exist?\nSystem error text: 'File exists'\n");
  EXPECT_EQ(readFile("l"), "in the way");
}

TEST_F(Extraction, LinkWhoseDirectoryCannotBeMadeFails) {
  writeFile("blocker", "plain file");
  HandEntry link = storedEntry("blocker/sub/l", "target");
  link.centralExtra = linkBlock("target");
  EXPECT_EQ(extract({link}), StatusOutputError);
  EXPECT_EQ(capture.error(),
            "Failed to create a directory required by a symbolic link. Symbolic link:\n 'blocker/sub/l'\n"
            "System error text: 'Not a directory'\n");
}

TEST_F(Extraction, ExtractAllStartsAtTheCurrentEntry) {
  writeFile("app.zef", buildArchive({storedEntry("a.txt", "a"), storedEntry("b.txt", "b")}));
  auto reader = newReader();
  ASSERT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
  ASSERT_EQ(reader->extractEntry("b.txt", false), 0);
  // From the last entry there is no next one for the second of two rounds.
  EXPECT_EQ(reader->extractAll(true), StatusEndOfList);
  EXPECT_EQ(capture.error(), "Error\nwith zipfile in GoToNextFile\n");
  EXPECT_FALSE(statusOf("a.txt").exists);
}

// The question before an existing file is replaced, answered on standard input.
class OverwriteQuestion : public Extraction {
 protected:
  static std::string question(const std::string& file) {
    return "The file '" + file + "' exists. Overwrite ? [y]es, [n]o, [A]ll:\n";
  }
};

TEST_F(OverwriteQuestion, AnswersDecideEachFile) {
  struct Case {
    const char* answers;
    const char* one;  // content of one.txt afterwards
    const char* two;
    std::string questions;
    bool overwriteAfter;
    const char* why;
  };
  const std::string q1 = question("one.txt");
  const std::string q2 = question("two.txt");
  const Case cases[] = {
      {"x\ny\nn\n", "new one", "old two", q1 + q1 + q2, false, "an unknown answer asks again"},
      {"Y N", "new one", "old two", q1 + q2, false, "upper case, blank separated"},
      {"A", "new one", "new two", q1, true, "all: no later question"},
      {"a\n", "new one", "new two", q1, true, "all in lower case"},
      {"yes\n", "new one", "old two", q1 + q2 + q2 + q2, false, "one character per read, then the end"},
      {"", "old one", "old two", q1 + q2, false, "the end of input refuses"},
  };
  for (const Case& c : cases) {
    writeFile("one.txt", "old one");
    writeFile("two.txt", "old two");
    std::remove("new.txt");
    capture.clear();
    ASSERT_TRUE(testing::feedStandardInput(c.answers));
    writeFile("app.zef", buildArchive({storedEntry("one.txt", "new one"), storedEntry("new.txt", "n"), storedEntry("two.txt", "new two")}));
    auto reader = newReader();
    ASSERT_EQ(reader->openWithRoot("app.zef", "", false, true), 0);
    EXPECT_EQ(reader->extractAll(true), 0) << c.why;
    EXPECT_EQ(readFile("one.txt"), c.one) << c.why;
    EXPECT_EQ(readFile("two.txt"), c.two) << c.why;
    EXPECT_EQ(readFile("new.txt"), "n") << c.why;
    EXPECT_EQ(capture.error(), c.questions) << c.why;
    EXPECT_EQ(reader->getOverwrite(), c.overwriteAfter) << c.why;
  }
}

TEST_F(OverwriteQuestion, WithoutPathsTheQuestionComesBeforeTheSkip) {
  writeFile("f.txt", "old");
  ASSERT_TRUE(testing::feedStandardInput("y"));
  EXPECT_EQ(extract({storedEntry("f.txt", "new")}, false, false), 0);
  EXPECT_EQ(capture.error(), question("f.txt"));
  EXPECT_EQ(readFile("f.txt"), "old");
}

}  // namespace
}  // namespace kxzef
