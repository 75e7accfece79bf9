// The thin exports, called as a host calls them.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cctype>
#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "messages/channels.h"

namespace kxzef {
namespace {

using ExportsTest = testing::TempDirTest;

// `text` with each upper-case letter as 'A', lower-case letter as 'a' and
// digit as '9'; a run of digits gives one '9' when `digitRuns`.
std::string shapeOf(const std::string& text, bool digitRuns) {
  std::string shape;
  for (const char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    const char kind = std::isdigit(u) ? '9' : std::isupper(u) ? 'A' : std::islower(u) ? 'a' : c;
    if (!(digitRuns && kind == '9' && !shape.empty() && shape.back() == '9')) shape.push_back(kind);
  }
  return shape;
}

TEST_F(ExportsTest, VersionGlobalsHaveTheirFixedForms) {
  EXPECT_EQ(shapeOf(libkxzefarchiver_version, true), "9.9.9.9");
  const std::string date = libkxzefarchiver_build_date;  // "Nov  4 2026": the day's tens are a space or 1-3
  ASSERT_EQ(date.size(), 11u) << date;
  EXPECT_EQ(shapeOf(date.substr(0, 4) + date.substr(5), false), "Aaa 9 9999") << date;
  EXPECT_NE(std::string(" 123").find(date[4]), std::string::npos) << date;
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
