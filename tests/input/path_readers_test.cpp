#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "input/path_readers.h"
#include "input/reader_status.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using PathReaders = testing::TempDirTest;

TEST_F(PathReaders, DirectoryReadsNothingAndLinkYieldsItsTextWithoutNulEvenWhenDangling) {
  ASSERT_EQ(mkdir("dir", 0755), 0);
  ZEFDirectoryReader directory(path("dir"));
  std::string buffer(64, '#');
  EXPECT_EQ(directory.read(&buffer[0], 64), 0);
  EXPECT_EQ(directory.getStatus(), ReaderOk);
  for (const auto& [link, text] : {std::pair<std::string, std::string>{"live", "dir"}, {"dangling", "../none"}}) {
    ASSERT_EQ(symlink(text.c_str(), link.c_str()), 0);
    ZEFSymbolicLinkReader reader(path(link));
    ASSERT_EQ(reader.read(&buffer[0], 64), static_cast<int>(text.size())) << text;
    EXPECT_EQ(buffer.substr(0, text.size() + 1), text + "#");  // no terminator written
    EXPECT_EQ(reader.getStatus(), ReaderOk);
  }
}

}  // namespace
}  // namespace kxzef
