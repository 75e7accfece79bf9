#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "create/zip_driver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using ZipDriverTest = testing::TempDirTest;

TEST_F(ZipDriverTest, ExtensionIsAddedOnlyWhenNoDotStandsAnywhere) {
  const std::string longDirectory(100, 'd');
  std::filesystem::create_directory("dir.d");
  std::filesystem::create_directory(longDirectory);
  const std::pair<std::string, std::string> rows[] = {  // name given, file created
      {"out", "out.zef"}, {"out.zip", "out.zip"}, {"", ".zef"},
      {"dir.d/out", "dir.d/out"},  // the directory's "." counts
      // At most 255 bytes of the name are used.
      {longDirectory + "/" + std::string(199, 'n'), longDirectory + "/" + std::string(154, 'n') + ".zef"},
  };
  for (const auto& [name, created] : rows) {
    std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
    ASSERT_EQ(writer->open(name.c_str()), 0) << name;
    EXPECT_EQ(writer->close(), 0);
    EXPECT_EQ(readFile(created).size(), 22u) << created;  // an empty archive is its end record
  }
}

TEST_F(ZipDriverTest, OpenRefusalsLeaveFilesAloneWithTheOptionsStored) {
  writeFile("a.zef", "keep me");
  testing::ChannelCapture capture;
  ZipDriver driver;
  EXPECT_EQ(driver.openWithOptions("a", false, 0), StatusBadParameter);
  EXPECT_FALSE(driver.getOverwrite());  // stored before the refusal
  EXPECT_EQ(driver.getCompressionLevel(), 0);
  EXPECT_EQ(driver.open("no/such/dir/x.zef"), StatusIoError);
  EXPECT_EQ(capture.error(),
            "The file 'a.zef' already exists and overwrite is not enabled. Stopping.\n"
            "Error opening 'no/such/dir/x.zef'\n");
  EXPECT_EQ(readFile("a.zef"), "keep me");
}

TEST_F(ZipDriverTest, FailedCreationRemovesOnlyTheCallersExactName) {
  writeFile("empty", "");
  writeFile("out", "a file that happens to carry the caller's name");
  testing::ChannelCapture capture;
  ZEFEntryMap inputs{{"empty", ZEFEntryRecord()}};
  EXPECT_EQ(ZipDriver().createArchive("out", inputs, nullptr), -1);
  EXPECT_FALSE(std::filesystem::exists("out"));
  EXPECT_TRUE(std::filesystem::exists("out.zef"));  // the half-written archive under the extended name stays
}

TEST_F(ZipDriverTest, DestructorRemovesTheTemporaryFilesReportingFailures) {
  writeFile("scratch", "x");
  testing::ChannelCapture capture;
  ZipDriver().temporaryFiles = {"missing", "scratch"};  // the driver goes at the end of this line
  EXPECT_FALSE(std::filesystem::exists("scratch"));
  EXPECT_EQ(capture.error(),
            "Warning: Failed to remove temporary file\n 'missing'. \n Verify file ownership and access "
            "permissions; check and clean up temporary directory.\n"
            "System error text: 'No such file or directory'\n");
}

}  // namespace
}  // namespace kxzef
