// The creation run through ZipDriver: one test per row of its failure
// handling, plus the naming, mode and time rules, checked on the bytes.
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
#include "kxzefarchiver/ZEFTransform.h"
#include "support/archive_bytes.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "zip/zip_time.h"

namespace kxzef {
namespace {

using testing::ArchiveBytes;
using testing::ChannelCapture;
using testing::parseArchive;

class CreationRun : public testing::TempDirTest {
 protected:
  // Runs the creation into out.zef at `level`; the context is released afterwards.
  int create(ZEFEntryMap& inputs, int level = 0, TransformRule* rules = nullptr) {
    ZipDriver driver;
    driver.setCompressionLevel(level);
    if (driver.open("out.zef") != 0) return 1;
    CreationContext context;
    context.transformRules = rules;
    const int status = driver.addInputs(inputs, &context, true);
    releaseContext(context);
    return status;
  }

  static void releaseContext(CreationContext& context) {
    delete context.currentStream;
    delete context.currentReader;
    context = CreationContext();
  }

  ArchiveBytes archive() const { return parseArchive(readFile("out.zef")); }

  static std::vector<std::string> names(const ArchiveBytes& bytes) {
    std::vector<std::string> all;
    for (const auto& entry : bytes.entries) all.push_back(entry.name);
    return all;
  }
};

ZEFEntryRecord to(const std::string& destination) { return ZEFEntryRecord(1, nullptr, false, destination); }

TEST_F(CreationRun, EmptyInputMapGivesAnEmptyArchive) {
  ZEFEntryMap inputs;
  EXPECT_EQ(create(inputs), 0);
  const ArchiveBytes bytes = archive();
  EXPECT_TRUE(bytes.valid);
  EXPECT_TRUE(bytes.entries.empty());
}

TEST_F(CreationRun, MissingInputIsSkippedWithAWarning) {
  writeFile("a", "alpha");
  ZEFEntryMap inputs{{"a", to("A")}, {"missing", to("M")}, {"b-missing", to("B")}};
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), 0);
  EXPECT_EQ(capture.error(),
            "Warning: Could not read file permissions from input file: \n 'b-missing'\n"
            "System error text: 'No such file or directory'\n"
            "Warning: Could not read file permissions from input file: \n 'missing'\n"
            "System error text: 'No such file or directory'\n");
  EXPECT_EQ(names(archive()), std::vector<std::string>{"A"});
}

TEST_F(CreationRun, LinkedFilesComeAfterTheInputsUnlessTheLastInputIsSkipped) {
  writeFile("lib/real.so.1", "library");
  mkdir("bin", 0755);
  ASSERT_EQ(symlink("../lib/real.so.1", "bin/lib.so"), 0);
  ZEFEntryMap inputs{{"bin/lib.so", to("bin/lib.so")}};
  EXPECT_EQ(create(inputs), 0);
  ArchiveBytes bytes = archive();
  ASSERT_EQ(names(bytes), (std::vector<std::string>{"bin/lib.so", "lib/real.so.1"}));
  EXPECT_EQ(bytes.entries[0].storedData, "../lib/real.so.1");
  EXPECT_EQ(bytes.entries[0].extra, testing::linkBlock("../lib/real.so.1"));
  EXPECT_EQ(bytes.entries[1].storedData, "library");

  // A missing input sorting last ends the walk before the queued file.
  inputs["zz-missing"] = to("zz");
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), 0);
  EXPECT_EQ(names(archive()), std::vector<std::string>{"bin/lib.so"});
}

TEST_F(CreationRun, EmptyFileIsRefusedAndTheArchiveKeepsWhatCameBefore) {
  writeFile("a", "alpha");
  writeFile("b", "");
  ZEFEntryMap inputs{{"a", to("a")}, {"b", to("b")}, {"c", to("c")}};
  writeFile("c", "never reached");
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), -1);
  EXPECT_EQ(capture.error(),
            "The file \n 'b' \n is empty (zero bytes long). \n\n This file cannot be added to the ZEF archive "
            "because it will cause an error \n when the application or library is run. Add valid content to "
            "this file if\n your application or library requires this file.\n");
  const ArchiveBytes bytes = archive();
  EXPECT_TRUE(bytes.valid);  // closed, as asked
  ASSERT_FALSE(bytes.entries.empty());
  EXPECT_EQ(bytes.entries[0].name, "a");
  for (const auto& entry : bytes.entries) EXPECT_NE(entry.name, "c");
}

