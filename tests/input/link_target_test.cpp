#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "input/link_target.h"
#include "input/path_readers.h"
#include "input/plain_file_reader.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::ChannelCapture;

TEST(StripCommonLeadingComponents, RemovesWholeSharedComponentsOnly) {
  struct Row {
    const char *a, *b, *aAfter, *bAfter;
    int removed;
  } rows[] = {
      {"a/b/c", "a/b/d", "c", "d", 1},
      {"a/b/c", "a/x/c", "b/c", "x/c", 1},
      {"a/b", "x/b", "a/b", "x/b", 0},      // differing first component
      {"ab/c", "a/c", "ab/c", "a/c", 0},    // "a/" is not a prefix of "ab/"
      {"abc", "abc", "abc", "abc", 0},      // the last component is never compared
      {"a/b/", "a/b/", "", "", 1},
      {"a/c", "a/", "c", "", 1},
      {"", "", "", "", 0},
  };
  for (const Row& row : rows) {
    std::string a = row.a, b = row.b;
    EXPECT_EQ(stripCommonLeadingComponents(a, b), row.removed) << row.a << " | " << row.b;
    EXPECT_EQ(a, row.aAfter) << row.a;
    EXPECT_EQ(b, row.bAfter) << row.b;
  }
}

TEST(MakeTargetRelativeToLink, ClimbsOncePerRemainingDirectoryOfTheLink) {
  struct Row {
    const char *target, *link, *expected;
  } rows[] = {
      {"bin/lib/x", "bin/tools/run", "../lib/x"},
      {"bin/x", "bin/run", "x"},                       // the link's own directory
      {"usr/lib/z", "bin/run", "../usr/lib/z"},
      {"a/b/c", "a/b/d/e/f", "../../c"},
      {"x", "run", "x"},
      {"x", "a//run", "../../x"},                      // an empty component is a level too
  };
  ChannelCapture capture;
  for (const Row& row : rows) EXPECT_EQ(makeTargetRelativeToLink(row.target, row.link), row.expected) << row.link;
  EXPECT_EQ(capture.error(), "");
}

TEST(MakeTargetRelativeToLink, AbsoluteNamesAreReportedAsInternalErrors) {
  ChannelCapture capture;
  EXPECT_EQ(makeTargetRelativeToLink("/abs/x", "bin/run"), "");
  EXPECT_EQ(capture.error(),
            "Internal error. Symbolic link \n 'bin/run' \n points to '/abs/x' \n which is an absolute path (it "
            "should have been a relative path). You may be able to work around this error by recreating the link "
            "as a hard link rather than a soft link. (But use caution, as hard links are less forgiving than soft "
            "links.)\n");
  capture.clear();
  EXPECT_EQ(makeTargetRelativeToLink("x", "/bin/run"), "");
  EXPECT_EQ(capture.error(),
            "Internal error. The path to the file '/bin/run' \n is an absolute path (it should have been a relative "
            "path).\n");
}

TEST(MapTargetIntoArchive, PlacesTargetsInsideTheTreeAndStripsOthers) {
  struct Row {
    const char *source, *archiveName, *target, *root, *expected;
  } rows[] = {
      {"/d/bin/run", "bin/run", "lib/x", "/d/bin", "lib/x"},                     // relative: unchanged
      {"/d/bin/run", "bin/run", "/usr/lib/z", "/d/bin", "usr/lib/z"},            // outside the root
      {"/d/app/bin/run", "app/bin/run", "/d/app/lib/x", "/d/app", "app/lib/x"},  // sibling directory
      {"/d/bin/run", "bin/run", "/d/bin/x", "/d/bin", "bin/x"},                  // same directory
      {"/d/run", "run", "/d/x", "/d", "x"},                                      // link at the top
      {"/d/a/b/run", "a/b/run", "/d/a/b/c/y", "/d/a", "a/b/c/y"},                // below the link
      {"app/bin/run", "app/bin/run", "/w/app/lib/x", "/w", "app/lib/x"},         // relative source
  };
  for (const Row& row : rows) {
    EXPECT_EQ(mapTargetIntoArchive(row.source, row.archiveName, row.target, row.root), row.expected)
        << row.target;
  }
}

