// Tree operations of the staged extraction. Paths inside the trees are
// always resolved one component at a time with O_NOFOLLOW.
#include "staging_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zef {

namespace {

constexpr int DirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct Child {
  std::string name;
  bool directory;
};

bool isDot(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

bool isDirectoryBelow(int directoryFd, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) return type == DT_DIR;
  struct stat status {};
  return fstatat(directoryFd, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

// The entries of the directory `directoryFd`, read in full before anything
// in it changes. Returns 0 or an errno value.
int listDirectory(int directoryFd, std::vector<Child>& children) {
  const int own = fcntl(directoryFd, F_DUPFD_CLOEXEC, 0);
  DIR* stream = own < 0 ? nullptr : fdopendir(own);
  if (stream == nullptr) {
    const int error = errno;
    if (own >= 0) close(own);
    return error;
  }
  rewinddir(stream);
  errno = 0;
  while (const dirent* entry = readdir(stream)) {
    if (!isDot(entry->d_name)) children.push_back({entry->d_name, isDirectoryBelow(own, entry->d_name, entry->d_type)});
  }
  const int error = errno;
  closedir(stream);
  return error;
}

bool isEmptyDirectory(int parentFd, const std::string& name) {
  Fd directory = openDirectory(parentFd, name);
  std::vector<Child> children;
  return directory.valid() && listDirectory(directory.get(), children) == 0 && children.empty();
}

std::string joined(const std::string& directory, const std::string& name) {
  if (directory.empty()) return name;
  return directory.back() == '/' ? directory + name : directory + "/" + name;
}

std::string systemProblem(const std::string& what, const std::string& path, int error) {
  return "cannot " + what + " '" + path + "': " + std::strerror(error);
}

// Opens the directory `relative` (components joined by "/") below `rootFd`.
Fd openBelow(int rootFd, const std::string& relative) {
  Fd current(fcntl(rootFd, F_DUPFD_CLOEXEC, 0));
  for (size_t start = 0; current.valid() && start < relative.size();) {
    const size_t slash = std::min(relative.find('/', start), relative.size());
    current = openDirectory(current.get(), relative.substr(start, slash - start));
    start = slash + 1;
  }
  return current;
}

// One step of a merge: `name` from `from` to `to`.
int moveEntry(int from, int to, const std::string& name, bool exchange) {
  if (!exchange) return renameat(from, name.c_str(), to, name.c_str()) == 0 ? 0 : errno;
  if (renameat2(from, name.c_str(), to, name.c_str(), RENAME_EXCHANGE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // Without an exchange the old entry has to go first; it holds nothing the
  // plan did not allow to be replaced (an empty directory or a non-directory).
  struct stat status {};
  if (fstatat(to, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (unlinkat(to, name.c_str(), S_ISDIR(status.st_mode) ? AT_REMOVEDIR : 0) != 0) return errno;
  return renameat(from, name.c_str(), to, name.c_str()) == 0 ? 0 : errno;
}

class Planner {
 public:
  Planner(const std::string& shown, const ReplaceQuestion& mayReplace, MergePlan& plan)
      : shown_(shown), mayReplace_(mayReplace), plan_(plan) {}

  std::string walk(int stageFd, int destinationFd, const std::string& relative);

 private:
  std::string placeChild(int destinationFd, const std::string& relative, const Child& child,
                         std::vector<std::string>& merged);
  // Plans moving `name` into the directory being walked.
  std::string addStep(int destinationFd, const std::string& relative, const std::string& name, bool exchange);

  const std::string& shown_;
  const ReplaceQuestion& mayReplace_;
  MergePlan& plan_;
  size_t checkedDirectory_ = SIZE_MAX;
};

std::string Planner::walk(int stageFd, int destinationFd, const std::string& relative) {
  std::vector<Child> children;
  if (int error = listDirectory(stageFd, children); error != 0) return systemProblem("read", relative, error);
  // In name order, so that --ask asks in an order the user can follow.
  std::sort(children.begin(), children.end(), [](const Child& a, const Child& b) { return a.name < b.name; });
  plan_.directories.push_back(relative);
  std::vector<std::string> merged;
  for (const Child& child : children) {
    if (std::string problem = placeChild(destinationFd, relative, child, merged); !problem.empty()) return problem;
  }
  for (const std::string& name : merged) {
    const std::string below = joined(relative, name);
    Fd stageChild = openDirectory(stageFd, name);
    Fd destinationChild = openDirectory(destinationFd, name);
    if (!stageChild.valid() || !destinationChild.valid()) return systemProblem("open", joined(shown_, below), errno);
    if (std::string problem = walk(stageChild.get(), destinationChild.get(), below); !problem.empty()) return problem;
  }
  return "";
}

std::string Planner::placeChild(int destinationFd, const std::string& relative, const Child& child,
                                std::vector<std::string>& merged) {
  const std::string shown = joined(shown_, joined(relative, child.name));
  struct stat existing {};
  if (fstatat(destinationFd, child.name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) return systemProblem("examine", shown, errno);
    return addStep(destinationFd, relative, child.name, false);
  }
  const bool existingDirectory = S_ISDIR(existing.st_mode);
  if (child.directory && existingDirectory) {
    merged.push_back(child.name);
    return "";
  }
  if (existingDirectory && !isEmptyDirectory(destinationFd, child.name)) {
    return "'" + shown + "' is a directory that is not empty, where the archive has a file";
  }
  if (mayReplace_ && !mayReplace_(shown)) return "";
  return addStep(destinationFd, relative, child.name, child.directory != existingDirectory);
}

std::string Planner::addStep(int destinationFd, const std::string& relative, const std::string& name, bool exchange) {
  const size_t directory = plan_.directories.size() - 1;
  // A directory the user cannot write to would stop the moves half-way: find it now.
  if (checkedDirectory_ != directory) {
    if (faccessat(destinationFd, ".", W_OK | X_OK, AT_EACCESS) != 0) {
      const std::string shown = joined(shown_, relative);
      return systemProblem("write into", shown.empty() ? "." : shown, errno);
    }
    checkedDirectory_ = directory;
  }
  plan_.steps.push_back({directory, name, exchange});
  return "";
}

}  // namespace

Fd::~Fd() {
  if (fd_ >= 0) close(fd_);
}

Fd& Fd::operator=(Fd&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

Fd openDirectory(int parentFd, const std::string& name) { return Fd(openat(parentFd, name.c_str(), DirectoryFlags)); }

int removeTree(int parentFd, const std::string& name) {
  Fd directory = openDirectory(parentFd, name);
  if (!directory.valid()) {
    if (errno == ENOENT) return 0;
    if (errno != ENOTDIR && errno != ELOOP) return errno;
    return unlinkat(parentFd, name.c_str(), 0) == 0 || errno == ENOENT ? 0 : errno;
  }
  // A directory without owner write or search permission cannot be emptied.
  fchmod(directory.get(), S_IRWXU);
  std::vector<Child> children;
  int first = listDirectory(directory.get(), children);
  for (const Child& child : children) {
    const int error = child.directory ? removeTree(directory.get(), child.name)
                                      : (unlinkat(directory.get(), child.name.c_str(), 0) == 0 ? 0 : errno);
    if (first == 0) first = error;
  }
  directory = Fd();
  if (unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) != 0 && first == 0) first = errno;
  return first;
}

int renameNoReplace(int directoryFd, const std::string& from, const std::string& to) {
  if (renameat2(directoryFd, from.c_str(), directoryFd, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system without the flag: the check and the rename are two steps.
  struct stat status {};
  if (fstatat(directoryFd, to.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return renameat(directoryFd, from.c_str(), directoryFd, to.c_str()) == 0 ? 0 : errno;
}

int swapDirectories(int directoryFd, const std::string& a, const std::string& b, const std::string& aside) {
  if (renameat2(directoryFd, a.c_str(), directoryFd, b.c_str(), RENAME_EXCHANGE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  if (renameat(directoryFd, b.c_str(), directoryFd, aside.c_str()) != 0) return errno;
  if (renameat(directoryFd, a.c_str(), directoryFd, b.c_str()) == 0) return 0;
  const int error = errno;
  renameat(directoryFd, aside.c_str(), directoryFd, b.c_str());
  return error;
}

std::string planMerge(int stageFd, int destinationFd, const std::string& shownDestination,
                      const ReplaceQuestion& mayReplace, MergePlan& plan) {
  Planner planner(shownDestination, mayReplace, plan);
  return planner.walk(stageFd, destinationFd, "");
}

std::string commitMerge(int stageFd, int destinationFd, const std::string& shownDestination, const MergePlan& plan) {
  size_t open = plan.directories.size();
  Fd from, to;
  for (const MergePlan::Step& step : plan.steps) {
    const std::string& relative = plan.directories[step.directory];
    if (step.directory != open) {
      from = openBelow(stageFd, relative);
      to = openBelow(destinationFd, relative);
      open = step.directory;
    }
    const std::string shown = joined(shownDestination, joined(relative, step.name));
    if (!from.valid() || !to.valid()) return systemProblem("open the directory of", shown, errno);
    if (int error = moveEntry(from.get(), to.get(), step.name, step.exchange); error != 0) {
      return systemProblem("move into place", shown, error);
    }
  }
  return "";
}

}  // namespace zef
