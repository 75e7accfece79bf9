// The creation run through ZipDriver: each row of its failure handling, and
// the naming, mode, method and transform rules, checked on the archive's bytes.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "create/creation_run.h"
#include "create/zip_driver.h"
#include "kxzefarchiver/ZEFFileReader.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

ZEFEntryRecord to(const std::string& destination) { return ZEFEntryRecord(1, nullptr, false, destination); }

class CreationRun : public testing::TempDirTest {
 protected:
  ~CreationRun() override { releaseContextObjects(context); }
  // Runs the creation into out.zef (left unopened when asked); returns its result.
  int create(ZEFEntryMap& inputs, int level = 0, TransformRule* rules = nullptr, bool open = true) {
    ZipDriver driver;
    driver.setCompressionLevel(level);
    if (open && driver.open("out.zef") != 0) return 1;
    releaseContextObjects(context);
    context.transformRules = rules;
    return driver.addInputs(inputs, &context, true);
  }
  testing::ParsedArchive archive() const { return testing::parseArchive(readFile("out.zef")); }
  std::vector<std::string> names() const { return testing::entryNames(readFile("out.zef")); }
  CreationContext context;
  testing::ChannelCapture capture;
};

TEST_F(CreationRun, MissingInputIsSkippedWithAWarning) {
  writeFile("lib/real.so.1", "library");
  ASSERT_EQ(symlink("lib/real.so.1", "lib.so"), 0);
  const struct { const char* missing; std::vector<std::string> names; const char* why; } rows[] = {
      {"a-missing", {"lib.so", "lib/real.so.1"}, "the linked file comes last"},
      {"zz-missing", {"lib.so"}, "skipping the last input ends the walk before the linked file"},
  };
  for (const auto& row : rows) {
    capture.clear();
    ZEFEntryMap inputs{{"lib.so", to("lib.so")}, {row.missing, to("m")}};
    EXPECT_EQ(create(inputs), 0) << row.why;
    EXPECT_EQ(capture.error(), std::string("Warning: Could not read file permissions from input file: \n '") +
                                   row.missing + "'\nSystem error text: 'No such file or directory'\n");
    EXPECT_EQ(names(), row.names) << row.why;
  }
}

// Unlike a missing file, an empty one ends the run; the archive keeps what came before.
TEST_F(CreationRun, EmptyFileEndsTheRun) {
  writeFile("a", "alpha");
  writeFile("b", "");
  writeFile("c", "never reached");
  ZEFEntryMap inputs{{"a", to("a")}, {"b", to("b")}, {"c", to("c")}};
  EXPECT_EQ(create(inputs), -1);
  EXPECT_EQ(capture.error(),
            "The file \n 'b' \n is empty (zero bytes long). \n\n This file cannot be added to the ZEF archive "
            "because it will cause an error \n when the application or library is run. Add valid content to "
            "this file if\n your application or library requires this file.\n");
  EXPECT_TRUE(archive().valid);  // closed, as asked
  EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
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

TEST_F(CreationRun, EntryRecordsFollowTheInputsAtTheGivenLevel) {
  mkdir("other", 0750);
  writeFile("sub/f", std::string(1000, 'z'));
  ZEFEntryMap inputs{{"sub", to("")}, {"other", to("x")}, {"sub\\f", to("")}};
  ASSERT_EQ(create(inputs, 9), 0);
  const auto entries = archive().entries;
  // Directories end in "/"; a backslash in a source becomes "/".
  ASSERT_EQ(names(), (std::vector<std::string>{"x/", "sub/", "sub/f"}));
  EXPECT_EQ(entries[0].externalAttributes, 0x41E80000u);  // directory 0750
  EXPECT_EQ(entries[2].method * 10 + entries[2].flags, 82u);  // deflated at level 9
  ASSERT_EQ(create(inputs, 0), 0);
  EXPECT_EQ(archive().entries.at(2).method, 0u);  // stored at level 0
}

TEST_F(CreationRun, TransformRuleRewritesOnlyMatchingFiles) {
  const std::string loud(40000, 'l');  // more than the run's buffer: the transform's output comes in pieces
  writeFile("a/f.M", loud);
  writeFile("a.m/f", "plain");  // its last "." belongs to the directory: stored as it is
  ASSERT_EQ(testing::runCommand("touch -d @1000000000 a/f.M"), 0);  // in 2001
  UpperCase transform;
  std::vector<std::string> extensions{".m"};
  TransformRule rule{&extensions, &transform, nullptr};
  ZEFEntryMap inputs{{"a/f.M", to("f")}, {"a.m/f", to("g")}};
  ASSERT_EQ(create(inputs, 0, &rule), 0);
  const auto entries = archive().entries;
  ASSERT_EQ(names(), (std::vector<std::string>{"g", "f.up"}));  // the transform's name is the suffix
  EXPECT_EQ(testing::entryContent(entries[0]), "plain");
  EXPECT_EQ(testing::entryContent(entries[1]), std::string(loud.size(), 'L'));
  EXPECT_GT((entries[1].dosDate >> 25) + 1980, 2001u);  // stamped now, not with the file's time
}

TEST_F(CreationRun, UnopenableInputStopsTheRunAtOnce) {
  const std::string unreadable = "/proc/sys/vm/drop_caches";  // not even root may read it
  if (std::ifstream(unreadable).is_open()) GTEST_SKIP() << unreadable << " is readable here";
  writeFile("a", "alpha");
  ZEFEntryMap inputs{{"/proc/self/cwd/a", to("a")}, {unreadable, to("d")}};
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(create(inputs), -102);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "\nCOULD NOT OPEN FILE: " + unreadable + "!\n");
  EXPECT_EQ(capture.error(), "Error opening file '" + unreadable +
                                 "' for reading.\nSystem error text: 'Permission denied'\n");
  EXPECT_NE(context.currentStream, nullptr);  // left to the caller
  EXPECT_FALSE(archive().valid);  // not closed
}

