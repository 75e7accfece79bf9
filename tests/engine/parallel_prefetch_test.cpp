// zef create's engine: with zlib, an archive made with workers must be the
// one the run makes alone, byte for byte, with the same messages and result,
// whatever the level, the number of workers or the memory cap; with
// libdeflate, the archive must not depend on the workers either, and the
// messages and result are still the run's own.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "create/creation_run.h"
#include "create/zip_driver.h"
#include "engine/parallel_prefetch.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

struct RunResult {
  int status;
  std::string messages;
  std::string bytes;
};

struct stat statOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

class ParallelCreation : public testing::TempDirTest {
 protected:
  // Directories, a link whose target is queued behind the inputs, text that
  // deflates to more than one output buffer, bytes that do not deflate, and
  // many small files of both kinds.
  ZEFEntryMap makeTree() {
    ZEFEntryMap inputs;
    for (int i = 0; i < 150; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "tree/small/f%03d", i);
      const size_t size = 100 + static_cast<size_t>(i) * 29;
      writeFile(name, i % 3 == 0 ? testing::noise(static_cast<unsigned>(i), size) : testing::sampleText(size));
      inputs[name] = ZEFEntryRecord();
    }
    writeFile("tree/large/text", testing::sampleText(600 << 10));
    writeFile("tree/large/noise", testing::noise(7, 300 << 10));
    writeFile("outside/target", "reached through the link");
    EXPECT_EQ(mkdir("tree/empty", 0750), 0);
    EXPECT_EQ(symlink("../outside/target", "tree/link"), 0);
    for (const char* path : {"tree/large/text", "tree/large/noise", "tree/empty", "tree/link"}) {
      inputs[path] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, std::string("app/") + (path + 5));
    }
    return inputs;
  }

  // `archive` is read back unless it leads to a device.
  static RunResult create(const ZEFEntryMap& inputs, int level, EntryPrefetch* prefetch, const char* archive,
                          bool readBack = true) {
    testing::ChannelCapture capture;
    ZEFEntryMap walked = inputs;
    ZipDriver driver;
    driver.setCompressionLevel(level);
    driver.prefetch = prefetch;
    CreationContext context;
    int status = driver.open(archive);
    if (status == StatusOk) status = driver.addInputs(walked, &context, true);
    releaseContextObjects(context);
    return RunResult{status, capture.error() + capture.output(), readBack ? readFile(archive) : ""};
  }

  // `run` must give the archive, messages and result `reference` gave.
  static void expectSameRun(const RunResult& reference, const RunResult& run, const std::string& why) {
    EXPECT_EQ(run.status, reference.status) << why;
    EXPECT_EQ(run.messages, reference.messages) << why;
    EXPECT_EQ(run.bytes.size(), reference.bytes.size()) << why;
    EXPECT_TRUE(run.bytes == reference.bytes) << why;
  }
};

// With zlib, the run's own archive; with libdeflate, whether a worker has an
// input ready or the calling thread deflates it itself, libdeflate's bytes
// at the run's level.
TEST_F(ParallelCreation, ArchiveDoesNotDependOnTheWorkers) {
  const ZEFEntryMap inputs = makeTree();
  const struct { int level; unsigned workers; PrefetchLimits limits; const char* why; } rows[] = {
      {6, 2, {}, "the default level"},
      {1, 3, {}, "level 1 takes deflate's fast path"},
      {0, 2, {}, "level 0 stores: workers only read and checksum"},
      {6, 4, {96 << 10, 32 << 10}, "a cap smaller than the tree: workers wait and the run takes inputs back"},
      {6, 2, {DefaultInFlightCap, 1 << 20, 4096}, "files over the whole limit: workers give zlib's stream"},
  };
  for (const auto& row : rows) {
    ParallelPrefetch zlib(row.workers, row.limits), whole(row.workers, row.limits, PrefetchDeflater::Whole);
    ParallelPrefetch here(0, row.limits, PrefetchDeflater::Whole);  // libdeflate on the calling thread alone
    const RunResult alone = create(inputs, row.level, nullptr, "alone.zef");
    EXPECT_EQ(alone.status, 0) << row.why;
    expectSameRun(alone, create(inputs, row.level, &zlib, "zlib.zef"), row.why);
    const RunResult onTheCallingThread = create(inputs, row.level, &here, "here.zef");
    expectSameRun(onTheCallingThread, create(inputs, row.level, &whole, "whole.zef"), row.why);
    EXPECT_LE(zlib.peakHeld(), row.limits.inFlightCap) << row.why;
    EXPECT_LE(whole.peakHeld(), row.limits.inFlightCap) << row.why;
  }
}

