// Opening archives, the extraction root, the flags and the one-call
// combinations, mostly through the interface a host sees.
#include "extract/unzip_driver.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "extract/extract_fixture.h"
#include "support/standard_input.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::statusOf;
using testing::storedEntry;

class Opening : public testing::ExtractTest {
 protected:
  static std::string smallArchive() {
    return buildArchive({storedEntry("hello.txt", "hello\n"), storedEntry("sub/deep.txt", "deep\n")});
  }
};
using Combinations = Opening;

TEST_F(Opening, ResultsAndMessagesOfEachWayToFail) {
  writeFile("a.zef", smallArchive());
  writeFile("junk.zef", std::string(300, 'x'));
  writeFile("cut.zip", smallArchive().substr(0, smallArchive().size() - 10));
  struct Case {
    const char* name;
    int status;
    std::string error;
  };
  const Case cases[] = {
      {"a", 0, ""},  // found with ".zef" appended
      {"a.zef.zef", StatusArchiveMissing, "The ZEF archive 'a.zef.zef.zef' does not exist!\n"},
      {nullptr, StatusArchiveMissing, "The ZEF archive '.zef' does not exist!\n"},
      {"junk", StatusArchiveUnreadable, "Cannot open ZEF archive file\n 'junk'\n or \n 'junk.zip'\n"},
      {"cut.zip", StatusArchiveUnreadable, "Cannot open ZEF archive file\n 'cut.zip'\n or \n 'cut.zip.zip'\n"},
  };
  for (const Case& c : cases) {
    capture.clear();
    auto reader = newReader();
    EXPECT_EQ(reader->open(c.name, false, false), c.status);
    EXPECT_EQ(capture.error(), c.error);
    EXPECT_FALSE(reader->getOverwrite() || reader->getUsePaths()) << "flags are stored before anything can fail";
  }
}

TEST_F(Opening, NamesAreCutTo255CharactersBeforeAnyTest) {
  std::string kept;  // components of 50 characters stay within the file-system limit
  for (char letter = 'a'; kept.size() < 200; ++letter) kept += std::string(50, letter) + "/";
  kept += std::string(255 - kept.size(), 'f');
  writeFile(kept, smallArchive());
  auto reader = newReader();
  EXPECT_EQ(reader->open((kept + std::string(45, 'z')).c_str(), true, true), 0);
  EXPECT_EQ(reader->open((kept.substr(0, 254) + std::string(45, 'q')).c_str(), true, true), StatusArchiveMissing);
  EXPECT_EQ(capture.error(), "The ZEF archive '" + kept.substr(0, 254) + "q.zef' does not exist!\n");
}

TEST_F(Opening, RootsFollowTheArchiveName) {
  writeFile("x/app.zef", smallArchive());
  struct Case {
    const char* name;
    const char* root;
  };
  const Case cases[] = {
      {"x/app.zef", "x/app_qrt/"},
      {"x/app", "x/app_qrt/"},          // opened through the fallback, derived from the name as given
      {"x/app.ZEF", "x/app.ZEF_qrt/"},  // the suffix is compared case-sensitively
      {"missing", "missing_qrt/"},      // set even when opening fails
  };
  for (const Case& c : cases) {
    UnzipDriver driver, elsewhere;
    driver.openDefault(c.name);
    elsewhere.openDefaultIn(c.name, "elsewhere");  // the directory has no effect
    EXPECT_EQ(driver.getRoot(), c.root);
    EXPECT_EQ(elsewhere.getRoot(), c.root);
  }
  UnzipDriver driver;
  EXPECT_EQ(driver.openWithRoot("x/app.zef", "out", true, true), 0);
  EXPECT_EQ(driver.getRoot(), "out") << "kept exactly, no separator added";
}

TEST_F(Opening, OpenDefaultKeepsTheFlagsAndReopeningReplacesTheArchive) {
  writeFile("app.zef", smallArchive());
  writeFile("bad.zef", "not an archive at all, but long enough to be searched");
  writeFile("app_qrt/hello.txt", "old");
  auto reader = newReader();
  ASSERT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
  EXPECT_EQ(reader->open("bad.zef", true, true), StatusArchiveUnreadable);
  reader->setOverwrite(false);
  ASSERT_TRUE(testing::feedStandardInput("n\n"));
  EXPECT_EQ(reader->openDefault("app"), 0);
  EXPECT_EQ(reader->extractAll(false), 0);
  EXPECT_EQ(readFile("app_qrt/hello.txt"), "old");
  EXPECT_EQ(readFile("app_qrt/sub/deep.txt"), "deep\n");
  // The reader is deleted with its archive still open: nothing may leak.
}

TEST_F(Combinations, UnzipAllAndUnzipAllToExtractEverythingOrStopAtTheFirstFailure) {
  writeFile("app.zef", smallArchive());
  EXPECT_EQ(newReader()->unzipAll("app.zef"), 0);
  EXPECT_EQ(newReader()->unzipAllTo("app", "out"), 0);
  EXPECT_EQ(newReader()->unzipAllTo("app", "out2/"), 0);
  for (const std::string directory : {"app_qrt", "out", "out2"}) {
    EXPECT_EQ(readFile(directory + "/hello.txt"), "hello\n");
    EXPECT_EQ(readFile(directory + "/sub/deep.txt"), "deep\n");
  }
  testing::HandEntry bad = storedEntry("bad.txt", "payload");
  bad.crc ^= 1;
  writeFile("bad.zef", buildArchive({bad, storedEntry("after.txt", "x")}));
  EXPECT_EQ(newReader()->unzipAll("bad"), StatusCrcError);
  EXPECT_FALSE(statusOf("bad_qrt/after.txt").exists);
  EXPECT_EQ(newReader()->unzipAllTo("nothing", "out"), StatusArchiveMissing);
}

TEST_F(Combinations, UnzipFilesStopsAtTheFirstNameThatFails) {
  writeFile("app.zef", buildArchive({storedEntry("a.txt", "a"), storedEntry("b.txt", "b"), storedEntry("c.txt", "c")}));
  auto reader = newReader();
  EXPECT_EQ(reader->unzipFiles("app", {"C.TXT", "a.txt"}), 0);
  EXPECT_EQ(readFile("app_qrt/c.txt") + readFile("app_qrt/a.txt"), "ca");
  EXPECT_EQ(reader->unzipFiles("app", {"b.txt", "missing", "extra"}), EntryNotFound);
  EXPECT_EQ(capture.error(), "File 'missing' not found in the zipfile\n");
  EXPECT_EQ(reader->unzipFiles("app", {}), 0);
}

}  // namespace
}  // namespace kxzef
