// zef extract, check and test against hostile archives, judged on disk: a
// refused or failed extraction leaves every byte where it was, nothing is
// ever written outside the destination, and what is extracted is complete.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "support/zef_run.h"
#include "support/zip_records.h"

namespace {

namespace fs = std::filesystem;
using kxzef::testing::buildArchive;
using kxzef::testing::edited;
using kxzef::testing::HandEntry;
using kxzef::testing::linkEntry;
using kxzef::testing::storedEntry;
using kxzef::testing::ToolRun;
using kxzef::testing::withMode;
using ZefExtractSafety = kxzef::testing::TempDirTest;

constexpr uint64_t NoUnixMode = 0x0014;  // version made by: MS-DOS, 2.0

ToolRun zef(const std::string& arguments) { return kxzef::testing::runZef(arguments); }

std::string lastLine(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text.substr(text.rfind('\n') + 1);  // npos + 1 is 0
}

// Every path below the test directory; zef's own output files left out.
std::vector<std::string> snapshot() { return kxzef::testing::treeSnapshot(".", false, {"./zef.out", "./zef.err"}); }

// One hostile archive: why it is hostile, its bytes, zef's options, and the
// lines zef must end its standard error with (each after "zef: hostile.zef: ").
struct HostileCase {
  const char* reason;
  std::string archive;
  const char* options;
  std::vector<std::string> lines;
};

std::string countingFewer() {
  std::string bytes = buildArchive({storedEntry("a", "1"), storedEntry("b", "2"), storedEntry("c", "3")});
  kxzef::testing::patchLE(bytes, bytes.size() - 14, 1, 2);  // entries on this disk
  kxzef::testing::patchLE(bytes, bytes.size() - 12, 1, 2);  // entries in total
  return bytes;
}

std::string sharingOneHeader() {
  std::vector<HandEntry> entries;
  for (int i = 0; i < 8; ++i) {
    entries.push_back(storedEntry("copy" + std::to_string(i), "payload"));
    entries.back().localHeaderOffset = 0;
  }
  return buildArchive(entries);
}

// A link, then a file below it whose central record claims a comment that
// runs past the directory: the audit stops before that record, the library
// does not.
std::string hidingBelowALink(const std::string& out) {
  std::string bytes = buildArchive({linkEntry("d", out), storedEntry("d/evil", "x")});
  const size_t second = bytes.rfind("PK\x01\x02");
  kxzef::testing::patchLE(bytes, second + 32, 0xFFFF, 2);  // file comment length
  return bytes;
}

HandEntry badCrc() { return edited(storedEntry("b.bin", "checked data"), [](HandEntry& e) { e.crc ^= 1; }); }

const char Refused[] = "refused for 1 finding; nothing was extracted";
const char Trustable[] = "refused for 1 finding; nothing was extracted (--trust extracts it anyway)";

// `out` is the absolute path of a directory beside the destination.
std::vector<HostileCase> hostileCases(const std::string& out) {
  const HandEntry encrypted = edited(storedEntry("e.txt", "ciphertext"), [](HandEntry& e) { e.flags = 1; });
  // clang-format off
  return {
      {"a parent component climbs out", buildArchive({storedEntry("../x", "up")}), "",
       {"'../x' contains a '..' component", Refused}},
      {"an absolute name", buildArchive({storedEntry("/abs/x", "root")}), "",
       {"'/abs/x' is an absolute path", Trustable}},
      {"a file written through a link entry", buildArchive({linkEntry("d", out), storedEntry("d/evil", "x")}), "",
       {"'d/evil' passes through the link entry 'd'", Refused}},
      {"a directory made through a link entry, trusted",
       buildArchive({linkEntry("d", out), storedEntry("d/made/", "")}), "--trust",
       {"'d/made/' lies below 'd', which is no directory", Refused}},
      {"a file of a link's name, written through it", buildArchive({linkEntry("l", out + "/t"), storedEntry("l", "x")}),
       "--trust", {"'l' appears twice in the archive", Refused}},
      {"a record the audit cannot walk to hides a file below a link, trusted", hidingBelowALink(out), "--trust",
       {"the archive reads differently to the library than to the audit from entry 2 on", Refused}},
      {"eight records extract one local entry eight times", sharingOneHeader(), "",
       {"'copy7' shares its local header with 'copy0'",
        "refused for 14 findings; nothing was extracted (--trust extracts it anyway)"}},
      {"the end record hides entries, trusted", countingFewer(), "--trust",
       {"'b' was not extracted: the end record counts 1 entry, the directory holds 3; nothing was installed"}},
      {"encrypted data would be written as ciphertext", buildArchive({encrypted}), "",
       {"'e.txt' is encrypted", Trustable}},
      {"a wrong CRC", buildArchive({badCrc()}), "", {"'b.bin' failed its CRC check; nothing was installed"}},
  };
  // clang-format on
}

TEST_F(ZefExtractSafety, HostileArchivesChangeNothingOnDisk) {
  writeFile("dest/keep.txt", "the user's file");
  writeFile("outside/untouched", "beside the destination");
  for (const HostileCase& row : hostileCases(path("outside"))) {
    writeFile("hostile.zef", row.archive);
    const std::vector<std::string> before = snapshot();
    const ToolRun run = zef(std::string("extract hostile.zef -d dest ") + row.options);
    EXPECT_EQ(run.status, 1) << row.reason;
    EXPECT_EQ(snapshot(), before) << row.reason;
    for (const std::string& line : row.lines) {
      EXPECT_NE(run.err.find("zef: hostile.zef: " + line + "\n"), std::string::npos) << row.reason << ": " << run.err;
    }
    EXPECT_EQ(lastLine(run.err), "zef: hostile.zef: " + row.lines.back()) << row.reason;
  }
}

// A small application: a directory, a program, a file the user may edit, a link.
std::string application(const std::string& version) {
  const HandEntry program = withMode(storedEntry("app/bin/run", "#!/bin/sh\necho " + version + "\n"), 0100755);
  return buildArchive({storedEntry("app/", ""), program, storedEntry("app/etc/app.conf", "version=" + version + "\n"),
                       linkEntry("app/bin/conf", "../etc/app.conf")});
}

TEST_F(ZefExtractSafety, ReextractionMergesIntoThePreviousTree) {
  writeFile("v1.zef", application("1"));
  writeFile("v2.zef", application("2"));
  ASSERT_EQ(zef("extract v1.zef -d dest").status, 0) << readFile("zef.err");
  writeFile("dest/app/etc/local.conf", "the user's own file");
  fs::remove("dest/app/bin/conf");
  fs::create_symlink(path("outside"), "dest/app/bin/conf");  // a link someone aimed elsewhere
  const ToolRun run = zef("extract v2.zef -d dest");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(readFile("dest/app/etc/app.conf"), "version=2\n");
  EXPECT_EQ(fs::read_symlink("dest/app/bin/conf"), "../etc/app.conf");
  EXPECT_EQ(readFile("dest/app/etc/local.conf"), "the user's own file");
  EXPECT_EQ(fs::status("dest/app/bin/run").permissions(), fs::perms(0755));
  EXPECT_FALSE(fs::exists("outside"));
  for (const auto& item : fs::directory_iterator("dest")) EXPECT_EQ(item.path().filename(), "app");
}

TEST_F(ZefExtractSafety, ReplaceSwapsTheWholeDestination) {
  writeFile("v2.zef", application("2"));
  writeFile("dest/stale.txt", "from before");
  chmod(writeFile("dest/app/locked/inside", "x").c_str(), 0400);
  chmod(path("dest/app/locked").c_str(), 0500);  // the old tree is removed even so
  const ToolRun run = zef("extract v2.zef -d dest --replace");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(fs::exists("dest/stale.txt"));
  EXPECT_FALSE(fs::exists("dest/app/locked"));
  EXPECT_EQ(readFile("dest/app/etc/app.conf"), "version=2\n");
  std::vector<std::string> beside;
  for (const auto& item : fs::directory_iterator(".")) beside.push_back(item.path().filename().string());
  std::sort(beside.begin(), beside.end());
  EXPECT_EQ(beside, (std::vector<std::string>{"dest", "v2.zef", "zef.err", "zef.out"}));
}

TEST_F(ZefExtractSafety, ModesFollowTheArchiveWithoutSpecialBits) {
  const auto dos = [](const char* name, const char* data, uint64_t attributes) {
    return edited(storedEntry(name, data), [=](HandEntry& e) {
      e.versionMadeBy = NoUnixMode;
      e.externalAttributes = attributes;
    });
  };
  const HandEntry setuid = withMode(storedEntry("s", "#!/bin/sh\n"), 0106755);
  writeFile("modes.zef", buildArchive({dos("DOS.TXT", "made without Unix modes", 0x20 /* the archive bit */),
                                       dos("DOSDIR/", "", 0x10), setuid, storedEntry("/abs/x", "in")}));
  ASSERT_EQ(zef("extract modes.zef -d dest").status, 1);
  ASSERT_EQ(zef("extract modes.zef -d dest --trust").status, 0) << readFile("zef.err");
  EXPECT_EQ(fs::status("dest/DOS.TXT").permissions(), fs::perms(0644));
  EXPECT_EQ(fs::status("dest/DOSDIR").permissions(), fs::perms(0755));
  EXPECT_EQ(fs::status("dest/s").permissions(), fs::perms(0755));
  EXPECT_EQ(readFile("dest/abs/x"), "in");  // absolute names land below the destination
}

TEST_F(ZefExtractSafety, LinkAlreadyInTheDestinationIsReplacedNotFollowed) {
  writeFile("outside/keep", "beside the destination");
  fs::create_directories("dest");
  fs::create_symlink(path("outside"), "dest/d");
  writeFile("below.zef", buildArchive({storedEntry("d/x", "data")}));
  const ToolRun refused = zef("extract below.zef -d dest");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("'d/x' "), std::string::npos) << refused.err;
  ASSERT_EQ(zef("extract below.zef -d dest --trust").status, 0) << readFile("zef.err");
  EXPECT_FALSE(fs::is_symlink("dest/d"));
  EXPECT_EQ(readFile("dest/d/x"), "data");
  EXPECT_FALSE(fs::exists("outside/x"));
}

