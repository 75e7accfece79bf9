// The zef tool as a user meets it: commands, exit statuses, and which
// stream each message reaches.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/temp_dir.h"
#include "support/zef_run.h"

namespace {

namespace fs = std::filesystem;
using kxzef::testing::ToolRun;
using ZefTool = kxzef::testing::TempDirTest;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

ToolRun zef(const std::string& arguments) { return kxzef::testing::runZef(arguments); }

TEST_F(ZefTool, InformationalCommandsAnswerOnStandardOutput) {
  const char* rows[][2] = {{"--help", "Commands:"},           {"create --help", "Usage: zef create"},
                           {"list --help", "Usage: zef list"},   {"extract --help", "Usage: zef extract"},
                           {"canon --help", "Usage: zef canon"}, {"--version", "zef (kxzefarchiver) 1."},
                           {"canon a/b/../c a//b /x/../y", "a/c\na//b\n/y\n"}};
  for (const auto& [arguments, text] : rows) {
    const ToolRun run = zef(arguments);
    EXPECT_EQ(run.status, 0) << arguments;
    EXPECT_EQ(run.err, "") << arguments;
    EXPECT_TRUE(contains(run.out, text)) << arguments << ": " << run.out;
  }
}

TEST_F(ZefTool, UsageMistakesExitTwoWithAOneLineHint) {
  for (const char* arguments : {"", "frobnicate", "--frob", "create", "create out.zef", "create -x out.zef f",
                                "create out.zef --from", "create -j 0 out.zef f", "create --jobs=x out.zef f",
                                "create out.zef f -j", "create --mtime 2024-02-30 out.zef f", "create --exclude",
                                "list", "list a b", "list -1 --json a", "list -v --raw a", "extract", "extract a.zef -d",
                                "extract --sideways a.zef", "extract --overwrite=sometimes a.zef",
                                "extract --ask --replace a.zef", "canon", "canon -v a/b"}) {
    const ToolRun run = zef(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_TRUE(run.err.rfind("zef: ", 0) == 0 && contains(run.err, "\nTry 'zef ")) << arguments << ": " << run.err;
  }
}

TEST_F(ZefTool, ExtractedTreeMatchesTheCreatedOne) {
  writeFile("src/bin/run", "#!/bin/sh\necho run\n", 0755);
  writeFile("src/etc/run.conf", "speed=fast\n", 0640);
  fs::create_symlink("../etc/run.conf", "src/bin/conf");
  ToolRun run = zef("create -9 out.zef src=app");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");
  run = zef("list out");  // ".zef" is tried when the name is not found
  EXPECT_EQ(run.status, 0);
  for (const char* line : {"  app/\n", "  app/bin/conf -> ../etc/run.conf\n", "  app/bin/run\n", "6 entries\n"}) {
    EXPECT_TRUE(contains(run.out, line)) << line << " in " << run.out;
  }
  ASSERT_EQ(zef("extract out.zef -d dest").status, 0);
  EXPECT_EQ(fs::status("dest/app/etc/run.conf").permissions(), fs::perms(0640));
  EXPECT_EQ(fs::read_symlink("dest/app/bin/conf"), "../etc/run.conf");
}

TEST_F(ZefTool, FailuresExitOneNamingTheFile) {
  const char* rows[][2] = {
      {"list missing.zef", "zef: missing.zef: no such file (nor 'missing.zef.zef')\n"},
      {"list --raw missing.zef", "The ZEF archive 'missing.zef.zef' does not exist!"},
      {"canon ../up", "Cannot canonicalize\n '../up'\n because it begins with ../."},
  };
  for (const auto& [arguments, message] : rows) {
    const ToolRun run = zef(arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_TRUE(contains(run.err, message)) << arguments << ": " << run.err;
  }
}

}  // namespace
