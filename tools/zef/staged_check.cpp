// Checking and finishing the staged tree. The sizes compared are the
// archive's declarations, which the library's reads are bounded by.
#include "staged_check.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_set>

#include "findings.h"

namespace zef {

namespace {

constexpr mode_t PermissionBits = 0777;
constexpr mode_t NewFileBits = 0666;
constexpr mode_t AllModeBits = 07777;

CheckProblem problem(size_t index, std::string observation) {
  return CheckProblem{static_cast<int64_t>(index), std::move(observation)};
}

// "" when what lies at `path` is what the entry declares.
std::string compareEntry(const struct stat& status, const kxzef::AuditEntry& entry, bool directory) {
  if (directory) return S_ISDIR(status.st_mode) ? "" : "was not extracted as a directory";
  // The library makes a link of any entry carrying its link block; a link's
  // size is its target's length, which the declared size need not be.
  if (S_ISLNK(status.st_mode)) return "";
  if (!S_ISREG(status.st_mode)) return "was not extracted as a file";
  const uint64_t size = static_cast<uint64_t>(status.st_size);
  if (size == entry.uncompressedSize) return "";
  return "is " + std::to_string(size) + " bytes long, not the " + std::to_string(entry.uncompressedSize) +
         " its header declares";
}

}  // namespace

std::string stagedPath(const std::string& libraryName) {
  std::string path = libraryName;
  // Only the directory maker takes "\" for "/": a file's last component keeps it.
  if (namesDirectory(path)) {
    for (char& c : path) {
      if (c == '\\') c = '/';
    }
  }
  const size_t start = path.find_first_not_of('/');
  return start == std::string::npos ? "" : path.substr(start);
}

mode_t finalMode(const kxzef::AuditEntry& entry, bool directory, mode_t umask) {
  if (!entry.hasUnixMode) return (directory ? PermissionBits : NewFileBits) & ~umask;
  const mode_t mode = static_cast<mode_t>(entry.mode) & PermissionBits;
  return directory ? mode | S_IRWXU : mode;
}

CheckProblem checkStaged(int stageFd, const kxzef::AuditReport& report, const std::vector<bool>& selected,
                         bool fixModes) {
  const mode_t mask = umask(0);
  umask(mask);
  for (size_t i = 0; i < report.entries.size(); ++i) {
    if (!selected[i]) continue;
    const kxzef::AuditEntry& entry = report.entries[i];
    const std::string name = libraryName(entry.name);
    const std::string path = stagedPath(name);
    if (path.empty()) continue;
    const bool directory = namesDirectory(name);
    struct stat status {};
    if (fstatat(stageFd, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return problem(i, "was not extracted");
    if (std::string difference = compareEntry(status, entry, directory); !difference.empty()) {
      return problem(i, std::move(difference));
    }
    if (!fixModes || S_ISLNK(status.st_mode)) continue;
    const mode_t mode = finalMode(entry, directory, mask);
    // Not a link (checked above), and no component above it is one: the
    // names were refused otherwise.
    if ((status.st_mode & AllModeBits) != mode && fchmodat(stageFd, path.c_str(), mode, 0) != 0) {
      return problem(i, "could not be given its mode");
    }
  }
  return CheckProblem{};
}

void pruneStaged(int stageFd, const kxzef::AuditReport& report, const std::vector<bool>& selected) {
  std::unordered_set<std::string> needed;   // selected directories and every directory above a selected entry
  std::unordered_set<std::string> emptied;  // directories that removing the rest may leave empty
  for (size_t i = 0; i < report.entries.size(); ++i) {
    const std::string name = libraryName(report.entries[i].name);
    std::string path = stagedPath(name);
    if (path.empty()) continue;
    if (!namesDirectory(name)) {
      if (!selected[i]) unlinkat(stageFd, path.c_str(), 0);
      path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
    }
    // The entry's own directory, if it is one, and each one above it.
    while (!path.empty()) {
      while (!path.empty() && path.back() == '/') path.pop_back();
      (selected[i] ? needed : emptied).insert(path);
      path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
    }
  }
  std::vector<std::string> deepestFirst(emptied.begin(), emptied.end());
  std::sort(deepestFirst.begin(), deepestFirst.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  for (const std::string& directory : deepestFirst) {
    if (needed.count(directory) == 0) unlinkat(stageFd, directory.c_str(), AT_REMOVEDIR);
  }
}

}  // namespace zef
