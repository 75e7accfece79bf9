// The operations every source-file reader inherits, run through the plain one.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "input/plain_file_reader.h"
#include "input/reader_status.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using FileReader = testing::TempDirTest;

TEST_F(FileReader, GetContentLeavesTheReadPositionAlone) {
  std::ifstream stream(writeFile("input", "0123456789"), std::ios::binary);
  ZEFFileReaderWithoutTransform reader(&stream);
  char buffer[4];
  ASSERT_EQ(reader.read(buffer, 3), 3);
  const ZEFByteArray& whole = *reader.getContent();
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(whole.data), whole.size), "0123456789");
  ASSERT_EQ(reader.read(buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 3), "345");
}

// A read that succeeds leaves an earlier failure's status standing; readFresh clears it first.
TEST_F(FileReader, ReadFreshClearsTheStatusThatReadKeeps) {
  std::ifstream stream(writeFile("input", ""), std::ios::binary);
  ZEFFileReaderWithoutTransform reader(&stream);
  char buffer[8];
  ASSERT_EQ(reader.read(buffer, 8), -1);  // refused while the file is empty
  writeFile("input", "late");
  stream.clear();
  ASSERT_EQ(reader.read(buffer, 8), 4);
  EXPECT_EQ(reader.getStatus(), statusNumber(ReaderStatus::EmptyInput));
  EXPECT_EQ(reader.readFresh(buffer, 8), 0);  // at the end now
  EXPECT_EQ(reader.getStatus(), statusNumber(ReaderStatus::Ok));
}

}  // namespace
}  // namespace kxzef
