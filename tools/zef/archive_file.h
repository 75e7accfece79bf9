// The archive a read command works on, opened once: the audit, the integrity
// test and the library then all read the same file, whatever happens to the
// name meanwhile. Opening never blocks (a FIFO is refused, not waited on).
#ifndef KXZEF_TOOLS_ARCHIVE_FILE_H
#define KXZEF_TOOLS_ARCHIVE_FILE_H

#include <cstdint>
#include <string>

namespace zef {

class ArchiveFile {
 public:
  ArchiveFile() = default;
  ~ArchiveFile();
  ArchiveFile(const ArchiveFile&) = delete;
  ArchiveFile& operator=(const ArchiveFile&) = delete;

  // Opens `name`, or `name` with ".zef" appended when no file `name` exists,
  // as the library does. Returns an empty text on success, otherwise the
  // reason in plain words ("no such file (nor 'x.zef')", "is not a regular file").
  std::string open(const std::string& name);

  // A path that names the opened file itself: its /proc/self/fd entry where
  // that is readable, otherwise the name it was opened under.
  const std::string& path() const { return path_; }
  uint64_t size() const { return size_; }
  // The open descriptor, for positioned reads; -1 before a successful open.
  int descriptor() const { return fd_; }
  // True after open() found neither name.
  bool missing() const { return missing_; }

 private:
  int fd_ = -1;
  std::string path_;
  uint64_t size_ = 0;
  bool missing_ = false;
};

}  // namespace zef

#endif
