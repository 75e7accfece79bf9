// Where extractAll may hand regular files to be written elsewhere, for
// example on other threads. Whatever is handed over must produce no message:
// an entry that fails there is extracted again by the driver, in archive
// order, which gives its messages exactly as a run without a dispatch would.
// The exported entry points never set one.
#ifndef KXZEF_EXTRACT_FILE_DISPATCH_H
#define KXZEF_EXTRACT_FILE_DISPATCH_H

#include <cstdint>
#include <string>
#include <vector>

#include "zip/zip_time.h"

namespace kxzef {

// One regular file to write: the entry, found by its place in the central
// directory, inflated into `target` (created or truncated, mode 0666 less the
// umask), then given its time and mode, as the driver does it.
struct FileJob {
  uint64_t centralPosition = 0;  // from UnzipArchive::getEntryPosition
  uint64_t entryIndex = 0;
  uint64_t crc = 0;  // the central header's, to recognise the entry again
  uint64_t compressedSize = 0;
  uint64_t uncompressedSize = 0;
  std::string target;
  uint32_t dosDate = 0;
  ZipTime modified{};
  uint32_t mode = 0;  // for chmod
};

// The place of an entry that failed where it was handed.
struct FailedFile {
  uint64_t centralPosition;
  uint64_t entryIndex;
};

class FileDispatch {
 public:
  virtual ~FileDispatch() = default;

  // Called once by extractAll before the first entry. False when nothing can
  // be handed over; the driver then does everything itself.
  virtual bool begin() = 0;

  // Takes `job`, or returns false to have the driver write it itself after
  // finish(): when a file handed earlier has failed, or it cannot take any.
  // May wait for room.
  virtual bool hand(const FileJob& job) = 0;

  // Waits until every file handed over is written or has failed; returns
  // those that failed in the order they were handed. The list stays valid
  // until the next call.
  virtual const std::vector<FailedFile>& finish() = 0;

  // Called once when extractAll ends, however it ends; nothing is written
  // after it returns.
  virtual void end() = 0;
};

}  // namespace kxzef

#endif
