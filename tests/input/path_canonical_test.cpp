#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;
using PathCanonical = testing::TempDirTest;

// "<cwd>" in an expectation stands for the working directory.
struct Row {
  const char* input;
  const char* expected;
};

std::string expand(const std::string& pattern, const std::string& cwd) {
  std::string text = pattern;
  const size_t at = text.find("<cwd>");
  if (at != std::string::npos) text.replace(at, 5, cwd);
  return text;
}

TEST_F(PathCanonical, RewritesEveryFormAsDocumented) {
  const Row rows[] = {
      {"", ""},                  // nothing in, nothing out
      {"/", "/"},                // the root alone
      {"a", "a"},                // no separator at all
      {".", "."},                // a last component is never examined
      {"./", "<cwd>/"},          // "." restarts at the working directory
      {"./a", "<cwd>/a"},
      {"a/./b", "<cwd>/b"},      // ... discarding what came before it
      {"/usr/./b", "<cwd>/b"},   // even an absolute start
      {"a/b/c", "a/b/c"},        // relative without "." stays relative
      {"a/b/../c", "a/c"},       // ".." removes the component before it
      {"a/../b", "b"},
      {"a/b/..", "a/b/.."},      // a trailing ".." is left alone
      {"a/b/.", "a/b/."},        // and so is a trailing "."
      {"a/../../b", "b"},        // climbing above a relative start is dropped
      {"/a/../../b", "/b"},      // climbing above the root keeps the root
      {"/../x", "/x"},
      {"/..", "/.."},
      {"a//b", "a//b"},          // repeated separators are kept
      {"a//../b", "a/b"},        // ".." after "//" removes the empty component
      {"x/.../y", "x/.../y"},    // only exact "." and ".." are special
      {"a./a../b", "a./a../b"},
      {".hidden/x", ".hidden/x"},
      {"a/b/", "a/b/"},          // a trailing "/" is kept
  };
  const std::string cwd = path();
  ChannelCapture capture;
  for (const Row& row : rows) {
    EXPECT_EQ(zefMakePathCanonical(row.input), expand(row.expected, cwd)) << "input: " << row.input;
  }
  EXPECT_EQ(capture.error(), "");
}

TEST_F(PathCanonical, DotThenDotDotClimbsOutOfTheWorkingDirectory) {
  const std::string cwd = path();
  const std::string parent = cwd.substr(0, cwd.rfind('/') + 1);
  EXPECT_EQ(zefMakePathCanonical("./../x"), parent + "x");
}

TEST_F(PathCanonical, TextsBeginningWithTwoDotsAreRefusedWithTheMessage) {
  for (const char* input : {"../a", "..", "..x"}) {
    ChannelCapture capture;
    EXPECT_EQ(zefMakePathCanonical(input), "") << input;
    EXPECT_EQ(capture.error(), std::string("Cannot canonicalize\n '") + input + "'\n because it begins with ../.\n");
  }
}

TEST_F(PathCanonical, VanishedWorkingDirectoryCountsAsEmpty) {
  ASSERT_EQ(mkdir("gone", 0755), 0);
  ASSERT_EQ(chdir("gone"), 0);
  ASSERT_EQ(rmdir(path("gone").c_str()), 0);
  EXPECT_EQ(zefMakePathCanonical("./a"), "/a");
  EXPECT_EQ(zefMakePathCanonical("a/./b/../c"), "/c");
  EXPECT_EQ(zefMakePathCanonical("a/b"), "a/b");
}

TEST_F(PathCanonical, WorkingDirectoryLongerThanTheBufferCountsAsEmpty) {
  // 40 levels of 250 characters: about 10,000 bytes, beyond the 8194-byte buffer.
  const std::string component(250, 'd');
  int depth = 0;
  for (; depth < 40; ++depth) {
    if (mkdir(component.c_str(), 0755) != 0 || chdir(component.c_str()) != 0) break;
  }
  const std::string result = zefMakePathCanonical("./a");
  // Walk back and remove the levels ourselves: the tree is too deep for path-based removal.
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(chdir(".."), 0);
    ASSERT_EQ(rmdir(component.c_str()), 0);
  }
  ASSERT_EQ(depth, 40);
  EXPECT_EQ(result, "/a");
}

}  // namespace
}  // namespace kxzef
