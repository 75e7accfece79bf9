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
  testing::patchLE(block, 2, size, 2);
  return block;
}

TEST(LinkExtra, FirstUnixBlockWithTextAtByte16MarksALink) {
  struct Case {
    std::string extra;
    const char* target;  // null: no link
    const char* why;
  };
  const Case cases[] = {
      {linkBlock("/opt/app/lib.so"), "/opt/app/lib.so", "the size counts the block header"},
      {withSize(linkBlock("../x/y"), 12 + 6), "../x/y", "the size counts only the data"},
      {linkBlock("abc") + std::string("UT\5\0\1\2", 6), "abcUT\5", "the text runs to a NUL or the field's end"},
      {withSize(linkBlock("abc"), 17), "abc", "the size need only exceed 16"},
      {linkBlock("") + "target", nullptr, "size 16"},
      {linkBlock(std::string("\0abc", 4)), nullptr, "NUL at byte 16"},
      {"\x0E" + linkBlock("target").substr(1), nullptr, "another tag"},
      {std::string("UT\5\0\1\2\3\4\5", 9) + linkBlock("target"), nullptr, "only the first block is examined"},
      {linkBlock("target").substr(0, 10), nullptr, "a field shorter than the header"},
      {"", nullptr, "no extra field"},
  };
  for (const Case& c : cases) {
    std::string target = "untouched";
    const auto* bytes = reinterpret_cast<const unsigned char*>(c.extra.data());
    EXPECT_EQ(readLinkTarget(bytes, c.extra.size(), target), c.target != nullptr) << c.why;
    EXPECT_EQ(target, c.target != nullptr ? c.target : "untouched") << c.why;
  }
}

}  // namespace
}  // namespace kxzef
