// Where the file name starts in an output path, in single-byte and in
// multibyte character sets.
#include "extract/file_name_part.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "support/temp_dir.h"

namespace kxzef {
namespace {

TEST(FileNamePart, StartsAfterTheLastSlashOrBackslash) {
  EXPECT_EQ(findFileNamePart("a/b/c.txt"), 4u);
  EXPECT_EQ(findFileNamePart("a/b\\c"), 4u);
  EXPECT_EQ(findFileNamePart("out/dir/"), 8u);  // a directory entry
  EXPECT_EQ(findFileNamePart("plain"), 0u);
  EXPECT_EQ(findFileNamePart(""), 0u);
}

using FileNamePartInGbk = testing::TempDirTest;

// In GBK the second byte of a character may be 0x5C, the code of "\".
TEST_F(FileNamePartInGbk, TrailingByteOfACharacterIsNoSeparator) {
  if (testing::runCommand("localedef -f GBK -i zh_CN " + path("zh_CN.GBK") + " >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "a GBK locale cannot be built here";
  setenv("LOCPATH", path().c_str(), 1);
  const std::string previous = std::setlocale(LC_CTYPE, nullptr);
  const bool loaded = std::setlocale(LC_CTYPE, "zh_CN.GBK") != nullptr;
  const size_t inName = findFileNamePart("dir/\x81\x5C");
  const size_t afterName = findFileNamePart("\x81\x5C/name");
  std::setlocale(LC_CTYPE, previous.c_str());
  unsetenv("LOCPATH");
  if (!loaded) GTEST_SKIP() << "the GBK locale cannot be loaded";
  EXPECT_EQ(inName, 4u);
  EXPECT_EQ(afterName, 3u);
  EXPECT_EQ(findFileNamePart("dir/\x81\x5C"), 6u);  // byte by byte it splits there
}

}  // namespace
}  // namespace kxzef
