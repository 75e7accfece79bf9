// The reader factory and the one-call extraction, called as a host calls them.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/zip_records.h"
#include "support/channel_capture.h"
#include "support/standard_input.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::ChannelCapture;
using ExtractExport = testing::TempDirTest;

TEST_F(ExtractExport, FactoryGivesIndependentReadersInTheirInitialState) {
  std::unique_ptr<ZEFArchReader> first(getZipReader());
  std::unique_ptr<ZEFArchReader> second(getZipReader());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(first, second);
  first->setOverwrite(false);
  EXPECT_FALSE(first->getOverwrite());
  EXPECT_TRUE(second->getOverwrite());
  EXPECT_TRUE(second->getUsePaths());
}

TEST_F(ExtractExport, MissingArchiveGivesZeroAndOneMessage) {
  ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("nothing"), 0);
  EXPECT_EQ(capture.error(), "The ZEF archive 'nothing.zef' does not exist!\n");
  EXPECT_EQ(zefExtractZipFile(nullptr), 0);
}

TEST_F(ExtractExport, ExtractsIntoTheCurrentDirectoryWithoutAsking) {
  writeFile("app.zef", buildArchive({testing::storedEntry("top.txt", "new"), testing::storedEntry("dir/", ""), testing::storedEntry("dir/inner.txt", "inner")}));
  writeFile("top.txt", "old");
  ASSERT_TRUE(testing::feedStandardInput("n\n"));  // would refuse, were it asked
  ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("app"), 1);
  EXPECT_EQ(readFile("top.txt"), "new");
  EXPECT_EQ(readFile("dir/inner.txt"), "inner");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(ExtractExport, AnyFailureGivesZero) {
  testing::HandEntry bad = testing::storedEntry("bad.txt", "payload");
  bad.crc = 7;
  writeFile("bad.zef", buildArchive({bad}));
  writeFile("junk.zef", std::string(100, 'j'));
  ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("bad.zef"), 0);
  EXPECT_EQ(zefExtractZipFile("junk"), 0);
  EXPECT_EQ(capture.error(),
            "Error\nwith zipfile in CloseCurrentFile\nCannot open ZEF archive file\n 'junk'\n or \n 'junk.zip'\n");
}

}  // namespace
}  // namespace kxzef
