// The ZIP writing core: local headers, stored or deflated data with CRC-32,
// local headers patched in place after the data, the central directory kept
// in memory and written with the end record on close. Reports by status only.
#ifndef KXZEF_ZIP_ZIP_ARCHIVE_H
#define KXZEF_ZIP_ZIP_ARCHIVE_H

#include <zlib.h>

#include <cstdint>
#include <memory>

#include "zip/status.h"
#include "zip/unzip_archive.h"
#include "zip/zip_file_io.h"
#include "zip/zip_time.h"

namespace kxzef {

constexpr uint64_t VersionMadeByUnix20 = 0x0314;  // Unix, version 2.0: external attributes carry a mode
constexpr uint64_t VersionNeeded20 = 20;
constexpr size_t WriteBufferSize = 16384;
constexpr size_t CentralBlockCapacity = 4080;  // a 4 KB page less the block header
constexpr size_t LinkTargetLimit = 4096;       // bytes of a link target read from the file system

// The caller's per-entry input.
struct ZipEntryInfo {
  ZipTime modified;
  uint64_t dosDate;             // 0: computed from `modified`
  uint64_t internalAttributes;
  uint64_t externalAttributes;  // Unix mode and file type in the high 16 bits
};

// One block of finished central headers, one allocation of 4,112 bytes.
struct CentralDirectoryBlock {
  CentralDirectoryBlock* next;
  uint64_t available;
  uint64_t filled;
  uint64_t reserved;  // kept zero
  unsigned char data[CentralBlockCapacity];
};

// The list of blocks; owns them.
struct CentralDirectory {
  CentralDirectory() = default;
  ~CentralDirectory();  // frees every block
  CentralDirectory(const CentralDirectory&) = delete;
  CentralDirectory& operator=(const CentralDirectory&) = delete;
  void clear();

  CentralDirectoryBlock* first = nullptr;
  CentralDirectoryBlock* last = nullptr;
};

// The writing state of one archive. It always owns its ZipFileIO; destroying
// it deletes that object but writes nothing and closes nothing.
class ZipArchive {
 public:
  ZipArchive();
  virtual ~ZipArchive();
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  bool isOpen = false;
  ZipFileIO* io = nullptr;
  bool ownsIO = false;
  CentralDirectory centralDirectory;
  bool entryOpen = false;
  z_stream stream;
  bool streamInitialised = false;
  uint32_t bufferedCount = 0;  // bytes waiting in outputBuffer
  int64_t localHeaderPosition = 0;
  std::unique_ptr<unsigned char[]> centralHeader;  // the open entry's central header
  uint64_t centralHeaderSize = 0;
  uint64_t flags = 0;
  int32_t method = 0;
  int32_t raw = 0;
  unsigned char outputBuffer[WriteBufferSize];
  uint64_t dosDate = 0;
  uint64_t crcSoFar = 0;
  int64_t beginPosition = 0;
  uint64_t entryCount = 0;  // entries closed so far
};

// Opens `path` for writing, created or truncated (append 0), or existing
// (append non-zero, which reads nothing and writes from the start).
bool openForWriting(ZipArchive& archive, const char* path, int append, ZipFileIO* io);

// Starts an entry; closes one still open first. With a source path, a
// symbolic link's target (`linkTarget` when not empty, else read from the
// source path) goes into a Unix extra block in both headers. Method 0 or 8;
// a raw entry's bytes are written as given. StatusBadParameter also when a
// name, comment or extra field is longer than its 16-bit length field or the
// archive has passed 4 GiB.
int openNewEntry(ZipArchive& archive, const char* name, const ZipEntryInfo* info,
                 const void* localExtra, uint32_t localExtraLength, const void* globalExtra,
                 uint32_t globalExtraLength, const char* comment, int method, int level,
                 const char* sourcePath, const char* linkTarget, int raw);

int writeEntryData(ZipArchive& archive, const void* bytes, uint32_t length);

// Finishes the entry and patches its local header; `uncompressedSize` and
// `crc` are used only for raw entries. An entry of 4 GiB or more is refused
// with StatusBadParameter and left out of the central directory.
int closeEntry(ZipArchive& archive, uint64_t uncompressedSize, uint64_t crc);

// Writes the central directory and the end record and closes the file.
int closeForWriting(ZipArchive& archive, const char* comment);

// Writes `value` as `count` little-endian bytes: 0, or -1 for a short write.
int writeValue(ZipFileIO& io, uint64_t value, int count);

// Stores `value` as `count` little-endian bytes at `destination`.
void putValue(unsigned char* destination, uint64_t value, int count);

int appendToCentralDirectory(CentralDirectory* list, const void* bytes, uint64_t length);

}  // namespace kxzef

#endif
