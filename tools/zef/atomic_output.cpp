// The temporary file of zef create and its way into place. The previous
// archive is touched only by the final rename, so any failure before it,
// a SIGKILL included, leaves that archive as it was.
#include "atomic_output.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "feedback.h"
#include "held_signals.h"

namespace zef {

namespace {

constexpr char ArchiveExtension[] = ".zef";
constexpr char TemporaryMarker[] = ".zef-tmp-";
constexpr size_t MarkerLength = sizeof TemporaryMarker - 1;
constexpr size_t RandomLength = 6;
constexpr size_t WriterPathLimit = 255;        // the writer cuts longer names
constexpr size_t TemporaryStemLimit = 200;     // bytes of the archive's name kept in the temporary name
constexpr int CreateAttempts = 64;
constexpr mode_t PermissionBits = 0777;
constexpr mode_t NewFileBits = 0666;
constexpr int CleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};  // also held back while the armed name changes

// What the signal handler removes; set only while the cleanup signals are blocked.
volatile sig_atomic_t armed = 0;
int armedDirectory = -1;
char armedName[NAME_MAX + 1];

extern "C" void removeTemporaryAndDie(int signal) {
  if (armed) unlinkat(armedDirectory, armedName, 0);
  static const char erase[] = "\r\033[K";  // the shell's next words start on a clean line
  const int saved = errno;
  if (progressLineShown() && write(STDERR_FILENO, erase, sizeof erase - 1) < 0) errno = saved;
  std::signal(signal, SIG_DFL);
  raise(signal);  // delivered once the handler returns, as the default action
}

sigset_t cleanupSet() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal : CleanupSignals) sigaddset(&set, signal);
  return set;
}

// Signals the caller ignores (nohup) stay ignored.
void installHandlers() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  struct sigaction action {};
  action.sa_handler = removeTemporaryAndDie;
  action.sa_mask = cleanupSet();
  for (int signal : CleanupSignals) {
    struct sigaction previous {};
    if (sigaction(signal, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
}

void arm(int directory, const std::string& name) {
  std::memcpy(armedName, name.c_str(), name.size() + 1);
  armedDirectory = directory;
  armed = 1;
}

std::string randomSuffix() {
  static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  unsigned char bytes[RandomLength] = {};
  if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
    // Only the name's uniqueness suffers; O_EXCL keeps the file ours.
    const unsigned long seed = static_cast<unsigned long>(getpid()) ^ reinterpret_cast<uintptr_t>(&bytes);
    for (size_t i = 0; i < RandomLength; ++i) bytes[i] = static_cast<unsigned char>(seed >> (i * 5));
  }
  std::string suffix;
  for (unsigned char byte : bytes) suffix += alphabet[byte % (sizeof alphabet - 1)];
  return suffix;
}

// ".NAME.zef-tmp-XXXXXX", NAME cut to fit the writer's limit, never inside
// a UTF-8 character.
std::string temporaryName(const std::string& archiveName) {
  size_t stem = std::min(archiveName.size(), TemporaryStemLimit);
  while (stem > 0 && stem < archiveName.size() && (archiveName[stem] & 0xC0) == 0x80) --stem;
  return "." + archiveName.substr(0, stem) + TemporaryMarker + randomSuffix();
}

// The permission bits of the archive replaced, or what the umask leaves of 0666.
mode_t archiveMode(const ArchivePath& archive) {
  if (archive.exists) return archive.current.st_mode & PermissionBits;
  const mode_t mask = umask(0);
  umask(mask);
  return NewFileBits & ~mask;
}

}  // namespace

std::string systemCause(int error) {
  std::string text = std::strerror(error);
  if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z') text[0] = static_cast<char>(text[0] - 'A' + 'a');
  return text;
}

std::string resolveArchivePath(const std::string& typed, bool keep, ArchivePath& archive) {
  archive.path = typed.find('.') == std::string::npos ? typed + ArchiveExtension : typed;
  const size_t slash = archive.path.rfind('/');
  archive.directory = slash == std::string::npos ? "." : slash == 0 ? "/" : archive.path.substr(0, slash);
  archive.name = slash == std::string::npos ? archive.path : archive.path.substr(slash + 1);
  if (archive.name.empty()) return "names a directory, not a file";
  if (archive.name.size() > NAME_MAX) return "name too long (a file name may have at most 255 bytes)";
  if (archive.path.size() >= PATH_MAX) return "path too long (a path may have at most 4095 bytes)";
  struct stat status;
  if (lstat(archive.path.c_str(), &status) != 0) {
    return errno == ENOENT ? "" : "cannot be examined (" + systemCause(errno) + ")";
  }
  if (S_ISDIR(status.st_mode)) return "is a directory, not a regular file";
  if (S_ISLNK(status.st_mode)) return "is a symbolic link; name the file it points to instead";
  if (!S_ISREG(status.st_mode)) return "is not a regular file";
  if (keep) return "already exists (--keep refuses to replace it)";
  archive.exists = true;
  archive.current = status;
  return "";
}

