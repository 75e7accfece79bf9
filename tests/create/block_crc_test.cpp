#include <gtest/gtest.h>

#include "create/block_crc.h"

namespace kxzef {
namespace {

// The complemented first word is the augmented form of an all-ones start:
// with four zero bytes appended, the check string gives the known CRC.
const unsigned char Check[] = "123456789\0\0\0";  // the terminating NUL is the fourth zero

TEST(BlockCrc, AugmentedMessageGivesTheNonReflectedCrc32) {
  fillCrcTable();
  EXPECT_EQ(blockCrc(Check, 13), 0xFC891918u);
  EXPECT_EQ(blockCrc(Check + 9, 4), 0u);
}

TEST(BlockCrc, BufferShorterThanTheRegisterAborts) { EXPECT_DEATH(blockCrc(Check, 3), ""); }

TEST(BlockCrc, ExecutableNameGoesByTheLastExtension) {
  for (const char* name : {"SETUP.EXE", "dir.exe/lib.Dll"}) EXPECT_EQ(isExecutableName(name), 1) << name;
  for (const char* name : {"a.exe.txt", "noext"}) EXPECT_EQ(isExecutableName(name), 0) << name;
}

}  // namespace
}  // namespace kxzef