TEST_F(ZefExtractSafety, FailedExtractionLeavesNoNewDirectories) {
  writeFile("bad.zef", buildArchive({storedEntry("a.txt", "fine"), badCrc()}));
  EXPECT_EQ(zef("extract bad.zef -d new/deeper/dest").status, 1);
  EXPECT_FALSE(fs::exists("new"));
  const ToolRun limited = zef("extract bad.zef -d dest --max-size=4");
  EXPECT_EQ(limited.status, 1);
  EXPECT_EQ(limited.err,
            "zef: bad.zef: the archive declares 16 bytes in all, more than the limit of 4\n"
            "zef: bad.zef: refused for 1 finding; nothing was extracted\n");
  EXPECT_FALSE(fs::exists("dest"));
}

TEST_F(ZefExtractSafety, FlatExtractionMakesOnlyLinksInTheDestination) {
  writeFile("v1.zef", application("1"));
  ASSERT_EQ(zef("extract v1.zef -d flat --flat").status, 0) << readFile("zef.err");
  EXPECT_EQ(fs::read_symlink("flat/conf"), "../etc/app.conf");
  EXPECT_FALSE(fs::exists("flat/app"));
  EXPECT_FALSE(fs::exists("conf"));
}

TEST_F(ZefExtractSafety, FileWhereANonEmptyDirectoryStandsChangesNothing) {
  writeFile("v1.zef", buildArchive({storedEntry("new.txt", "new"), storedEntry("data", "a file now")}));
  writeFile("dest/data/kept", "the user's data");
  const std::vector<std::string> before = snapshot();
  const ToolRun run = zef("extract v1.zef -d dest");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "zef: v1.zef: 'dest/data' is a directory that is not empty, where the archive has a file; "
            "nothing was installed\n");
  EXPECT_EQ(snapshot(), before);
}

