#include <gtest/gtest.h>

#include <iomanip>
#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "surface/channels.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;

TEST(Channels, DefaultHandlersSendBothChannelsToStandardOutput) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  getErrorStream() << "to the error channel";
  getOutputStream() << " and the output channel" << '\n';
  std::fflush(stdout);
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "to the error channel and the output channel\n");
  EXPECT_EQ(err, "");
}

TEST(Channels, EndlReachesTheHandlerAsOneNewline) {
  ChannelCapture capture;
  getOutputStream() << std::endl;
  ASSERT_EQ(capture.outputWrites().size(), 1u);
  EXPECT_EQ(capture.outputWrites()[0], "\n");
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

TEST(Channels, OnlyTheTextBeforeAnEmbeddedNulReachesTheHandler) {
  ChannelCapture capture;
  getOutputStream() << std::string("before\0after", 12);
  ASSERT_EQ(capture.outputWrites().size(), 1u);
  EXPECT_EQ(capture.outputWrites()[0], "before");
}

TEST(Channels, FormattedNumbersArriveExactlyAsWritten) {
  ChannelCapture capture;
  getOutputStream() << std::setw(6) << 1234u << 'x' << -5;
  EXPECT_EQ(capture.output(), "  1234x-5");
}

TEST(Channels, SettersTakeEffectOnTheNextWrite) {
  ChannelCapture capture;
  EXPECT_EQ(set_zefarchiver_output_handler(defaultTextHandler), 0);
  ::testing::internal::CaptureStdout();
  getOutputStream() << "direct";
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "direct");
  EXPECT_EQ(capture.output(), "");
}

TEST(Channels, DefaultHandlerCountsItsText) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(defaultTextHandler("abc"), 3);
  EXPECT_EQ(defaultTextHandler(nullptr), 0);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "abc");
}

}  // namespace
}  // namespace kxzef
