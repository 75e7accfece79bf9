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

TEST(FileNamePart, StartsAfterTheLastSeparator) {
  struct Case {
    const char* path;
    size_t start;
    const char* why;
  };
  const Case cases[] = {
      {"a/b/c.txt", 4, "the last of several"},
      {"a\\b.txt", 2, "a backslash separates too"},
      {"a/b\\c", 4, "mixed separators"},
      {"out/dir/", 8, "a directory entry: nothing after the separator"},
      {"plain", 0, "no separator"},
      {"/abs", 1, "a leading separator"},
      {"", 0, "empty"},
  };
  for (const Case& c : cases) EXPECT_EQ(findFileNamePart(c.path), c.start) << c.why;
}

class FileNamePartInGbk : public testing::TempDirTest {};

// In GBK the second byte of a character may be 0x5C, the code of "\":
// stepping over whole characters keeps it from counting as a separator.
TEST_F(FileNamePartInGbk, TrailingByteOfACharacterIsNoSeparator) {
  if (!testing::haveProgram("localedef")) GTEST_SKIP() << "localedef is not installed";
  if (testing::runCommand("localedef -f GBK -i zh_CN " + path("zh_CN.GBK") + " >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "the GBK locale could not be built here";
  setenv("LOCPATH", path().c_str(), 1);
  const std::string previous = std::setlocale(LC_CTYPE, nullptr);
  const bool active = std::setlocale(LC_CTYPE, "zh_CN.GBK") != nullptr;
  if (active) {
    EXPECT_EQ(findFileNamePart("dir/\x81\x5C"), 4u);   // one character, not "dir/\x81" and "\"
    EXPECT_EQ(findFileNamePart("\x81\x5C/name"), 3u);  // the real separator still counts
    EXPECT_EQ(findFileNamePart("a\\\x81\x5C"), 2u);
  }
  std::setlocale(LC_CTYPE, previous.c_str());
  unsetenv("LOCPATH");
  if (!active) GTEST_SKIP() << "the GBK locale could not be loaded";
  // Byte by byte the same path splits at the trailing byte.
  EXPECT_EQ(findFileNamePart("dir/\x81\x5C"), 6u);
}

}  // namespace
}  // namespace kxzef
