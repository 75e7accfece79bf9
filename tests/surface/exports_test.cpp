// The thin exports, called as a host calls them.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <regex>
#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "surface/channels.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;
using ExportsTest = testing::TempDirTest;

TEST(Exports, VersionIsFourNumbersAndBuildDateHasTheCompilerForm) {
  EXPECT_TRUE(std::regex_match(libkxzefarchiver_version, std::regex(R"(\d+\.\d+\.\d+\.\d+)")));
  EXPECT_TRUE(std::regex_match(libkxzefarchiver_build_date,
                               std::regex(R"((Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3]\d \d{4})")));
}

TEST(Exports, HostConsoleSwitchRoutesBothChannelsToStandardOutput) {
  ChannelCapture capture;  // puts the default handlers back afterwards
  EXPECT_EQ(zefUseVexaOutputFcns(), 1);
  ::testing::internal::CaptureStdout();
  getErrorStream() << "error" << std::endl;
  getOutputStream() << "output" << '\n';
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "error\noutput\n");
  EXPECT_FALSE(getErrorStream().bad());
  EXPECT_EQ(capture.error(), "");
}

TEST_F(ExportsTest, MakeDirCreatesEveryLevel) {
  EXPECT_NE(zefMakeDir("one/two/three"), 0);
  struct stat status;
  ASSERT_EQ(stat("one/two/three", &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_NE(zefMakeDir("one/two/three"), 0);
  EXPECT_EQ(zefMakeDir(""), 0);
}

}  // namespace
}  // namespace kxzef
