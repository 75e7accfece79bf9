// zef create when something goes wrong: what it refuses before writing, and
// that the previous archive survives failures, signals and a kill. unzip
// judges the archives, so the writer does not vouch for itself.
#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "support/zef_run.h"

namespace {

namespace fs = std::filesystem;
using kxzef::testing::runCommand;

class ZefCreateSafety : public kxzef::testing::TempDirTest {
 protected:
  // Runs "PREFIX zef create ARGUMENTS"; errors() has its standard error.
  int create(const std::string& arguments, const std::string& prefix = "") {
    return kxzef::testing::runZef("create " + arguments, "/dev/null", prefix).status;
  }
  std::string errors() const { return readFile(path("zef.err")); }
};

std::vector<std::string> temporaryFiles(const std::string& directory = ".") {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().filename().string().find(".zef-tmp-") != std::string::npos) found.push_back(entry.path());
  }
  return found;
}

// The archive's entry names, one a line, or "<invalid>" when unzip finds a
// damaged entry or no archive at all.
std::string entryNames(const std::string& archive) {
  const int status = runCommand("unzip -tqq '" + archive + "' >/dev/null 2>&1 && unzip -Z1 '" + archive + "' >names.txt");
  return status == 0 ? kxzef::testing::TempDirTest::readFile("names.txt") : "<invalid>";
}