TEST_F(CreationRun, CoreFailuresAreReportedWithTheirNames) {
  writeFile("data", "alpha");
  ZEFEntryMap inputs{{"data", to("data")}};
  EXPECT_EQ(create(inputs, 0, nullptr, false), StatusBadParameter);
  EXPECT_EQ(capture.error(), "Error in opening 'data' in zipfile\n");
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  ASSERT_EQ(symlink("/dev/full", "out.zef"), 0);
  const std::pair<size_t, const char*> rows[] = {
      {1 << 20, "Error in writing 'data'\n"},
      // Less than one output buffer reaches the file only when the entry is closed.
      {16000, "Error in closing 'data' in the zipfile.\nError in closing 'out.zef'\n"},
  };
  for (const auto& [size, messages] : rows) {
    writeFile("data", testing::sampleText(size));
    capture.clear();
    EXPECT_EQ(create(inputs), -1) << size;
    EXPECT_EQ(capture.error(), messages);
  }
}

// What zef hears of a run: each entry as it starts, and every block read.
class RecordingObserver final : public CreationObserver {
 public:
  void entryStarted(const std::string& source, const std::string& entryName) override {
    heard += source + " as " + entryName + "\n";
  }
  void inputRead(uint64_t bytes) override { read += bytes; }
  std::string heard;
  uint64_t read = 0;
};

TEST_F(CreationRun, HooksSeeEveryEntryAndFixItsTime) {
  writeFile("lib/real.so.1", std::string(40000, 'r'));  // more than one block
  ASSERT_EQ(symlink("lib/real.so.1", "lib.so"), 0);
  ZEFEntryMap inputs{{"lib.so", to("lib.so")}};
  RecordingObserver observer;
  const CreationHooks hooks{&observer, 0x58A63C00};  // 2024-05-06 07:32:00
  ZipDriver driver;
  driver.hooks = &hooks;
  ASSERT_EQ(driver.open("out.zef"), 0);
  ASSERT_EQ(driver.addInputs(inputs, &context, true), 0);
  // The linked file too, from the absolute path the link resolved to.
  EXPECT_EQ(observer.heard, "lib.so as lib.so\n" + path("lib/real.so.1") + " as lib/real.so.1\n");
  EXPECT_EQ(observer.read, 40000u);  // a link's text is no input read
  for (const auto& entry : archive().entries) EXPECT_EQ(entry.dosDate, 0x58A63C00u) << entry.name;
}

}  // namespace
}  // namespace kxzef