TEST_F(CreationRun, DirectoriesEndInASlashAndCarryNoData) {
  mkdir("lib", 0755);
  mkdir("other", 0750);
  ZEFEntryMap inputs{{"lib", to("")}, {"other", to("x")}};
  EXPECT_EQ(create(inputs), 0);
  const ArchiveBytes bytes = archive();
  ASSERT_EQ(names(bytes), (std::vector<std::string>{"lib/", "x/"}));
  EXPECT_EQ(bytes.entries[1].uncompressedSize, 0u);
  EXPECT_EQ(bytes.entries[1].externalAttributes, 0x41E80000u);  // directory, 0750
}

TEST_F(CreationRun, ModeKeepsTypeAndPermissionsButDropsSetIdBits) {
  writeFile("tool", "#!/bin/sh\n", 0755);
  ASSERT_EQ(chmod("tool", 04755), 0);
  ZEFEntryMap inputs{{"tool", to("bin/tool")}};
  EXPECT_EQ(create(inputs), 0);
  EXPECT_EQ(archive().entries.at(0).externalAttributes, 0x81ED0000u);
}

TEST_F(CreationRun, EmptyDestinationKeepsTheSourcePathWithForwardSlashes) {
  writeFile("sub/f", "content");
  ZEFEntryMap inputs{{"sub\\f", to("")}};
  EXPECT_EQ(create(inputs), 0);
  EXPECT_EQ(names(archive()), std::vector<std::string>{"sub/f"});
}

TEST_F(CreationRun, LevelChoosesTheMethodAndFlags) {
  writeFile("t", std::string(1000, 'z'));
  ZEFEntryMap inputs{{"t", to("t")}};
  ASSERT_EQ(create(inputs, 0), 0);
  EXPECT_EQ(archive().entries.at(0).method, 0u);
  ASSERT_EQ(create(inputs, 9), 0);
  const auto entry = archive().entries.at(0);
  EXPECT_EQ(entry.method, 8u);
  EXPECT_EQ(entry.flags, 2u);
  EXPECT_EQ(testing::entryContent(entry), std::string(1000, 'z'));
}

TEST_F(CreationRun, FilesKeepTheirModificationTime) {
  writeFile("old", "x");
  std::tm local{};
  local.tm_year = 2008 - 1900;
  local.tm_mon = 2;
  local.tm_mday = 5;
  local.tm_hour = 9;
  local.tm_min = 7;
  local.tm_sec = 31;
  local.tm_isdst = -1;
  const time_t when = std::mktime(&local);
  struct timespec times[2] = {{when, 0}, {when, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, "old", times, 0), 0);
  ZEFEntryMap inputs{{"old", to("old")}};
  ASSERT_EQ(create(inputs), 0);
  EXPECT_EQ(archive().entries.at(0).dosDate, dosDateFromTime(ZipTime{31, 7, 9, 5, 2, 2008}));
}

// Upper-cases its input and names itself ".up".
class UpperCase : public ZEFTransform {
 public:
  UpperCase() : ZEFTransform(false, false, ".up") {}
  bool apply(const ZEFByteArray& input, ZEFByteArray& output, ZEFResultHolder*) override {
    if (!output.allocate(input.size)) return false;
    for (uint64_t i = 0; i < input.size; ++i) output.data[i] = static_cast<unsigned char>(toupper(input.data[i]));
    ++calls;
    return true;
  }
  int calls = 0;
};

