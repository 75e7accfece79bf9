// The listing's exact row and heading, what `unzip -v` says of peer
// archives, and lookup of one entry by name.
#include <gtest/gtest.h>

#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "extract/extract_fixture.h"
#include "extract/unzip_driver.h"
#include "messages/channels.h"

namespace kxzef {
namespace {

using Listing = testing::ExtractTest;

// Length, method, compressed size, CRC-32 and name of each row of ours or of `unzip -v`.
std::vector<std::string> rowsOf(const std::string& listing) {
  std::istringstream lines(listing);
  std::vector<std::string> rows;
  for (std::string line, f[8]; std::getline(lines, line);) {
    std::istringstream in(line);
    if (in >> f[0] >> f[1] >> f[2] >> f[3] >> f[4] >> f[5] >> f[6] >> f[7] && std::isdigit(f[0][0] & 0xFF))
      rows.push_back(f[0] + " " + f[1] + " " + f[2] + " " + std::to_string(std::stoul(f[6], nullptr, 16)) + " " + f[7]);
  }
  return rows;
}

TEST_F(Listing, RowHasTheFixedLayoutUnderTheHeadingOnTheErrorChannel) {
  testing::HandEntry ten = testing::storedEntry("dir/ten.txt", "0123456789");
  ten.crc = 0xabcd;
  ten.dosDate = (5 | 3 << 5 | (2008 - 1980) << 9) << 16 | (7 << 5 | 9 << 11);  // 2008-03-05 09:07
  EXPECT_EQ(openArchive({ten})->listContents(true), 0);
  EXPECT_EQ(capture.error(),
            "Length  Method   Size  Ratio   Date    Time   CRC-32     Name \n ------  ------   ----  -----   ----    "
            "----   ------     ----\n");
  const std::string ten71 = std::string(69, ' ') + "10", hundred31 = std::string(28, ' ') + "100";
  EXPECT_EQ(capture.output(), ten71 + "  Stored " + ten71 + " " + hundred31 + "%%  3-5-8  9:7  abcd  dir/ten.txt\n");
}

// Hosts that write to the output channel after a listing inherit its precision.
TEST_F(Listing, PrecisionStaysSetOnTheOutputStream) {
  std::ostream& out = getOutputStream();
  const std::streamsize before = out.precision(6);
  EXPECT_EQ(openArchive({testing::storedEntry("a.txt", "a")})->listContents(true), 0);
  EXPECT_EQ(out.precision(before), 21);
}

TEST_F(Listing, RowsAgreeWithUnzip) {
  if (!makePeerArchives()) GTEST_SKIP() << "needs zip, unzip and python3";
  for (const std::string archive : testing::PeerArchives) {
    ASSERT_LE(testing::runCommand("unzip -v " + archive + " > unzip.txt"), 1);  // 1: a warning of the stub
    capture.clear();
    ASSERT_EQ(newReader()->listArchive(archive.c_str()), 0);
    EXPECT_EQ(rowsOf(capture.output()), rowsOf(readFile("unzip.txt"))) << archive;
    EXPECT_EQ(rowsOf(capture.output()).size(), 7u) << archive;  // three files, four directories
  }
}

TEST_F(Listing, ExtractEntryResultNamesTheOutcome) {
  testing::HandEntry bad = testing::storedEntry("bad.txt", "payload");
  bad.crc ^= 1;
  auto reader = openArchive({testing::storedEntry("Readme.TXT", "read me"), bad});
  EXPECT_EQ(reader->extractEntry("README.txt", false), EntryExtracted);  // names match without regard to case
  EXPECT_EQ(reader->extractEntry("absent.txt", true), EntryNotFound);
  EXPECT_EQ(capture.error(), "File 'absent.txt' not found in the zipfile\n");
  EXPECT_EQ(reader->extractEntry("bad.txt", true), EntryFailed);  // still open after the miss
}

}  // namespace
}  // namespace kxzef
