#include <gtest/gtest.h>

#include "create/block_crc.h"

namespace kxzef {
namespace {

TEST(BlockCrc, AugmentedMessageGivesTheNonReflectedCrc32AndExecutablesGoByLastExtension) {
  fillCrcTable();
  // The complemented first word is the augmented form of an all-ones start:
  // with four zero bytes appended, the check string gives the known CRC.
  const unsigned char check[] = "123456789\0\0\0";  // the terminating NUL is the fourth zero
  EXPECT_EQ(blockCrc(check, 13), 0xFC891918u);
  EXPECT_EQ(blockCrc(check + 9, 4), 0u);
  EXPECT_DEATH(blockCrc(check, 3), "");
  for (const char* name : {"SETUP.EXE", "dir.exe/lib.Dll"}) EXPECT_EQ(isExecutableName(name), 1) << name;
  for (const char* name : {"a.exe.txt", "noext"}) EXPECT_EQ(isExecutableName(name), 0) << name;
}

}  // namespace
}  // namespace kxzef
