#include <gtest/gtest.h>

#include <string>

#include "create/block_crc.h"

namespace kxzef {
namespace {

TEST(BlockCrc, AugmentedMessageGivesTheNonReflectedCrc32) {
  fillCrcTable();
  EXPECT_EQ(crcTableEntry(1), 0x04C11DB7u);
  const unsigned char zeros[4] = {};
  EXPECT_EQ(blockCrc(zeros, 4), 0u);
  // The complemented first word is the augmented form of an all-ones start:
  // with four zero bytes appended, the check string gives the known CRC.
  const std::string check("123456789\0\0\0\0", 13);
  EXPECT_EQ(blockCrc(reinterpret_cast<const unsigned char*>(check.data()), 13), 0xFC891918u);
  EXPECT_DEATH(blockCrc(zeros, 3), "");
}

TEST(BlockCrc, ExecutableNamesByLastExtensionIgnoringCase) {
  EXPECT_EQ(isExecutableName("SETUP.EXE"), 1);
  EXPECT_EQ(isExecutableName("dir.exe/lib.Dll"), 1);
  EXPECT_EQ(isExecutableName("a.exe.txt"), 0);
  EXPECT_EQ(isExecutableName("noext"), 0);
}

}  // namespace
}  // namespace kxzef
