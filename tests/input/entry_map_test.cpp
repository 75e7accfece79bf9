#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "kxzefarchiver/ZEFByteArray.h"
#include "kxzefarchiver/ZEFEntryMap.h"

namespace kxzef {
namespace {

TEST(EntryRecord, OwnedTextIsDuplicatedByEveryCopy) {
  char original[] = "note";
  ZEFEntryRecord first(ZEFEntryKindFile, original, true, "lib/x");
  ASSERT_NE(first.text, original);  // the record made its own copy
  original[0] = 'X';
  EXPECT_STREQ(first.text, "note");

  ZEFEntryRecord copy(first);
  EXPECT_NE(copy.text, first.text);
  EXPECT_STREQ(copy.text, "note");
  EXPECT_TRUE(copy.ownsText);

  ZEFEntryRecord assigned;
  assigned = first;
  assigned = copy;  // the previous copy is freed, not leaked (checked by the sanitizer build)
  EXPECT_NE(assigned.text, copy.text);
  EXPECT_STREQ(assigned.text, "note");
  EXPECT_EQ(assigned.destination, "lib/x");
}

TEST(EntryRecord, BorrowedTextIsShared) {
  const char* text = "shared";
  const ZEFEntryRecord first(ZEFEntryKindFile, text, false, "d");
  const ZEFEntryRecord copy(first);
  EXPECT_EQ(copy.text, text);
  EXPECT_FALSE(copy.ownsText);
}

TEST(EntryRecord, MoveHandsTheTextOver) {
  ZEFEntryRecord first(ZEFEntryKindFile, "moved", true, "d");
  const char* held = first.text;
  ZEFEntryRecord second(std::move(first));
  EXPECT_EQ(second.text, held);
  EXPECT_EQ(first.text, nullptr);
  EXPECT_FALSE(first.ownsText);
  ZEFEntryRecord third;
  third = std::move(second);
  EXPECT_EQ(third.text, held);
  ZEFEntryRecord& alias = third;
  third = std::move(alias);  // self-move keeps the text
  EXPECT_EQ(third.text, held);
}

TEST(ByteArray, ClearFreesOnlyWhatItOwnsAndResetsEveryField) {
  unsigned char borrowed[4] = {1, 2, 3, 4};
  ZEFByteArray array;
  array.data = borrowed;
  array.size = 4;
  array.auxiliaryCount = 9;
  array.owns = false;
  array.clear();  // must not delete the stack bytes
  EXPECT_EQ(array.data, nullptr);
  EXPECT_EQ(array.size, 0u);
  EXPECT_EQ(array.auxiliaryCount, 0u);
  EXPECT_TRUE(array.owns);
  ASSERT_TRUE(array.allocate(3));
  EXPECT_EQ(array.size, 3u);
  std::memset(array.data, 7, 3);
  ASSERT_TRUE(array.allocate(0));
  EXPECT_EQ(array.data, nullptr);
}

}  // namespace
}  // namespace kxzef
