#include "zip/file_system.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace kxzef {
namespace {

using FileSystem = testing::TempDirTest;

TEST_F(FileSystem, MakeDirPathCountsPresentPathsAsMade) {
  ASSERT_EQ(makeDirPath("a/b"), 1);
  EXPECT_EQ(makeDirPath("a\\b"), 1);
  writeFile("file", "x");
  EXPECT_EQ(makeDirPath("file"), 1);        // an existing plain file counts as present
  EXPECT_EQ(makeDirPath("file/below"), 0);  // but nothing can be made below it
}

TEST_F(FileSystem, GetFileTimeTakesDirSlashAsTheDirectory) {
  ASSERT_EQ(makeDirPath("dir"), 1);
  setFileTime("dir", 0, ZipTime{8, 7, 6, 5, 4, 2003});
  ZipTime time{};
  ASSERT_EQ(getFileTime("dir/", time), 1);
  EXPECT_EQ(std::vector<uint32_t>({time.year, time.month, time.dayOfMonth, time.hour, time.minute, time.second}),
            (std::vector<uint32_t>{103, 4, 5, 6, 7, 8}));  // years since 1900
}

}  // namespace
}  // namespace kxzef
