#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "input/plain_file_reader.h"
#include "input/reader_status.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

class PlainFileReader : public testing::TempDirTest {
 protected:
  std::ifstream& open(const std::string& name, const std::string& content) {
    writeFile(name, content);
    stream_.open(name, std::ios::binary);
    return stream_;
  }
  std::ifstream stream_;
};

std::string asText(const ZEFByteArray* array) {
  return std::string(reinterpret_cast<const char*>(array->data), array->size);
}

TEST_F(PlainFileReader, DeliversTheFileInPiecesThenZero) {
  ZEFFileReaderWithoutTransform reader(&open("f", "abcdefg"));
  EXPECT_TRUE(reader.hasMore());
  EXPECT_STREQ(reader.name(), "");
  char buffer[4];
  ASSERT_EQ(reader.read(buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), "abcd");
  EXPECT_TRUE(reader.hasMore());
  ASSERT_EQ(reader.read(buffer, 4), 3);  // short read at the end of the file
  EXPECT_EQ(std::string(buffer, 3), "efg");
  EXPECT_FALSE(reader.hasMore());
  EXPECT_EQ(reader.read(buffer, 4), 0);
  EXPECT_EQ(reader.getStatus(), ReaderOk);
}

TEST_F(PlainFileReader, ExactMultipleEndsWithZeroNotRefusal) {
  ZEFFileReaderWithoutTransform reader(&open("f", "ab"));
  char buffer[2];
  ASSERT_EQ(reader.read(buffer, 2), 2);
  EXPECT_EQ(reader.read(buffer, 2), 0);  // the end, after data: not an empty file
  EXPECT_TRUE(reader.isOk());
}

TEST_F(PlainFileReader, EmptyFileIsRefusedLikeTheTransformReaderDoes) {
  ZEFFileReaderWithoutTransform reader(&open("empty", ""));
  EXPECT_TRUE(reader.hasMore());  // nothing tells an empty file apart before reading
  char buffer[16];
  EXPECT_EQ(reader.read(buffer, sizeof buffer), -1);
  EXPECT_EQ(reader.getStatus(), ReaderEmptyInput);
  EXPECT_FALSE(reader.isOk());
  EXPECT_FALSE(reader.hasMore());
}

TEST_F(PlainFileReader, WholeFileLoadLeavesTheReadPositionAlone) {
  ZEFFileReaderWithoutTransform reader(&open("f", "0123456789"));
  char buffer[3];
  ASSERT_EQ(reader.read(buffer, 3), 3);
  EXPECT_EQ(asText(reader.getContent()), "0123456789");
  ASSERT_EQ(reader.read(buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 3), "345");
  EXPECT_EQ(asText(reader.getContent()), "0123456789");  // again, from the middle
  EXPECT_EQ(reader.read(buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 3), "678");
}

TEST_F(PlainFileReader, StreamProblemsAreReportedNotFollowed) {
  char buffer[8];
  ZEFFileReaderWithoutTransform none(nullptr);
  EXPECT_FALSE(none.hasMore());
  EXPECT_EQ(none.checkInput(), ReaderNoStream);
  EXPECT_EQ(none.read(buffer, 8), -1);
  EXPECT_EQ(none.getStatus(), ReaderNoStream);
  EXPECT_EQ(none.getContent()->size, 0u);

  std::ifstream missing("does-not-exist", std::ios::binary);
  ZEFFileReaderWithoutTransform closed(&missing);
  EXPECT_FALSE(closed.hasMore());
  EXPECT_EQ(closed.checkInput(), ReaderNoStream);
  EXPECT_EQ(closed.read(buffer, 8), -1);  // failed state without end of file

  std::ifstream& stream = open("f", "data");
  stream.setstate(std::ios::failbit);
  ZEFFileReaderWithoutTransform failed(&stream);
  EXPECT_EQ(failed.checkInput(), ReaderStreamError);
  EXPECT_FALSE(failed.hasMore());
}

}  // namespace
}  // namespace kxzef
