// The ZIP writing core: local headers, stored or deflated data with CRC-32,
// local headers patched in place after the data, the central directory kept
// in memory and written with the end record on close. Reports by status only.
#ifndef KXZEF_ZIP_ZIP_ARCHIVE_H
#define KXZEF_ZIP_ZIP_ARCHIVE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zip/status.h"
#include "zip/zip_file_io.h"
#include "zip/zip_format.h"
#include "zip/zip_time.h"
#include "zip/zlib_stream.h"

namespace kxzef {

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

// The writing state of one archive. It always owns its file object;
// destroying the archive frees that object (which closes the file) but
// writes no central directory. One deflate stream, one output buffer and one
// central header buffer serve every entry, so that steady state allocates
// nothing per entry; an entry's local header waits in the output buffer with
// its data and is patched there when the data fits.
class ZipArchive {
 public:
  ZipArchive();
  virtual ~ZipArchive();
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  // Opens `path` for writing, created or truncated (append 0), or existing
  // (append non-zero, which reads nothing and writes from the start), with
  // `io` or a new ZipFileIO when null; the archive owns it either way. A
  // state used before starts over. False when the file cannot be opened.
  bool openForWriting(const char* path, int append, std::unique_ptr<ZipFileIO> io = nullptr);

  // Starts an entry; closes one still open first. With a source path, a
  // symbolic link's target (`linkTarget` when not empty, else read from the
  // source path) goes into a Unix extra block in both headers. Method 0 or 8;
  // a raw entry's bytes are written as given. StatusBadParameter also when a
  // name, comment or extra field is longer than its 16-bit length field or the
  // archive has passed 4 GiB; StatusIoError when the file failed before.
  int openNewEntry(const char* name, const ZipEntryInfo* info, const void* localExtra, uint32_t localExtraLength,
                   const void* globalExtra, uint32_t globalExtraLength, const char* comment, int method, int level,
                   const char* sourcePath, const char* linkTarget, int raw);

  // Adds `length` bytes to the open entry, stored or compressed; whole
  // buffers go to the file as they fill. StatusBadParameter without an open
  // entry or with null bytes, StatusIoError for a failed write, or zlib's status.
  int writeEntryData(const void* bytes, uint32_t length);

  // Finishes the entry, writes what it left in the output buffer and patches
  // its local header; `uncompressedSize` and `crc` are used only for raw
  // entries. An entry of 4 GiB or more is refused with StatusBadParameter and
  // left out of the central directory.
  int closeEntry(uint64_t uncompressedSize, uint64_t crc);

  // Writes the central directory and the end record, closes the file and
  // frees the file object. The central directory is freed whatever happens.
  int closeForWriting(const char* comment);

 private:
  struct EntryLayout;  // what openNewEntry works out before it writes

  // An archive whose file is gone (closed, or never opened) takes no more writes.
  bool writable() const { return isOpen_ && io_ != nullptr; }
  int layoutEntry(EntryLayout& layout, const char* name, const char* comment, uint32_t localExtraLength,
                  uint32_t globalExtraLength, const char* sourcePath, const char* linkTarget);
  void resetEntry(const ZipEntryInfo* info, int method, int level, int raw);
  int reserveCentralHeader(uint64_t size);
  void buildCentralHeader(const EntryLayout& layout, const ZipEntryInfo* info, const void* globalExtra,
                          uint32_t globalExtraLength, const char* comment);
  int bufferLocalHeader(const EntryLayout& layout, const void* localExtra, uint32_t localExtraLength);
  int bufferBytes(const void* bytes, uint64_t length);
  int flushOutput();
  int deflateStep(int flush);
  void copyStored();
  int finishDeflate();
  int recordEntry(bool headerPatched, uint64_t crc, uint64_t compressedSize, uint64_t uncompressedSize);
  int writeCentralDirectory(int status, uint64_t& size);
  int writeEndRecord(int64_t start, uint64_t size, const char* comment);

  bool isOpen_ = false;
  std::unique_ptr<ZipFileIO> io_;
  int64_t filePosition_ = 0;  // where the next flushed byte lands
  CentralDirectory centralDirectory_;
  bool entryOpen_ = false;
  DeflateStream deflater_;
  bool deflating_ = false;      // the open entry's data goes through deflater_
  uint32_t bufferedCount_ = 0;  // bytes waiting in outputBuffer_
  bool headerBuffered_ = false;  // the open entry's local header starts outputBuffer_
  int64_t localHeaderPosition_ = 0;
  std::unique_ptr<unsigned char[]> centralHeader_;  // the open entry's central header, then room
  uint64_t centralHeaderCapacity_ = 0;
  uint64_t centralHeaderSize_ = 0;
  uint64_t flags_ = 0;
  int32_t method_ = 0;
  int32_t raw_ = 0;
  // The entry's input and output so far, and the input not yet consumed.
  uint64_t entryIn_ = 0;
  uint64_t entryOut_ = 0;
  const unsigned char* input_ = nullptr;
  uint32_t inputLeft_ = 0;
  unsigned char outputBuffer_[WriteBufferSize];
  uint64_t dosDate_ = 0;
  uint64_t crcSoFar_ = 0;
  int64_t beginPosition_ = 0;  // where the archive began; recorded, not used for offsets
  uint64_t entryCount_ = 0;    // entries closed so far
};

// Writes `value` as `count` little-endian bytes: 0, or -1 for a short write.
int writeValue(ZipFileIO& io, uint64_t value, int count);

int appendToCentralDirectory(CentralDirectory* list, const void* bytes, uint64_t length);

}  // namespace kxzef

#endif
