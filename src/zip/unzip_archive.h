// The ZIP reading core: finds the end record, walks the central directory,
// checks local headers and inflates entry data with its CRC-32 checked.
// Every offset, size and count read from the archive is untrusted; the core
// reports by status only and never prints.
#ifndef KXZEF_ZIP_UNZIP_ARCHIVE_H
#define KXZEF_ZIP_UNZIP_ARCHIVE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zip/block_reader.h"
#include "zip/status.h"
#include "zip/zip_file_io.h"
#include "zip/zip_format.h"
#include "zip/zip_time.h"
#include "zip/zlib_stream.h"

namespace kxzef {

constexpr size_t ReadBufferSize = 16384;  // compressed bytes read at a time
constexpr size_t MaxEntryNameLength = 255;

// Name comparison rules for locateEntry and compareEntryNames.
constexpr int CaseInsensitive = 0;  // the default: ASCII letters only
constexpr int CaseSensitive = 1;

// One central directory header, as handed to callers.
struct EntryInfo {
  uint64_t versionMadeBy;
  uint64_t versionNeeded;
  uint64_t flags;
  uint64_t compressionMethod;
  uint64_t dosDate;
  uint64_t crc;
  uint64_t compressedSize;
  uint64_t uncompressedSize;
  uint64_t fileNameLength;
  uint64_t extraFieldLength;
  uint64_t commentLength;
  uint64_t diskNumberStart;
  uint64_t internalAttributes;
  uint64_t externalAttributes;
  ZipTime modified;  // decoded from dosDate
};

// The reading state of one archive. It always owns its file object, and
// destroying it frees that object (which closes the file) without closing
// through the operations below. Every operation but openArchive returns
// StatusBadParameter while the archive is not open. The central directory
// is read through one block of the file and the entries through another, and
// one inflate stream and input buffer serve every entry, so that reading
// entries one after another allocates nothing after the first.
class UnzipArchive {
 public:
  UnzipArchive();
  virtual ~UnzipArchive();
  UnzipArchive(const UnzipArchive&) = delete;
  UnzipArchive& operator=(const UnzipArchive&) = delete;

  // Opens `path` with `io`, or with a new ZipFileIO when null; either way the
  // archive owns the object from now on, and any object it held before goes.
  // Makes the first entry current. False when the file cannot be opened or
  // is no archive; the earlier file is gone then, but whether the archive
  // counts as open does not change.
  bool openArchive(const char* path, std::unique_ptr<ZipFileIO> io = nullptr);

  // Closes an open entry and the file, and frees the file object. The
  // archive must be opened again before further use.
  int closeArchive();

  // The entry count and the archive comment's length, from the end record;
  // either pointer may be null.
  int getGlobalInfo(uint64_t* entryCount, uint64_t* commentLength) const;

  // Copies up to `size` bytes of the archive comment, terminated when there
  // is room; returns the count or a status.
  int getGlobalComment(char* buffer, uint64_t size);

  // Makes the first central header current: StatusBadArchive when it is no
  // header, StatusIoError when it cannot be read.
  int goToFirstEntry();

  // StatusEndOfList after the last entry, which then stays current.
  int goToNextEntry();

  // Reads the current central header. Each buffer may be null; the name is
  // terminated only when it is shorter than its buffer, the extra field never.
  int getCurrentEntryInfo(EntryInfo* info, char* name, uint64_t nameSize, void* extra, uint64_t extraSize,
                          char* comment, uint64_t commentSize);

  // Where the current entry is, for goToEntryPosition; StatusEndOfList
  // when no entry is current.
  int getEntryPosition(uint64_t* centralPosition, uint64_t* entryIndex) const;

  // Makes the header at a position from getEntryPosition current. Any other
  // position is untrusted input: reading there fails with a status.
  int goToEntryPosition(uint64_t centralPosition, uint64_t entryIndex);

  // Makes the entry named `name` current; on failure the previous position is
  // restored (StatusEndOfList when no entry has that name).
  int locateEntry(const char* name, int caseRule);

  // Opens the current entry for reading after checking its local header
  // (StatusBadArchive when it disagrees with the central one). `method` and
  // `level` may be null. Closes an entry already open.
  int openCurrentEntry(int* method, int* level, int raw);

  // Up to `length` uncompressed bytes; 0 at the end of the entry, negative on
  // error (zlib's codes pass through).
  int readCurrentEntry(void* buffer, uint32_t length);

  // For an entry opened raw with nothing read yet: all `count` of its
  // compressed bytes (`count` must be the entry's compressed size) read
  // straight into `buffer`, in one read where the file allows, with no CRC
  // taken; then nothing is left to read. StatusOk, or a status.
  int readWholeRawEntry(void* buffer, uint64_t count);

  // Uncompressed bytes delivered so far, or StatusBadParameter.
  int64_t currentEntryOffset() const;

  // 1 when no uncompressed bytes are left, 0 otherwise, or StatusBadParameter.
  int atEndOfCurrentEntry() const;

  // With a null buffer the bytes of local extra field available; otherwise
  // copies up to `length` of them and returns the count, or a status.
  int getLocalExtraField(void* buffer, uint32_t length);

  // StatusCrcError when the whole entry was read and its CRC-32 differs.
  int closeCurrentEntry();

  // Bytes in front of the archive proper (a self-extracting stub, say).
  uint64_t bytesBefore() const { return bytesBefore_; }
  // The current entry's place in the central directory, from 0.
  uint64_t entryIndex() const { return entryIndex_; }

 private:
  struct ReadEntryState;  // the open entry
  struct LocalLayout;     // what a checked local header says

  bool ready() const { return isOpen_ && io_ != nullptr; }
  int readCentralHeader(EntryInfo& entry, uint64_t& localHeaderOffset);
  int readCurrentHeader();
  int readEndRecord(uint64_t position);
  int checkLocalHeader(LocalLayout& layout);
  void releaseIO();
  int prepareEntryState();

  bool isOpen_ = false;  // set by a successful open; closing does not clear it
  std::unique_ptr<ZipFileIO> io_;
  uint64_t entryCount_ = 0;
  uint64_t globalCommentLength_ = 0;
  uint64_t bytesBefore_ = 0;
  uint64_t entryIndex_ = 0;
  uint64_t centralPosition_ = 0;  // the current central header, without bytesBefore_
  bool currentValid_ = false;
  uint64_t endRecordPosition_ = 0;
  uint64_t centralDirectorySize_ = 0;
  uint64_t centralDirectoryOffset_ = 0;
  EntryInfo current_{};
  uint64_t localHeaderOffset_ = 0;
  BlockReader centralReader_;  // central headers and what follows them
  BlockReader entryReader_;    // local headers and entry data
  std::unique_ptr<ReadEntryState> reading_;  // made for the first entry opened, then kept
  bool entryOpen_ = false;
};

// The end record's offset found by the backward search, 0 when none is found
// (a record at offset 0 counts as none).
uint64_t findEndRecord(ZipFileIO& io);

// strcmp-like; CaseSensitive compares bytes, every other rule ignores ASCII case.
int compareEntryNames(const char* a, const char* b, int caseRule);

}  // namespace kxzef

#endif
