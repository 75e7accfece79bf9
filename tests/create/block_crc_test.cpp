#include <gtest/gtest.h>

#include <string>

#include "create/block_crc.h"

namespace kxzef {
namespace {

TEST(BlockCrc, TableFollowsTheGenerator) {
  fillCrcTable();
  EXPECT_EQ(crcTableEntry(0), 0u);
  EXPECT_EQ(crcTableEntry(1), 0x04C11DB7u);
  EXPECT_EQ(crcTableEntry(128), 0x690CE0EEu);
}

TEST(BlockCrc, AugmentedMessageGivesTheNonReflectedCrc32) {
  fillCrcTable();
  const unsigned char zeros[4] = {};
  EXPECT_EQ(blockCrc(zeros, 4), 0u);
  // Loading the first four bytes complemented is the augmented form of an
  // initial value of all ones: with four zero bytes appended the result is
  // the familiar non-reflected CRC-32 of the check string.
  const std::string check("123456789\0\0\0\0", 13);
  EXPECT_EQ(blockCrc(reinterpret_cast<const unsigned char*>(check.data()), 13), 0xFC891918u);
}

TEST(BlockCrcDeathTest, FewerThanFourBytesAbort) {
  const unsigned char bytes[3] = {1, 2, 3};
  EXPECT_DEATH(blockCrc(bytes, 3), "");
}

TEST(BlockCrc, ExecutableNamesByLastExtensionIgnoringCase) {
  EXPECT_EQ(isExecutableName("SETUP.EXE"), 1);
  EXPECT_EQ(isExecutableName("run.Cmd"), 1);
  EXPECT_EQ(isExecutableName("dir.exe/lib.dll"), 1);
  EXPECT_EQ(isExecutableName("a.exe.txt"), 0);
  EXPECT_EQ(isExecutableName("noext"), 0);
  EXPECT_EQ(isExecutableName(".btmx"), 0);
}

}  // namespace
}  // namespace kxzef