TEST_F(ZefExtractSafety, TerminationWhileAskingRemovesTheStagingDirectory) {
  writeFile("v1.zef", application("1"));
  ASSERT_EQ(zef("extract v1.zef -d dest").status, 0);
  const std::vector<std::string> before = snapshot();
  ASSERT_EQ(mkfifo("answers", 0600), 0);
  ASSERT_EQ(kxzef::testing::runCommand(std::string(ZEF_PROGRAM) +
                                       " extract v1.zef -d dest --ask <answers 2>asked & echo $! >pid"),
            0);
  const int answers = open("answers", O_WRONLY);  // zef is waiting for its answer once "asked" shows the question
  ASSERT_GE(answers, 0);
  for (int wait = 0; wait < 1000 && readFile("asked").find("[N]one: ") == std::string::npos; ++wait) usleep(10000);
  ASSERT_NE(readFile("asked").find("[N]one: "), std::string::npos);
  const pid_t zef = std::stoi(readFile("pid"));
  ASSERT_EQ(kill(zef, SIGTERM), 0);
  for (int wait = 0; wait < 1000 && kill(zef, 0) == 0; ++wait) usleep(10000);
  close(answers);
  EXPECT_NE(readFile("asked").find("zef: interrupted; nothing was installed\n"), std::string::npos);
  fs::remove("asked");
  fs::remove("pid");
  fs::remove("answers");
  EXPECT_EQ(snapshot(), before);
}

TEST_F(ZefExtractSafety, ReadCommandsReportEveryProblemWithExitOne) {
  writeFile("crc.zef", buildArchive({badCrc()}));
  writeFile("up.zef", buildArchive({storedEntry("../x", "up"), storedEntry("big", std::string(2048, 'x'))}));
  const struct { const char* arguments; int status; const char* out; const char* err; } rows[] = {
      {"check crc.zef", 0, "crc.zef: 1 entry, no findings\n", ""},
      {"test crc.zef", 1, "'b.bin' failed its CRC check\n", "zef: crc.zef: 0 findings, 1 entry failed in 1 entry\n"},
      {"check up.zef --max-size=1K", 1,
       "the archive declares 2050 bytes in all, more than the limit of 1024\n'../x' contains a '..' component\n",
       "zef: up.zef: 2 findings in 2 entries\n"},
      {"extract fifo -d dest", 1, "", "zef: fifo: is not a regular file\n"},  // refused, not waited on
  };
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  for (const auto& row : rows) {
    const ToolRun run = zef(row.arguments);
    EXPECT_EQ(run.status, row.status) << row.arguments;
    EXPECT_EQ(run.out, row.out) << row.arguments;
    EXPECT_EQ(run.err.substr(0, std::string(row.err).size()), row.err) << row.arguments;
  }
}

}  // namespace
