// The ZIP reading core: finds the end record, walks the central directory,
// checks local headers and inflates entry data with its CRC-32 checked.
// Every offset, size and count read from the archive is untrusted; the core
// reports by status only and never prints.
#ifndef KXZEF_ZIP_UNZIP_ARCHIVE_H
#define KXZEF_ZIP_UNZIP_ARCHIVE_H

#include <zlib.h>

#include <cstdint>
#include <memory>

#include "zip/status.h"
#include "zip/zip_file_io.h"
#include "zip/zip_time.h"

namespace kxzef {

// Record signatures and fixed sizes, shared with the writing core.
constexpr uint64_t LocalHeaderSignature = 0x04034B50;
constexpr uint64_t CentralHeaderSignature = 0x02014B50;
constexpr uint64_t EndRecordSignature = 0x06054B50;
constexpr uint64_t LocalHeaderSize = 30;
constexpr uint64_t CentralHeaderSize = 46;
constexpr uint64_t EndRecordSize = 22;
constexpr uint64_t UnixExtraTag = 0x000D;
constexpr uint64_t UnixExtraHeaderSize = 16;  // tag, length, times, ids: the link text follows
constexpr int MethodStored = 0;
constexpr int MethodDeflated = 8;
constexpr uint64_t FlagDataDescriptor = 0x0008;
constexpr size_t ReadBufferSize = 16384;
// zlib is asked for raw streams (no zlib header) and told this version.
constexpr int RawWindowBits = -15;
constexpr char ZlibVersionPassed[] = "1.2.3";
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

// The entry open for reading.
struct ReadEntryState {
  ReadEntryState();
  ~ReadEntryState();  // ends the inflate stream if it was started
  ReadEntryState(const ReadEntryState&) = delete;
  ReadEntryState& operator=(const ReadEntryState&) = delete;

  std::unique_ptr<unsigned char[]> inputBuffer;  // ReadBufferSize bytes
  z_stream stream;
  uint64_t nextReadPosition = 0;  // archive offset of the next compressed bytes, without bytesBefore
  bool streamInitialised = false;
  uint64_t localExtraOffset = 0;
  uint64_t localExtraSize = 0;
  uint64_t localExtraPosition = 0;
  uint64_t crcSoFar = 0;
  uint64_t expectedCrc = 0;
  uint64_t compressedLeft = 0;
  uint64_t uncompressedLeft = 0;
  ZipFileIO* io = nullptr;  // not owned
  uint64_t compressionMethod = 0;
  uint64_t bytesBefore = 0;
  bool raw = false;
};

// The reading state of one archive. It always owns its ZipFileIO.
class UnzipArchive {
 public:
  UnzipArchive() = default;
  virtual ~UnzipArchive();
  UnzipArchive(const UnzipArchive&) = delete;
  UnzipArchive& operator=(const UnzipArchive&) = delete;

  bool isOpen = false;  // set by a successful open; closing does not clear it
  ZipFileIO* io = nullptr;
  bool ownsIO = false;
  uint64_t entryCount = 0;
  uint64_t globalCommentLength = 0;
  uint64_t bytesBefore = 0;  // bytes in front of the archive proper
  uint64_t entryIndex = 0;
  uint64_t centralPosition = 0;  // the current central header, without bytesBefore
  bool currentValid = false;
  uint64_t endRecordPosition = 0;
  uint64_t centralDirectorySize = 0;
  uint64_t centralDirectoryOffset = 0;
  EntryInfo current{};
  uint64_t localHeaderOffset = 0;
  std::unique_ptr<ReadEntryState> reading;  // the open entry, or null
};

// The end record's offset found by the backward search, 0 when none is found
// (a record at offset 0 counts as none).
uint64_t findEndRecord(ZipFileIO& io);

// Opens `path` (with `io`, or a new ZipFileIO when null; either way the
// archive owns it) and makes the first entry current. False when the file
// cannot be opened or is no archive.
bool openArchive(UnzipArchive& archive, const char* path, ZipFileIO* io);

// Closes an open entry and the file, and deletes the owned ZipFileIO.
// StatusBadParameter when not open.
int closeArchive(UnzipArchive& archive);

int getGlobalInfo(UnzipArchive& archive, uint64_t* entryCount, uint64_t* commentLength);

// Copies up to `size` bytes of the archive comment; returns the count or a status.
int getGlobalComment(UnzipArchive& archive, char* buffer, uint64_t size);

int goToFirstEntry(UnzipArchive& archive);

// StatusEndOfList after the last entry, which then stays current.
int goToNextEntry(UnzipArchive& archive);

// Reads the current central header. Each buffer may be null; the name is
// terminated only when it is shorter than its buffer, the extra field never.
int getCurrentEntryInfo(UnzipArchive& archive, EntryInfo* info, char* name, uint64_t nameSize,
                        void* extra, uint64_t extraSize, char* comment, uint64_t commentSize);

int getEntryPosition(UnzipArchive& archive, uint64_t* centralPosition, uint64_t* entryIndex);
int goToEntryPosition(UnzipArchive& archive, uint64_t centralPosition, uint64_t entryIndex);

// Makes the entry named `name` current; on failure the previous position is
// restored (StatusEndOfList when no entry has that name).
int locateEntry(UnzipArchive& archive, const char* name, int caseRule);

// strcmp-like; CaseSensitive compares bytes, every other rule ignores ASCII case.
int compareEntryNames(const char* a, const char* b, int caseRule);

// Opens the current entry for reading after checking its local header.
// `method` and `level` may be null. Closes an entry already open.
int openCurrentEntry(UnzipArchive& archive, int* method, int* level, int raw);

// Up to `length` uncompressed bytes; 0 at the end of the entry, negative on
// error (zlib's codes pass through).
int readCurrentEntry(UnzipArchive& archive, void* buffer, uint32_t length);

// Uncompressed bytes delivered so far, or StatusBadParameter.
int64_t currentEntryOffset(UnzipArchive& archive);

// 1 when no uncompressed bytes are left, 0 otherwise, or StatusBadParameter.
int atEndOfCurrentEntry(UnzipArchive& archive);

// With a null buffer the bytes of local extra field available; otherwise
// copies up to `length` of them and returns the count, or a status.
int getLocalExtraField(UnzipArchive& archive, void* buffer, uint32_t length);

// StatusCrcError when the whole entry was read and its CRC-32 differs.
int closeCurrentEntry(UnzipArchive& archive);

// `count` (1-8) bytes, least significant first; 0 for count <= 0.
uint64_t readLittleEndian(const unsigned char* bytes, int count);

}  // namespace kxzef

#endif
