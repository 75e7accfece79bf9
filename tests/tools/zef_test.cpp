// The zef tool as a user meets it: commands, exit statuses, and which
// stream each message reaches.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace {

using ZefTool = kxzef::testing::TempDirTest;

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

// Runs zef with `arguments` (shell words) and standard input from `input`.
ToolRun zef(const std::string& arguments, const std::string& input = "/dev/null") {
  const int status = kxzef::testing::runCommand(std::string(ZEF_PROGRAM) + " " + arguments + " <" + input +
                                                " >zef.out 2>zef.err");
  return ToolRun{status, kxzef::testing::TempDirTest::readFile("zef.out"),
             kxzef::testing::TempDirTest::readFile("zef.err")};
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST_F(ZefTool, HelpAndVersionAnswerOnStandardOutput) {
  ToolRun run = zef("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(contains(run.out, "Commands:"));
  for (const char* command : {"create", "list", "extract", "canon"}) {
    run = zef(std::string(command) + " --help");
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_TRUE(contains(run.out, std::string("Usage: zef ") + command)) << command;
    EXPECT_TRUE(contains(run.out, "Example")) << command;
  }
  run = zef("--version");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(contains(run.out, "zef (kxzefarchiver) 1.")) << run.out;
}

TEST_F(ZefTool, UsageMistakesExitTwoWithAOneLineHint) {
  const char* mistakes[] = {"", "frobnicate", "create", "create out.zef", "create -x out.zef f",
                            "create out.zef --from", "list", "list a b", "extract", "extract a.zef -d",
                            "extract --sideways a.zef", "canon"};
  for (const char* arguments : mistakes) {
    const ToolRun run = zef(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_TRUE(run.err.rfind("zef: ", 0) == 0) << arguments << ": " << run.err;
    EXPECT_TRUE(contains(run.err, "\nTry 'zef ")) << arguments;
  }
}

TEST_F(ZefTool, CreateListAndExtractATree) {
  writeFile("src/bin/run", "#!/bin/sh\necho run\n", 0755);
  writeFile("src/etc/run.conf", "speed=fast\n", 0640);
  ASSERT_EQ(symlink("../etc/run.conf", path("src/bin/conf").c_str()), 0);
  ToolRun run = zef("create -9 out.zef src=app");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");

  run = zef("list out");  // ".zef" is tried when the name is not found
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(contains(run.err, "Length  Method   Size  Ratio")) << run.err;
  for (const char* name : {"app/", "app/bin/conf", "app/bin/run", "app/etc/run.conf"}) {
    EXPECT_TRUE(contains(run.out, std::string("  ") + name + "\n")) << name << " in " << run.out;
  }
  EXPECT_TRUE(contains(run.out, "Defl:X"));

  run = zef("extract out.zef -d dest");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(readFile("dest/app/bin/run"), "#!/bin/sh\necho run\n");
  struct stat status;
  ASSERT_EQ(stat("dest/app/etc/run.conf", &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  char target[64] = {};
  ASSERT_GT(readlink("dest/app/bin/conf", target, sizeof target - 1), 0);
  EXPECT_STREQ(target, "../etc/run.conf");
}

TEST_F(ZefTool, LibraryFailuresExitOneAndNameTheFile) {
  writeFile("empty", "");
  ToolRun run = zef("create out.zef empty");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err, "The file \n 'empty' \n is empty")) << run.err;
  EXPECT_TRUE(contains(run.err, "zef: could not create 'out.zef'"));
  EXPECT_EQ(run.out, "");
  EXPECT_NE(access("out.zef", F_OK), 0);

  run = zef("list missing.zef");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err, "The ZEF archive 'missing.zef.zef' does not exist!")) << run.err;

  writeFile("kept.zef", "old");
  writeFile("f", "data");
  run = zef("create --keep kept.zef f");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err, "The file 'kept.zef' already exists")) << run.err;
  EXPECT_EQ(readFile("kept.zef"), "old");
}

TEST_F(ZefTool, ExtractsNamedEntriesAndReportsMissingOnes) {
  writeFile("a.txt", "alpha");
  writeFile("b.txt", "beta");
  ASSERT_EQ(zef("create -0 two.zef a.txt b.txt").status, 0);
  ToolRun run = zef("extract two.zef -d only B.TXT");  // names compare without regard to case
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(readFile("only/b.txt"), "beta");
  EXPECT_NE(access("only/a.txt", F_OK), 0);
  run = zef("extract two.zef -d only nothere.txt");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err, "File 'nothere.txt' not found in the zipfile")) << run.err;
}

TEST_F(ZefTool, AskKeepsFilesWhenInputEndsAndReplacesThemOnYes) {
  writeFile("a.txt", "archived");
  ASSERT_EQ(zef("create one.zef a.txt").status, 0);
  writeFile("dest/a.txt", "local edit");
  ToolRun run = zef("extract one.zef -d dest --ask");  // standard input is empty
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.err, "The file 'dest/a.txt' exists. Overwrite ? [y]es, [n]o, [A]ll:"));
  EXPECT_EQ(readFile("dest/a.txt"), "local edit");
  writeFile("answers", "maybe\ny\n");
  run = zef("extract one.zef -d dest --ask", "answers");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(readFile("dest/a.txt"), "archived");
}

TEST_F(ZefTool, ManifestWithThousandsOfInputs) {
  std::ofstream manifest(path("manifest.tsv"));
  for (int i = 0; i < 3000; ++i) {
    const std::string name = "in/f" + std::to_string(i);
    writeFile(name, "content " + std::to_string(i) + "\n");
    manifest << name << '\t' << "data/" << i << ".txt\n";
  }
  manifest.close();
  ToolRun run = zef("create -1 many.zef --from manifest.tsv");
  ASSERT_EQ(run.status, 0) << run.err;
  run = zef("list many.zef");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3000);
  EXPECT_TRUE(contains(run.out, "  data/2999.txt\n"));
}

TEST_F(ZefTool, CanonPrintsEachPathAndRefusesDotDot) {
  ToolRun run = zef("canon a/b/../c a//b /x/../y");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "a/c\na//b\n/y\n");
  run = zef("canon ../up");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err, "Cannot canonicalize\n '../up'\n because it begins with ../.")) << run.err;
}

}  // namespace
