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

using testing::buildArchive;
using testing::HandEntry;
using testing::storedEntry;
using testing::statusOf;

const std::string Heading =
    "Length  Method   Size  Ratio   Date    Time   CRC-32     Name \n ------  ------   ----  -----   ----    ----   "
    "------     ----\n";

std::string padded(uint64_t value, size_t width) {
  const std::string digits = std::to_string(value);
  return std::string(width > digits.size() ? width - digits.size() : 0, ' ') + digits;
}

// One row as the listing must print it.
std::string row(uint64_t length, const std::string& method, uint64_t size, uint64_t ratio,
                const std::string& dateAndTime, const std::string& crc, const std::string& name) {
  return padded(length, 71) + "  " + method + " " + padded(size, 71) + " " + padded(ratio, 31) + "%%  " +
         dateAndTime + "  " + crc + "  " + name + "\n";
}

// The fields of a listing row, or of an `unzip -v` row, that both must agree
// on: length, method, compressed size, CRC-32 (as a number) and name.
std::string comparableFields(const std::string& line) {
  std::istringstream fields(line);
  std::string length, method, size, ratio, date, time, crc, name;
  fields >> length >> method >> size >> ratio >> date >> time >> crc >> name;
  return length + " " + method + " " + size + " " + std::to_string(std::stoul(crc, nullptr, 16)) + " " + name;
}

class Listing : public testing::ExtractTest {
 protected:
  // Opens `entries` written as "app.zef"; the reader lists from the first entry.
  std::unique_ptr<ZEFArchReader> openArchive(const std::vector<HandEntry>& entries, const std::string& stub = "") {
    writeFile("app.zef", stub + buildArchive(entries));
    auto reader = newReader();
    EXPECT_EQ(reader->openWithRoot("app.zef", "", true, true), 0);
    return reader;
  }
};

TEST_F(Listing, RowHasTheFixedWidthsAndTheDoubledPercentSign) {
  HandEntry entry = storedEntry("dir/ten.txt", "0123456789");
  entry.crc = 0xabcd;
  entry.dosDate = testing::dosDate(2008, 3, 5, 9, 7, 0);
  EXPECT_EQ(openArchive({entry})->listContents(true), 0);
  EXPECT_EQ(capture.error(), Heading);
  EXPECT_EQ(capture.output(), row(10, "Stored", 10, 100, "3-5-8  9:7", "abcd", "dir/ten.txt"));
  EXPECT_EQ(capture.outputWrites().back(), "\n");  // the row ends with std::endl
}

TEST_F(Listing, MethodLabelAndRatioFollowTheHeader) {
  struct Case {
    uint16_t method;
    uint16_t flags;
    const char* label;
  };
  const Case cases[] = {
      {MethodStored, 6, "Stored"},  {MethodDeflated, 0, "Defl:N"}, {MethodDeflated, 2, "Defl:X"},
      {MethodDeflated, 4, "Defl:F"}, {MethodDeflated, 6, "Defl:F"}, {12, 0, "Unkn. "},
  };
  std::vector<HandEntry> entries;
  std::string expected;
  for (const Case& c : cases) {
    HandEntry entry = storedEntry(std::string("m") + c.label, std::string(200, 'a'));
    entry.method = c.method;
    entry.flags = c.flags;
    entry.data = std::string(50, 'z');  // never read by the listing
    entry.compressedSize = 50;
    entry.uncompressedSize = 200;
    entry.crc = 0x0000ff01;
    entry.dosDate = testing::dosDate(1999, 12, 31, 23, 58, 0);
    entries.push_back(entry);
    expected += row(200, c.label, 50, 25, "12-31-99  23:58", "ff01", entry.name);
  }
  HandEntry empty = storedEntry("empty", "");
  empty.dosDate = testing::dosDate(2010, 1, 2, 0, 0, 0);
  entries.push_back(empty);
  expected += row(0, "Stored", 0, 0, "1-2-10  0:0", "0", "empty");
  EXPECT_EQ(openArchive(entries)->listContents(false), 0);
  EXPECT_EQ(capture.output(), expected);
}

