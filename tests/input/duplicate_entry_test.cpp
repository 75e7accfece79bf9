#include <gtest/gtest.h>

#include <unistd.h>

#include "input/duplicate_entry.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

std::string duplicateMessage(const std::string& previous, const std::string& source, const std::string& destination) {
  return "File \n '" + previous + "' \n and file '" + source + "' \n both have the same ZIP file destination: \n '" +
         destination + "'\n This will cause the data in the second file to overwrite that in the\n first when archive "
         "is unpacked. This is not permitted.\n";
}

class DuplicateEntry : public testing::TempDirTest {
 protected:
  // The check's result followed by what it reported, which is then cleared.
  std::string check(const std::string& source, const std::string& zipName) {
    const int result = checkDuplicateEntry("link", "dest", source.c_str(), zipName.c_str(), "/d", recorded_, inputs_);
    const std::string outcome = std::to_string(result) + capture_.error();  // the report follows the check
    capture_.clear();
    return outcome;
  }
  void input(const std::string& source, const std::string& destination) {
    inputs_[source] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, destination);
  }
  ZEFEntryMap recorded_, inputs_;
  testing::ChannelCapture capture_;
};

TEST_F(DuplicateEntry, AcceptsSilentlyWhatFindsNoSecondOwner) {
  const std::string file = writeFile("f", "x");
  EXPECT_EQ(check(file, "/lib/f"), "1");
  EXPECT_EQ(check(file, "/lib/f"), "1");  // same source again: not recorded twice
  EXPECT_EQ(check(path("missing"), "lib/m"), "1");  // missing with a free destination: ignored
  input("a/x", "lib/x");
  EXPECT_EQ(check("/d/a/x", "lib/x"), "1");  // relative and absolute names of one file
  input(file, "lib/o");
  ASSERT_EQ(symlink(file.c_str(), "alias"), 0);  // names the owner exactly
  EXPECT_EQ(check(path("alias"), "lib/o"), "1");
  ASSERT_EQ(symlink(std::string(300, 't').c_str(), "long"), 0);
  input(std::string(256, 't'), "lib/l");  // only the first 256 bytes are compared
  EXPECT_EQ(check(path("long"), "lib/l"), "1");
  EXPECT_EQ(recorded_.size(), 1u);
}

TEST_F(DuplicateEntry, RefusesATakenDestinationNamingItsOwner) {
  const std::string first = writeFile("a", "1"), second = writeFile("b", "2");
  input(first, "lib/x");
  EXPECT_EQ(check(second, "lib/x"), "0" + duplicateMessage(first, second, "lib/x"));
  ASSERT_EQ(symlink("a", "alias"), 0);  // a different spelling of the owner is a clash
  EXPECT_EQ(check(path("alias"), "lib/x"), "0" + duplicateMessage(first, path("alias"), "lib/x"));
  EXPECT_EQ(check(path("missing"), "lib/x"), "0Could not read linked file data from symbolic link: \n '" +
                                                 path("missing") + "'\nSystem error text: 'No such file or directory'\n");
}

// A destination is recorded less its leading "/" but looked up as given.
TEST_F(DuplicateEntry, LooksUpTheDestinationWithItsSlashKept) {
  const std::string second = writeFile("b", "2");
  const std::string one = writeFile("one", "1"), two = writeFile("two", "2");
  EXPECT_EQ(check(one, "/lib/y"), "1");  // recorded as "lib/y"
  EXPECT_EQ(check(two, "/lib/y"), "1");  // "/lib/y" finds no owner, but "lib/y" does
  EXPECT_EQ(check(second, "lib/y"), "0" + duplicateMessage(one, second, "lib/y"));
}

}  // namespace
}  // namespace kxzef
