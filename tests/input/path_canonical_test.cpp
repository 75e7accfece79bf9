#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "input/link_target.h"
#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;
using PathCanonical = testing::TempDirTest;

TEST_F(PathCanonical, RewritesEveryFormAsDocumented) {
  const std::string cwd = path(), parent = cwd.substr(0, cwd.rfind('/') + 1);
  const std::pair<const char*, std::string> rows[] = {
      {"", ""},                    // empty
      {"/", "/"},                  // root
      {"a", "a"},                  // separatorless
      {".", "."},                  // last-unexamined
      {"./a", cwd + "/a"},         // restart
      {"a/./b", cwd + "/b"},       // discards
      {"./../x", parent + "x"},    // climbs-cwd
      {"a/b/../c", "a/c"},         // removes
      {"a/b/..", "a/b/.."},        // trailing
      {"a/../../b", "b"},          // dropped
      {"/a/../../b", "/b"},        // root-kept
      {"a//b", "a//b"},            // repeated
      {"a//../b", "a/b"},          // empty-component
      {"x/.../y", "x/.../y"},      // ordinary
      {"a/b/", "a/b/"},            // trailing-slash
  };
  ChannelCapture capture;
  for (const auto& [input, expected] : rows) EXPECT_EQ(zefMakePathCanonical(input), expected) << input;
  EXPECT_EQ(capture.error(), "");
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
  EXPECT_EQ(kxzef::findInputRoot("rel/x", "x"), "");
}

}  // namespace
}  // namespace kxzef
