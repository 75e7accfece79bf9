// Opening archives, the extraction root, the flags and the one-call
// combinations, mostly through the interface a host sees.
#include "extract/unzip_driver.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "extract/extract_fixture.h"
#include "support/zip_records.h"
#include "support/standard_input.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::HandEntry;
using testing::storedEntry;
using testing::statusOf;

class Opening : public testing::ExtractTest {
 protected:
  // A small archive of one file "hello.txt" and one "sub/deep.txt".
  static std::string smallArchive() {
    return buildArchive({storedEntry("hello.txt", "hello\n"), storedEntry("sub/deep.txt", "deep\n")});
  }
};
using Combinations = Opening;

TEST_F(Opening, FactoryReaderStartsWithBothFlagsOnAndSettersChangeThem) {
  auto reader = newReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_TRUE(reader->getOverwrite());
  EXPECT_TRUE(reader->getUsePaths());
  EXPECT_EQ(reader->setOverwrite(false), 0);
  EXPECT_EQ(reader->setUsePaths(false), 0);
  EXPECT_FALSE(reader->getOverwrite());
  EXPECT_FALSE(reader->getUsePaths());
  EXPECT_EQ(reader->close(), StatusBadParameter);  // nothing open
}

TEST_F(Opening, NameWithoutSuffixFallsBackToZef) {
  writeFile("a.zef", smallArchive());
  auto reader = newReader();
  EXPECT_EQ(reader->open("a", true, true), 0);
  EXPECT_EQ(reader->extractEntry("hello.txt", true), 0);
  EXPECT_EQ(readFile("hello.txt"), "hello\n");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(Opening, MissingArchiveIsReportedWithTheSuffixedName) {
  auto reader = newReader();
  EXPECT_EQ(reader->open("a.zef", false, false), StatusArchiveMissing);
  EXPECT_EQ(capture.error(), "The ZEF archive 'a.zef.zef' does not exist!\n");
  // The flags are stored before anything can fail.
  EXPECT_FALSE(reader->getOverwrite());
  EXPECT_FALSE(reader->getUsePaths());
}

TEST_F(Opening, FileThatIsNoArchiveIsReportedWithTheCallersName) {
  writeFile("junk.zef", std::string(300, 'x'));
  auto reader = newReader();
  EXPECT_EQ(reader->open("junk", true, true), StatusArchiveUnreadable);
  EXPECT_EQ(capture.error(), "Cannot open ZEF archive file\n 'junk'\n or \n 'junk.zip'\n");
}

TEST_F(Opening, TruncatedArchivesAreRefused) {
  if (!testing::haveProgram("zip")) GTEST_SKIP() << "Info-ZIP zip is not installed";
  writeFile("in/data.txt", std::string(5000, 'q'));
  ASSERT_EQ(testing::runCommand("zip -qr whole.zip in"), 0);
  const std::string whole = readFile("whole.zip");
  // Cut inside the central directory, then inside the end record.
  for (size_t keep : {whole.size() / 2, whole.size() - 10}) {
    writeFile("cut.zip", whole.substr(0, keep));
    capture.clear();
    EXPECT_EQ(newReader()->open("cut.zip", true, true), StatusArchiveUnreadable) << keep;
    EXPECT_EQ(capture.error(), "Cannot open ZEF archive file\n 'cut.zip'\n or \n 'cut.zip.zip'\n");
  }
}

TEST_F(Opening, NamesAreCutTo255CharactersBeforeAnyTest) {
  // Components of 50 characters keep each one within the file-system limit.
  std::string kept;
  for (char letter = 'a'; kept.size() < 200; ++letter) kept += std::string(50, letter) + "/";
  kept += std::string(255 - kept.size(), 'f');
  writeFile(kept, smallArchive());
  auto reader = newReader();
  EXPECT_EQ(reader->open((kept + std::string(45, 'z')).c_str(), true, true), 0);
  EXPECT_EQ(capture.error(), "");
  const std::string other = kept.substr(0, 254) + std::string(45, 'q');
  EXPECT_EQ(reader->open(other.c_str(), true, true), StatusArchiveMissing);
  EXPECT_EQ(capture.error(), "The ZEF archive '" + kept.substr(0, 254) + "q.zef' does not exist!\n");
}

TEST_F(Opening, RootsFollowTheArchiveName) {
  writeFile("x/app.zef", smallArchive());
  struct Case {
    const char* name;
    const char* root;
    const char* why;
  };
  const Case cases[] = {
      {"x/app.zef", "x/app_qrt/", "the suffix is dropped"},
      {"x/app", "x/app_qrt/", "opened through the fallback, derived from the name as given"},
      {"x/app.ZEF", "x/app.ZEF_qrt/", "the suffix is compared case-sensitively (and the open fails)"},
      {"missing", "missing_qrt/", "the root is set even when opening fails"},
  };
  for (const Case& c : cases) {
    UnzipDriver driver;
    driver.openDefault(c.name);
    EXPECT_EQ(driver.getRoot(), c.root) << c.why;
    UnzipDriver elsewhere;
    elsewhere.openDefaultIn(c.name, "elsewhere");
    EXPECT_EQ(elsewhere.getRoot(), c.root) << "the directory has no effect";
  }
  UnzipDriver driver;
  EXPECT_EQ(driver.openWithRoot("x/app.zef", "out", true, true), 0);
  EXPECT_EQ(driver.getRoot(), "out") << "kept exactly, no separator added";
  EXPECT_EQ(driver.openWithDerivedRoot("x/app", "ignored", false, true), 0);
  EXPECT_EQ(driver.getRoot(), "x/app_qrt/");
  EXPECT_FALSE(driver.getOverwrite());
}

TEST_F(Opening, OpenDefaultPassesTheCurrentFlags) {
  writeFile("app.zef", smallArchive());
  writeFile("app_qrt/hello.txt", "old");
  auto reader = newReader();
  reader->setOverwrite(false);
  ASSERT_TRUE(testing::feedStandardInput("n\n"));
  EXPECT_EQ(reader->openDefault("app"), 0);
  EXPECT_FALSE(reader->getOverwrite());
  EXPECT_EQ(reader->extractAll(true), 0);
  EXPECT_EQ(readFile("app_qrt/hello.txt"), "old");
  EXPECT_EQ(readFile("app_qrt/sub/deep.txt"), "deep\n");
}

TEST_F(Opening, ReopeningTheSameReaderReplacesTheArchive) {
  writeFile("one.zef", buildArchive({storedEntry("one.txt", "1")}));
  writeFile("two.zef", buildArchive({storedEntry("two.txt", "2")}));
  writeFile("bad.zef", "not an archive at all, but long enough to be searched");
  auto reader = newReader();
  ASSERT_EQ(reader->openWithRoot("one.zef", "", true, true), 0);
  EXPECT_EQ(reader->open("bad.zef", true, true), StatusArchiveUnreadable);
  ASSERT_EQ(reader->open("two.zef", true, true), 0);
  EXPECT_EQ(reader->extractAll(false), 0);
  EXPECT_EQ(readFile("two.txt"), "2");
  EXPECT_FALSE(statusOf("one.txt").exists);
  // Deleting a reader whose archive is still open releases it too.
}

TEST_F(Combinations, UnzipAllExtractsBelowTheDerivedRoot) {
  writeFile("app.zef", smallArchive());
  EXPECT_EQ(newReader()->unzipAll("app.zef"), 0);
  EXPECT_EQ(readFile("app_qrt/hello.txt"), "hello\n");
  EXPECT_EQ(readFile("app_qrt/sub/deep.txt"), "deep\n");
  EXPECT_EQ(newReader()->unzipAll("nothing"), StatusArchiveMissing);
}

TEST_F(Combinations, UnzipAllToTakesTheDirectoryWithOrWithoutSlash) {
  writeFile("app.zef", smallArchive());
  EXPECT_EQ(newReader()->unzipAllTo("app", "out"), 0);
  EXPECT_EQ(newReader()->unzipAllTo("app", "out2/"), 0);
  for (const std::string directory : {"out", "out2"}) {
    EXPECT_EQ(readFile(directory + "/hello.txt"), "hello\n");
    EXPECT_EQ(readFile(directory + "/sub/deep.txt"), "deep\n");
  }
  EXPECT_FALSE(statusOf("app_qrt").exists);
}

TEST_F(Combinations, UnzipAllReturnsTheFirstExtractionFailure) {
  HandEntry bad = storedEntry("bad.txt", "payload");
  bad.crc = 0x12345678;
  writeFile("app.zef", buildArchive({bad, storedEntry("after.txt", "x")}));
  EXPECT_EQ(newReader()->unzipAll("app"), StatusCrcError);
  EXPECT_EQ(readFile("app_qrt/bad.txt"), "payload");
  EXPECT_FALSE(statusOf("app_qrt/after.txt").exists);
}

TEST_F(Combinations, UnzipFilesStopsAtTheFirstNameThatFails) {
  writeFile("app.zef", buildArchive({storedEntry("a.txt", "a"), storedEntry("b.txt", "b"), storedEntry("c.txt", "c")}));
  auto reader = newReader();
  EXPECT_EQ(reader->unzipFiles("app", {"C.TXT", "a.txt"}), 0);
  EXPECT_EQ(readFile("app_qrt/c.txt"), "c");
  EXPECT_EQ(readFile("app_qrt/a.txt"), "a");
  EXPECT_EQ(reader->unzipFiles("app", {"b.txt", "missing", "extra"}), EntryNotFound);
  EXPECT_EQ(capture.error(), "File 'missing' not found in the zipfile\n");
  EXPECT_EQ(reader->unzipFiles("app", {}), 0);
}

TEST_F(Combinations, ListArchiveListsEveryEntryAndCloses) {
  writeFile("app.zef", smallArchive());
  auto reader = newReader();
  EXPECT_EQ(reader->listArchive("app"), 0);
  EXPECT_NE(capture.output().find("  hello.txt\n"), std::string::npos);
  EXPECT_NE(capture.output().find("  sub/deep.txt\n"), std::string::npos);
  EXPECT_EQ(reader->listArchive("absent"), StatusArchiveMissing);
}

}  // namespace
}  // namespace kxzef
