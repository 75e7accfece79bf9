#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "input/duplicate_entry.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;

std::string duplicateMessage(const std::string& previous, const std::string& source, const std::string& destination) {
  return "File \n '" + previous + "' \n and file '" + source + "' \n both have the same ZIP file destination: \n '" +
         destination +
         "'\n This will cause the data in the second file to overwrite that in the\n first when archive is "
         "unpacked. This is not permitted.\n";
}

std::string unreadableMessage(const std::string& source, const std::string& systemText) {
  return "Could not read linked file data from symbolic link: \n '" + source + "'\nSystem error text: '" +
         systemText + "'\n";
}

class DuplicateEntry : public testing::TempDirTest {
 protected:
  // The check as the creation run calls it for the link "link" -> "dest".
  int check(const std::string& source, const std::string& destination, const std::string& base = "/d") {
    return checkDuplicateEntry("link", "dest", source.c_str(), destination.c_str(), base.c_str(), recorded_, inputs_);
  }
  void input(const std::string& source, const std::string& destination) {
    inputs_[source] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, destination);
  }

  ZEFEntryMap recorded_;
  ZEFEntryMap inputs_;
  ChannelCapture capture_;
};

TEST_F(DuplicateEntry, MissingLinkNamesRefuseAtOnce) {
  const std::string file = writeFile("f", "x");
  EXPECT_EQ(checkDuplicateEntry(nullptr, "dest", file.c_str(), "lib/f", "/d", recorded_, inputs_), 0);
  EXPECT_EQ(checkDuplicateEntry("link", nullptr, file.c_str(), "lib/f", "/d", recorded_, inputs_), 0);
  EXPECT_TRUE(recorded_.empty());
  EXPECT_EQ(capture_.error(), "");
}

TEST_F(DuplicateEntry, FreeDestinationRecordsTheFileOnceWithoutLeadingSlash) {
  const std::string file = writeFile("f", "x");
  EXPECT_EQ(check(file, "/lib/f"), 1);
  EXPECT_EQ(check(file, "/lib/f"), 1);  // the same source again: accepted, not recorded twice
  ASSERT_EQ(recorded_.size(), 1u);
  const ZEFEntryRecord& record = recorded_.at(file);
  EXPECT_EQ(record.kind, 1);
  EXPECT_EQ(record.text, nullptr);
  EXPECT_FALSE(record.ownsText);
  EXPECT_EQ(record.destination, "lib/f");
  EXPECT_EQ(capture_.error(), "");
}

TEST_F(DuplicateEntry, SourceAmongTheInputsPassesWithoutRecording) {
  const std::string file = writeFile("f", "x");
  input(file, "f");
  EXPECT_EQ(check(file, "elsewhere"), 1);
  EXPECT_TRUE(recorded_.empty());
}

TEST_F(DuplicateEntry, MissingSourceWithFreeDestinationIsIgnoredSilently) {
  EXPECT_EQ(check(path("missing"), "lib/m"), 1);
  EXPECT_TRUE(recorded_.empty());
  EXPECT_EQ(capture_.error(), "");
}

TEST_F(DuplicateEntry, UnexaminableSourceWithFreeDestinationIsReportedButAccepted) {
  const std::string file = writeFile("f", "x");
  EXPECT_EQ(check(file + "/below", "lib/b"), 1);  // lstat fails with ENOTDIR
  EXPECT_TRUE(recorded_.empty());
  EXPECT_EQ(capture_.error(), unreadableMessage(file + "/below", "Not a directory"));
}

TEST_F(DuplicateEntry, OverlongSourceIsReportedNeverOverrun) {
  const std::string longName(5000, 'n');
  EXPECT_EQ(check(longName, "lib/n"), 1);
  EXPECT_EQ(capture_.error().substr(0, 53), "Could not read linked file data from symbolic link: \n");
  EXPECT_NE(capture_.error().find("File name too long"), std::string::npos);
}

