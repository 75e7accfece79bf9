#include <gtest/gtest.h>

#include <sys/stat.h>

#include <memory>
#include <string>

#include "create/zip_driver.h"
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

TEST_F(ZipDriverTest, ExtensionIsAddedOnlyWhenNoDotStandsAnywhere) {
  mkdir("dir.d", 0755);
  const std::string longDirectory(100, 'd');
  mkdir(longDirectory.c_str(), 0755);
  const struct {
    std::string name, created;
  } rows[] = {
      {"out", "out.zef"},
      {"out.zip", "out.zip"},
      {"dir.d/out", "dir.d/out"},  // the directory's "." counts
      {"", ".zef"},
      {longDirectory + "/" + std::string(199, 'n'), longDirectory + "/" + std::string(154, 'n') + ".zef"},  // cut to 255
  };
  for (const auto& row : rows) {
    std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
    ASSERT_EQ(writer->open(row.name.c_str()), 0) << row.name;
    EXPECT_EQ(writer->close(), 0);
    EXPECT_EQ(readFile(row.created).size(), 22u) << row.created;  // an empty archive is its end record
  }
  EXPECT_FALSE(exists("out"));
}

TEST_F(ZipDriverTest, RefusalsAndFailuresAreReported) {
  writeFile("a.zef", "keep me");
  ChannelCapture capture;
  ZipDriver driver;
  EXPECT_EQ(driver.openWithOptions("a", false, 0), DriverRefused);
  EXPECT_FALSE(driver.getOverwrite());  // stored before the refusal
  EXPECT_EQ(driver.getCompressionLevel(), 0);
  EXPECT_EQ(readFile("a.zef"), "keep me");
  EXPECT_EQ(driver.open("no/such/dir/x.zef"), DriverCannotOpen);
  EXPECT_EQ(capture.error(),
            "The file 'a.zef' already exists and overwrite is not enabled. Stopping.\n"
            "Error opening 'no/such/dir/x.zef'\n");
}

TEST_F(ZipDriverTest, FailedCreationRemovesTheCallersExactName) {
  writeFile("empty", "");
  writeFile("out", "a file that happens to carry the caller's name");
  ZEFEntryMap inputs{{"empty", ZEFEntryRecord()}};
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

}  // namespace
}  // namespace kxzef
