#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "host/host.h"
#include "support/channel_capture.h"
#include "surface/channels.h"
#include "surface/message_catalogue.h"
#include "surface/message_report.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;

TEST(MessageReport, FirstMessageRegistersTheCatalogueExactlyOnce) {
  MessageContext& context = getMessageContext();
  EXPECT_EQ(context.registration, &registerMessageCatalogue);
  // Each test runs in a process of its own, but stay right if run together.
  EXPECT_EQ(host::messageTableRegistrations(), context.registered ? 1u : 0u);
  ChannelCapture capture;
  reportMessage(context, getErrorStream(), UNZIPDRIVER_ERROR);
  reportMessage(context, getErrorStream(), UNZIPDRIVER_ERROR);
  reportMessageNoNewline(context, getErrorStream(), UNZIPDRIVER_ERROR);
  EXPECT_EQ(context.registered, 1);
  EXPECT_EQ(host::messageTableRegistrations(), 1u);
}

TEST(MessageReport, WritesTheMessageWithItsNewlineInOneWrite) {
  ChannelCapture capture;
  const int result =
      reportMessage(getMessageContext(), getErrorStream(), UNZIPDRIVER_ZEF_FILE_DOES_NOT_EXIST, "app.zef");
  ASSERT_EQ(capture.errorWrites().size(), 1u);
  const std::string expected = "The ZEF archive 'app.zef' does not exist!\n";
  EXPECT_EQ(capture.errorWrites()[0], expected);
  EXPECT_EQ(result, static_cast<int>(expected.size()) + 1);  // count + 2
  EXPECT_STREQ(getMessageContext().buffer, expected.c_str());
  EXPECT_TRUE(capture.output().empty());
}

TEST(MessageReport, TextEndingInNewlineStillGetsOneMore) {
  ChannelCapture capture;
  reportMessage(getMessageContext(), getErrorStream(), ZEFARCHIVER_ERROR_COMPUTING_ZEF_LINK_TARGET, "l", "t");
  EXPECT_EQ(capture.error(),
            "Could not compute ZEF archive link target for symbolic link:\n 'l'\n. Data read from "
            "symbolic link:\n 't'\n\n");
}

TEST(MessageReport, NoNewlineVariantLeavesTheChannelAtTheTextEnd) {
  ChannelCapture capture;
  const int result =
      reportMessageNoNewline(getMessageContext(), getOutputStream(), ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT, "boom");
  EXPECT_EQ(capture.output(), "System error text: 'boom'");
  EXPECT_EQ(result, 25);
}

TEST(MessageReport, UnknownNumberPrintsNothing) {
  ChannelCapture capture;
  EXPECT_EQ(reportMessage(getMessageContext(), getErrorStream(), messageNumber(54)), 1);
  EXPECT_EQ(reportMessage(getMessageContext(), getErrorStream(), 0x3C0001), 1);
  EXPECT_TRUE(capture.errorWrites().empty());
  EXPECT_EQ(reportMessageNoNewline(getMessageContext(), getErrorStream(), messageNumber(0)), 0);
  EXPECT_EQ(capture.error(), "");
}

TEST(MessageReport, LongMessageIsCutAtTheBufferAndKeepsItsNewline) {
  ChannelCapture capture;
  const std::string longName(3000, 'x');
  const int result = reportMessage(getMessageContext(), getErrorStream(), ZEFARCHIVER_ERROR_OPENING_FILE,
                                   longName.c_str());
  const std::string written = capture.error();
  EXPECT_EQ(written.size(), MessageBufferSize - 1);
  EXPECT_EQ(written.substr(0, 15), "Error opening '");
  EXPECT_EQ(written.back(), '\n');
  EXPECT_EQ(result, static_cast<int>(MessageBufferSize - 1) + 2);
}

TEST(MessageReport, SystemErrorTextOnlyWhenErrnoIsSet) {
  ChannelCapture capture;
  errno = 0;
  reportSystemErrorText();
  EXPECT_EQ(capture.error(), "");
  errno = ENOENT;
  reportSystemErrorText();
  EXPECT_EQ(capture.error(), "System error text: 'No such file or directory'\n");
}

}  // namespace
}  // namespace kxzef
