// Which central extra fields mark a symbolic link, and what target they carry.
#include "extract/link_extra.h"

#include <gtest/gtest.h>

#include <string>

#include "support/archive_bytes.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::linkBlock;

std::string withSize(std::string block, uint16_t size) {
  block[2] = static_cast<char>(size & 0xFF);
  block[3] = static_cast<char>(size >> 8);
  return block;
}

TEST(LinkExtra, FirstUnixBlockWithTextAtByte16MarksALink) {
  struct Case {
    std::string extra;
    bool isLink;
    std::string target;
    const char* why;
  };
  const std::string header = linkBlock("");  // tag 13, size 16, 12 zero bytes
  const Case cases[] = {
      {linkBlock("/opt/app/lib.so"), true, "/opt/app/lib.so", "size counts the block header"},
      {withSize(linkBlock("../x/y"), 12 + 6), true, "../x/y", "size counts only the data"},
      {linkBlock("t") + std::string("\0\0rest", 6), true, "t", "the text ends at the first NUL"},
      {linkBlock("abc") + std::string("UT\5\0\1\2", 6), true, "abcUT\5", "a following block runs into the text"},
      {header, false, "", "size 16: no text"},
      {header + "target", false, "", "size field 16 although text follows"},
      {withSize(linkBlock("abc"), 17), true, "abc", "the size need only exceed 16"},
      {linkBlock(std::string("\0abc", 4)), false, "", "NUL at byte 16"},
      {"\x0E" + linkBlock("target").substr(1), false, "", "another tag"},
      {std::string("UT\5\0\1\2\3\4\5", 9) + linkBlock("target"), false, "", "only the first block is examined"},
      {linkBlock("target").substr(0, 10), false, "", "field shorter than the header"},
      {std::string("\x0D\0", 2), false, "", "tag without size"},
      {"", false, "", "no extra field"},
  };
  for (const Case& c : cases) {
    std::string target = "untouched";
    const bool isLink =
        readLinkTarget(reinterpret_cast<const unsigned char*>(c.extra.data()), c.extra.size(), target);
    EXPECT_EQ(isLink, c.isLink) << c.why;
    EXPECT_EQ(target, c.isLink ? c.target : "untouched") << c.why;
  }
}

}  // namespace
}  // namespace kxzef