TEST_F(Listing, AgreesWithUnzipOnSizesCrcsAndNames) {
  if (!testing::haveProgram("unzip") || !testing::haveProgram("zip") || !testing::haveProgram("python3"))
    GTEST_SKIP() << "needs Info-ZIP zip and unzip and python3";
  writeFile("tree/a.txt", std::string(5000, 'a'));
  writeFile("tree/sub/b.bin", "short, stored");
  writeFile("tree/sub/deeper/c.txt", "some text some text some text\n");
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
    std::istringstream unzipRows(readFile("unzip.txt"));
    std::vector<std::string> expected;
    bool inRows = false;
    for (std::string line; std::getline(unzipRows, line);) {
      if (line.rfind("--------", 0) == 0) {
        if (inRows) break;
        inRows = true;
      } else if (inRows) {
        expected.push_back(comparableFields(line));
      }
    }
    capture.clear();
    ASSERT_EQ(newReader()->listArchive(archive.c_str()), 0);
    std::istringstream ourRows(capture.output());
    std::vector<std::string> listed;
    for (std::string line; std::getline(ourRows, line);) listed.push_back(comparableFields(line));
    EXPECT_EQ(listed, expected) << archive;
    EXPECT_GE(listed.size(), 3u) << archive;
  }
}

TEST_F(Listing, EmptyArchivePrintsOnlyTheHeading) {
  // A stub in front keeps the end record off offset 0, where it would not be found.
  EXPECT_EQ(openArchive({}, "STUB")->listContents(true), 0);
  EXPECT_EQ(capture.error(), Heading);
  EXPECT_EQ(capture.output(), "");
}

TEST_F(Listing, ListingWithoutAnArchiveReportsAndPrintsTheHeading) {
  EXPECT_EQ(newReader()->listContents(false), 0);
  EXPECT_EQ(capture.error(), "Error\n " + std::to_string(StatusBadParameter) + "with zipfile in GetGlobalInfo\n" + Heading);
  EXPECT_EQ(capture.output(), "");
}

TEST_F(Listing, BadCentralHeaderEndsTheListingEarly) {
  std::string bytes = buildArchive({storedEntry("one", "1"), storedEntry("two", "2")});
  bytes[bytes.rfind("PK\1\2") + 3] = 9;  // the second central header's signature
  writeFile("app.zef", bytes);
  auto reader = newReader();
  ASSERT_EQ(reader->open("app.zef", true, true), 0);
  EXPECT_EQ(reader->listContents(true), 0);
  EXPECT_EQ(capture.error(), Heading + "Error\n " + std::to_string(StatusBadArchive) + "with zipfile in GoToNextFile\n");
  EXPECT_NE(capture.output().find("  one\n"), std::string::npos);
}

TEST_F(Listing, SecondListingStartsAtTheLastEntry) {
  auto reader = openArchive({storedEntry("a", "1"), storedEntry("b", "2"), storedEntry("c", "3")});
  ASSERT_EQ(reader->listContents(false), 0);
  capture.clear();
  EXPECT_EQ(reader->listContents(false), 0);
  const std::string output = capture.output();
  EXPECT_EQ(output.substr(output.size() - 4), "  c\n");
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1);
  EXPECT_EQ(capture.error(), Heading + "Error\n " + std::to_string(StatusEndOfList) + "with zipfile in GoToNextFile\n");
}

TEST_F(Listing, ChannelFormatStateIsPutBack) {
  std::ostream& out = getOutputStream();
  out.flags(std::ios_base::oct | std::ios_base::showbase | std::ios_base::left);
  out.precision(3);
  out.fill('*');
  EXPECT_EQ(openArchive({storedEntry("a", "12345678")})->listContents(true), 0);
  EXPECT_EQ(capture.output(), row(8, "Stored", 8, 100, "3-5-8  9:18", "9ae0daaf", "a"));
  EXPECT_EQ(out.flags(), std::ios_base::oct | std::ios_base::showbase | std::ios_base::left);
  EXPECT_EQ(out.precision(), 3);
  EXPECT_EQ(out.fill(), '*');
  out.flags(std::ios_base::dec | std::ios_base::skipws);
  out.precision(6);
  out.fill(' ');
}

TEST_F(Listing, ExtractEntryFindsNamesWithoutRegardToCase) {
  HandEntry bad = storedEntry("bad.txt", "payload");
  bad.crc = 1;
  auto reader = openArchive({storedEntry("Readme.TXT", "read me"), bad});
  EXPECT_EQ(reader->extractEntry("README.txt", false), EntryExtracted);
  EXPECT_EQ(readFile("Readme.TXT"), "read me");
  EXPECT_EQ(reader->extractEntry("absent.txt", true), EntryNotFound);
  EXPECT_EQ(capture.error(), "File 'absent.txt' not found in the zipfile\n");
  // Still open although closing was asked for.
  EXPECT_EQ(reader->extractEntry("bad.txt", true), EntryFailed);
  EXPECT_EQ(readFile("bad.txt"), "payload");
  EXPECT_FALSE(statusOf("absent.txt").exists);
}

}  // namespace
}  // namespace kxzef
