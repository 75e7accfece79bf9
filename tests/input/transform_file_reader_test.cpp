#include <gtest/gtest.h>

#include <cctype>

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

using TransformReader = testing::TempDirTest;

TEST_F(TransformReader, TransformsOnceInPiecesAndRefusesEmptyInputBeforeTheRunAndFailedOrEmptyOutputAfter) {
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
  for (int outcome : {0, 1, 2}) {  // empty input, failed run, empty output
    std::ifstream input(writeFile("input", outcome == 0 ? "" : "data"), std::ios::binary);
    UpperCase failing(outcome);
    ZEFFileReaderWithTransform refusing(&input, &failing);
    EXPECT_EQ(refusing.read(buffer, 64), -1);
    const ReaderStatus expected = outcome == 0 ? ReaderStatus::EmptyInput : ReaderStatus::TransformFailed;
    EXPECT_EQ(refusing.getStatus(), statusNumber(expected));
    EXPECT_EQ(failing.runs, outcome == 0 ? 0 : 1);  // never run on the empty input
  }
}

TEST(FindTransform, UsesTheLastDotOfTheWholePathInLowerCase) {
  UpperCase text, gzip;
  std::vector<std::string> textExtensions{".txt", ".d"}, gzipExtensions{".gz"};
  TransformRule second{&gzipExtensions, &gzip, nullptr}, first{&textExtensions, &text, &second};
  EXPECT_EQ(findTransform(&first, "Data.TXT"), &text);
  EXPECT_EQ(findTransform(&first, "archive.tar.gz"), &gzip);  // the last extension, found by the second rule
  EXPECT_EQ(findTransform(&first, "/src.d/readme"), nullptr);  // ".d/readme" is no extension
  EXPECT_EQ(findTransform(&first, "README"), nullptr);
}

}  // namespace
}  // namespace kxzef
