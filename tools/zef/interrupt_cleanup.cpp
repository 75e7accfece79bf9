// The interrupt handler of the staged extraction. Only async-signal-safe
// system calls here: no allocation, no stdio, no directory streams.
#include "interrupt_cleanup.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "feedback.h"

namespace zef {

namespace {

constexpr int Signals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr size_t NameCapacity = 256;
constexpr size_t ListingBytes = 2048;

volatile sig_atomic_t stagingParentFd = -1;
char stagingName[NameCapacity];

struct LinuxDirent64 {
  ino64_t inode;
  off64_t offset;
  unsigned short length;
  unsigned char type;
  char name[1];
};

bool isDot(const char* name) { return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')); }

bool removeBelow(int parentFd, const char* name);

// Empties the directory `fd`; reads it again from the start until a pass
// removes nothing, since removing entries while reading may skip some.
void emptyDirectory(int fd) {
  alignas(LinuxDirent64) char listing[ListingBytes];
  for (bool removed = true; removed;) {
    removed = false;
    lseek(fd, 0, SEEK_SET);
    long bytes;
    while ((bytes = syscall(SYS_getdents64, fd, listing, sizeof listing)) > 0) {
      for (long at = 0; at < bytes;) {
        const auto* entry = reinterpret_cast<const LinuxDirent64*>(listing + at);
        at += entry->length;
        if (isDot(entry->name)) continue;
        removed = removeBelow(fd, entry->name) || removed;
      }
    }
  }
}

// True when `name` is gone.
bool removeBelow(int parentFd, const char* name) {
  if (unlinkat(parentFd, name, 0) == 0) return true;
  if (errno != EISDIR) return false;
  const int fd = openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  emptyDirectory(fd);
  close(fd);
  return unlinkat(parentFd, name, AT_REMOVEDIR) == 0;
}

void onSignal(int signal) {
  const int saved = errno;
  if (stagingParentFd >= 0) removeBelow(stagingParentFd, stagingName);
  static const char erase[] = "\r\033[K";
  static const char note[] = "zef: interrupted; nothing was installed\n";
  if (progressLineShown() && write(STDERR_FILENO, erase, sizeof erase - 1) < 0) errno = saved;
  if (write(STDERR_FILENO, note, sizeof note - 1) < 0) errno = saved;
  // Die of the signal, as if zef had not caught it.
  ::signal(signal, SIG_DFL);
  raise(signal);
}

}  // namespace

InterruptCleanup::InterruptCleanup(int parentFd, const std::string& name) {
  if (name.empty() || name.size() >= NameCapacity) return;
  std::memcpy(stagingName, name.c_str(), name.size() + 1);
  stagingParentFd = parentFd;
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : Signals) sigaddset(&action.sa_mask, signal);
  for (size_t i = 0; i < std::size(Signals); ++i) sigaction(Signals[i], &action, &previous_[i]);
  armed_ = true;
}

InterruptCleanup::~InterruptCleanup() {
  if (!armed_) return;
  for (size_t i = 0; i < std::size(Signals); ++i) sigaction(Signals[i], &previous_[i], nullptr);
  stagingParentFd = -1;
}

}  // namespace zef
