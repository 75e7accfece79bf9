#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "host/host.h"
#include "support/channel_capture.h"
#include "messages/channels.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;

TEST(MessageReport, FirstMessageRegistersTheCatalogueExactlyOnce) {
  MessageContext& context = getMessageContext();
  // Each test runs in a process of its own, but stay right if run together.
  EXPECT_EQ(host::messageTableRegistrations(), context.registered ? 1u : 0u);
  ChannelCapture capture;
  reportMessage(context, getErrorStream(), UNZIPDRIVER_ERROR);
  reportMessageNoNewline(context, getErrorStream(), UNZIPDRIVER_ERROR);
  EXPECT_EQ(host::messageTableRegistrations(), 1u);
}

TEST(MessageReport, WritesTheMessageWithItsNewlineInOneWrite) {
  ChannelCapture capture;
  reportMessage(getMessageContext(), getErrorStream(), UNZIPDRIVER_ZEF_FILE_DOES_NOT_EXIST, "app.zef");
  EXPECT_EQ(capture.errorWrites, std::vector<std::string>{"The ZEF archive 'app.zef' does not exist!\n"});
  reportMessage(getMessageContext(), getErrorStream(), ZEFARCHIVER_ERROR_COMPUTING_ZEF_LINK_TARGET, "l", "t");
  EXPECT_EQ(capture.errorWrites.back(),  // a text ending in a newline still gets one more
            "Could not compute ZEF archive link target for symbolic link:\n 'l'\n. Data read from "
            "symbolic link:\n 't'\n\n");
  reportMessageNoNewline(getMessageContext(), getOutputStream(), ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT, "boom");
  EXPECT_EQ(capture.output(), "System error text: 'boom'");
}

TEST(MessageReport, LongMessageIsCutAtTheBufferAndKeepsItsNewline) {
  ChannelCapture capture;
  reportMessage(getMessageContext(), getErrorStream(), ZEFARCHIVER_ERROR_OPENING_FILE, std::string(3000, 'x').c_str());
  EXPECT_EQ(capture.error(), "Error opening '" + std::string(MessageBufferSize - 17, 'x') + "\n");
}

TEST(MessageReport, SystemErrorTextOnlyWhenErrnoIsSet) {
  ChannelCapture capture;
  errno = 0;
  reportSystemErrorText();
  errno = ENOENT;
  reportSystemErrorText();
  EXPECT_EQ(capture.error(), "System error text: 'No such file or directory'\n");
}

}  // namespace
}  // namespace kxzef
