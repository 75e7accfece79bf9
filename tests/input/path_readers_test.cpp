#include <gtest/gtest.h>

#include <unistd.h>

#include "input/path_readers.h"
#include "input/reader_status.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using PathReaders = testing::TempDirTest;

TEST_F(PathReaders, DanglingLinkYieldsItsTextWithoutNul) {
  std::string buffer(64, '#');
  ASSERT_EQ(symlink("../none", "dangling"), 0);  // live links are read throughout the link target tests
  ZEFSymbolicLinkReader reader(path("dangling"));
  ASSERT_EQ(reader.read(&buffer[0], 64), 7);
  EXPECT_EQ(buffer.substr(0, 8), "../none#");  // no terminator written
  EXPECT_EQ(reader.getStatus(), statusNumber(ReaderStatus::Ok));
}

}  // namespace
}  // namespace kxzef
