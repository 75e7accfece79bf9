#include <gtest/gtest.h>

#include <unistd.h>

#include "input/link_target.h"
#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

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
  testing::ChannelCapture capture;
  for (const auto& [input, expected] : rows) EXPECT_EQ(zefMakePathCanonical(input), expected) << input;
  EXPECT_EQ(capture.error(), "");
}

TEST_F(PathCanonical, TextBeginningWithTwoDotsIsRefused) {
  testing::ChannelCapture capture;
  EXPECT_EQ(zefMakePathCanonical("../a"), "");
  EXPECT_EQ(zefMakePathCanonical("..x"), "");  // the text, not a component, begins with two dots
  const auto refuse = [](std::string t) { return "Cannot canonicalize\n '" + t + "'\n because it begins with ../.\n"; };
  EXPECT_EQ(capture.error(), refuse("../a") + refuse("..x"));
}

TEST_F(PathCanonical, VanishedWorkingDirectoryCountsAsEmpty) {
  ASSERT_TRUE(mkdir("gone", 0755) == 0 && chdir("gone") == 0 && rmdir(path("gone").c_str()) == 0);
  EXPECT_EQ(zefMakePathCanonical("./a"), "/a");
  EXPECT_EQ(kxzef::findInputRoot("rel/x", "x"), "");
}

}  // namespace
}  // namespace kxzef
