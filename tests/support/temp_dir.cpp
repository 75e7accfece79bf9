#include "support/temp_dir.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kxzef::testing {

void TempDirTest::SetUp() {
  previousWorkingDirectory_ = std::filesystem::current_path().string();
  std::string pattern = (std::filesystem::temp_directory_path() / "kxzef-test-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  directory_ = pattern;
  ASSERT_EQ(chdir(directory_.c_str()), 0);
}

void TempDirTest::TearDown() {
  (void)!chdir(previousWorkingDirectory_.c_str());
  // Tests may leave directories without permissions; give them back first.
  if (!directory_.empty()) runCommand("chmod -R u+rwx '" + directory_ + "' 2>/dev/null; rm -rf '" + directory_ + "'");
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
  return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<missing>";
}

int runCommand(const std::string& command) {
  const int status = std::system(command.c_str());
  return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool haveProgram(const std::string& program) {
  return runCommand("command -v " + program + " >/dev/null 2>&1") == 0;
}

std::vector<std::string> treeSnapshot(const std::string& root, bool times, const std::vector<std::string>& ignored) {
  std::vector<std::string> lines;
  for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
    const std::string path = item.path().string();
    if (std::find(ignored.begin(), ignored.end(), path) != ignored.end()) continue;
    struct stat status {};
    lstat(path.c_str(), &status);
    std::string line = path + " " + std::to_string(status.st_mode) + " ";
    if (S_ISREG(status.st_mode)) {
      if (times) line += std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec) + " ";
      line += TempDirTest::readFile(path);
    } else if (S_ISLNK(status.st_mode)) {
      line += "-> " + std::filesystem::read_symlink(path).string();
    }
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

bool feedStandardInput(const std::string& text) {
  std::ofstream("standard-input.txt", std::ios::binary | std::ios::trunc) << text;
  return std::freopen("standard-input.txt", "r", stdin) != nullptr;
}

}  // namespace kxzef::testing