class LinkTarget : public testing::TempDirTest {
 protected:
  // app/bin/run -> `data`, app/lib/x a regular file, in the test's directory.
  void makeLink(const std::string& data, const std::string& link = "app/bin/run") {
    writeFile("app/lib/x", "x");
    writeFile("app/bin/y", "y");
    ASSERT_EQ(symlink(data.c_str(), path(link).c_str()), 0);
  }

  int32_t compute(const std::string& source, const std::string& archiveName, ZEFFileReader& reader,
                  size_t bufferSize = 16384) {
    buffer_.assign(bufferSize, '\0');
    root_ = findInputRoot(source, archiveName);
    return computeLinkTarget(ZEFEntryRecord(), root_, source, archiveName, reader, buffer_.data(), bufferSize,
                             linkText_, targetPath_, storedTarget_);
  }

  int32_t computeFor(const std::string& source, const std::string& archiveName = "app/bin/run") {
    ZEFSymbolicLinkReader reader(source);
    return compute(source, archiveName, reader);
  }

  std::vector<char> buffer_;
  std::string root_, linkText_, targetPath_, storedTarget_;
};

TEST_F(LinkTarget, InputRootDropsWholeTrailingComponentsButTheFirst) {
  const std::string cwd = path();
  struct Row {
    const char *source, *archiveName, *expected;
  } rows[] = {
      {"/x/a/b/c", "a/b/c", "/x/a"},   // "a" has no "/" before it, so it stays
      {"/x/a/b/c", "q/c", "/x/a/b"},
      {"/x/a/b", "/a/b", "/x"},        // a leading "/" lets the first component match
      {"/x/ab", "q/b", "<cwd>"},       // "b" is not the whole component "ab"
      {"/x/a/b", "a/b/", "<cwd>"},     // the archive name ends with "/"
      {"/x/a/b", "b", "<cwd>"},        // the archive name has no "/"
      {"rel/a/b", "a/b", "<cwd>"},     // a relative source
      {"/a/b", "x/a/b", "<cwd>"},      // everything matched: nothing is left
  };
  for (const Row& row : rows) {
    const std::string expected = std::string(row.expected) == "<cwd>" ? cwd : row.expected;
    EXPECT_EQ(findInputRoot(row.source, row.archiveName), expected) << row.source << " | " << row.archiveName;
  }
}

TEST_F(LinkTarget, InputRootWithoutWorkingDirectoryIsEmpty) {
  ASSERT_EQ(mkdir("gone", 0755), 0);
  ASSERT_EQ(chdir("gone"), 0);
  ASSERT_EQ(rmdir(path("gone").c_str()), 0);
  EXPECT_EQ(findInputRoot("rel/a", "a"), "");
  EXPECT_EQ(findInputRoot("/x/a/b", "q/b"), "/x/a");
}

