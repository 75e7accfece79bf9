#include "zip/zip_file_io.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "support/temp_dir.h"

namespace kxzef {
namespace {

// A file of six bytes: a local header signature and "xy".
class FileIO : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    ZipFileIO creator;
    ASSERT_TRUE(creator.open("six.zip", ModeCreateNew));
    ASSERT_EQ(creator.write("PK\x03\x04xy", 6), 6);
    creator.close();
  }
};

TEST_F(FileIO, OnlyCreateModeOpensAMissingFile) {
  ZipFileIO io;
  EXPECT_FALSE(io.open("new.zip", ModeReadExisting));
  EXPECT_FALSE(io.open("new.zip", ModeAppendExisting));
  EXPECT_TRUE(io.open("new.zip", ModeCreateNew));
  EXPECT_EQ(access("new.zip", F_OK), 0);
}

TEST_F(FileIO, SeekWithAnUnknownOriginMovesNothing) {
  ZipFileIO io;
  ASSERT_TRUE(io.open("six.zip", ModeAppendExisting));
  ASSERT_EQ(io.seek(0, SeekFromEnd), 0);
  EXPECT_EQ(io.seek(-4, 3), -1);
  EXPECT_EQ(io.tell(), 6);
}

TEST_F(FileIO, SeekClearsTheEndOfFile) {
  ZipFileIO io;
  ASSERT_TRUE(io.open("six.zip", ModeReadExisting));
  ASSERT_EQ(io.seek(0, SeekFromEnd), 0);
  char buffer[4];
  EXPECT_EQ(io.read(buffer, 1), 0);
  EXPECT_TRUE(io.hasError());
  ASSERT_EQ(io.seek(0, SeekFromStart), 0);
  EXPECT_FALSE(io.hasError());
}

TEST_F(FileIO, LittleEndianReadPastTheEndFailsWithZero) {
  ZipFileIO io;
  ASSERT_TRUE(io.open("six.zip", ModeReadExisting));
  uint64_t value = 0;
  EXPECT_EQ(readUInt32(io, value), 0);
  EXPECT_EQ(value, 0x04034B50u);
  EXPECT_EQ(readUInt32(io, value), -1);  // two bytes left
  EXPECT_EQ(value, 0u);
}

TEST_F(FileIO, RemoveFileClosesTheOpenFileFirst) {
  ZipFileIO io;
  ASSERT_TRUE(io.open("six.zip", ModeAppendExisting));
  EXPECT_TRUE(io.removeFile("six.zip"));
  EXPECT_NE(access("six.zip", F_OK), 0);
  EXPECT_EQ(io.write("z", 1), 0);  // closed: nothing takes the byte
}

}  // namespace
}  // namespace kxzef
