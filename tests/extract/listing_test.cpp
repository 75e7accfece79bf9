// The listing's exact rows and heading, checked against hand-built entries
// and against what `unzip -v` says of peer archives; lookup by name.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "extract/extract_fixture.h"
#include "extract/unzip_driver.h"
#include "support/zip_records.h"
#include "surface/channels.h"

namespace kxzef {
namespace {

using testing::HandEntry;
using testing::storedEntry;

const std::string Heading =
    "Length  Method   Size  Ratio   Date    Time   CRC-32     Name \n ------  ------   ----  -----   ----    ----   "
    "------     ----\n";

std::string padded(uint64_t value, size_t width) {
  const std::string digits = std::to_string(value);
  return std::string(width - digits.size(), ' ') + digits;
}

// One row as the listing must print it.
std::string row(uint64_t length, const std::string& method, uint64_t size, uint64_t ratio,
                const std::string& dateAndTime, const std::string& crc, const std::string& name) {
  return padded(length, 71) + "  " + method + " " + padded(size, 71) + " " + padded(ratio, 31) + "%%  " +
         dateAndTime + "  " + crc + "  " + name + "\n";
}

// Length, method, compressed size, CRC-32 (as a number) and name of a row
// of ours or of `unzip -v`.
std::string comparableFields(const std::string& line) {
  std::istringstream fields(line);
  std::string length, method, size, ratio, date, time, crc, name;
  fields >> length >> method >> size >> ratio >> date >> time >> crc >> name;
  return length + " " + method + " " + size + " " + std::to_string(std::stoul(crc, nullptr, 16)) + " " + name;
}

class Listing : public testing::ExtractTest {
 protected:
  // A reader on `entries`, written as "app.zef" after `stub`.
  std::unique_ptr<ZEFArchReader> openArchive(const std::vector<HandEntry>& entries, const std::string& stub = "") {
    writeFile("app.zef", stub + testing::buildArchive(entries));
    auto reader = newReader();
    EXPECT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
    return reader;
  }
};

TEST_F(Listing, RowsHaveTheFixedLayoutWhateverTheChannelWasSetTo) {
  struct Case {
    uint64_t method, flags;
    const char* label;
  };
  const Case cases[] = {{MethodStored, 6, "Stored"},   {MethodDeflated, 0, "Defl:N"}, {MethodDeflated, 2, "Defl:X"},
                        {MethodDeflated, 4, "Defl:F"}, {MethodDeflated, 6, "Defl:F"}, {12, 0, "Unkn. "}};
  HandEntry ten = storedEntry("dir/ten.txt", "0123456789");
  ten.crc = 0xabcd;
  ten.dosDate = testing::dosDate(2008, 3, 5, 9, 7, 0);
  std::vector<HandEntry> entries{ten, storedEntry("empty", "")};
  std::string expected = row(10, "Stored", 10, 100, "3-5-8  9:7", "abcd", "dir/ten.txt") +
                         row(0, "Stored", 0, 0, "3-5-8  9:18", "0", "empty");
  for (const Case& c : cases) {
    HandEntry entry = storedEntry(std::string("m") + c.label, std::string(50, 'z'));  // data never read
    entry.method = c.method;
    entry.flags = c.flags;
    entry.uncompressedSize = 200;
    entry.crc = 0xff01;
    entry.dosDate = testing::dosDate(1999, 12, 31, 23, 58, 0);
    entries.push_back(entry);
    expected += row(200, c.label, 50, 25, "12-31-99  23:58", "ff01", entry.name);
  }
  std::ostream& out = getOutputStream();
  const auto odd = std::ios_base::oct | std::ios_base::showbase | std::ios_base::left;
  out.flags(odd);
  out.fill('*');
  EXPECT_EQ(openArchive(entries)->listContents(true), 0);
  EXPECT_EQ(capture.error(), Heading);
  EXPECT_EQ(capture.output(), expected);
  EXPECT_EQ(out.flags(), odd);
  EXPECT_EQ(out.fill(), '*');
  out.flags(std::ios_base::dec | std::ios_base::skipws);
  out.fill(' ');
}

TEST_F(Listing, AgreesWithUnzipOnSizesCrcsAndNames) {
  if (!testing::haveProgram("unzip") || !testing::haveProgram("zip") || !testing::haveProgram("python3"))
    GTEST_SKIP() << "needs Info-ZIP zip and unzip and python3";
  writeFile("tree/a.txt", std::string(5000, 'a'));
  writeFile("tree/sub/b.bin", "short, stored");
  ASSERT_EQ(testing::runCommand("zip -qr info-zip.zip tree"), 0);
  ASSERT_EQ(testing::runPython(R"(import zipfile
with zipfile.ZipFile('python.zip', 'w') as archive:
    archive.writestr('x/stored.txt', b'stored bytes', zipfile.ZIP_STORED)
    archive.writestr('x/y/deflated.txt', b'deflated ' * 999, zipfile.ZIP_DEFLATED)
    archive.writestr(zipfile.ZipInfo('x/dir/'), b'')
)"),
            0);
  for (const std::string archive : {"info-zip.zip", "python.zip"}) {
    ASSERT_EQ(testing::runCommand("unzip -v " + archive + " > unzip.txt"), 0);
    std::istringstream theirs(readFile("unzip.txt"));
    std::vector<std::string> expected;
    int dashedLines = 0;
    for (std::string line; std::getline(theirs, line) && dashedLines < 2;) {
      if (line.rfind("--------", 0) == 0) ++dashedLines;
      else if (dashedLines == 1) expected.push_back(comparableFields(line));
    }
    capture.clear();
    ASSERT_EQ(newReader()->listArchive(archive.c_str()), 0);
    std::istringstream ours(capture.output());
    std::vector<std::string> listed;
    for (std::string line; std::getline(ours, line);) listed.push_back(comparableFields(line));
    EXPECT_EQ(listed, expected) << archive;
    EXPECT_GE(listed.size(), 3u) << archive;
  }
}

TEST_F(Listing, EmptyOrMissingArchiveGivesTheHeadingAlone) {
  // A stub in front keeps the end record off offset 0, where it would not be found.
  EXPECT_EQ(openArchive({}, "STUB")->listContents(true), 0);
  EXPECT_EQ(capture.error(), Heading);
  capture.clear();
  EXPECT_EQ(newReader()->listContents(false), 0);
  EXPECT_EQ(capture.error(), "Error\n -102with zipfile in GetGlobalInfo\n" + Heading);
  EXPECT_EQ(capture.output(), "");
}

TEST_F(Listing, SecondListingStartsAtTheLastEntry) {
  auto reader = openArchive({storedEntry("a", "1"), storedEntry("b", "2"), storedEntry("c", "3")});
  ASSERT_EQ(reader->listContents(false), 0);
  capture.clear();
  EXPECT_EQ(reader->listContents(false), 0);
  EXPECT_EQ(capture.output(), row(1, "Stored", 1, 100, "3-5-8  9:18", "6dd28e9b", "c"));
  EXPECT_EQ(capture.error(), Heading + "Error\n -100with zipfile in GoToNextFile\n");
}

TEST_F(Listing, ExtractEntryFindsNamesWithoutRegardToCase) {
  HandEntry bad = storedEntry("bad.txt", "payload");
  bad.crc ^= 1;
  auto reader = openArchive({storedEntry("Readme.TXT", "read me"), bad});
  EXPECT_EQ(reader->extractEntry("README.txt", false), EntryExtracted);
  EXPECT_EQ(readFile("Readme.TXT"), "read me");
  EXPECT_EQ(reader->extractEntry("absent.txt", true), EntryNotFound);
  EXPECT_EQ(capture.error(), "File 'absent.txt' not found in the zipfile\n");
  // Still open although closing was asked for.
  EXPECT_EQ(reader->extractEntry("bad.txt", true), EntryFailed);
  EXPECT_EQ(readFile("bad.txt"), "payload");
}

}  // namespace
}  // namespace kxzef
