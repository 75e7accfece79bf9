// The write guard: each wrapped call resolves the path it would change the
// way the kernel will (links followed where the call follows them) and
// checks that the result lies below the guarded root before calling on.
#include "write_guard.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace kxzef::fuzz {

std::string pathOfDescriptor(int fd) {
  char buffer[PATH_MAX];
  if (fd == AT_FDCWD) return getcwd(buffer, sizeof buffer) ? buffer : "";
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = readlink(link.c_str(), buffer, sizeof buffer - 1);
  return length > 0 ? std::string(buffer, static_cast<size_t>(length)) : "";
}

namespace {

std::string guardedRoot;
constexpr int MaxLinkHops = 40;

std::string absolute(int dirfd, const char* path) {
  if (path[0] == '/') return path;
  return pathOfDescriptor(dirfd) + "/" + path;
}

// The path that a call on `path` changes: its parent resolved, and its last
// component too when the call follows it and it is a link. "" when the
// parent does not resolve, in which case the call fails on its own.
std::string resolved(std::string path, bool followLast) {
  for (int hop = 0; hop < MaxLinkHops; ++hop) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    const size_t slash = path.rfind('/');
    const std::string parent = slash == 0 ? "/" : path.substr(0, slash);
    const std::string last = path.substr(slash + 1);
    char real[PATH_MAX];
    if (realpath(parent.c_str(), real) == nullptr) return "";
    std::string full = std::string(real) + (std::strcmp(real, "/") == 0 ? "" : "/") + last;
    if (last == "." || last == "..") return realpath(full.c_str(), real) ? std::string(real) : "";
    struct stat status {};
    if (!followLast || lstat(full.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return full;
    char target[PATH_MAX];
    const ssize_t length = readlink(full.c_str(), target, sizeof target - 1);
    if (length <= 0) return full;
    target[length] = '\0';
    path = target[0] == '/' ? std::string(target) : std::string(real) + "/" + target;
  }
  return "";
}

void check(const char* call, int dirfd, const char* path, bool followLast) {
  if (guardedRoot.empty() || path == nullptr || path[0] == '\0') return;
  const std::string target = resolved(absolute(dirfd, path), followLast);
  if (target.empty() || target == guardedRoot || target.rfind(guardedRoot + "/", 0) == 0) return;
  std::fprintf(stderr, "write guard: %s(\"%s\") would change '%s', outside '%s'\n", call, path, target.c_str(),
               guardedRoot.c_str());
  guardedRoot.clear();  // the fuzzer writes its crash file next
  std::abort();
}

bool writes(int flags) { return (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0; }
bool follows(int flags) { return (flags & O_NOFOLLOW) == 0 && (flags & (O_CREAT | O_EXCL)) != (O_CREAT | O_EXCL); }

}  // namespace

void guardWritesBelow(const std::string& root) { guardedRoot = root; }

}  // namespace kxzef::fuzz

using kxzef::fuzz::check;
using kxzef::fuzz::follows;
using kxzef::fuzz::writes;

extern "C" {

FILE* __real_fopen(const char*, const char*);
int __real_open(const char*, int, ...);
int __real_openat(int, const char*, int, ...);
int __real_mkdir(const char*, mode_t);
int __real_mkdirat(int, const char*, mode_t);
char* __real_mkdtemp(char*);
int __real_symlink(const char*, const char*);
int __real_symlinkat(const char*, int, const char*);
int __real_rename(const char*, const char*);
int __real_renameat(int, const char*, int, const char*);
int __real_renameat2(int, const char*, int, const char*, unsigned);
int __real_unlink(const char*);
int __real_unlinkat(int, const char*, int);
int __real_rmdir(const char*);
int __real_remove(const char*);
int __real_chmod(const char*, mode_t);
int __real_fchmod(int, mode_t);
int __real_fchmodat(int, const char*, mode_t, int);
int __real_utime(const char*, const struct utimbuf*);
int __real_utimensat(int, const char*, const struct timespec*, int);

FILE* __wrap_fopen(const char* path, const char* mode) {
  if (mode != nullptr && std::strpbrk(mode, "wa+") != nullptr) check("fopen", AT_FDCWD, path, true);
  return __real_fopen(path, mode);
}

int __wrap_fchmod(int fd, mode_t mode) {
  const std::string path = kxzef::fuzz::pathOfDescriptor(fd);
  check("fchmod", AT_FDCWD, path.c_str(), false);
  return __real_fchmod(fd, mode);
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (writes(flags)) check("open", AT_FDCWD, path, follows(flags));
  return __real_open(path, flags, mode);
}

int __wrap_openat(int dirfd, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (writes(flags)) check("openat", dirfd, path, follows(flags));
  return __real_openat(dirfd, path, flags, mode);
}

int __wrap_mkdir(const char* path, mode_t mode) {
  check("mkdir", AT_FDCWD, path, false);
  return __real_mkdir(path, mode);
}

int __wrap_mkdirat(int dirfd, const char* path, mode_t mode) {
  check("mkdirat", dirfd, path, false);
  return __real_mkdirat(dirfd, path, mode);
}

char* __wrap_mkdtemp(char* pattern) {
  check("mkdtemp", AT_FDCWD, pattern, false);
  return __real_mkdtemp(pattern);
}

int __wrap_symlink(const char* target, const char* path) {
  check("symlink", AT_FDCWD, path, false);
  return __real_symlink(target, path);
}

int __wrap_symlinkat(const char* target, int dirfd, const char* path) {
  check("symlinkat", dirfd, path, false);
  return __real_symlinkat(target, dirfd, path);
}

int __wrap_rename(const char* from, const char* to) {
  check("rename", AT_FDCWD, from, false);
  check("rename", AT_FDCWD, to, false);
  return __real_rename(from, to);
}

int __wrap_renameat(int fromfd, const char* from, int tofd, const char* to) {
  check("renameat", fromfd, from, false);
  check("renameat", tofd, to, false);
  return __real_renameat(fromfd, from, tofd, to);
}

int __wrap_renameat2(int fromfd, const char* from, int tofd, const char* to, unsigned flags) {
  check("renameat2", fromfd, from, false);
  check("renameat2", tofd, to, false);
  return __real_renameat2(fromfd, from, tofd, to, flags);
}

int __wrap_unlink(const char* path) {
  check("unlink", AT_FDCWD, path, false);
  return __real_unlink(path);
}

int __wrap_unlinkat(int dirfd, const char* path, int flags) {
  check("unlinkat", dirfd, path, false);
  return __real_unlinkat(dirfd, path, flags);
}

int __wrap_rmdir(const char* path) {
  check("rmdir", AT_FDCWD, path, false);
  return __real_rmdir(path);
}

int __wrap_remove(const char* path) {
  check("remove", AT_FDCWD, path, false);
  return __real_remove(path);
}

int __wrap_chmod(const char* path, mode_t mode) {
  check("chmod", AT_FDCWD, path, true);
  return __real_chmod(path, mode);
}

int __wrap_fchmodat(int dirfd, const char* path, mode_t mode, int flags) {
  check("fchmodat", dirfd, path, (flags & AT_SYMLINK_NOFOLLOW) == 0);
  return __real_fchmodat(dirfd, path, mode, flags);
}

int __wrap_utime(const char* path, const struct utimbuf* times) {
  check("utime", AT_FDCWD, path, true);
  return __real_utime(path, times);
}

int __wrap_utimensat(int dirfd, const char* path, const struct timespec* times, int flags) {
  check("utimensat", dirfd, path, (flags & AT_SYMLINK_NOFOLLOW) == 0);
  return __real_utimensat(dirfd, path, times, flags);
}

}  // extern "C"