TEST_F(ZefCreateSafety, RefusalsWriteNothing) {
  writeFile("notes/a.txt", "a");
  writeFile("notes/empty.txt", "");
  writeFile("other.txt", "other");
  writeFile("back\\slash", "b");
  writeFile("memo", "unrelated");
  ASSERT_EQ(mkfifo("pipe", 0644), 0);
  fs::create_symlink("pipe", "pipe-link");
  fs::create_directory("dir.zef");
  ASSERT_EQ(create("old.zef other.txt"), 0) << errors();
  const std::string old = readFile("old.zef");
  const std::string longName(252, 'n');
  std::string deepPath;
  while (deepPath.size() < 4096) deepPath += "d/";
  const std::string special = "; only files, directories and links can be archived\n";
  const struct { const char* reason; std::string arguments, archive, message; } rows[] = {
      {"an empty file below a directory", "old.zef notes", "old.zef",
       "zef: notes/empty.txt: empty file (an archive entry must have content)\n"},
      {"every problem listed, in order", "old.zef nothere notes/empty.txt gone", "old.zef",
       "zef: nothere: no such file or directory\n"
       "zef: notes/empty.txt: empty file (an archive entry must have content)\n"
       "zef: gone: no such file or directory\n"},
      {"a FIFO would hang the run", "old.zef pipe", "old.zef", "zef: pipe: is a FIFO (named pipe)" + special},
      {"a link's target is stored too", "old.zef pipe-link", "old.zef",
       "zef: pipe-link: points to a FIFO (named pipe)" + special},
      {"two inputs, one name", "old.zef other.txt=x notes/a.txt=x", "old.zef",
       "zef: x: two inputs would be stored under this name ('notes/a.txt' and 'other.txt')\n"},
      {"the writer reads \"\\\" as \"/\"", "old.zef 'back\\slash'", "old.zef",
       "zef: back\\slash: the name holds a \"\\\", which the writer would read as \"/\"\n"},
      {"the archive as its own input", "old.zef old.zef", "old.zef", "zef: old.zef: is the archive being written\n"},
      {"the archive path is a directory", "dir.zef other.txt", "dir.zef",
       "zef: dir.zef: is a directory, not a regular file\n"},
      {"a name the file system cannot hold", longName + " other.txt", longName + ".zef",
       "zef: " + longName + ".zef: name too long (a file name may have at most 255 bytes)\n"},
      {"a path the system cannot hold", deepPath + "x.zef other.txt", deepPath + "x.zef",
       "zef: " + deepPath + "x.zef: path too long (a path may have at most 4095 bytes)\n"},
      {"--keep", "--keep old.zef other.txt", "old.zef", "zef: old.zef: already exists (--keep refuses to replace it)\n"},
      {"the name typed is not the archive's", "memo nothere", "memo.zef", "zef: nothere: no such file or directory\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(create(row.arguments), 1) << row.reason;
    EXPECT_EQ(errors(), row.message + "zef: could not create '" + row.archive + "'; nothing was written\n") << row.reason;
    EXPECT_TRUE(readFile("old.zef") == old) << row.reason;
    EXPECT_EQ(readFile("memo"), "unrelated") << row.reason;
    EXPECT_FALSE(fs::exists("memo.zef")) << row.reason;
    EXPECT_TRUE(temporaryFiles().empty()) << row.reason;
  }
}

TEST_F(ZefCreateSafety, SpecialFilesInsideADirectoryAreSkippedWithAWarning) {
  writeFile("in/a.txt", "a");
  ASSERT_EQ(mkfifo("in/pipe", 0644), 0);
  fs::create_symlink("/dev/zero", "in/zeros");
  ASSERT_EQ(create("out.zef in"), 0) << errors();
  const std::string skipped = ", skipped (only files, directories and links are archived)\n";
  EXPECT_EQ(errors(), "zef: warning: in/pipe: is a FIFO (named pipe)" + skipped +
                          "zef: warning: in/zeros: points to a character device" + skipped);
  EXPECT_EQ(entryNames("out.zef"), "in/\nin/a.txt\n");
  EXPECT_EQ(create("-q quiet.zef in"), 0);
  EXPECT_EQ(errors(), "");
}

TEST_F(ZefCreateSafety, ArchiveInsideItsInputIsNeverStoredInItself) {
  writeFile("in/a.txt", "a");
  writeFile("in/.out.zef.zef-tmp-Ab12Cd", "another run's temporary file");
  ASSERT_EQ(create("in/out.zef in"), 0) << errors();
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(create("in/out.zef in"), 0) << errors();
  EXPECT_EQ(errors(), "zef: warning: in/out.zef: the archive being written, skipped (an archive is never stored in itself)\n");
  EXPECT_EQ(entryNames("in/out.zef"), "in/\nin/a.txt\n");
}

TEST_F(ZefCreateSafety, ArchivePathLongerThanTheWritersLimitIsWrittenWhole) {
  const std::string directory = std::string(120, 'd') + "/" + std::string(120, 'e');
  fs::create_directories(directory);
  writeFile("a.txt", "a");
  const std::string archive = directory + "/" + std::string(100, 'n') + ".zef";
  ASSERT_EQ(create(archive + " a.txt"), 0) << errors();
  EXPECT_EQ(entryNames(archive), "a.txt\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), fs::directory_iterator()), 1);
}

TEST_F(ZefCreateSafety, FileSizeLimitKeepsThePreviousArchive) {
  writeFile("data", std::string(100000, 'x'));
  ASSERT_EQ(create("-0 sized.zef data"), 0) << errors();
  const auto size = fs::file_size("sized.zef");
  writeFile("small", "small");
  ASSERT_EQ(create("old.zef small"), 0);
  const std::string old = readFile("old.zef");
  const struct { const char* reason; uintmax_t limit; std::string closing; } rows[] = {
      {"the writer sees the failure", 1000,
       "zef: could not create 'old.zef': 'data' could not be stored: the archive reached the file size limit of 1000 "
       "bytes; the previous archive is unchanged\n"},
      {"only the last flush fails, which the writer does not notice", size - 1,
       "zef: could not create 'old.zef'; the previous archive is unchanged\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(create("-0 old.zef data", "prlimit --fsize=" + std::to_string(row.limit)), 1) << row.reason;
    EXPECT_NE(errors().find(row.closing), std::string::npos) << row.reason << ": " << errors();
    EXPECT_TRUE(readFile("old.zef") == old) << row.reason;
    EXPECT_TRUE(temporaryFiles().empty()) << row.reason;
  }
}

// Starts zef create with the cleanup signals at their defaults.
pid_t startCreate(const std::vector<std::string>& arguments) {
  std::vector<char*> argv{const_cast<char*>(ZEF_PROGRAM), const_cast<char*>("create")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults, none;
  sigemptyset(&defaults);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&defaults, signal);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t pid = -1;
  if (posix_spawn(&pid, ZEF_PROGRAM, nullptr, &attributes, argv.data(), environ) != 0) pid = -1;
  posix_spawnattr_destroy(&attributes);
  return pid;
}

// Waits until the run's temporary file holds some data; false after ten seconds.
bool waitForTemporaryData() {
  for (int tries = 0; tries < 5000; ++tries) {
    for (const std::string& file : temporaryFiles()) {
      std::error_code error;
      if (fs::file_size(file, error) > 65536) return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

TEST_F(ZefCreateSafety, SignalsMidRunLeaveThePreviousArchiveWhole) {
  ASSERT_EQ(runCommand("head -c 33554432 /dev/urandom >big"), 0);
  writeFile("small", "small");
  ASSERT_EQ(create("old.zef small"), 0);
  const std::string old = readFile("old.zef");
  const struct {
    int signal;
    bool temporaryRemains;  // nothing can catch a kill
  } rows[] = {{SIGINT, false}, {SIGTERM, false}, {SIGHUP, false}, {SIGKILL, true}};
  for (const auto& row : rows) {
    const pid_t pid = startCreate({"-9", "old.zef", "big"});
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(waitForTemporaryData()) << strsignal(row.signal);
    kill(pid, row.signal);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == row.signal) << strsignal(row.signal);
    EXPECT_TRUE(readFile("old.zef") == old) << strsignal(row.signal);
    EXPECT_EQ(temporaryFiles().size(), row.temporaryRemains ? 1u : 0u) << strsignal(row.signal);
    for (const std::string& file : temporaryFiles()) fs::remove(file);
  }
  EXPECT_EQ(entryNames("old.zef"), "small\n");
}

TEST_F(ZefCreateSafety, ConcurrentCreatesOfOneNameEachLeaveAWholeArchive) {
  writeFile("a/data", std::string(2000000, 'a'));
  writeFile("b/data", std::string(2000000, 'b'));
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(runCommand(std::string(ZEF_PROGRAM) + " create -1 one.zef a & " + ZEF_PROGRAM +
                         " create -1 one.zef b & wait"), 0);
    const std::string names = entryNames("one.zef");
    EXPECT_TRUE(names == "a/\na/data\n" || names == "b/\nb/data\n") << names;
    EXPECT_TRUE(temporaryFiles().empty());
  }
}

TEST_F(ZefCreateSafety, UnreadableInputsAreRefusedForAnOrdinaryUser) {
  std::string prefix = "cd '" + path("box") + "' &&";
  fs::create_directory("box");
  if (geteuid() == 0) {
    if (!kxzef::testing::haveProgram("setpriv")) GTEST_SKIP() << "running as root, and setpriv is not there to drop it";
    // nobody needs to reach the box and own it.
    ASSERT_EQ(chmod(path().c_str(), 0711), 0);
    ASSERT_EQ(chown(path("box").c_str(), 65534, 65534), 0);
    prefix += " setpriv --reuid=65534 --regid=65534 --clear-groups";
  }
  writeFile("box/in/locked/inside.txt", "below a locked directory");
  writeFile("box/in/secret", "unreadable", 0);
  writeFile("box/in/z.txt", "after them");
  writeFile("box/old.zef", "previous archive");
  ASSERT_EQ(chmod(path("box/in/locked").c_str(), 0), 0);
  EXPECT_EQ(create("old.zef in", prefix), 1);
  EXPECT_EQ(errors(),
            "zef: in/locked: directory cannot be read (permission denied), so nothing below it could be stored\n"
            "zef: in/secret: cannot be read (permission denied)\n"
            "zef: could not create 'old.zef'; nothing was written\n");
  EXPECT_EQ(readFile("box/old.zef"), "previous archive");
  EXPECT_TRUE(temporaryFiles("box").empty());
}

}  // namespace
