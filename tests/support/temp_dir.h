// A fixture that gives every test a fresh temporary directory as its working
// directory, and removes it afterwards.
#ifndef KXZEF_TESTS_SUPPORT_TEMP_DIR_H
#define KXZEF_TESTS_SUPPORT_TEMP_DIR_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kxzef::testing {

class TempDirTest : public ::testing::Test {
 public:
  // The whole content of a file, or "<missing>" when it cannot be read.
  static std::string readFile(const std::string& file);

 protected:
  void SetUp() override;
  void TearDown() override;

  // The absolute path of `relative` inside the test's directory.
  std::string path(const std::string& relative = "") const;

  // Writes `content` to `relative` (parents created) and returns its path.
  std::string writeFile(const std::string& relative, const std::string& content, unsigned mode = 0644) const;

 private:
  std::string directory_;
  std::string previousWorkingDirectory_;
};

// Runs `command` through the shell; returns its exit status, or -1.
int runCommand(const std::string& command);

// True when `program` is on the PATH.
bool haveProgram(const std::string& program);

// Every path below `root`, one a line and sorted: its mode, then a file's
// content (after its modification time when `times`) or a link's target.
// Paths in `ignored` (as the walk spells them, "root/name") are left out.
std::vector<std::string> treeSnapshot(const std::string& root, bool times = false,
                                      const std::vector<std::string>& ignored = {});

// Makes standard input read `text`, then end of input, from a file in the
// current directory. Returns false when that could not be arranged.
bool feedStandardInput(const std::string& text);

}  // namespace kxzef::testing

#endif