// The empty file ends the run in archive order, though workers read past it.
TEST_F(ParallelCreation, FirstFailureInArchiveOrderIsTheOneReported) {
  ZEFEntryMap inputs = makeTree();
  writeFile("tree/small/f050-empty", "");
  inputs["tree/small/f050-empty"] = ZEFEntryRecord();
  for (const PrefetchDeflater deflater : {PrefetchDeflater::Zlib, PrefetchDeflater::Whole}) {
    ParallelPrefetch prefetch(2, PrefetchLimits{}, deflater);
    const RunResult alone = create(inputs, 6, nullptr, "alone.zef");
    const RunResult parallel = create(inputs, 6, &prefetch, "parallel.zef");
    EXPECT_NE(alone.status, 0);
    EXPECT_EQ(parallel.status, alone.status);
    EXPECT_EQ(parallel.messages, alone.messages);
    EXPECT_EQ(testing::entryNames(parallel.bytes).back(), "tree/small/f050-empty");
  }
}

TEST_F(ParallelCreation, WriteFailuresGiveTheSameMessages) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  ASSERT_EQ(symlink("/dev/full", "full.zef"), 0);
  const std::pair<size_t, const char*> rows[] = {
      {1 << 20, "fails while the data is copied"},
      {16000, "fails when the entry is closed: its data fits one output buffer"},
  };
  for (const auto& [size, why] : rows) {
    writeFile("data", testing::sampleText(size));
    const ZEFEntryMap inputs{{"data", ZEFEntryRecord()}};
    const RunResult alone = create(inputs, 6, nullptr, "full.zef", false);
    for (const PrefetchDeflater deflater : {PrefetchDeflater::Zlib, PrefetchDeflater::Whole}) {
      ParallelPrefetch prefetch(2, PrefetchLimits{}, deflater);
      const RunResult parallel = create(inputs, 6, &prefetch, "full.zef", false);
      EXPECT_EQ(parallel.status, alone.status) << why;
      EXPECT_EQ(parallel.messages, alone.messages) << why;
    }
  }
}

class Prefetch : public testing::TempDirTest {
 protected:
  // A prefetch of each kind: zlib on a worker, libdeflate on a worker and
  // on the calling thread.
  struct Kind {
    unsigned workers;
    PrefetchDeflater deflater;
    const char* why;
  };
  static constexpr Kind Kinds[] = {
      {1, PrefetchDeflater::Zlib, "zlib on a worker"},
      {2, PrefetchDeflater::Whole, "libdeflate on workers"},
      {0, PrefetchDeflater::Whole, "libdeflate on the calling thread"},
  };
};

TEST_F(Prefetch, InputsItMustNotTakeAreLeftToTheRun) {
  writeFile("file", "content");
  writeFile("other", "another content");
  writeFile("empty", "");
  writeFile("large", std::string(5000, 'x'));
  ASSERT_EQ(mkdir("directory", 0755), 0);
  ASSERT_EQ(symlink("file", "link"), 0);
  ASSERT_EQ(mkfifo("fifo", 0644), 0);
  // seen: what the run found at its own look
  const struct { const char* source; const char* seen; const char* why; } rows[] = {
      {"file", "other", "the run saw another file there"},
      {"empty", "empty", "empty: the run reports it"},
      {"large", "large", "over the size limit: the run streams it"},
      {"directory", "directory", "not a regular file"},
      {"link", "link", "a link is the run's to resolve"},
      {"fifo", "fifo", "never opened, so never waited on"},
      {"missing", "file", "gone: the run reports it"},
  };
  std::vector<std::string> sources;
  for (const auto& row : rows) sources.push_back(row.source);
  for (const Kind& kind : Kinds) {
    ParallelPrefetch prefetch(kind.workers, PrefetchLimits{DefaultInFlightCap, 4096}, kind.deflater);
    prefetch.begin(sources, 6);
    prefetch.settle();
    for (size_t i = 0; i < sources.size(); ++i) {
      EXPECT_EQ(prefetch.take(i, statOf(rows[i].seen)), nullptr) << kind.why << ": " << rows[i].why;
    }
    prefetch.end();
  }
}

}  // namespace
}  // namespace kxzef
