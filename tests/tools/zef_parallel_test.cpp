// zef create -j as a user meets it: the number of threads does not change
// the archive's bytes. The engine's own tests hold extraction, and failures
// on either side, to what the driver does alone.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/temp_dir.h"
#include "support/zef_run.h"
#include "support/zip_records.h"

namespace {

using kxzef::testing::runCommand;

class ZefParallel : public kxzef::testing::TempDirTest {
 protected:
  static int zef(const std::string& arguments) { return kxzef::testing::runZef(arguments).status; }

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
  // single: the same run on the calling thread alone
  const struct { const char* options; const char* single; } rows[] = {
      {"-j 2", "-j 1"},
      {"--jobs 3 -1", "--jobs=1 -1"},  // deflate's fast path
      {"", "-j 1"},                    // the default: the online CPUs
  };
  for (const auto& row : rows) {
    ASSERT_EQ(zef(std::string("create ") + row.single + " one.zef tree=app"), 0) << readFile("zef.err");
    ASSERT_EQ(zef(std::string("create ") + row.options + " many.zef tree=app"), 0) << readFile("zef.err");
    EXPECT_TRUE(readFile("many.zef") == readFile("one.zef")) << row.options;
  }
}

}  // namespace
