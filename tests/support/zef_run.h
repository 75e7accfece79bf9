// Runs the zef under test, whose path the including test program defines as
// ZEF_PROGRAM, and gives back what it printed and how it ended.
#ifndef KXZEF_TESTS_SUPPORT_ZEF_RUN_H
#define KXZEF_TESTS_SUPPORT_ZEF_RUN_H

#include <filesystem>
#include <string>

#include "support/temp_dir.h"

namespace kxzef::testing {

struct ToolRun {
  int status;
  std::string out, err;
};

// Runs "PREFIX zef ARGUMENTS" (shell words) under a umask of 022, so default
// modes are fixed, with standard input from `input`. Standard output and
// error go to zef.out and zef.err in the current directory, which stay there.
inline ToolRun runZef(const std::string& arguments, const std::string& input = "/dev/null",
                      const std::string& prefix = "") {
  const std::string here = std::filesystem::current_path().string();
  const int status = runCommand("umask 022; " + prefix + " " + ZEF_PROGRAM + " " + arguments + " <" + input +
                                " >'" + here + "/zef.out' 2>'" + here + "/zef.err'");
  return ToolRun{status, TempDirTest::readFile(here + "/zef.out"), TempDirTest::readFile(here + "/zef.err")};
}

}  // namespace kxzef::testing

#endif
