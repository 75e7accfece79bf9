// zef for people: commands and exit statuses, the listing, selection by
// pattern, clean names, reproducible times, per-entry lines and the overwrite
// question, each judged from zef's output and the disk.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "support/temp_dir.h"
#include "support/zef_run.h"
#include "support/zip_records.h"

namespace {

namespace fs = std::filesystem;
using kxzef::testing::buildArchive;
using kxzef::testing::HandEntry;
using kxzef::testing::runCommand;
using kxzef::testing::storedEntry;
using kxzef::testing::ToolRun;
using ZefForPeople = kxzef::testing::TempDirTest;

ToolRun zef(const std::string& arguments, const std::string& input = "/dev/null") {
  return kxzef::testing::runZef(arguments, input);
}

// Every file and link below `directory`, one a line, sorted.
std::string tree(const std::string& directory) {
  runCommand("cd '" + directory + "' && find . -mindepth 1 ! -type d | LC_ALL=C sort >../tree.txt");
  return ZefForPeople::readFile("tree.txt");
}

// Answers reach standard output with status 0; failures reach standard error with status 1.
TEST_F(ZefForPeople, EachCommandAnswersOnItsStreamWithItsStatus) {
  const struct { const char* arguments; int status; const char* text; } rows[] = {
      {"--help", 0, "Commands:"},
      {"--version", 0, "zef (kxzefarchiver) 1."},
      {"canon a/b/../c a//b /x/../y", 0, "a/c\na//b\n/y\n"},
      {"list missing.zef", 1, "zef: missing.zef: no such file (nor 'missing.zef.zef')\n"},
      {"list --raw missing.zef", 1, "The ZEF archive 'missing.zef.zef' does not exist!"},
      {"canon ../up", 1, "Cannot canonicalize\n '../up'\n because it begins with ../."},
  };
  for (const auto& row : rows) {
    const ToolRun run = zef(row.arguments);
    EXPECT_EQ(run.status, row.status) << row.arguments;
    EXPECT_EQ(row.status == 0 ? run.err : run.out, "") << row.arguments;
    EXPECT_NE((row.status == 0 ? run.out : run.err).find(row.text), std::string::npos) << row.arguments;
  }
}

TEST_F(ZefForPeople, UsageMistakesExitTwoWithAOneLineHint) {
  for (const char* arguments : {"", "frobnicate", "--frob", "create out.zef", "create -j 0 out.zef f",
                                "create --mtime 2024-02-30 out.zef f", "list -1 --json a", "extract a.zef -d",
                                "extract --overwrite=sometimes a.zef", "extract --ask --replace a.zef", "canon -v a/b"}) {
    const ToolRun run = zef(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_TRUE(run.err.rfind("zef: ", 0) == 0 && run.err.find("\nTry 'zef ") != std::string::npos)
        << arguments << ": " << run.err;
  }
}

class ZefAppArchive : public ZefForPeople {
 protected:
  // app/ with a program, a configuration, a link, Python leftovers; 2024-05-06 07:08.
  void SetUp() override {
    ZefForPeople::SetUp();
    writeFile("app/bin/run", "#!/bin/sh\necho run\n", 0755);
    writeFile("app/etc/app.conf", "speed=fast\n");
    writeFile("app/etc/data[1].txt", "bracketed\n");
    writeFile("app/lib/__pycache__/mod.pyc", "compiled");
    writeFile("app/lib/mod.py", "print(1)\n");
    writeFile("app/lib/old.pyc", "stale");
    fs::create_symlink("../etc/app.conf", "app/bin/conf");
    ASSERT_EQ(zef("create --mtime '2024-05-06 07:08:09' app.zef app").status, 0) << readFile("zef.err");
  }
};

TEST_F(ZefAppArchive, ListingFitsEightyColumnsWithTotals) {
  const ToolRun run = zef("list app.zef");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "Size  Date       Time   Name\n"
            "----  ---------- -----  ----\n"
            "   0  2024-05-06 07:08  app/\n"
            "   0  2024-05-06 07:08  app/bin/\n"
            "  15  2024-05-06 07:08  app/bin/conf -> ../etc/app.conf\n"
            "  19  2024-05-06 07:08  app/bin/run\n"
            "   0  2024-05-06 07:08  app/etc/\n"
            "  11  2024-05-06 07:08  app/etc/app.conf\n"
            "  10  2024-05-06 07:08  app/etc/data[1].txt\n"
            "   0  2024-05-06 07:08  app/lib/\n"
            "   0  2024-05-06 07:08  app/lib/__pycache__/\n"
            "   8  2024-05-06 07:08  app/lib/__pycache__/mod.pyc\n"
            "   9  2024-05-06 07:08  app/lib/mod.py\n"
            "   5  2024-05-06 07:08  app/lib/old.pyc\n"
            "----                    -------\n"
            "  77                    12 entries\n");
  EXPECT_EQ(run.err, "");
}

TEST_F(ZefForPeople, EntryWithoutItsLocalHeaderIsListedWithExitOne) {
  HandEntry moved = storedEntry("moved", "data");
  moved.localHeaderOffset = 2;  // no local header there
  writeFile("moved.zef", buildArchive({storedEntry("fine", "ok"), moved}));
  const ToolRun run = zef("list -1 moved.zef");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "fine\nmoved\n");  // the names listed all the same
  EXPECT_EQ(run.err, "zef: moved.zef: 'moved' has no local header where its record points\n");
}

