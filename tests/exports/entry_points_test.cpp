// The thin exports, called as a host calls them.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <regex>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "messages/channels.h"

namespace kxzef {
namespace {

using ExportsTest = testing::TempDirTest;

TEST_F(ExportsTest, VersionGlobalsHaveTheirFixedForms) {
  EXPECT_TRUE(std::regex_match(libkxzefarchiver_version, std::regex(R"(\d+\.\d+\.\d+\.\d+)")));
  EXPECT_TRUE(std::regex_match(libkxzefarchiver_build_date, std::regex(R"([A-Z][a-z]{2} [ 1-3]\d \d{4})")));
}

TEST_F(ExportsTest, HostConsoleCarriesBothChannels) {
  testing::ChannelCapture capture;  // puts the default handlers back afterwards
  EXPECT_EQ(zefUseVexaOutputFcns(), 1);
  ::testing::internal::CaptureStdout();
  getErrorStream() << "error" << std::endl;
  getOutputStream() << "output\n";
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "error\noutput\n");
}

TEST_F(ExportsTest, MakeDirCreatesEveryLevel) {
  EXPECT_NE(zefMakeDir("one\\two/three/"), 0);
  struct stat status;
  EXPECT_EQ(stat("one/two/three", &status), 0);
  EXPECT_EQ(zefMakeDir(""), 0);
}

}  // namespace
}  // namespace kxzef
