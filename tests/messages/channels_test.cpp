#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "messages/channels.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;

TEST(Channels, WithoutHandlersTheErrorChannelGoesToStandardOutput) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  getErrorStream() << "to the error channel" << '\n';
  std::fflush(stdout);
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "to the error channel\n");
  EXPECT_EQ(err, "");
}

TEST(Channels, EndlReachesTheHandlerAsOneNewline) {
  ChannelCapture capture;
  getOutputStream() << std::endl;
  EXPECT_EQ(capture.outputWrites, std::vector<std::string>{"\n"});
}

TEST(Channels, HandlerSeesAWriteUpToItsFirstNul) {
  ChannelCapture capture;
  getOutputStream() << std::string("before\0after", 12);
  EXPECT_EQ(capture.outputWrites, std::vector<std::string>{"before"});
}

int refusals = 0;
int refuseEverything(const char*) {
  ++refusals;
  return 0;
}

TEST(Channels, HandlerReturningZeroSilencesTheStream) {
  ChannelCapture capture;  // restores the handlers and the stream state afterwards
  set_zefarchiver_error_handler(refuseEverything);
  getErrorStream() << 'x';
  EXPECT_TRUE(getErrorStream().bad());
  getErrorStream() << "never handed over" << 'y';
  EXPECT_EQ(refusals, 1);
}

}  // namespace
}  // namespace kxzef