// The listing for scripts, judged by Python's own reading of the archive.
TEST_F(ZefForPeople, JsonListingAgreesWithPythonZipfile) {
  if (!kxzef::testing::haveProgram("python3")) GTEST_SKIP() << "python3 is not installed";
  writeFile("in/run", "#!/bin/sh\n", 0750);
  writeFile("in/caf\xc3\xa9.txt", "UTF-8 name");
  writeFile("in/latin\xe9.txt", "a Latin-1 byte, no UTF-8");
  writeFile("in/quote\"mark", std::string(3000, 'q'));
  ASSERT_EQ(zef("create --mtime 2023-01-02T03:04:06 in.zef in").status, 0) << readFile("zef.err");
  ASSERT_EQ(zef("list --json in.zef").status, 0);
  writeFile("compare.py", R"(
import json, sys, zipfile
rows = [json.loads(line) for line in open('zef.out', encoding='utf-8')]
infos = zipfile.ZipFile('in.zef').infolist()
assert len(rows) == len(infos), (len(rows), len(infos))
for row, info in zip(rows, infos):
    raw = info.filename.encode('utf-8' if info.flag_bits & 0x800 else 'cp437')
    want = {'name': raw, 'type': 'directory' if info.is_dir() else 'file',
            'mode': '%04o' % ((info.external_attr >> 16) & 0o7777), 'size': info.file_size,
            'stored_size': info.compress_size, 'method': {0: 'stored', 8: 'deflate'}[info.compress_type],
            'crc': '%08x' % info.CRC, 'time': '%04d-%02d-%02dT%02d:%02d:%02d' % info.date_time, 'target': None}
    row['name'] = row['name'].encode('utf-8', 'surrogateescape')
    assert row == want, (row, want)
print('agree', len(rows))
)");
  EXPECT_EQ(runCommand("python3 compare.py >python.out 2>&1"), 0) << readFile("python.out");
  EXPECT_EQ(readFile("python.out"), "agree 5\n");
}

TEST_F(ZefAppArchive, ProgressLineShowsOnlyOnATerminal) {
  if (!kxzef::testing::haveProgram("python3")) GTEST_SKIP() << "python3 is not installed";
  writeFile("terminal.py", R"(
import os, pty, shlex, subprocess, sys
for command in sys.argv[1:]:
    master, slave = pty.openpty()
    run = subprocess.run(shlex.split(command), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=slave)
    os.close(slave)
    shown = b''
    try:
        while chunk := os.read(master, 65536):
            shown += chunk
    except OSError:  # the terminal's other side is closed
        pass
    os.close(master)
    print(run.returncode, repr(shown))
)");
  const std::string zefPath = ZEF_PROGRAM;
  const std::string commands[] = {"create t.zef app", "extract app.zef -d out", "create -q q.zef app",
                                  "extract -q app.zef -d quiet"};
  std::string line = "python3 terminal.py";
  for (const std::string& command : commands) line += " '" + zefPath + " " + command + "'";
  ASSERT_EQ(runCommand(line + " >shown.txt 2>&1"), 0) << readFile("shown.txt");
  std::istringstream shown(readFile("shown.txt"));
  for (const std::string& command : commands) {
    std::string terminal;
    std::getline(shown, terminal);
    if (command.find(" -q ") != std::string::npos) {
      EXPECT_EQ(terminal, "0 b''") << command;
      continue;
    }
    EXPECT_EQ(terminal.rfind("0 b'\\r\\x1b[K  ", 0), 0u) << command << ": " << terminal;
    EXPECT_NE(terminal.find(" entries, "), std::string::npos) << terminal;
    EXPECT_NE(terminal.find("%), "), std::string::npos) << terminal;
    EXPECT_EQ(terminal.substr(terminal.size() - 9), "\\r\\x1b[K'") << command << ": " << terminal;  // erased
    fs::remove_all("out");
    EXPECT_EQ(zef(command).err, "") << command;  // standard error is a file here
  }
}

