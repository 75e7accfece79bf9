#include "zip/zip_file_io.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <string>

#include "support/temp_dir.h"

namespace kxzef {
namespace {

using FileIO = testing::TempDirTest;

TEST_F(FileIO, MissingFileOpensOnlyWhenCreating) {
  ZipFileIO reader;
  EXPECT_FALSE(reader.open(path("missing").c_str(), ModeReadExisting));
  ZipFileIO appender;
  EXPECT_FALSE(appender.open(path("missing").c_str(), ModeAppendExisting));
  struct stat info{};
  EXPECT_NE(lstat(path("missing").c_str(), &info), 0);

  ZipFileIO creator;
  ASSERT_TRUE(creator.open(path("missing").c_str(), ModeCreateNew));
  ASSERT_EQ(lstat(path("missing").c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 0);

  ZipFileIO nowhere;
  EXPECT_FALSE(nowhere.open(nullptr, ModeReadExisting));
  EXPECT_FALSE(nowhere.open(path("missing").c_str(), 0));  // no direction: opens nothing
}

TEST_F(FileIO, CreatingTruncatesAndExistingKeepsContent) {
  const std::string file = writeFile("a", "0123456789");
  {
    ZipFileIO io;
    ASSERT_TRUE(io.open(file.c_str(), ModeAppendExisting));
    ASSERT_EQ(io.seek(4, SeekFromStart), 0);
    EXPECT_EQ(io.write("ab", 2), 2);
    EXPECT_EQ(io.seek(0, SeekFromStart), 0);
    char back[10];
    EXPECT_EQ(io.read(back, 10), 10);
    EXPECT_EQ(std::string(back, 10), "0123ab6789");
  }
  EXPECT_EQ(readFile(file), "0123ab6789");
  {
    ZipFileIO io;
    ASSERT_TRUE(io.open(file.c_str(), ModeCreateNew));
    EXPECT_EQ(io.write("xyz", 3), 3);
  }
  EXPECT_EQ(readFile(file), "xyz");
}

TEST_F(FileIO, SeekAndTellFollowTheFile) {
  ZipFileIO io;
  ASSERT_TRUE(io.open(writeFile("a", std::string(1234, 'x')).c_str(), ModeReadExisting));
  EXPECT_EQ(io.tell(), 0);
  ASSERT_EQ(io.seek(0, SeekFromEnd), 0);
  EXPECT_EQ(io.tell(), 1234);
  ASSERT_EQ(io.seek(-4, SeekFromCurrent), 0);
  EXPECT_EQ(io.tell(), 1230);
  EXPECT_EQ(io.seek(7, 3), -1);  // unknown origin: nothing moves
  EXPECT_EQ(io.tell(), 1230);
  EXPECT_EQ(io.seek(7, -1), -1);
  EXPECT_EQ(io.tell(), 1230);
}

TEST_F(FileIO, ReadingPastTheEndSetsErrorUntilTheNextSeek) {
  ZipFileIO io;
  ASSERT_TRUE(io.open(writeFile("a", "abc").c_str(), ModeReadExisting));
  EXPECT_FALSE(io.hasError());
  char buffer[8];
  EXPECT_EQ(io.read(buffer, 8), 3);  // short at the end
  EXPECT_TRUE(io.hasError());
  EXPECT_EQ(io.seek(1, SeekFromStart), 0);
  EXPECT_FALSE(io.hasError());
  EXPECT_EQ(io.read(buffer, 2), 2);
  EXPECT_EQ(std::string(buffer, 2), "bc");
  // A seek beyond the end is not refused; the read after it is.
  EXPECT_EQ(io.seek(100, SeekFromStart), 0);
  EXPECT_EQ(io.read(buffer, 1), 0);
  EXPECT_TRUE(io.hasError());
}

TEST_F(FileIO, LittleEndianReadersDecodeAndReportTheEnd) {
  ZipFileIO io;
  ASSERT_TRUE(io.open(writeFile("a", std::string("\x50\x4B\x03\x04\xFE\xCA\x7F", 7)).c_str(), ModeReadExisting));
  uint64_t value = 99;
  EXPECT_EQ(readUInt32(io, value), 0);
  EXPECT_EQ(value, 0x04034B50u);
  EXPECT_EQ(readUInt16(io, value), 0);
  EXPECT_EQ(value, 0xCAFEu);
  EXPECT_EQ(readUInt16(io, value), -1);  // one byte left: running off the end is an error
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(readByte(io, value), -1);
  EXPECT_EQ(value, 0u);
}

TEST_F(FileIO, RemoveFileClosesAnOpenArchiveFirst) {
  const std::string file = writeFile("a.zip", "content");
  ZipFileIO io;
  ASSERT_TRUE(io.open(file.c_str(), ModeAppendExisting));
  EXPECT_TRUE(io.removeFile(file.c_str()));
  struct stat info{};
  EXPECT_NE(lstat(file.c_str(), &info), 0);
  EXPECT_TRUE(io.hasError() || io.read(&info, 1) == 0);  // closed: nothing more to read
  EXPECT_FALSE(io.removeFile(file.c_str()));             // already gone
}

}  // namespace
}  // namespace kxzef
