#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "input/find_transform.h"
#include "input/reader_status.h"
#include "input/transform_file_reader.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

// Upper-cases its input; `outcome` 1 makes it fail, 2 makes it produce nothing.
struct UpperCase : ZEFTransform {
  explicit UpperCase(int outcome = 0) : ZEFTransform(false, false, ".up"), outcome(outcome) {}
  bool apply(const ZEFByteArray& in, ZEFByteArray& out, ZEFResultHolder*) override {
    ++runs;
    if (outcome != 0 || !out.allocate(in.size)) return outcome != 1;
    for (uint64_t i = 0; i < in.size; ++i) out.data[i] = static_cast<unsigned char>(std::toupper(in.data[i]));
    return true;
  }
  int runs = 0, outcome;
};

// A transform as a host writes it from the documented layout alone, with no
// base class: a first operation, `apply` second, then the data. Slots 3 and
// 4 are not part of the layout; they catch a call that lands past slot 2.
class HostLaidOutTransform {
 public:
  virtual bool first(const ZEFByteArray&, ZEFByteArray&, ZEFResultHolder*) { return called(1); }
  virtual bool apply(const ZEFByteArray& input, ZEFByteArray& output, ZEFResultHolder*) {
    if (!output.allocate(input.size)) return false;
    std::memcpy(output.data, input.data, input.size);
    return called(2);
  }
  virtual bool third(const ZEFByteArray&, ZEFByteArray&, ZEFResultHolder*) { return called(3); }
  virtual bool fourth(const ZEFByteArray&, ZEFByteArray&, ZEFResultHolder*) { return called(4); }

  bool acceptEmptyInput = false;
  bool acceptEmptyOutput = false;
  std::string name = ".host";
  std::vector<int> calls;
  bool called(int slot) { return calls.push_back(slot), true; }
};

using TransformReader = testing::TempDirTest;

TEST_F(TransformReader, OutputIsHandedOutInPiecesFromOneRun) {
  char buffer[64];
  std::ifstream stream(writeFile("input", "hello world"), std::ios::binary);
  UpperCase upper;
  ZEFFileReaderWithTransform reader(&stream, &upper);
  ASSERT_EQ(reader.read(buffer, 5), 5);
  EXPECT_EQ(std::string(buffer, 5), "HELLO");
  ASSERT_EQ(reader.read(buffer, 64), 6);
  EXPECT_EQ(std::string(buffer, 6), " WORLD");
  EXPECT_EQ(reader.read(buffer, 64), 0);
  EXPECT_EQ(upper.runs, 1);
}

TEST_F(TransformReader, RefusalsSetTheirStatus) {
  const std::tuple<const char*, int, ReaderStatus, int> rows[] = {  // input, outcome, status, runs
      {"", 0, ReaderStatus::EmptyInput, 0},        // an empty input is refused before the run
      {"data", 1, ReaderStatus::TransformFailed, 1},  // the transform says it failed
      {"data", 2, ReaderStatus::TransformFailed, 1},  // an empty output it does not accept
  };
  for (const auto& [content, outcome, status, runs] : rows) {
    char buffer[64];
    std::ifstream input(writeFile("input", content), std::ios::binary);
    UpperCase failing(outcome);
    ZEFFileReaderWithTransform reader(&input, &failing);
    EXPECT_EQ(reader.read(buffer, 64), -1) << outcome;
    EXPECT_EQ(reader.getStatus(), statusNumber(status)) << outcome;
    EXPECT_EQ(failing.runs, runs) << outcome;
  }
}

TEST_F(TransformReader, HostTransformIsCalledThroughItsSecondSlot) {
  std::ifstream stream(writeFile("input", "abc"), std::ios::binary);
  HostLaidOutTransform host;
  ZEFFileReaderWithTransform reader(&stream, reinterpret_cast<ZEFTransform*>(&host));
  char buffer[8];
  EXPECT_EQ(reader.read(buffer, 8), 3);
  EXPECT_EQ(host.calls, std::vector<int>{2});
  EXPECT_STREQ(reader.name(), ".host");  // read where the layout puts it
}

}  // namespace
}  // namespace kxzef