TEST_F(ZefAppArchive, PatternsSelectWhatIsExtracted) {
  const struct { const char* reason; const char* arguments; const char* extracted; } rows[] = {
      {"a glob's \"*\" crosses \"/\"", "'app/lib/*.py*'", "./app/lib/__pycache__/mod.pyc\n./app/lib/mod.py\n./app/lib/old.pyc\n"},
      {"a directory brings everything below it, in any case", "APP/ETC", "./app/etc/app.conf\n./app/etc/data[1].txt\n"},
      {"a name holding \"[\" matches itself", "'app/etc/data[1].txt'", "./app/etc/data[1].txt\n"},
      {"\"dir/\" excludes every directory of that name", "app/lib --exclude __pycache__/",
       "./app/lib/mod.py\n./app/lib/old.pyc\n"},
      {"exclusions add up", "--exclude app/lib --exclude 'run' --exclude '*.txt'",
       "./app/bin/conf\n./app/etc/app.conf\n"},
  };
  for (const auto& row : rows) {
    fs::remove_all("out");
    const ToolRun run = zef(std::string("extract app.zef -d out ") + row.arguments);
    ASSERT_EQ(run.status, 0) << row.reason << ": " << run.err;
    EXPECT_EQ(tree("out"), row.extracted) << row.reason;
  }
  fs::remove_all("out");
  ASSERT_EQ(zef("extract app.zef -d out app/lib --exclude '*.pyc'").status, 0);
  EXPECT_TRUE(fs::is_directory("out/app/lib/__pycache__"));  // a selected directory entry stays, even empty
}

TEST_F(ZefAppArchive, UnmatchedEntriesExtractNothing) {
  const ToolRun run = zef("extract app.zef -d out app/bin/run nothere 'z*'");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "zef: app.zef: 'nothere' is not in the archive\n"
            "zef: app.zef: 'z*' matches no entry; nothing was extracted\n");
  EXPECT_FALSE(fs::exists("out"));
}

TEST_F(ZefForPeople, InputsAreStoredUnderCleanNames) {
  writeFile("top/a.txt", "a");
  writeFile("top/sub/b.txt", "b");
  fs::create_symlink("../a.txt", "top/sub/link");
  const struct { const char* directory; const char* inputs; const char* names; } rows[] = {
      {"top", ".", "a.txt\nsub/\nsub/b.txt\nsub/link\n"},
      // The writer adds the file a link points to, where it maps it.
      {".", "./top//sub/", "top/sub/\ntop/sub/b.txt\ntop/sub/link\ntop/a.txt\n"},
      {".", "top/sub=./x//y/", "x/y/\nx/y/b.txt\nx/y/link\nx/y/a.txt\n"},
      {"top/sub", "../a.txt", "a.txt\n"},  // the ".." that leads above is dropped, with a warning
  };
  for (const auto& row : rows) {
    const int status = runCommand(std::string("cd ") + row.directory + " && " + ZEF_PROGRAM + " create " +
                                  path("clean.zef") + " " + row.inputs + " 2>" + path("zef.err"));
    ASSERT_EQ(status, 0) << row.inputs << ": " << readFile("zef.err");
    EXPECT_EQ(zef("list -1 clean.zef").out, row.names) << row.inputs;
  }
}

TEST_F(ZefForPeople, CreateExcludesByStoredName) {
  writeFile("src/main.py", "main");
  writeFile("src/pkg/__pycache__/x.pyc", "x");
  writeFile("src/pkg/mod.pyc", "m");
  chmod(writeFile("src/secret/key", "k").c_str(), 0);  // excluded, so never read or refused
  chmod(path("src/secret").c_str(), 0);
  const ToolRun run = zef("create out.zef src=app --exclude __pycache__/ --exclude '*.pyc' --exclude=app/secret");
  chmod(path("src/secret").c_str(), 0755);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(zef("list -1 out.zef").out, "app/\napp/main.py\napp/pkg/\n");
  EXPECT_EQ(zef("create none.zef src --exclude src").err,
            "zef: could not create 'none.zef'; there is nothing to store (every input excluded or empty); nothing was "
            "written\n");
}

