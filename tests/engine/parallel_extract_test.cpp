// zef extract's engine under the driver, inflating with zlib or libdeflate,
// on workers or on the calling thread: what lands on disk, the messages and
// the result must be those of the driver alone; after a failure, files later
// in the archive may be there as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/parallel_extract.h"
#include "extract/unzip_driver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

namespace fs = std::filesystem;
using testing::HandEntry;

struct Extracted {
  int status;
  std::string messages;
  std::vector<std::string> tree;  // one line per path: type, mode, time, content or target
};

HandEntry file(const std::string& name, const std::string& content, unsigned mode = 0644) {
  return testing::withMode(testing::deflatedEntry(name, content), 0100000 | mode);
}

HandEntry directory(const std::string& name) { return testing::withMode(testing::storedEntry(name, ""), 040755); }

// The first line where the trees differ, cut short; "" when they agree.
std::string firstDifference(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    const std::string left = i < a.size() ? a[i] : "<none>", right = i < b.size() ? b[i] : "<none>";
    if (left != right) return left.substr(0, 60) + " | " + right.substr(0, 60);
  }
  return "";
}

class ParallelExtraction : public testing::TempDirTest {
 protected:
  // Extracts `entries` below "out/", which must not exist yet.
  Extracted extract(const std::vector<HandEntry>& entries, FileDispatch* dispatch) const {
    writeFile("in.zef", testing::buildArchive(entries));
    testing::ChannelCapture capture;
    UnzipDriver driver;
    driver.dispatch = dispatch;
    EXPECT_EQ(driver.openWithRoot("in.zef", "out/", true, true), 0);
    const int status = driver.extractAll(true);
    return Extracted{status, capture.error() + capture.output(), testing::treeSnapshot("out", withTimes_)};
  }

  bool withTimes_ = true;  // off where a failed file keeps the time it was written at

  struct Kind {
    unsigned workers;
    ExtractInflater inflater;
  };
  static constexpr Kind Kinds[] = {
      {2, ExtractInflater::Zlib},
      {2, ExtractInflater::Whole},
      {0, ExtractInflater::Whole},  // the calling thread writes each file as it is handed
  };

  // Extracts alone, then with the engine `kind`, into "out" both times (the
  // first tree moves to "alone"), so that paths in messages and trees agree.
  std::pair<Extracted, Extracted> bothWays(const std::vector<HandEntry>& entries, const Kind& kind) const {
    const Extracted alone = extract(entries, nullptr);
    fs::rename("out", "alone");
    ParallelExtract engine(kind.workers, "in.zef", kind.inflater);
    return {alone, extract(entries, &engine)};
  }
};

std::string describe(const std::string& why, unsigned workers, ExtractInflater inflater) {
  return why + (inflater == ExtractInflater::Whole ? " (libdeflate, " : " (zlib, ") + std::to_string(workers) +
         " workers)";
}

TEST_F(ParallelExtraction, TreeIsTheOneTheDriverMakesAlone) {
  std::vector<HandEntry> tree{directory("app/"), directory("app/empty/")};
  for (int i = 0; i < 300; ++i) {  // more than the queue holds
    const std::string name = "app/d" + std::to_string(i % 9) + "/f" + std::to_string(i);
    tree.push_back(file(name, testing::sampleText(40 + static_cast<size_t>(i) * 97), i % 4 == 0 ? 0750 : 0640));
  }
  tree.push_back(file("app/open-to-all", "bits the umask takes away", 0666));
  tree.push_back(file("app/set-id", "bits beyond the permissions", 04750));
  tree.push_back(testing::linkEntry("app/latest", "d1/f1"));
  tree.push_back(file("app/after-link", "written after the link"));
  const struct { std::vector<HandEntry> entries; const char* why; } rows[] = {
      {tree, "directories, links, modes and times, files in many directories"},
      {{file("d/x", "first"), file("d/y", "other"), file("D/X", "second")},
       "a name given twice (up to case): the later file is written after the earlier"},
      {{file("a", "a file"), file("a/b", "needs a directory where the file is")},
       "a file in the way of a later directory fails the later entry"},
      {{file("a/b", "inside"), file("a", "where a directory is")}, "a directory in the way of a later file"},
      {{file("p/x", "x"), directory("p/x/"), file("p/y", "y")}, "a directory entry where a file was handed over"},
      {{file("p/x", "x"), testing::linkEntry("p/x", "y")}, "a link where a file was handed over"},
      {{file("p/x/f", "f"), testing::linkEntry("p/x", "y")}, "a link where a handed file's directory is"},
      {{directory("real/"), testing::linkEntry("l", "real"), file("l/f", "through the link")},
       "a file written through a link made before it"},
      {{testing::linkEntry("l", "a"), testing::linkEntry("l", "b")}, "a link given twice: the second fails"},
  };
  for (const Kind& kind : Kinds) {
    for (const auto& row : rows) {
      const std::string why = describe(row.why, kind.workers, kind.inflater);
      const auto [alone, parallel] = bothWays(row.entries, kind);
      EXPECT_EQ(parallel.status, alone.status) << why;
      EXPECT_EQ(parallel.messages, alone.messages) << why;
      EXPECT_EQ(firstDifference(parallel.tree, alone.tree), "") << why;
      fs::remove_all("alone");
      fs::remove_all("out");
    }
  }
}

// The driver extracts a failed file again, in archive order: its messages
// are the driver's own, and the run ends there.
TEST_F(ParallelExtraction, FirstFailureInArchiveOrderIsTheOneReported) {
  withTimes_ = false;
  std::vector<HandEntry> entries;
  for (int i = 0; i < 40; ++i) entries.push_back(file("f/" + std::to_string(100 + i), testing::sampleText(5000)));
  HandEntry badCrc = file("f/bad-crc", testing::sampleText(5000));
  badCrc.crc ^= 1;
  HandEntry badData = file("f/bad-data", "deflate data that does not inflate");
  badData.data = std::string(8, '\xff');  // block type 3, which deflate never writes
  badData.compressedSize = badData.data.size();
  HandEntry runsLong = file("f/runs-long", testing::sampleText(5000));
  runsLong.uncompressedSize -= 1;
  HandEntry endsEarly = file("f/ends-early", testing::sampleText(5000));
  endsEarly.uncompressedSize += 1;
  const struct { size_t at; HandEntry broken; const char* why; } rows[] = {
      {0, badCrc, "a CRC that does not match in the very first file"},
      {39, badCrc, "after every other file was handed over"},
      {20, badData, "data that does not inflate"},
      {5, runsLong, "data that inflates past its declared size"},
      {5, endsEarly, "data that ends before its declared size"},
  };
  for (const Kind& kind : Kinds) {
    for (const auto& row : rows) {
      const std::string why = describe(row.why, kind.workers, kind.inflater);
      std::vector<HandEntry> broken = entries;
      broken.insert(broken.begin() + static_cast<long>(row.at), row.broken);
      broken.push_back(file("f/later", "also fails: only the first failure counts"));
      broken.back().crc ^= 1;
      const auto [alone, parallel] = bothWays(broken, kind);
      EXPECT_NE(alone.status, 0) << why;
      EXPECT_EQ(parallel.status, alone.status) << why;
      EXPECT_EQ(parallel.messages, alone.messages) << why;
      for (const std::string& line : alone.tree) {
        EXPECT_NE(std::find(parallel.tree.begin(), parallel.tree.end(), line), parallel.tree.end())
            << why << ": " << line.substr(0, 40);
      }
      fs::remove_all("alone");
      fs::remove_all("out");
    }
  }
}

}  // namespace
}  // namespace kxzef
