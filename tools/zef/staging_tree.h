// File-system steps of a staged extraction: removing a tree, moving a staged
// tree into place, swapping two directories. Every step works below an open
// directory and never follows a symbolic link it did not ask for, so a link
// in the way is replaced, never written through.
#ifndef KXZEF_TOOLS_STAGING_TREE_H
#define KXZEF_TOOLS_STAGING_TREE_H

#include <functional>
#include <string>
#include <vector>

namespace zef {

// Owns one file descriptor.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd();
  Fd(Fd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Fd& operator=(Fd&& other) noexcept;
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

// Opens the directory `name` below `parentFd` without following a link.
Fd openDirectory(int parentFd, const std::string& name);

// Removes `name` below `parentFd` with everything in it; links are removed,
// never followed. Goes on past failures and returns the first errno, or 0.
int removeTree(int parentFd, const std::string& name);

// Moves `from` to `to` (both below `directoryFd`) only when nothing is
// called `to`. Returns 0 or an errno value (EEXIST when `to` exists).
int renameNoReplace(int directoryFd, const std::string& from, const std::string& to);

// Swaps `a` and `b`, two names below `directoryFd`, atomically where the
// file system can; elsewhere `b` is first moved aside to `aside` (an unused
// name), `a` takes its place and `aside` is then where `a` was swapped to
// (the caller removes it). Returns 0 or an errno value; on failure both
// names are as before.
int swapDirectories(int directoryFd, const std::string& a, const std::string& b, const std::string& aside);

// How to move a staged tree into an existing directory: the staged entries
// to move, grouped by the directory (a path relative to both roots) they sit
// in. Directories on both sides are merged rather than moved.
struct MergePlan {
  struct Step {
    size_t directory;  // index into directories
    std::string name;
    bool exchange;  // a directory takes the place of a non-directory or the other way round
  };
  std::vector<std::string> directories;
  std::vector<Step> steps;
};

// Answers whether the existing `path` may be replaced.
using ReplaceQuestion = std::function<bool(const std::string& path)>;

// Plans moving everything below `stageFd` into `destinationFd`, without
// changing anything. `shownDestination` prefixes the paths shown to
// `mayReplace` (asked for each existing entry that would be replaced; null
// means yes) and in the result. Returns "" or why the tree cannot move: a
// non-empty directory where a file is staged, or a failing system call.
std::string planMerge(int stageFd, int destinationFd, const std::string& shownDestination,
                      const ReplaceQuestion& mayReplace, MergePlan& plan);

// Carries out `plan`. Each step is one rename that replaces a non-directory
// atomically; replaced entries end up in the staged tree. Returns "" or what
// could not be moved and why (the steps before it stay done).
std::string commitMerge(int stageFd, int destinationFd, const std::string& shownDestination, const MergePlan& plan);

}  // namespace zef

#endif
