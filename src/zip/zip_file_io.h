// The archive file object: the one way the ZIP cores touch an archive file.
// It reports failures only by results; nothing here prints.
#ifndef KXZEF_ZIP_ZIP_FILE_IO_H
#define KXZEF_ZIP_ZIP_FILE_IO_H

#include <cstdint>
#include <fstream>
#include <memory>

namespace kxzef {

// Open-mode flags, combined by OR.
constexpr int ModeRead = 1;
constexpr int ModeWrite = 2;
constexpr int ModeExisting = 4;
constexpr int ModeCreate = 8;
constexpr int ModeReadExisting = ModeRead | ModeExisting;           // the reading core
constexpr int ModeCreateNew = ModeRead | ModeWrite | ModeCreate;    // a new archive, truncated
constexpr int ModeAppendExisting = ModeRead | ModeWrite | ModeExisting;

// Seek origins.
constexpr int SeekFromStart = 0;
constexpr int SeekFromCurrent = 1;
constexpr int SeekFromEnd = 2;

class ZipFileIO {
 public:
  ZipFileIO() = default;
  virtual ~ZipFileIO() = default;
  ZipFileIO(const ZipFileIO&) = delete;
  ZipFileIO& operator=(const ZipFileIO&) = delete;

  // Opens `path` with the mode flags above: read-only opens for input; with
  // ModeExisting for input and output (the file must exist, it is kept);
  // with ModeCreate for output, truncated. False for a null path or when the
  // file cannot be opened that way.
  virtual bool open(const char* path, int mode);

  // Up to `count` bytes; fewer at the end of the file, 0 after a hard error.
  virtual int64_t read(void* buffer, int64_t count);

  // `count`, or 0 when the write failed.
  virtual int64_t write(const void* buffer, int64_t count);

  // The current position, -1 when there is none.
  virtual int64_t tell();

  // Moves the position and clears every error flag; -1 only for an unknown
  // origin. A seek past the file's bounds shows up as a failing read or write.
  virtual int seek(int64_t offset, int origin);

  // Closes the file; the object stays and can only be destroyed. Returns 0.
  virtual int close();

  // Closes the file if one is open, then deletes `path`. True when removed.
  virtual bool removeFile(const char* path);

  // True when the last operations met the end of the file or an error, or
  // when nothing is open.
  virtual bool hasError();

 private:
  std::unique_ptr<std::fstream> stream_;
};

// Little-endian readers over the file object. Each returns 0 on success and
// -1 when the file ended or failed (the value is then 0).
// Kept: part of the file object's fixed interface, though the cores now decode whole records through readLittleEndian.
int readByte(ZipFileIO& io, uint64_t& value);
int readUInt16(ZipFileIO& io, uint64_t& value);
int readUInt32(ZipFileIO& io, uint64_t& value);

}  // namespace kxzef

#endif
