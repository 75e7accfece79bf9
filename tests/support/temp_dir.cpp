#include "support/temp_dir.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kxzef::testing {

void TempDirTest::SetUp() {
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  previousWorkingDirectory_ = previous;
  std::string pattern = (std::filesystem::temp_directory_path() / "kxzef-test-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  directory_ = pattern;
  ASSERT_EQ(chdir(directory_.c_str()), 0);
}

void TempDirTest::TearDown() {
  if (!previousWorkingDirectory_.empty()) (void)!chdir(previousWorkingDirectory_.c_str());
  if (directory_.empty()) return;
  std::error_code ignored;
  // Tests may leave directories without permissions; give them back first.
  for (auto it = std::filesystem::recursive_directory_iterator(directory_, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
    }
  }
  std::filesystem::remove_all(directory_, ignored);
}

std::string TempDirTest::path(const std::string& relative) const {
  return relative.empty() ? directory_ : directory_ + "/" + relative;
}

std::string TempDirTest::writeFile(const std::string& relative, const std::string& content,
                                   unsigned mode) const {
  const std::string file = path(relative);
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
  chmod(file.c_str(), mode);
  return file;
}

std::string TempDirTest::readFile(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return "<missing>";
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

int runCommand(const std::string& command) {
  const int status = std::system(command.c_str());
  if (status == -1 || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

bool haveProgram(const std::string& program) {
  return runCommand("command -v " + program + " >/dev/null 2>&1") == 0;
}

}  // namespace kxzef::testing