TEST_F(CreationRun, TransformRuleByExtensionRenamesAndStampsTheEntry) {
  writeFile("a/f.M", "make me loud");
  writeFile("a.m/f", "plain");
  struct timespec old[2] = {{86400 * 365 * 20, 0}, {86400 * 365 * 20, 0}};
  utimensat(AT_FDCWD, "a/f.M", old, 0);
  UpperCase transform;
  std::vector<std::string> extensions{".m"};
  TransformRule rule;
  rule.extensions = &extensions;
  rule.transform = &transform;
  ZEFEntryMap inputs{{"a/f.M", to("f")}, {"a.m/f", to("g")}};
  const time_t before = std::time(nullptr);
  ASSERT_EQ(create(inputs, 6, &rule), 0);
  const ArchiveBytes bytes = archive();
  ASSERT_EQ(names(bytes), (std::vector<std::string>{"g", "f.up"}));
  EXPECT_EQ(testing::entryContent(bytes.entries[1]), "MAKE ME LOUD");
  EXPECT_EQ(testing::entryContent(bytes.entries[0]), "plain");
  EXPECT_EQ(transform.calls, 1);
  std::tm now{};
  localtime_r(&before, &now);
  EXPECT_EQ((bytes.entries[1].dosDate >> 25) + 1980, static_cast<uint32_t>(now.tm_year + 1900));
}

TEST_F(CreationRun, UnopenableInputStopsAtOnceAndLeavesTheStreamToTheCaller) {
  // Even root may not read this file; it sorts after the first input.
  const std::string unreadable = "/proc/sys/vm/drop_caches";
  std::ifstream probe(unreadable);
  if (probe.is_open()) GTEST_SKIP() << unreadable << " is readable here";
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
  EXPECT_EQ(context.currentReader, nullptr);
  EXPECT_FALSE(parseArchive(readFile("out.zef")).valid);  // not closed
  releaseContext(context);
  driver.close();
}

TEST_F(CreationRun, EntryThatCannotBeOpenedIsReported) {
  writeFile("a", "alpha");
  ZEFEntryMap inputs{{"a", to("a")}};
  ZipDriver driver;  // never opened
  CreationContext context;
  ChannelCapture capture;
  EXPECT_EQ(driver.addInputs(inputs, &context, false), StatusBadParameter);
  EXPECT_EQ(capture.error(), "Error in opening 'a' in zipfile\n");
  releaseContext(context);
}

std::string noise(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
  return bytes;
}

TEST_F(CreationRun, WriteFailureIsReported) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  ASSERT_EQ(symlink("/dev/full", "out.zef"), 0);
  writeFile("big", noise(1 << 20));
  ZEFEntryMap inputs{{"big", to("big")}};
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), -1);
  EXPECT_EQ(capture.error(), "Error in writing 'big'\n");
}

TEST_F(CreationRun, EntryAndArchiveCloseFailuresAreReported) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  ASSERT_EQ(symlink("/dev/full", "out.zef"), 0);
  // Less than one output buffer: the data reaches the file only when the entry is closed.
  writeFile("small", noise(16000));
  ZEFEntryMap inputs{{"small", to("small")}};
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), -1);
  EXPECT_EQ(capture.error(), "Error in closing 'small' in the zipfile.\nError in closing 'out.zef'\n");
}

TEST_F(CreationRun, LinkWhoseTargetClashesWithATakenDestinationIsRefused) {
  writeFile("conf/app.cfg", "mine");
  writeFile("other/app.cfg", "theirs");
  mkdir("bin", 0755);
  ASSERT_EQ(symlink("../other/app.cfg", "bin/cfg"), 0);
  // The link's target would be stored as "other/app.cfg", a name the first input holds.
  ZEFEntryMap inputs{{"bin/cfg", to("bin/cfg")}, {"conf/app.cfg", to("other/app.cfg")}};
  ChannelCapture capture;
  EXPECT_EQ(create(inputs), -1);
  EXPECT_EQ(capture.error(), "File \n 'conf/app.cfg' \n and file '" + path("other/app.cfg") +
                                 "' \n both have the same ZIP file destination: \n 'other/app.cfg'\n This will "
                                 "cause the data in the second file to overwrite that in the\n first when archive "
                                 "is unpacked. This is not permitted.\n");
}

}  // namespace
}  // namespace kxzef
