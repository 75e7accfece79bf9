#include "zip/zip_file_io.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "support/temp_dir.h"

namespace kxzef {
namespace {

using FileIO = testing::TempDirTest;

TEST_F(FileIO, OpensSeeksReadsAndRemovesAsTheCoresExpect) {
  ZipFileIO missing;
  EXPECT_FALSE(missing.open("new.zip", ModeReadExisting));
  EXPECT_FALSE(missing.open("new.zip", ModeAppendExisting));
  ZipFileIO creator;
  ASSERT_TRUE(creator.open("new.zip", ModeCreateNew));
  EXPECT_EQ(creator.write("PK\x03\x04xy", 6), 6);
  creator.close();
  ZipFileIO io;
  ASSERT_TRUE(io.open("new.zip", ModeAppendExisting));

  ASSERT_EQ(io.seek(0, SeekFromEnd), 0);
  EXPECT_EQ(io.seek(-4, 3), -1);  // unknown origin: nothing moves
  EXPECT_EQ(io.tell(), 6);
  char buffer[4];
  EXPECT_EQ(io.read(buffer, 1), 0);
  EXPECT_TRUE(io.hasError());
  ASSERT_EQ(io.seek(0, SeekFromStart), 0);
  EXPECT_FALSE(io.hasError());  // the seek cleared it
  uint64_t value = 0;
  EXPECT_EQ(readUInt32(io, value), 0);
  EXPECT_EQ(value, 0x04034B50u);
  EXPECT_EQ(readUInt32(io, value), -1);  // two bytes left
  EXPECT_EQ(value, 0u);

  EXPECT_TRUE(io.removeFile("new.zip"));  // closes the open file first
  EXPECT_NE(access("new.zip", F_OK), 0);
}

}  // namespace
}  // namespace kxzef
