// The creation run through ZipDriver: each row of its failure handling, and
// the naming, mode, method and time rules, checked on the archive's bytes.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "create/zip_driver.h"
#include "kxzefarchiver/ZEFFileReader.h"
#include "support/archive_bytes.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;
using testing::parseArchive;

ZEFEntryRecord to(const std::string& destination) { return ZEFEntryRecord(1, nullptr, false, destination); }

class CreationRun : public testing::TempDirTest {
 protected:
  // Runs the creation into out.zef; returns its result, or 1 when out.zef cannot be opened.
  int create(ZEFEntryMap& inputs, int level = 0, TransformRule* rules = nullptr, bool open = true) {
    ZipDriver driver;
    driver.setCompressionLevel(level);
    if (open && driver.open("out.zef") != 0) return 1;
    CreationContext context;
    context.transformRules = rules;
    const int status = driver.addInputs(inputs, &context, true);
    delete context.currentStream;
    delete context.currentReader;
    return status;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& entry : parseArchive(readFile("out.zef")).entries) all.push_back(entry.name);
    return all;
  }
};

TEST_F(CreationRun, MissingInputsAreSkippedButALastSkipDropsQueuedFiles) {
  writeFile("lib/real.so.1", "library");
  mkdir("bin", 0755);
  ASSERT_EQ(symlink("../lib/real.so.1", "bin/lib.so"), 0);
  ZEFEntryMap inputs{{"bin/lib.so", to("bin/lib.so")}, {"a-missing", to("m")}};
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), 0);
  EXPECT_EQ(capture.error(),
            "Warning: Could not read file permissions from input file: \n 'a-missing'\n"
            "System error text: 'No such file or directory'\n");
  EXPECT_EQ(names(), (std::vector<std::string>{"bin/lib.so", "lib/real.so.1"}));  // the linked file comes last
  inputs["zz-missing"] = to("zz");  // skipping the last input ends the walk before the queued file
  EXPECT_EQ(create(inputs), 0);
  EXPECT_EQ(names(), std::vector<std::string>{"bin/lib.so"});
}

TEST_F(CreationRun, EmptyFileIsRefusedAndTheArchiveKeepsWhatCameBefore) {
  writeFile("a", "alpha");
  writeFile("b", "");
  writeFile("c", "never reached");
  ZEFEntryMap inputs{{"a", to("a")}, {"b", to("b")}, {"c", to("c")}};
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), -1);
  EXPECT_EQ(capture.error(),
            "The file \n 'b' \n is empty (zero bytes long). \n\n This file cannot be added to the ZEF archive "
            "because it will cause an error \n when the application or library is run. Add valid content to "
            "this file if\n your application or library requires this file.\n");
  const auto archive = parseArchive(readFile("out.zef"));
  EXPECT_TRUE(archive.valid);  // closed, as asked
  EXPECT_EQ(archive.entries.at(0).name, "a");
  EXPECT_NE(archive.entries.back().name, "c");
}

TEST_F(CreationRun, NamesModesMethodsAndTimes) {
  mkdir("lib", 0755);
  mkdir("other", 0750);
  writeFile("tool", "#!/bin/sh\n", 04755);
  ASSERT_EQ(chmod("tool", 04755), 0);
  writeFile("sub/f", std::string(1000, 'z'));
  struct timespec times[2] = {{1200000000, 0}, {1200000000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, "sub/f", times, 0), 0);
  ZEFEntryMap inputs{{"lib", to("")}, {"other", to("x")}, {"tool", to("bin/tool")}, {"sub\\f", to("")}};
  ASSERT_EQ(create(inputs, 9), 0);
  const auto entries = parseArchive(readFile("out.zef")).entries;
  ASSERT_EQ(names(), (std::vector<std::string>{"lib/", "x/", "sub/f", "bin/tool"}));
  EXPECT_EQ(entries[1].externalAttributes, 0x41E80000u);  // directory 0750
  EXPECT_EQ(entries[1].uncompressedSize, 0u);
  EXPECT_EQ(entries[3].externalAttributes, 0x81ED0000u);  // set-user-ID dropped
  EXPECT_EQ(entries[2].method, 8u);
  EXPECT_EQ(entries[2].flags, 2u);  // level 9
  EXPECT_EQ(testing::entryContent(entries[2]), std::string(1000, 'z'));
  std::tm local{};
  const time_t when = 1200000000;
  localtime_r(&when, &local);
  EXPECT_EQ(entries[2].dosDate >> 16, static_cast<uint32_t>(local.tm_mday + 32 * (local.tm_mon + 1) +
                                                             512 * (local.tm_year - 80)));
  ASSERT_EQ(create(inputs, 0), 0);
  EXPECT_EQ(parseArchive(readFile("out.zef")).entries.at(2).method, 0u);
}

