#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
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
  reportError(UNZIPDRIVER_ZEF_FILE_DOES_NOT_EXIST, "app.zef");
  EXPECT_EQ(capture.errorWrites, std::vector<std::string>{"The ZEF archive 'app.zef' does not exist!\n"});
  reportError(ZEFARCHIVER_ERROR_COMPUTING_ZEF_LINK_TARGET, "l", "t");
  EXPECT_EQ(capture.errorWrites.back(),  // a text ending in a newline still gets one more
            "Could not compute ZEF archive link target for symbolic link:\n 'l'\n. Data read from "
            "symbolic link:\n 't'\n\n");
}

TEST(MessageReport, NoNewlineVariantWritesTheTextAsItStands) {
  ChannelCapture capture;
  reportMessageNoNewline(getMessageContext(), getOutputStream(), ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT, "boom");
  EXPECT_EQ(capture.output(), "System error text: 'boom'");
}

TEST(MessageReport, LongMessageIsCutInsideTheBufferWithItsNewline) {
  ChannelCapture capture;
  reportError(ZEFARCHIVER_ERROR_OPENING_FILE, std::string(3000, 'x').c_str());
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

std::string clobberedWrites;
int recordAndClobberErrno(const char* text) {
  clobberedWrites += text;
  errno = EACCES;
  return static_cast<int>(std::strlen(text));
}

// Writing the first message may change errno (a host's handler does here);
// the system text must still name the error of the call that failed.
TEST(MessageReport, SystemFailureNamesTheErrnoFromBeforeItsMessage) {
  ChannelCapture capture;  // puts the default handlers back afterwards
  set_zefarchiver_error_handler(recordAndClobberErrno);
  errno = ENOENT;
  reportSystemFailure(ZEFARCHIVER_ERROR_OPENING_FILE, "f");
  EXPECT_EQ(clobberedWrites, "Error opening 'f'\nSystem error text: 'No such file or directory'\n");
}

}  // namespace
}  // namespace kxzef
