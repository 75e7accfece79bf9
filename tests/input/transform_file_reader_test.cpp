#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <string>

#include "input/reader_status.h"
#include "input/transform_file_reader.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

// Upper-cases its input; can be told to fail or to produce nothing, and
// counts its runs.
class UpperCase : public ZEFTransform {
 public:
  UpperCase() : ZEFTransform(false, false, ".up") {}
  bool apply(const ZEFByteArray& input, ZEFByteArray& output, ZEFResultHolder* result) override {
    ++runs;
    EXPECT_NE(result, nullptr);
    EXPECT_NE(input.size, 0u);  // never called with an empty input
    if (fail) return false;
    if (produceNothing) return true;
    if (!output.allocate(input.size)) return false;
    for (uint64_t i = 0; i < input.size; ++i) output.data[i] = static_cast<unsigned char>(std::toupper(input.data[i]));
    // The holder's block is the library's to release afterwards.
    result->pointer = new char[4];
    result->present = true;
    return true;
  }
  int runs = 0;
  bool fail = false;
  bool produceNothing = false;
};

class TransformReader : public testing::TempDirTest {
 protected:
  std::ifstream* open(const std::string& content) {
    writeFile("input", content);
    stream_.open("input", std::ios::binary);
    return &stream_;
  }
  std::ifstream stream_;
  UpperCase transform_;
  char buffer_[64];
};

TEST_F(TransformReader, TransformsOnceAndHandsTheOutputOutInPieces) {
  ZEFFileReaderWithTransform reader(open("hello world"), &transform_);
  EXPECT_STREQ(reader.name(), ".up");
  EXPECT_FALSE(reader.hasMore());  // nothing is known before the first read
  ASSERT_EQ(reader.read(buffer_, 5), 5);
  EXPECT_EQ(std::string(buffer_, 5), "HELLO");
  EXPECT_TRUE(reader.hasMore());
  ASSERT_EQ(reader.read(buffer_, 64), 6);
  EXPECT_EQ(std::string(buffer_, 6), " WORLD");
  EXPECT_FALSE(reader.hasMore());
  EXPECT_EQ(reader.read(buffer_, 64), 0);
  EXPECT_EQ(reader.getStatus(), ReaderOk);
  EXPECT_EQ(transform_.runs, 1);
}

TEST_F(TransformReader, ContentRunsTheTransformForTheReadsToo) {
  ZEFFileReaderWithTransform reader(open("abc"), &transform_);
  const ZEFByteArray* output = reader.getContent();
  ASSERT_EQ(output->size, 3u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(output->data), 3), "ABC");
  ASSERT_EQ(reader.read(buffer_, 64), 3);  // reading starts at the beginning of the output
  EXPECT_EQ(std::string(buffer_, 3), "ABC");
  reader.getContent();
  EXPECT_EQ(transform_.runs, 1);
}

TEST_F(TransformReader, EmptyFileIsRefusedBeforeTheTransformRuns) {
  ZEFFileReaderWithTransform reader(open(""), &transform_);
  EXPECT_EQ(reader.read(buffer_, 64), -1);
  EXPECT_EQ(reader.getStatus(), ReaderEmptyInput);
  EXPECT_EQ(transform_.runs, 0);
  EXPECT_EQ(reader.getContent()->size, 0u);
  EXPECT_EQ(reader.getStatus(), ReaderEmptyInput);
}

TEST_F(TransformReader, EmptyFileIsAcceptedWhenTheTransformSaysSo) {
  transform_.acceptEmptyInput = true;
  ZEFFileReaderWithTransform reader(open(""), &transform_);
  EXPECT_EQ(reader.read(buffer_, 64), 0);
  EXPECT_EQ(reader.getStatus(), ReaderOk);
  EXPECT_FALSE(reader.hasMore());
  EXPECT_EQ(transform_.runs, 0);
}

TEST_F(TransformReader, FailedTransformIsReportedAndRetriedByTheNextRead) {
  transform_.fail = true;
  ZEFFileReaderWithTransform reader(open("data"), &transform_);
  EXPECT_EQ(reader.read(buffer_, 64), -1);
  EXPECT_EQ(reader.getStatus(), ReaderTransformFailed);
  transform_.fail = false;
  ASSERT_EQ(reader.read(buffer_, 64), 4);
  EXPECT_EQ(std::string(buffer_, 4), "DATA");
  EXPECT_EQ(transform_.runs, 2);
}

TEST_F(TransformReader, EmptyOutputFailsUnlessAccepted) {
  transform_.produceNothing = true;
  {
    ZEFFileReaderWithTransform reader(open("data"), &transform_);
    EXPECT_EQ(reader.read(buffer_, 64), -1);
    EXPECT_EQ(reader.getStatus(), ReaderTransformFailed);
    EXPECT_EQ(reader.getContent()->size, 0u);
    EXPECT_EQ(reader.getStatus(), ReaderTransformFailed);
  }
  transform_.acceptEmptyOutput = true;
  ZEFFileReaderWithTransform reader(&stream_, &transform_);
  EXPECT_EQ(reader.read(buffer_, 64), 0);
  EXPECT_EQ(reader.getStatus(), ReaderOk);
  EXPECT_FALSE(reader.hasMore());
  EXPECT_EQ(reader.read(buffer_, 64), 0);
  EXPECT_EQ(transform_.runs, 3);  // one refused run, then exactly one accepted run
}

TEST_F(TransformReader, MissingTransformOrStreamFailsWithoutCalling) {
  ZEFFileReaderWithTransform withoutTransform(open("data"), nullptr);
  EXPECT_STREQ(withoutTransform.name(), "");
  EXPECT_EQ(withoutTransform.read(buffer_, 64), -1);
  EXPECT_EQ(withoutTransform.getContent()->size, 0u);
  EXPECT_EQ(withoutTransform.getStatus(), ReaderTransformFailed);

  ZEFFileReaderWithTransform withoutStream(nullptr, &transform_);
  EXPECT_EQ(withoutStream.read(buffer_, 64), -1);
  EXPECT_EQ(withoutStream.getStatus(), ReaderNoStream);
  EXPECT_EQ(transform_.runs, 0);
}

TEST_F(TransformReader, BorrowedOutputIsNotFreedByTheReader) {
  static unsigned char fixed[] = {'o', 'k'};
  class Borrowing : public ZEFTransform {
   public:
    Borrowing() : ZEFTransform(false, false, "") {}
    bool apply(const ZEFByteArray&, ZEFByteArray& output, ZEFResultHolder*) override {
      output.data = fixed;
      output.size = sizeof fixed;
      output.owns = false;
      return true;
    }
  } borrowing;
  {
    ZEFFileReaderWithTransform reader(open("x"), &borrowing);
    ASSERT_EQ(reader.read(buffer_, 64), 2);
  }  // destroying the reader must leave `fixed` alone (checked by the sanitizer build)
  EXPECT_EQ(fixed[0], 'o');
}

}  // namespace
}  // namespace kxzef
