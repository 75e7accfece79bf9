// Opening the archive of a read command.
#include "archive_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zef {

namespace {

const char ArchiveSuffix[] = ".zef";

int openForReading(const std::string& name) {
  // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below.
  return ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

ArchiveFile::~ArchiveFile() {
  if (fd_ >= 0) ::close(fd_);
}

std::string ArchiveFile::open(const std::string& name) {
  std::string opened = name;
  fd_ = openForReading(opened);
  if (fd_ < 0 && errno == ENOENT) {
    opened = name + ArchiveSuffix;
    fd_ = openForReading(opened);
    missing_ = fd_ < 0 && errno == ENOENT;
    if (missing_) return "no such file (nor '" + opened + "')";
  }
  if (fd_ < 0) return std::strerror(errno);
  struct stat status {};
  if (fstat(fd_, &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "is not a regular file";
  size_ = static_cast<uint64_t>(status.st_size);
  const std::string own = "/proc/self/fd/" + std::to_string(fd_);
  path_ = access(own.c_str(), R_OK) == 0 ? own : opened;
  return "";
}

}  // namespace zef
