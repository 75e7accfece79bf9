#include <gtest/gtest.h>

#include <unistd.h>

#include "input/link_target.h"
#include "input/path_readers.h"
#include "input/plain_file_reader.h"
#include "input/reader_status.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

class LinkTarget : public testing::TempDirTest {
 protected:
  // Reads the link app/bin/run (or `reader`) as the creation run does.
  int32_t compute(const std::string& source, ZEFFileReader* reader = nullptr, size_t bufferSize = 16384) {
    ZEFSymbolicLinkReader linkReader(source);
    buffer_.assign(bufferSize, '#');
    return computeLinkTarget(ZEFEntryRecord(), findInputRoot(source, "app/bin/run"), source, "app/bin/run",
                             reader ? *reader : linkReader, buffer_.data(), bufferSize, text_, target_, stored_);
  }
  std::string buffer_, text_, target_, stored_;
};

TEST_F(LinkTarget, InputRootDropsWholeTrailingComponentsButTheFirst) {
  EXPECT_EQ(findInputRoot("/x/a/b/c", "a/b/c"), "/x/a");  // "a" has no "/" before it
  EXPECT_EQ(findInputRoot("/x/ab", "q/b"), path());       // "b" is not the component "ab"
  EXPECT_EQ(findInputRoot("rel/a/b", "a/b"), path());     // relative source
}

TEST_F(LinkTarget, StoresTargetsRelativeToTheLink) {
  writeFile("app/lib/x", "x");
  writeFile("app/bin/y", "y");
  const std::string absolute = path("app/bin/run");
  const std::string rows[][4] = {
      {"../lib/x", absolute, "app/lib/x", "../lib/x"},                           // a sibling directory
      {"y", absolute, "app/bin/y", "y"},                                         // own directory
      {"../missing/z", absolute, "app/bin/../missing/z", "../missing/z"},        // dangling
      {"/usr/lib/libq.so.1", absolute, "usr/lib/libq.so.1", "../../usr/lib/libq.so.1"},  // outside
      {path("app/lib/x"), absolute, "app/lib/x", "../lib/x"},                    // absolute inside
  };
  testing::ChannelCapture capture;
  for (const auto& [data, source, target, stored] : rows) {
    unlink(absolute.c_str());
    ASSERT_EQ(symlink(data.c_str(), absolute.c_str()), 0);
    ASSERT_EQ(compute(source), 0) << data;
    EXPECT_EQ(target_ + " | " + stored_, target + " | " + stored) << data;
  }
  EXPECT_EQ(capture.error(), "");
}

TEST_F(LinkTarget, DataOfTheBufferSizeKeepsRoomForTheNul) {
  ASSERT_EQ(symlink(std::string(16, 'e').c_str(), "long"), 0);
  ASSERT_EQ(compute(path("long"), nullptr, 16), 0);
  EXPECT_STREQ(buffer_.c_str(), std::string(15, 'e').c_str());
}

TEST_F(LinkTarget, EmptyInputReportsTheZeroLengthMessage) {
  std::ifstream stream(writeFile("empty", ""), std::ios::binary);
  ZEFFileReaderWithoutTransform empty(&stream);
  testing::ChannelCapture capture;
  EXPECT_EQ(compute("empty", &empty), -1);
  EXPECT_EQ(empty.getStatus(), statusNumber(ReaderStatus::EmptyInput));
  EXPECT_EQ(capture.error(), "The file \n 'empty' \n is empty (zero bytes long). \n\n This file cannot be added to the "
                             "ZEF archive because it will cause an error \n when the application or library is run. "
                             "Add valid content to this file if\n your application or library requires this file.\n");
}

}  // namespace
}  // namespace kxzef
