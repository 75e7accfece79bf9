// The reader factory and the one-call extraction, called as a host calls them.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/standard_input.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::buildArchive;
using testing::storedEntry;
using ExtractExport = testing::TempDirTest;

TEST_F(ExtractExport, FactoryGivesIndependentReadersInTheirInitialState) {
  std::unique_ptr<ZEFArchReader> first(getZipReader()), second(getZipReader());
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->setOverwrite(false), 0);
  EXPECT_EQ(first->setUsePaths(false), 0);
  EXPECT_FALSE(first->getOverwrite() || first->getUsePaths());
  EXPECT_TRUE(second->getOverwrite() && second->getUsePaths());
}

TEST_F(ExtractExport, ExtractsIntoTheCurrentDirectoryWithoutAsking) {
  writeFile("app.zef", buildArchive({storedEntry("top.txt", "new"), storedEntry("dir/", ""),
                                     storedEntry("dir/inner.txt", "inner")}));
  writeFile("top.txt", "old");
  ASSERT_TRUE(testing::feedStandardInput("n\n"));  // would refuse, were it asked
  testing::ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("app"), 1);
  EXPECT_EQ(readFile("top.txt") + readFile("dir/inner.txt"), "newinner");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(ExtractExport, AnyFailureGivesZero) {
  testing::HandEntry bad = storedEntry("bad.txt", "payload");
  bad.crc ^= 1;
  writeFile("bad.zef", buildArchive({bad}));
  writeFile("junk.zef", std::string(100, 'j'));
  testing::ChannelCapture capture;
  EXPECT_EQ(zefExtractZipFile("bad.zef"), 0);
  EXPECT_EQ(zefExtractZipFile("junk"), 0);
  EXPECT_EQ(zefExtractZipFile("nothing"), 0);
  EXPECT_EQ(capture.error(), "Error\nwith zipfile in CloseCurrentFile\nCannot open ZEF archive file\n 'junk'\n or \n "
                             "'junk.zip'\nThe ZEF archive 'nothing.zef' does not exist!\n");
}

}  // namespace
}  // namespace kxzef
