// Where zef create writes: a temporary file beside the archive, which takes
// the archive's name only once it is complete and on disk. It must never
// leave the previous archive damaged, whatever stops the run.
#ifndef KXZEF_TOOLS_ZEF_ATOMIC_OUTPUT_H
#define KXZEF_TOOLS_ZEF_ATOMIC_OUTPUT_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

namespace zef {

// The archive as zef will name it, and what is there now.
struct ArchivePath {
  std::string path;       // the final name: what was typed, ".zef" added when it holds no "."
  std::string directory;  // the directory part ("." when there is none)
  std::string name;       // the last component
  bool exists = false;    // a regular file is there now; `current` describes it
  struct stat current {};
};

// Fills `archive` from what the user typed. Returns "" when the archive may
// be written there, or the cause in plain words (the path is a directory,
// too long, already there with `keep` set, ...).
std::string resolveArchivePath(const std::string& typed, bool keep, ArchivePath& archive);

// True for the name of a temporary file that some zef create made: such a
// file is never taken as an input.
bool isTemporaryArchiveName(const char* name);

// The temporary file. While one is open, SIGINT, SIGTERM and SIGHUP remove it
// before the process ends the way the signal asks; a SIGKILL leaves it
// behind, its name starting with "." and ending in ".zef-tmp-" and six
// random characters. The destructor removes it unless it was committed.
class AtomicOutput {
 public:
  AtomicOutput() = default;
  AtomicOutput(const AtomicOutput&) = delete;
  AtomicOutput& operator=(const AtomicOutput&) = delete;
  ~AtomicOutput();

  // Creates the temporary file exclusively in the archive's directory.
  // Returns "", or a message naming the directory and the cause.
  std::string open(const ArchivePath& archive);

  // The path to hand to the writer: at most 255 bytes and holding a ".", so
  // that the writer neither cuts it nor appends to it.
  const std::string& writerPath() const { return writerPath_; }

  // The bytes in the temporary file now (the writer may have unlinked it), 0 when unknown.
  uint64_t size() const;

  // Makes sure the file written is still ours, gives it the permission bits
  // of the archive it replaces (or what the umask leaves of 0666), and
  // flushes it to disk. Returns "", or a message naming the archive and the cause.
  std::string seal(const ArchivePath& archive);

  // Renames the temporary file to the archive's name and flushes the
  // directory. With `keep`, an archive that appeared meanwhile is left alone
  // and reported. Returns "", or a message naming the file and the cause.
  std::string commit(const ArchivePath& archive, bool keep);

 private:
  void discard();

  int directoryFd_ = -1;
  int fileFd_ = -1;
  std::string tempName_;
  std::string writerPath_;
};

// errno's text in lower case, for "cannot be read (permission denied)".
std::string systemCause(int error);

}  // namespace zef

#endif