bool isTemporaryArchiveName(const char* name) {
  const size_t length = std::strlen(name);
  if (name[0] != '.' || length < 1 + MarkerLength + RandomLength) return false;
  return std::memcmp(name + length - RandomLength - MarkerLength, TemporaryMarker, MarkerLength) == 0;
}


AtomicOutput::~AtomicOutput() { discard(); }

std::string AtomicOutput::open(const ArchivePath& archive) {
  directoryFd_ = ::open(archive.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directoryFd_ < 0) return archive.directory + ": cannot hold the archive (" + systemCause(errno) + ")";
  installHandlers();
  HeldSignals block(CleanupSignals);
  for (int attempt = 0; attempt < CreateAttempts && fileFd_ < 0; ++attempt) {
    const std::string name = temporaryName(archive.name);
    fileFd_ = openat(directoryFd_, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fileFd_ >= 0) tempName_ = name;
    if (fileFd_ < 0 && errno != EEXIST) break;
  }
  if (fileFd_ < 0) {
    return archive.directory + ": cannot make a temporary file there (" + systemCause(errno) + ")";
  }
  arm(directoryFd_, tempName_);
  const std::string beside = archive.path.find('/') == std::string::npos ? tempName_ : archive.directory + "/" + tempName_;
  writerPath_ = beside.size() <= WriterPathLimit ? beside
                                                 : "/proc/self/fd/" + std::to_string(directoryFd_) + "/" + tempName_;
  return "";
}

uint64_t AtomicOutput::size() const {
  struct stat status {};
  return fileFd_ >= 0 && fstat(fileFd_, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

std::string AtomicOutput::seal(const ArchivePath& archive) {
  struct stat ours, there;
  if (fstat(fileFd_, &ours) != 0 || fstatat(directoryFd_, tempName_.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0 ||
      ours.st_dev != there.st_dev || ours.st_ino != there.st_ino) {
    return archive.path + ": the temporary file " + tempName_ + " was replaced while zef wrote it";
  }
  bool failed = fchmod(fileFd_, archiveMode(archive)) != 0 || fsync(fileFd_) != 0;
  int error = errno;
  if (close(fileFd_) != 0 && !failed) {
    failed = true;
    error = errno;
  }
  fileFd_ = -1;
  if (failed) return archive.path + ": the new archive cannot be flushed to disk (" + systemCause(error) + ")";
  return "";
}

std::string AtomicOutput::commit(const ArchivePath& archive, bool keep) {
  {
    HeldSignals block(CleanupSignals);
    const char* from = tempName_.c_str();
    const char* to = archive.name.c_str();
    int moved = keep ? renameat2(directoryFd_, from, directoryFd_, to, RENAME_NOREPLACE)
                     : renameat(directoryFd_, from, directoryFd_, to);
    // File systems without RENAME_NOREPLACE still refuse to link over a name.
    if (keep && moved != 0 && errno == EINVAL && linkat(directoryFd_, from, directoryFd_, to, 0) == 0) {
      unlinkat(directoryFd_, from, 0);
      moved = 0;
    }
    if (moved != 0) {
      const int error = errno;
      if (error == EEXIST) return archive.path + ": appeared while zef wrote it; --keep leaves it as it is";
      return archive.path + ": cannot be put in place (" + systemCause(error) + ")";
    }
    armed = 0;
    tempName_.clear();
  }
  if (fsync(directoryFd_) != 0 && errno != EINVAL) {
    return archive.directory + ": the archive is in place, but its directory could not be flushed to disk (" +
           systemCause(errno) + ")";
  }
  return "";
}

void AtomicOutput::discard() {
  if (fileFd_ >= 0) close(fileFd_);
  fileFd_ = -1;
  if (!tempName_.empty()) {
    HeldSignals block(CleanupSignals);
    unlinkat(directoryFd_, tempName_.c_str(), 0);  // the writer may have removed it already
    armed = 0;
    tempName_.clear();
  }
  if (directoryFd_ >= 0) close(directoryFd_);
  directoryFd_ = -1;
}

}  // namespace zef