TEST_F(LinkTarget, ParentRelativeDataResolvesAgainstTheLinksDirectory) {
  makeLink("../lib/x");
  ChannelCapture capture;
  ASSERT_EQ(computeFor(path("app/bin/run")), 0);
  EXPECT_EQ(root_, path("app"));
  EXPECT_EQ(linkText_, path("app/lib/x"));  // resolved before mapping
  EXPECT_EQ(targetPath_, "app/lib/x");
  EXPECT_EQ(storedTarget_, "../lib/x");
  EXPECT_STREQ(buffer_.data(), "../lib/x");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(LinkTarget, RelativeSourceResolvesAgainstTheWorkingDirectory) {
  makeLink("../lib/x");
  ASSERT_EQ(computeFor("app/bin/run"), 0);
  EXPECT_EQ(root_, path());
  EXPECT_EQ(linkText_, path("app/lib/x"));
  EXPECT_EQ(targetPath_, "app/lib/x");
  EXPECT_EQ(storedTarget_, "../lib/x");
}

TEST_F(LinkTarget, TargetInTheLinksOwnDirectoryIsJustItsName) {
  makeLink("y");
  ASSERT_EQ(computeFor(path("app/bin/run")), 0);
  EXPECT_EQ(targetPath_, "app/bin/y");
  EXPECT_EQ(storedTarget_, "y");
}

TEST_F(LinkTarget, DanglingDataIsStoredUnchangedBesideTheLink) {
  makeLink("../missing/z");
  ASSERT_EQ(computeFor(path("app/bin/run")), 0);
  EXPECT_EQ(storedTarget_, "../missing/z");
  EXPECT_EQ(targetPath_, "app/bin/../missing/z");
  EXPECT_EQ(linkText_, path("app/missing/z"));
}

TEST_F(LinkTarget, AbsoluteTargetOutsideTheTreeLosesItsSlashAndClimbs) {
  makeLink("/usr/lib/libq.so.1");
  ChannelCapture capture;
  ASSERT_EQ(computeFor(path("app/bin/run")), 0);
  EXPECT_EQ(targetPath_, "usr/lib/libq.so.1");
  EXPECT_EQ(storedTarget_, "../../usr/lib/libq.so.1");
  EXPECT_EQ(capture.error(), "");
}

TEST_F(LinkTarget, AbsoluteTargetInsideTheTreeBecomesRelative) {
  makeLink(path("app/lib/x"));
  ASSERT_EQ(computeFor(path("app/bin/run")), 0);
  EXPECT_EQ(targetPath_, "app/lib/x");
  EXPECT_EQ(storedTarget_, "../lib/x");
}

TEST_F(LinkTarget, MoreParentsThanDirectoriesKeepTheDataAsItIs) {
  std::string data;
  for (int i = 0; i < 40; ++i) data += "../";
  data += "nothing-here";
  writeFile("app/lib/x", "x");
  ASSERT_EQ(symlink(data.c_str(), "top"), 0);
  ASSERT_EQ(computeFor("top", "top"), 0);
  EXPECT_EQ(linkText_, data);  // the directory climbed away to nothing
  EXPECT_EQ(storedTarget_, data);
  EXPECT_EQ(targetPath_, data);
}

TEST_F(LinkTarget, LinkDataLongerThanTheBufferIsCutToLeaveRoomForTheNul) {
  const std::string data(40, 'q');
  makeLink(data);
  ZEFSymbolicLinkReader reader(path("app/bin/run"));
  ASSERT_EQ(compute(path("app/bin/run"), "app/bin/run", reader, 16), 0);
  EXPECT_EQ(std::string(buffer_.data()), std::string(15, 'q'));
  EXPECT_EQ(storedTarget_, std::string(15, 'q'));

  // Exactly the buffer's size: still one byte short, never past the end.
  const std::string exact(16, 'e');
  ASSERT_EQ(symlink(exact.c_str(), "exact"), 0);
  ZEFSymbolicLinkReader exactReader(path("exact"));
  ASSERT_EQ(compute(path("exact"), "exact", exactReader, 16), 0);
  EXPECT_EQ(std::string(buffer_.data()), std::string(15, 'e'));
}

TEST_F(LinkTarget, UnreadableLinkYieldsEmptyDataWithoutFailing) {
  ZEFSymbolicLinkReader reader(path("no-such-link"));
  ASSERT_EQ(compute(path("no-such-link"), "no-such-link", reader), 0);
  EXPECT_EQ(std::string(buffer_.data()), "");
}

TEST_F(LinkTarget, EmptyInputReadReportsTheZeroLengthMessage) {
  writeFile("empty", "");
  std::ifstream stream("empty", std::ios::binary);
  ZEFFileReaderWithoutTransform reader(&stream);
  ChannelCapture capture;
  EXPECT_EQ(compute("empty", "empty", reader), -1);
  EXPECT_EQ(capture.error(),
            "The file \n 'empty' \n is empty (zero bytes long). \n\n This file cannot be added to the ZEF archive "
            "because it will cause an error \n when the application or library is run. Add valid content to this "
            "file if\n your application or library requires this file.\n");
  EXPECT_STREQ(buffer_.data(), "");
}

TEST_F(LinkTarget, OtherReadFailuresReportTheReadingMessage) {
  ZEFFileReaderWithoutTransform reader(nullptr);
  ChannelCapture capture;
  EXPECT_EQ(compute("src", "src", reader), -1);
  EXPECT_EQ(capture.error(), "Error reading file 'src'\n");
}

TEST_F(LinkTarget, AbsoluteArchiveNameLeavesTheStoredTargetEmpty) {
  makeLink("../lib/x");
  ChannelCapture capture;
  ASSERT_EQ(computeFor(path("app/bin/run"), path("app/bin/run")), 0);
  EXPECT_EQ(storedTarget_, "");
  EXPECT_NE(capture.error().find("Internal error."), std::string::npos);
}

}  // namespace
}  // namespace kxzef
