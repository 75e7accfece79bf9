#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "create/zip_driver.h"
#include "kxzefarchiver/ZEFArchWriter.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;
using ZipDriverTest = testing::TempDirTest;

bool exists(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

// Opens `name` with a fresh writer and closes it again.
int openAndClose(const char* name) {
  std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
  const int status = writer->open(name);
  if (status == 0) writer->close();
  return status;
}

TEST_F(ZipDriverTest, ExtensionIsAddedOnlyWhenNoDotStandsAnywhere) {
  mkdir("dir.d", 0755);
  EXPECT_EQ(openAndClose("out"), 0);
  EXPECT_EQ(openAndClose("out.zip"), 0);
  EXPECT_EQ(openAndClose("dir.d/out"), 0);
  EXPECT_EQ(openAndClose(""), 0);
  EXPECT_TRUE(exists("out.zef"));
  EXPECT_FALSE(exists("out"));
  EXPECT_TRUE(exists("out.zip"));
  EXPECT_TRUE(exists("dir.d/out"));
  EXPECT_FALSE(exists("dir.d/out.zef"));
  EXPECT_TRUE(exists(".zef"));
  EXPECT_EQ(readFile("out.zef").size(), 22u);  // an empty archive is its end record
}

TEST_F(ZipDriverTest, LongNamesAreCutTo255Bytes) {
  const std::string directory(100, 'd');
  ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
  const std::string name = directory + "/" + std::string(199, 'n');  // 300 bytes, no "."
  EXPECT_EQ(openAndClose(name.c_str()), 0);
  EXPECT_TRUE(exists(directory + "/" + std::string(154, 'n') + ".zef"));
}

TEST_F(ZipDriverTest, OverwriteOffRefusesAnExistingArchiveAndKeepsTheOptions) {
  writeFile("a.zef", "keep me");
  ChannelCapture capture;
  ZipDriver driver;
  EXPECT_EQ(driver.openWithOptions("a", false, 0), DriverRefused);
  EXPECT_EQ(capture.error(), "The file 'a.zef' already exists and overwrite is not enabled. Stopping.\n");
  EXPECT_FALSE(driver.getOverwrite());
  EXPECT_EQ(driver.getCompressionLevel(), 0);
  EXPECT_EQ(readFile("a.zef"), "keep me");
}

TEST_F(ZipDriverTest, OverwriteOnReplacesAnExistingArchive) {
  writeFile("a.zef", "old content, longer than an empty archive");
  EXPECT_EQ(openAndClose("a"), 0);
  EXPECT_EQ(readFile("a.zef").size(), 22u);
}

TEST_F(ZipDriverTest, UnopenableArchiveIsReported) {
  ChannelCapture capture;
  ZipDriver driver;
  EXPECT_EQ(driver.open("no/such/dir/x.zef"), DriverCannotOpen);
  EXPECT_EQ(capture.error(), "Error opening 'no/such/dir/x.zef'\n");
}

TEST_F(ZipDriverTest, FailedCreationRemovesTheCallersExactName) {
  writeFile("empty", "");
  writeFile("out", "a file that happens to carry the caller's name");
  ZEFEntryMap inputs;
  inputs["empty"] = ZEFEntryRecord();
  ChannelCapture capture;
  ZipDriver driver;
  CreationContext context;
  EXPECT_EQ(driver.createArchive("out", inputs, &context), -1);
  EXPECT_FALSE(exists("out"));
  EXPECT_TRUE(exists("out.zef"));  // the half-written archive under the extended name stays
}

TEST_F(ZipDriverTest, DestructorRemovesTemporaryFilesAndReportsWhatItCannot) {
  writeFile("scratch", "x");
  ChannelCapture capture;
  {
    ZipDriver driver;
    driver.temporaryFiles = {"missing", "scratch"};
  }
  EXPECT_FALSE(exists("scratch"));
  EXPECT_EQ(capture.error(),
            "Warning: Failed to remove temporary file\n 'missing'. \n Verify file ownership and access "
            "permissions; check and clean up temporary directory.\n"
            "System error text: 'No such file or directory'\n");
}

TEST_F(ZipDriverTest, FreshDriverHasItsDefaultsAndDestroysSilently) {
  ChannelCapture capture;
  {
    std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
    EXPECT_TRUE(writer->getOverwrite());
    EXPECT_EQ(writer->getCompressionLevel(), 6);
    writer->setCompressionLevel(9);
    writer->setOverwrite(false);
    EXPECT_EQ(writer->getCompressionLevel(), 9);
    EXPECT_FALSE(writer->getOverwrite());
  }
  EXPECT_EQ(capture.error(), "");
}

}  // namespace
}  // namespace kxzef
