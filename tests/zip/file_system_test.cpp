#include "zip/file_system.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace kxzef {
namespace {

using FileSystem = testing::TempDirTest;

bool isDirectory(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

TEST_F(FileSystem, MakeDirPathCreatesEveryLevelAndCountsPresentPathsAsMade) {
  EXPECT_EQ(makeDirPath("a\\b\\c/"), 1);
  EXPECT_TRUE(isDirectory("a") && isDirectory("a/b") && isDirectory("a/b/c"));
  EXPECT_EQ(makeDirPath("a\\b\\c/"), 1);
  EXPECT_EQ(makeDirPath(""), 0);
  writeFile("file", "x");
  EXPECT_EQ(makeDirPath("file"), 1);        // an existing plain file counts as present
  EXPECT_EQ(makeDirPath("file/below"), 0);  // but nothing can be made below it
}

TEST_F(FileSystem, GetFileTimeTakesDirSlashAsDirAndGivesTheEpochForStandardInput) {
  ASSERT_EQ(makeDirPath("dir"), 1);
  setFileTime("dir", 0, ZipTime{8, 7, 6, 5, 4, 2003});
  ZipTime time{};
  ASSERT_EQ(getFileTime("dir/", time), 1);
  EXPECT_EQ(std::vector<uint32_t>({time.year, time.month, time.dayOfMonth, time.hour, time.minute, time.second}),
            (std::vector<uint32_t>{103, 4, 5, 6, 7, 8}));  // years since 1900
  std::tm epoch{};
  const time_t zero = 0;
  localtime_r(&zero, &epoch);
  EXPECT_EQ(getFileTime("-", time), 0);
  EXPECT_EQ(time.year, static_cast<uint32_t>(epoch.tm_year));
  EXPECT_EQ(time.hour, static_cast<uint32_t>(epoch.tm_hour));
}

}  // namespace
}  // namespace kxzef
