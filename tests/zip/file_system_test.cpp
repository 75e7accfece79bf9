#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>

#include "support/temp_dir.h"
#include "zip/file_system.h"

namespace kxzef {
namespace {

using FileSystem = testing::TempDirTest;

bool isDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

TEST_F(FileSystem, FileExistsOnlyForReadableFiles) {
  writeFile("plain", "x");
  mkdir("dir", 0755);
  EXPECT_EQ(fileExists("plain"), 1);
  EXPECT_EQ(fileExists("missing"), 0);
  EXPECT_EQ(fileExists(nullptr), 0);
  // fopen succeeds on a directory for reading on Linux; the answer follows fopen.
  EXPECT_EQ(fileExists("dir"), 1);
}

TEST_F(FileSystem, MakeDirPathCreatesEveryLevelAndTakesBackslashes) {
  EXPECT_EQ(makeDirPath("a\\b\\c/"), 1);
  EXPECT_TRUE(isDirectory("a"));
  EXPECT_TRUE(isDirectory("a/b"));
  EXPECT_TRUE(isDirectory("a/b/c"));
  EXPECT_EQ(makeDirPath("a\\b\\c/"), 1);  // present already
  EXPECT_EQ(makeDirPath(path("abs/x").c_str()), 1);
  EXPECT_TRUE(isDirectory(path("abs/x")));
}

TEST_F(FileSystem, MakeDirPathEdgeResults) {
  EXPECT_EQ(makeDirPath(""), 0);
  EXPECT_EQ(makeDirPath(nullptr), 0);
  writeFile("file", "x");
  EXPECT_EQ(makeDirPath("file"), 1);        // an existing plain file counts as present
  EXPECT_EQ(makeDirPath("file/below"), 0);  // but nothing can be made below it
}

TEST_F(FileSystem, MakeDirPathAppliesMode0775LessUmask) {
  const mode_t previous = umask(0);
  EXPECT_EQ(makeDirPath("m/n"), 1);
  umask(previous);
  struct stat status;
  ASSERT_EQ(stat("m/n", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0775u);
}

TEST_F(FileSystem, MakeOneDirReportsErrno) {
  EXPECT_EQ(makeOneDir("one"), 0);
  EXPECT_EQ(makeOneDir("one"), 0);
  EXPECT_EQ(makeOneDir("none/two"), -1);
  EXPECT_EQ(errno, ENOENT);
  writeFile("f", "x");
  EXPECT_EQ(makeOneDir("f/x"), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(FileSystem, GetFileTimeReadsTheModificationTimeAsLocalTime) {
  writeFile("f", "x");
  ZipTime time{};
  setFileTime("f", 0, ZipTime{8, 7, 6, 5, 4, 2003});
  ASSERT_EQ(getFileTime("f", time), 1);
  EXPECT_EQ(time.year, 103u);  // years since 1900
  EXPECT_EQ(time.month, 4u);
  EXPECT_EQ(time.dayOfMonth, 5u);
  EXPECT_EQ(time.hour, 6u);
  EXPECT_EQ(time.minute, 7u);
  EXPECT_EQ(time.second, 8u);
}

TEST_F(FileSystem, SetFileTimeAcceptsYearsSince1900) {
  writeFile("f", "x");
  setFileTime("f", 0, ZipTime{0, 0, 12, 1, 0, 99});
  ZipTime time{};
  ASSERT_EQ(getFileTime("f", time), 1);
  EXPECT_EQ(time.year, 99u);
  setFileTime("missing", 0, ZipTime{0, 0, 12, 1, 0, 99});  // ignored
}

TEST_F(FileSystem, GetFileTimeOfStandardInputAndMissingFilesIsTheEpoch) {
  std::tm epoch{};
  const time_t zero = 0;
  localtime_r(&zero, &epoch);
  for (const char* name : {"-", "missing"}) {
    ZipTime time{1, 1, 1, 1, 1, 1};
    EXPECT_EQ(getFileTime(name, time), 0) << name;
    EXPECT_EQ(time.year, static_cast<uint32_t>(epoch.tm_year)) << name;
    EXPECT_EQ(time.hour, static_cast<uint32_t>(epoch.tm_hour)) << name;
  }
}

TEST_F(FileSystem, GetFileTimeIgnoresATrailingSlashAndClipsLongPaths) {
  mkdir("dir", 0755);
  ZipTime time{};
  EXPECT_EQ(getFileTime("dir/", time), 1);
  // Only the first 255 characters are examined; a longer path never reads past them.
  const std::string longDir(255, 'd');
  ASSERT_EQ(mkdir(longDir.c_str(), 0755), 0);
  EXPECT_EQ(getFileTime((longDir + "/and/more/beyond").c_str(), time), 1);
  EXPECT_EQ(getFileTime((std::string(300, 'q') + "/").c_str(), time), 0);
}

}  // namespace
}  // namespace kxzef
