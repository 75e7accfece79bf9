#include "zip/block_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/temp_dir.h"
#include "zip/status.h"

namespace kxzef {
namespace {

// A file object over the test's file that counts the reads reaching it.
struct CountingIO : ZipFileIO {
  int64_t read(void* buffer, int64_t count) override {
    ++reads;
    return ZipFileIO::read(buffer, count);
  }
  int reads = 0;
};

class BlockRead : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    for (size_t i = 0; i < FileSize; ++i) bytes.push_back(static_cast<char>(i * 7 + i / 251));
    ASSERT_TRUE(io.open(writeFile("file", bytes).c_str(), ModeReadExisting));
  }

  // The status of reading `count` bytes at `position`, and that they are the file's.
  int readAt(uint64_t position, uint64_t count) {
    std::string out(count, '\0');
    const int status = reader.read(io, position, 0, out.data(), count);
    if (status == StatusOk) {
      EXPECT_EQ(out, bytes.substr(position, count)) << position;
    }
    return status;
  }

  static constexpr size_t FileSize = 3 * BlockReader::BlockSize + 1000;
  std::string bytes;
  CountingIO io;
  BlockReader reader;
};

TEST_F(BlockRead, RecordsOneAfterAnotherCostOneReadPerBlock) {
  uint64_t position = 0;
  for (uint64_t size = 1; position + size <= FileSize; size = size % 300 + 7) {
    ASSERT_EQ(readAt(position, size), StatusOk);
    position += size;
  }
  // Every block read starts where a record began that the last block did not hold whole.
  EXPECT_EQ(io.reads, 4);
}

// In order: each row starts from the block the rows before it left.
TEST_F(BlockRead, EveryReadGivesExactlyTheFilesBytesOrFails) {
  constexpr uint64_t Block = BlockReader::BlockSize;
  const struct { uint64_t position, count; int status, reads; const char* why; } rows[] = {
      {100, 30, StatusOk, 1, "fills the block from its position"},
      {130, 46, StatusOk, 0, "inside the block"},
      {100 + Block - 20, 20, StatusOk, 0, "the block's last bytes"},
      {100 + Block - 19, 20, StatusOk, 1, "one byte past the block's end: read anew"},
      {100 + Block - 20, 2, StatusOk, 1, "one byte before the block's start: read anew"},
      {5, Block / 2 + 1, StatusOk, 1, "larger than half a block: read directly"},
      {100 + Block, 10, StatusOk, 0, "the block outlives a direct read"},
      {FileSize - 10, 10, StatusOk, 1, "ends with the file"},
      {FileSize - 10, 11, StatusIoError, 2, "one byte beyond the end: the block, then the file itself"},
      {FileSize + 5, 1, StatusIoError, 2, "wholly beyond the end"},
      {FileSize - 10, 10, StatusOk, 1, "a failed read leaves no stale block"},
      {0, 0, StatusOk, 0, "nothing asked"},
  };
  for (const auto& row : rows) {
    const int before = io.reads;
    EXPECT_EQ(readAt(row.position, row.count), row.status) << row.why;
    EXPECT_EQ(io.reads - before, row.reads) << row.why;
  }
}

TEST_F(BlockRead, PositionsBeyondTheSignedRangeFail) {
  char byte = 0;
  EXPECT_EQ(reader.read(io, INT64_MAX, 1, &byte, 1), StatusIoError);
  EXPECT_EQ(reader.read(io, UINT64_MAX, 0, &byte, 1), StatusIoError);
  EXPECT_EQ(reader.read(io, 3, INT64_MAX - 2, &byte, 1), StatusIoError);
  EXPECT_EQ(io.reads, 0);  // refused before the file is touched
}

}  // namespace
}  // namespace kxzef