// Upper-cases its input; its name is the suffix of the entries it makes.
class UpperCase : public ZEFTransform {
 public:
  UpperCase() : ZEFTransform(false, false, ".up") {}
  bool apply(const ZEFByteArray& input, ZEFByteArray& output, ZEFResultHolder*) override {
    if (!output.allocate(input.size)) return false;
    for (uint64_t i = 0; i < input.size; ++i) output.data[i] = static_cast<unsigned char>(toupper(input.data[i]));
    return true;
  }
};

TEST_F(CreationRun, TransformRuleByExtensionRenamesAndStampsTheEntry) {
  writeFile("a/f.M", "make me loud");
  writeFile("a.m/f", "plain");  // its last "." belongs to the directory
  struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
  utimensat(AT_FDCWD, "a/f.M", old, 0);
  UpperCase transform;
  std::vector<std::string> extensions{".m"};
  TransformRule rule{&extensions, &transform, nullptr};
  ZEFEntryMap inputs{{"a/f.M", to("f")}, {"a.m/f", to("g")}};
  ASSERT_EQ(create(inputs, 6, &rule), 0);
  const auto entries = parseArchive(readFile("out.zef")).entries;
  ASSERT_EQ(names(), (std::vector<std::string>{"g", "f.up"}));
  EXPECT_EQ(testing::entryContent(entries[0]), "plain");
  EXPECT_EQ(testing::entryContent(entries[1]), "MAKE ME LOUD");
  std::tm now{};
  const time_t current = std::time(nullptr);
  localtime_r(&current, &now);
  EXPECT_EQ((entries[1].dosDate >> 25) + 1980, static_cast<uint32_t>(now.tm_year + 1900));  // stamped now
}

TEST_F(CreationRun, UnopenableInputStopsAtOnceAndLeavesTheStreamToTheCaller) {
  const std::string unreadable = "/proc/sys/vm/drop_caches";  // not even root may read it
  if (std::ifstream(unreadable).is_open()) GTEST_SKIP() << unreadable << " is readable here";
  writeFile("a", "alpha");
  ZEFEntryMap inputs{{"/proc/self/cwd/a", to("a")}, {unreadable, to("d")}};
  ZipDriver driver;
  ASSERT_EQ(driver.open("out.zef"), 0);
  CreationContext context;
  ChannelCapture capture;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(driver.addInputs(inputs, &context, true), -102);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "\nCOULD NOT OPEN FILE: " + unreadable + "!\n");
  EXPECT_EQ(capture.error(), "Error opening file '" + unreadable +
                                 "' for reading.\nSystem error text: 'Permission denied'\n");
  EXPECT_NE(context.currentStream, nullptr);
  EXPECT_FALSE(parseArchive(readFile("out.zef")).valid);  // not closed
  delete context.currentStream;
  delete context.currentReader;
}

TEST_F(CreationRun, CoreFailuresAreReportedWithTheirNames) {
  writeFile("a", "alpha");
  ZEFEntryMap notOpen{{"a", to("a")}};
  ChannelCapture capture;
  EXPECT_EQ(create(notOpen, 0, nullptr, false), StatusBadParameter);
  EXPECT_EQ(capture.error(), "Error in opening 'a' in zipfile\n");
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  ASSERT_EQ(symlink("/dev/full", "out.zef"), 0);
  const struct {
    size_t size;
    const char* messages;
  } rows[] = {
      {1 << 20, "Error in writing 'data'\n"},
      // Less than one output buffer reaches the file only when the entry is closed.
      {16000, "Error in closing 'data' in the zipfile.\nError in closing 'out.zef'\n"},
  };
  for (const auto& row : rows) {
    std::string noise(row.size, '\0');
    for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>((i * 2654435761u) >> 13);
    writeFile("data", noise);
    ZEFEntryMap inputs{{"data", to("data")}};
    capture.clear();
    EXPECT_EQ(create(inputs), -1) << row.size;
    EXPECT_EQ(capture.error(), row.messages);
  }
}

}  // namespace
}  // namespace kxzef