TEST_F(ZefForPeople, FixedTimesMakeArchivesByteIdentical) {
  writeFile("in/a.txt", "same bytes");
  // setting: shell words before zef
  const struct { const char* reason; const char* setting; const char* options; const char* listed; } rows[] = {
      {"--mtime as written", "", "--mtime '2021-07-08 09:10:11'", "2021-07-08T09:10:10"},
      {"SOURCE_DATE_EPOCH in UTC", "SOURCE_DATE_EPOCH=1600000000 TZ=Asia/Tokyo", "", "2020-09-13T12:26:40"},
      {"SOURCE_DATE_EPOCH before 1980 clamps", "SOURCE_DATE_EPOCH=0", "", "1980-01-01T00:00:00"},
  };
  for (const auto& row : rows) {
    std::string first;
    for (const char* touched : {"200001010000", "201001010000"}) {
      ASSERT_EQ(runCommand(std::string("touch -t ") + touched + " in/a.txt in"), 0);
      const std::string command = std::string(row.setting) + " " + ZEF_PROGRAM + " create " + row.options + " t.zef in";
      ASSERT_EQ(runCommand(command + " 2>zef.err"), 0) << row.reason;
      if (first.empty()) first = readFile("t.zef");
    }
    EXPECT_EQ(readFile("t.zef"), first) << row.reason;
    EXPECT_NE(zef("list --json t.zef").out.find(std::string("\"time\": \"") + row.listed), std::string::npos)
        << row.reason;
  }
  const ToolRun early = zef("create --mtime @0 t.zef in");
  EXPECT_EQ(early.status, 2);
  EXPECT_EQ(early.err, "zef: --mtime: '@0' lies outside 1980-2107, the years a ZIP entry can hold\n"
                       "Try 'zef create --help' for more information.\n");
}

TEST_F(ZefAppArchive, VerboseNamesEveryEntry) {
  const ToolRun run = zef("create -v --exclude app/lib v.zef app");
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string created = "app/\napp/bin/\napp/bin/conf\napp/bin/run\napp/etc/\napp/etc/app.conf\n"
                              "app/etc/data[1].txt\nv.zef: 7 entries, 40 bytes in, ";
  EXPECT_EQ(run.out.substr(0, created.size()), created);
  EXPECT_EQ(run.out.substr(run.out.size() - 5), " out\n");
}

TEST_F(ZefForPeople, OverwriteAnswersFromAPipeDecideEachFile) {
  writeFile("a.txt", "new a");
  writeFile("b.txt", "new b");
  ASSERT_EQ(zef("create two.zef a.txt b.txt").status, 0);
  // replaced: of a.txt and b.txt, asked in that order
  const struct { const char* options; const char* answers; int asked; const char* replaced; } rows[] = {
      {"--overwrite=ask", "y\nn\n", 2, "a"},
      {"--overwrite=ask", "maybe\nn\nYES\n", 3, "b"},  // an unknown answer asks again
      {"--overwrite=ask", "a\n", 1, "ab"},
      {"--overwrite=ask", "", 1, ""},  // the end of input answers none
      {"--overwrite=never", "", 0, ""},
      {"--overwrite=always", "", 0, "ab"},
  };
  for (const auto& row : rows) {
    writeFile("dest/a.txt", "old a");
    writeFile("dest/b.txt", "old b");
    writeFile("answers", row.answers);
    const ToolRun run = zef(std::string("extract -v two.zef -d dest ") + row.options, "answers");
    EXPECT_EQ(run.status, 0) << row.options << " " << row.answers << ": " << run.err;
    EXPECT_EQ(run.err.rfind("zef: replace 'dest/a.txt'? [y]es, [n]o, [a]ll, [N]one: ", 0), row.asked ? 0 : std::string::npos);
    size_t asked = 0;
    for (size_t at = run.err.find("[N]one: "); at != std::string::npos; at = run.err.find("[N]one: ", at + 1)) ++asked;
    EXPECT_EQ(asked, static_cast<size_t>(row.asked)) << row.answers << ": " << run.err;
    const std::string replaced = std::string(readFile("dest/a.txt") == "new a" ? "a" : "") +
                                 (readFile("dest/b.txt") == "new b" ? "b" : "");
    EXPECT_EQ(replaced, row.replaced) << row.options << " " << row.answers;
    const size_t kept = 2 - replaced.size();
    const std::string summaryEnd = kept == 0 ? " out\n" : " out, " + std::to_string(kept) + " left as they were\n";
    EXPECT_EQ(run.out.substr(run.out.size() - summaryEnd.size()), summaryEnd) << row.options << " " << row.answers;
  }
}

}  // namespace
