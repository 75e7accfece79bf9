#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "input/path_readers.h"
#include "input/reader_status.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using PathReaders = testing::TempDirTest;

TEST_F(PathReaders, DirectoryReadsNothingWithStatusZero) {
  ASSERT_EQ(mkdir("dir", 0755), 0);
  ZEFDirectoryReader reader(path("dir"));
  char buffer[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(reader.read(buffer, sizeof buffer), 0);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_EQ(reader.getStatus(), ReaderOk);
  EXPECT_FALSE(reader.hasMore());
  EXPECT_EQ(reader.checkInput(), ReaderOk);
  EXPECT_EQ(reader.getContent()->size, 0u);
  EXPECT_STREQ(reader.name(), "");
}

TEST_F(PathReaders, LinkYieldsItsTextWithoutNulEvenWhenDangling) {
  writeFile("target", "content");
  ASSERT_EQ(symlink("target", "live"), 0);
  ASSERT_EQ(symlink("../nowhere/at/all", "dangling"), 0);
  for (const auto& [link, text] : {std::pair<const char*, std::string>{"live", "target"},
                                   {"dangling", "../nowhere/at/all"}}) {
    ZEFSymbolicLinkReader reader(path(link));
    char buffer[64];
    std::memset(buffer, '#', sizeof buffer);
    ASSERT_EQ(reader.read(buffer, sizeof buffer), static_cast<int>(text.size())) << link;
    EXPECT_EQ(std::string(buffer, text.size()), text);
    EXPECT_EQ(buffer[text.size()], '#');  // no terminator written
    EXPECT_FALSE(reader.hasMore());
    EXPECT_EQ(reader.getStatus(), ReaderOk);
    EXPECT_EQ(reader.checkInput(), ReaderOk);
  }
}

TEST_F(PathReaders, UnreadableLinksYieldNoBytes) {
  writeFile("plain", "not a link");
  char buffer[16];
  ZEFSymbolicLinkReader notALink(path("plain"));
  EXPECT_EQ(notALink.read(buffer, sizeof buffer), 0);  // readlink refuses a regular file
  EXPECT_EQ(notALink.getContent()->size, 0u);
  ZEFSymbolicLinkReader missing(path("missing"));
  EXPECT_EQ(missing.read(buffer, sizeof buffer), 0);
  ZEFSymbolicLinkReader empty("");
  EXPECT_EQ(empty.read(buffer, sizeof buffer), 0);
  ZEFSymbolicLinkReader overlong(std::string(5000, 'p'));  // lstat: name too long
  EXPECT_EQ(overlong.read(buffer, sizeof buffer), 0);
}

}  // namespace
}  // namespace kxzef
