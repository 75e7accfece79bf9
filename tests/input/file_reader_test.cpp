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
