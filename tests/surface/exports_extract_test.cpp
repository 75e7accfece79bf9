// The one-call extraction, called as a host calls it.
#include <gtest/gtest.h>

#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/standard_input.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::storedEntry;
using ExtractExport = testing::TempDirTest;

TEST_F(ExtractExport, ExtractsIntoTheCurrentDirectoryWithoutAsking) {
  writeFile("app.zef", testing::buildArchive({storedEntry("top.txt", "new"), storedEntry("dir/inner.txt", "inner")}));
  writeFile("top.txt", "old");
  ASSERT_TRUE(testing::feedStandardInput("n\n"));  // would refuse, were it asked
  testing::ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("app"), 1);
  EXPECT_EQ(readFile("top.txt") + readFile("dir/inner.txt"), "newinner");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(ExtractExport, MissingOrBrokenArchivesGiveZero) {
  writeFile("junk.zef", std::string(100, 'j'));
  testing::ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("junk"), 0);
  EXPECT_EQ(zefExtractZipFile("nothing"), 0);
  EXPECT_EQ(capture.error(), "Cannot open ZEF archive file\n 'junk'\n or \n 'junk.zip'\nThe ZEF archive "
                             "'nothing.zef' does not exist!\n");
}

}  // namespace
}  // namespace kxzef
