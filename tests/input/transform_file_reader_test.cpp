#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "input/find_transform.h"
#include "input/reader_status.h"
#include "input/transform_file_reader.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

// Upper-cases its input; `outcome` 1 makes it fail, 2 makes it produce nothing.
struct UpperCase : ZEFTransform {
  UpperCase() : ZEFTransform(false, false, ".up") {}
  bool apply(const ZEFByteArray& in, ZEFByteArray& out, ZEFResultHolder*) override {
    ++runs;
    if (outcome != 0 || !out.allocate(in.size)) return outcome != 1;
    for (uint64_t i = 0; i < in.size; ++i) out.data[i] = static_cast<unsigned char>(std::toupper(in.data[i]));
    return true;
  }
  int runs = 0, outcome = 0;
};

class TransformReader : public testing::TempDirTest {
 protected:
  int read(const std::string& content, int size = 64) {
    writeFile("input", content);
    stream_.close();
    stream_.open("input", std::ios::binary);
    reader_.emplace(&stream_, &transform_);
    return reader_->read(buffer_, size);
  }
  std::ifstream stream_;
  UpperCase transform_;
  std::optional<ZEFFileReaderWithTransform> reader_;
  char buffer_[64];
};

TEST_F(TransformReader, TransformsOnceAndHandsTheOutputOutInPieces) {
  ASSERT_EQ(read("hello world", 5), 5);
  EXPECT_EQ(std::string(buffer_, 5), "HELLO");
  EXPECT_EQ(reader_->getContent()->size, 11u);
  ASSERT_EQ(reader_->read(buffer_, 64), 6);
  EXPECT_EQ(std::string(buffer_, 6), " WORLD");
  EXPECT_EQ(reader_->read(buffer_, 64), 0);
  EXPECT_EQ(transform_.runs, 1);
}

TEST_F(TransformReader, EmptyInputIsRefusedBeforeTheRunAndFailedOrEmptyOutputAfter) {
  for (int outcome : {0, 1, 2}) {  // empty input, failed run, empty output
    transform_.outcome = outcome;
    EXPECT_EQ(read(outcome == 0 ? "" : "data"), -1);
    EXPECT_EQ(reader_->getStatus(), outcome == 0 ? ReaderEmptyInput : ReaderTransformFailed);
    EXPECT_EQ(transform_.runs, outcome);  // never run on the empty input
  }
}

TEST(FindTransform, UsesTheLastDotOfTheWholePathInLowerCase) {
  UpperCase text, gzip;
  std::vector<std::string> textExtensions{".txt", ".d"}, gzipExtensions{".gz"};
  TransformRule second{&gzipExtensions, &gzip, nullptr}, first{&textExtensions, &text, &second};
  const std::pair<const char*, const ZEFTransform*> rows[] = {
      {"Data.TXT", &text},         // lowered
      {"archive.tar.gz", &gzip},   // last-extension, second-rule
      {"/src.d/readme", nullptr},  // ".d/readme"
      {"README", nullptr},         // dotless
  };
  for (const auto& [path, expected] : rows) EXPECT_EQ(findTransform(&first, path), expected) << path;
}

}  // namespace
}  // namespace kxzef
