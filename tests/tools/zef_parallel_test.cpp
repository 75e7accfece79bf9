// zef create -j and zef extract -j as a user meets them: the number of
// threads changes neither the archive's bytes, nor what lands on disk, nor
// the messages and exit status of a run that fails.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "support/zef_run.h"
#include "support/zip_records.h"

namespace {

namespace fs = std::filesystem;
using kxzef::testing::runCommand;
using kxzef::testing::ToolRun;
using kxzef::testing::treeSnapshot;

// `text` with the random part of each temporary name as "XXXXXX".
std::string masked(std::string text) {
  constexpr size_t RandomPart = 6;
  for (const std::string prefix : {"zef-tmp-", "zef-stage-"}) {
    for (size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at + 1)) {
      const size_t random = at + prefix.size();
      if (text.size() - random < RandomPart) break;
      const auto alnum = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
      if (std::all_of(text.begin() + random, text.begin() + random + RandomPart, alnum)) {
        text.replace(random, RandomPart, "XXXXXX");
      }
    }
  }
  return text;
}

class ZefParallel : public kxzef::testing::TempDirTest {
 protected:
  // Runs "PREFIX zef ARGUMENTS"; temporary names in its errors are masked, the rest must match.
  static ToolRun zef(const std::string& arguments, const std::string& prefix = "") {
    ToolRun run = kxzef::testing::runZef(arguments, "/dev/null", prefix);
    run.err = masked(run.err);
    return run;
  }

  // Directories (one empty), links to a file and to a directory, many small
  // files, text that deflates to many output buffers, and a file past the
  // size the threads take, which the calling thread streams.
  void makeTree() const {
    for (int i = 0; i < 400; ++i) {
      char name[48];
      std::snprintf(name, sizeof name, "tree/d%d/f%03d", i % 7, i);
      writeFile(name, kxzef::testing::sampleText(50 + static_cast<size_t>(i) * 23), i % 5 == 0 ? 0755 : 0644);
    }
    writeFile("tree/large/text", kxzef::testing::sampleText(3 << 20));
    ASSERT_EQ(runCommand("head -c 9437184 /dev/urandom >tree/large/noise"), 0);
    ASSERT_EQ(mkdir("tree/empty", 0700), 0);
    ASSERT_EQ(symlink("d1/f001", "tree/file-link"), 0);
    ASSERT_EQ(symlink("d2", "tree/dir-link"), 0);
  }
};

TEST_F(ZefParallel, CreateWritesTheSameArchiveOnAnyNumberOfThreads) {
  makeTree();
  const struct {
    const char* options;
    const char* single;  // the same run on the calling thread alone
  } rows[] = {
      {"-j 2", "-j 1"},
      {"--jobs 3 -1", "--jobs=1 -1"},  // deflate's fast path
      {"", "-j 1"},                    // the default: the online CPUs
  };
  for (const auto& row : rows) {
    ASSERT_EQ(zef(std::string("create ") + row.single + " one.zef tree=app").status, 0) << readFile("zef.err");
    ASSERT_EQ(zef(std::string("create ") + row.options + " many.zef tree=app").status, 0) << readFile("zef.err");
    EXPECT_TRUE(readFile("many.zef") == readFile("one.zef")) << row.options;
  }
}

// A file size limit fails the write part-way: at the same byte, with the
// same messages, whatever the number of threads.
TEST_F(ZefParallel, CreateFailsTheSameWayOnAnyNumberOfThreads) {
  makeTree();
  for (const char* limit : {"100000", "2000000"}) {
    const ToolRun single = zef("create -j 1 out.zef tree", std::string("prlimit --fsize=") + limit);
    const ToolRun parallel = zef("create -j 2 out.zef tree", std::string("prlimit --fsize=") + limit);
    EXPECT_EQ(single.status, 1) << limit;
    EXPECT_EQ(parallel.status, single.status) << limit;
    EXPECT_EQ(parallel.err, single.err) << limit;
    EXPECT_FALSE(fs::exists("out.zef")) << limit;
  }
}

TEST_F(ZefParallel, ExtractMakesTheSameTreeOnAnyNumberOfThreads) {
  makeTree();
  ASSERT_EQ(zef("create -j 1 in.zef tree=app").status, 0) << readFile("zef.err");
  ASSERT_EQ(zef("extract -j 1 in.zef -d one").status, 0) << readFile("zef.err");
  fs::rename("one", "out");  // both trees under one name, so that their paths agree
  const std::vector<std::string> single = treeSnapshot("out", true);
  const std::string link = "out/app/file-link " + std::to_string(S_IFLNK | 0777) + " -> d1/f001";
  EXPECT_NE(std::find(single.begin(), single.end(), link), single.end());
  for (const char* jobs : {"-j 2", ""}) {
    fs::remove_all("out");
    ASSERT_EQ(zef(std::string("extract ") + jobs + " in.zef -d out").status, 0) << jobs << readFile("zef.err");
    EXPECT_TRUE(treeSnapshot("out", true) == single) << jobs;
  }
}

// A file whose stored bytes were changed fails its CRC check: the same
// entry is named whatever the number of threads, and nothing is installed.
TEST_F(ZefParallel, ExtractFailsTheSameWayOnAnyNumberOfThreads) {
  makeTree();
  writeFile("tree/d3/marked", "MARKER " + kxzef::testing::sampleText(20000));
  ASSERT_EQ(zef("create -0 -j 1 in.zef tree=app").status, 0) << readFile("zef.err");
  std::string bytes = readFile("in.zef");
  const size_t marker = bytes.find("MARKER ");
  ASSERT_NE(marker, std::string::npos);
  bytes[marker] = 'm';
  writeFile("in.zef", bytes);
  const ToolRun single = zef("extract -j 1 in.zef -d out");
  EXPECT_FALSE(fs::exists("out"));
  const ToolRun parallel = zef("extract -j 2 in.zef -d out");
  EXPECT_FALSE(fs::exists("out"));
  EXPECT_EQ(single.status, 1);
  EXPECT_EQ(parallel.status, single.status);
  EXPECT_NE(single.err.find("'app/d3/marked' failed its CRC check"), std::string::npos) << single.err;
  EXPECT_EQ(parallel.err, single.err);
}

}  // namespace
