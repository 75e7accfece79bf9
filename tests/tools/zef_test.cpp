// The zef tool as a user meets it: commands, exit statuses, and which
// stream each message reaches.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using ZefTool = kxzef::testing::TempDirTest;

struct ToolRun {
  int status;
  std::string out, err;
};

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Runs zef with `arguments` (shell words) and standard input from `input`.
ToolRun zef(const std::string& arguments, const std::string& input = "/dev/null") {
  const int status = kxzef::testing::runCommand(std::string(ZEF_PROGRAM) + " " + arguments + " <" + input +
                                                " >zef.out 2>zef.err");
  return ToolRun{status, ZefTool::readFile("zef.out"), ZefTool::readFile("zef.err")};
}

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
  ASSERT_EQ(zef("extract out.zef -d only APP/ETC/RUN.CONF").status, 0);  // names compare without regard to case
  EXPECT_EQ(readFile("only/app/etc/run.conf"), "speed=fast\n");
  EXPECT_FALSE(fs::exists("only/app/bin/run"));
  // Without a destination, a linked input is stored once, under its own name.
  ASSERT_EQ(zef("create bare.zef src").status, 0);
  ASSERT_EQ(zef("extract bare.zef -d bare").status, 0) << readFile("zef.err");
  EXPECT_EQ(fs::read_symlink("bare/src/bin/conf"), "../etc/run.conf");
}

TEST_F(ZefTool, FailuresExitOneNamingTheFile) {
  writeFile("empty", "");
  writeFile("kept.zef", "old");
  ASSERT_EQ(zef("create -0 one.zef kept.zef").status, 0);
  const char* rows[][2] = {
      {"extract one.zef -d dest nothere.txt", "zef: one.zef: 'nothere.txt' is not in the archive; nothing was extracted\n"},
      {"create out.zef empty", "zef: empty: empty file (an archive entry must have content)\n"
                               "zef: could not create 'out.zef'; nothing was written\n"},
      {"list missing.zef", "zef: missing.zef: no such file (nor 'missing.zef.zef')\n"},
      {"list --raw missing.zef", "The ZEF archive 'missing.zef.zef' does not exist!"},
      {"create --keep kept.zef one.zef", "zef: kept.zef: already exists (--keep refuses to replace it)"},
      {"canon ../up", "Cannot canonicalize\n '../up'\n because it begins with ../."},
  };
  for (const auto& [arguments, message] : rows) {
    const ToolRun run = zef(arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_TRUE(contains(run.err, message)) << arguments << ": " << run.err;
  }
  EXPECT_FALSE(fs::exists("out.zef"));
  EXPECT_EQ(readFile("kept.zef"), "old");
}

TEST_F(ZefTool, ManifestWithThousandsOfInputs) {
  std::ofstream manifest(path("manifest.tsv"));
  for (int i = 0; i < 3000; ++i)
    manifest << writeFile("in/f" + std::to_string(i), "content " + std::to_string(i)) << "\tdata/" << i << ".txt\n";
  manifest.close();
  ASSERT_EQ(zef("create -1 many.zef --from manifest.tsv").status, 0);
  const ToolRun run = zef("list -1 many.zef");
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3000);
  EXPECT_TRUE(contains(run.out, "\ndata/2999.txt\n"));
}

}  // namespace
