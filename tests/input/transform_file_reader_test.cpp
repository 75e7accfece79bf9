#include <gtest/gtest.h>

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

// Fails when `fails`, else succeeds without output.
struct Refusing : ZEFTransform {
  explicit Refusing(bool fails) : ZEFTransform(false, false, ".no"), fails(fails) {}
  bool apply(const ZEFByteArray&, ZEFByteArray&, ZEFResultHolder*) override { return ++runs, !fails; }
  int runs = 0;
  bool fails;
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

TEST_F(TransformReader, RefusalsSetTheirStatus) {
  const std::tuple<const char*, bool, ReaderStatus, int> rows[] = {  // input, fails, status, runs
      {"", false, ReaderStatus::EmptyInput, 0},         // an empty input is refused before the run
      {"data", true, ReaderStatus::TransformFailed, 1},   // the transform says it failed
      {"data", false, ReaderStatus::TransformFailed, 1},  // an empty output it does not accept
  };
  for (const auto& [content, fails, status, runs] : rows) {
    char buffer[64];
    std::ifstream input(writeFile("input", content), std::ios::binary);
    Refusing transform(fails);
    ZEFFileReaderWithTransform reader(&input, &transform);
    EXPECT_EQ(reader.read(buffer, 64), -1) << content << fails;
    EXPECT_EQ(reader.getStatus(), statusNumber(status)) << content << fails;
    EXPECT_EQ(transform.runs, runs) << content << fails;
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