TEST_F(DuplicateEntry, TwoFilesForOneDestinationAreRefusedNamingBoth) {
  const std::string first = writeFile("a", "1");
  const std::string second = writeFile("b", "2");
  input(first, "lib/x");
  EXPECT_EQ(check(second, "lib/x"), 0);
  EXPECT_EQ(capture_.error(), duplicateMessage(first, second, "lib/x"));
  EXPECT_TRUE(recorded_.empty());
}

TEST_F(DuplicateEntry, RecordedOwnerIsFoundBeforeTheInputs) {
  const std::string recordedOwner = writeFile("r", "1");
  const std::string inputOwner = writeFile("i", "2");
  const std::string newcomer = writeFile("n", "3");
  input(inputOwner, "lib/x");
  EXPECT_EQ(check(recordedOwner, "lib/y"), 1);
  recorded_.at(recordedOwner).destination = "lib/x";
  EXPECT_EQ(check(newcomer, "lib/x"), 0);
  EXPECT_EQ(capture_.error(), duplicateMessage(recordedOwner, newcomer, "lib/x"));
}

TEST_F(DuplicateEntry, OneFileNamedRelativelyAndAbsolutelyIsAccepted) {
  input("a/x", "lib/x");
  EXPECT_EQ(check("/d/a/x", "lib/x", "/d"), 1);  // neither needs to exist
  inputs_.clear();
  input("/d/a/x", "lib/x");
  EXPECT_EQ(check("a/x", "lib/x", "/d"), 1);
  EXPECT_EQ(capture_.error(), "");
}

TEST_F(DuplicateEntry, LinkNamingTheOwnerExactlyIsAccepted) {
  const std::string owner = writeFile("real", "1");
  input(owner, "lib/x");
  ASSERT_EQ(symlink(owner.c_str(), "alias"), 0);
  EXPECT_EQ(check(path("alias"), "lib/x"), 1);
  // The text must equal the owner's key: a relative spelling of it is a clash.
  ASSERT_EQ(symlink("real", "relative-alias"), 0);
  EXPECT_EQ(check(path("relative-alias"), "lib/x"), 0);
  EXPECT_EQ(capture_.error(), duplicateMessage(owner, path("relative-alias"), "lib/x"));
}

TEST_F(DuplicateEntry, LinkTextIsComparedOnItsFirst256BytesOnly) {
  const std::string target(300, 't');
  ASSERT_EQ(symlink(target.c_str(), "long"), 0);
  input(target, "lib/x");  // owner named by the whole 300-byte text
  EXPECT_EQ(check(path("long"), "lib/x"), 0);
  EXPECT_EQ(capture_.error(), duplicateMessage(target, path("long"), "lib/x"));
  capture_.clear();
  inputs_.clear();
  input(target.substr(0, 256), "lib/x");  // owner named by exactly what is compared
  EXPECT_EQ(check(path("long"), "lib/x"), 1);
  EXPECT_EQ(capture_.error(), "");
}

TEST_F(DuplicateEntry, TakenDestinationWithMissingSourceIsRefusedAsUnreadable) {
  input("/somewhere/owner", "lib/x");
  EXPECT_EQ(check(path("missing"), "lib/x"), 0);
  EXPECT_EQ(capture_.error(), unreadableMessage(path("missing"), "No such file or directory"));
}

TEST_F(DuplicateEntry, LeadingSlashIsStrippedOnRecordButNotOnLookup) {
  const std::string first = writeFile("one", "1");
  const std::string second = writeFile("two", "2");
  const std::string third = writeFile("three", "3");
  EXPECT_EQ(check(first, "/lib/x"), 1);   // recorded as "lib/x"
  EXPECT_EQ(check(second, "/lib/x"), 1);  // "/lib/x" finds no owner
  EXPECT_EQ(recorded_.size(), 2u);
  EXPECT_EQ(check(third, "lib/x"), 0);    // "lib/x" does; the first in key order owns it
  EXPECT_EQ(capture_.error(), duplicateMessage(first, third, "lib/x"));
}

}  // namespace
}  // namespace kxzef
