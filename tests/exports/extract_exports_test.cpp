// The one-call extraction, called as a host calls it.
#include <gtest/gtest.h>

#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using ExtractExport = testing::TempDirTest;

TEST_F(ExtractExport, ExtractsIntoTheCurrentDirectoryWithoutAsking) {
  writeFile("app.zef", testing::buildArchive({testing::storedEntry("top.txt", "new"),
                                              testing::storedEntry("dir/inner.txt", "inner")}));
  writeFile("top.txt", "old");  // replaced without a question
  testing::ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("app"), 1);
  EXPECT_EQ(readFile("top.txt") + readFile("dir/inner.txt"), "newinner");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(ExtractExport, MissingArchiveIsReported) {
  testing::ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("nothing"), 0);
  EXPECT_EQ(capture.error(), "The ZEF archive 'nothing.zef' does not exist!\n");
}

}  // namespace
}  // namespace kxzef
