// The ZIP reading core. Every offset, size and count read from the archive is
// untrusted: nothing here allocates by such a value or touches memory beyond
// the caller's stated buffer sizes, and every walk is bounded by the file.
#include "zip/unzip_archive.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <vector>

#include <zlib.h>

namespace kxzef {

namespace {

// The end record is searched for in windows of this many bytes, each
// overlapping the next by the signature's length so that a signature
// straddling two reads is still seen.
constexpr uint64_t SearchWindow = 1024;
constexpr uint64_t SignatureLength = 4;
// The largest archive comment plus the record itself, give or take.
constexpr uint64_t MaxSearchBack = 65535;
constexpr int LevelDefault = 6;

// Seeks to `base` + `offset`. Positions travel as unsigned 64-bit values and
// the file object takes signed ones, so a sum beyond that range cannot be read.
int seekTo(ZipFileIO& io, uint64_t base, uint64_t offset = 0) {
  constexpr uint64_t limit = static_cast<uint64_t>(INT64_MAX);
  if (base > limit || offset > limit - base) return StatusIoError;
  return io.seek(static_cast<int64_t>(base + offset), SeekFromStart) == 0 ? StatusOk : StatusIoError;
}

int skipForward(ZipFileIO& io, uint64_t count) {
  if (count == 0) return StatusOk;
  return io.seek(static_cast<int64_t>(count), SeekFromCurrent) == 0 ? StatusOk : StatusIoError;
}

// Reads exactly `count` bytes; a short read off the end of the file is an I/O error.
int readExactly(ZipFileIO& io, void* buffer, uint64_t count) {
  if (count == 0) return StatusOk;
  return io.read(buffer, static_cast<int64_t>(count)) == static_cast<int64_t>(count) ? StatusOk
                                                                                     : StatusIoError;
}

uint64_t field(const unsigned char* record, int offset, int width) {
  return readLittleEndian(record + offset, width);
}

// Scans one window from its highest possible signature start downwards;
// returns the index of the match, or -1.
int64_t lastSignatureIn(const unsigned char* window, uint64_t size) {
  static const unsigned char signature[SignatureLength] = {0x50, 0x4B, 0x05, 0x06};
  for (uint64_t i = size - SignatureLength + 1; i-- > 0;) {
    if (std::memcmp(window + i, signature, SignatureLength) == 0) return static_cast<int64_t>(i);
  }
  return -1;
}

bool archiveReady(const UnzipArchive& archive) { return archive.isOpen && archive.io != nullptr; }

// Decodes a central header's 46 fixed bytes into `entry`.
void decodeCentralHeader(const unsigned char* h, EntryInfo& entry, uint64_t& localHeaderOffset) {
  entry.versionMadeBy = field(h, 4, 2);
  entry.versionNeeded = field(h, 6, 2);
  entry.flags = field(h, 8, 2);
  entry.compressionMethod = field(h, 10, 2);
  entry.dosDate = field(h, 12, 4);
  entry.crc = field(h, 16, 4);
  entry.compressedSize = field(h, 20, 4);
  entry.uncompressedSize = field(h, 24, 4);
  entry.fileNameLength = field(h, 28, 2);
  entry.extraFieldLength = field(h, 30, 2);
  entry.commentLength = field(h, 32, 2);
  entry.diskNumberStart = field(h, 34, 2);
  entry.internalAttributes = field(h, 36, 2);
  entry.externalAttributes = field(h, 38, 4);
  localHeaderOffset = field(h, 42, 4);
  timeFromDosDate(static_cast<uint32_t>(entry.dosDate), entry.modified);
}

// Reads the central header at the current position into `entry`. A failed
// read wins over a wrong signature, as it says more about the file.
int readCentralHeader(UnzipArchive& archive, EntryInfo& entry, uint64_t& localHeaderOffset) {
  unsigned char header[CentralHeaderSize];
  if (int status = seekTo(*archive.io, archive.centralPosition, archive.bytesBefore); status != StatusOk) {
    return status;
  }
  if (int status = readExactly(*archive.io, header, sizeof header); status != StatusOk) return status;
  if (field(header, 0, 4) != CentralHeaderSignature) return StatusBadArchive;
  decodeCentralHeader(header, entry, localHeaderOffset);
  return StatusOk;
}

// The variable parts that follow a central header, each copied only as far as
// its buffer reaches; what is not copied is skipped.
struct TrailingBuffers {
  char* name;
  uint64_t nameSize;
  void* extra;
  uint64_t extraSize;
  char* comment;
  uint64_t commentSize;
};

int readTrailingParts(ZipFileIO& io, const EntryInfo& entry, const TrailingBuffers& out) {
  uint64_t toSkip = 0;
  if (out.name != nullptr) {
    const uint64_t n = std::min(entry.fileNameLength, out.nameSize);
    if (entry.fileNameLength < out.nameSize) out.name[entry.fileNameLength] = '\0';
    if (int status = readExactly(io, out.name, n); status != StatusOk) return status;
    toSkip = entry.fileNameLength - n;
  } else {
    toSkip = entry.fileNameLength;
  }
  if (out.extra != nullptr) {
    const uint64_t n = std::min(entry.extraFieldLength, out.extraSize);
    if (int status = skipForward(io, toSkip); status != StatusOk) return status;
    if (int status = readExactly(io, out.extra, n); status != StatusOk) return status;
    toSkip = entry.extraFieldLength - n;
  } else {
    toSkip += entry.extraFieldLength;
  }
  if (out.comment != nullptr) {
    const uint64_t n = std::min(entry.commentLength, out.commentSize);
    if (entry.commentLength < out.commentSize) out.comment[entry.commentLength] = '\0';
    if (int status = skipForward(io, toSkip); status != StatusOk) return status;
    if (int status = readExactly(io, out.comment, n); status != StatusOk) return status;
  }
  return StatusOk;
}

// Makes the header at `centralPosition` current.
int readCurrentHeader(UnzipArchive& archive) {
  const int status = readCentralHeader(archive, archive.current, archive.localHeaderOffset);
  archive.currentValid = status == StatusOk;
  return status;
}

// Reads and checks the end record at `position`.
int readEndRecord(UnzipArchive& archive, uint64_t position) {
  unsigned char record[EndRecordSize];
  if (position == 0) return StatusIoError;
  if (int status = seekTo(*archive.io, position); status != StatusOk) return status;
  if (int status = readExactly(*archive.io, record, sizeof record); status != StatusOk) return status;
  const uint64_t thisDisk = field(record, 4, 2);
  const uint64_t directoryDisk = field(record, 6, 2);
  const uint64_t entriesOnDisk = field(record, 8, 2);
  const uint64_t totalEntries = field(record, 10, 2);
  archive.entryCount = entriesOnDisk;
  archive.centralDirectorySize = field(record, 12, 4);
  archive.centralDirectoryOffset = field(record, 16, 4);
  archive.globalCommentLength = field(record, 20, 2);
  if (entriesOnDisk != totalEntries || thisDisk != 0 || directoryDisk != 0) return StatusBadArchive;
  if (position < archive.centralDirectoryOffset + archive.centralDirectorySize) return StatusBadArchive;
  return StatusOk;
}

// Gives up the file object the state holds, with any entry open on it.
void releaseIO(UnzipArchive& archive) {
  archive.reading.reset();
  if (archive.io != nullptr) archive.io->close();
  if (archive.ownsIO) delete archive.io;
  archive.io = nullptr;
  archive.ownsIO = false;
}

// Where an entry's data starts and what its local header says about its extra field.
struct LocalLayout {
  uint64_t extraOffset;
  uint64_t extraSize;
  uint64_t dataStart;
};

// Checks the current entry's local header against its central header. The
// local extra field may differ in length; the version and date are not compared.
int checkLocalHeader(UnzipArchive& archive, LocalLayout& layout) {
  unsigned char header[LocalHeaderSize];
  const EntryInfo& entry = archive.current;
  if (int status = seekTo(*archive.io, archive.localHeaderOffset, archive.bytesBefore); status != StatusOk) {
    return status;
  }
  if (int status = readExactly(*archive.io, header, sizeof header); status != StatusOk) return status;
  const uint64_t flags = field(header, 6, 2);
  const uint64_t method = field(header, 8, 2);
  const bool sizesFollowData = (flags & FlagDataDescriptor) != 0;
  if (field(header, 0, 4) != LocalHeaderSignature) return StatusBadArchive;
  if (method != entry.compressionMethod) return StatusBadArchive;
  if (method != MethodStored && method != MethodDeflated) return StatusBadArchive;
  if (!sizesFollowData && (field(header, 14, 4) != entry.crc || field(header, 18, 4) != entry.compressedSize ||
                           field(header, 22, 4) != entry.uncompressedSize)) {
    return StatusBadArchive;
  }
  const uint64_t nameLength = field(header, 26, 2);
  if (nameLength != entry.fileNameLength) return StatusBadArchive;
  layout.extraOffset = archive.localHeaderOffset + LocalHeaderSize + nameLength;
  layout.extraSize = field(header, 28, 2);
  layout.dataStart = layout.extraOffset + layout.extraSize;
  return StatusOk;
}

// The deflate level that bits 1 and 2 of the flags hint at.
int levelFromFlags(uint64_t flags) {
  switch (flags & 6) {
    case 6: return 1;
    case 4: return 2;
    case 2: return 9;
    default: return LevelDefault;
  }
}

// Brings in the next block of compressed bytes when the input has run dry.
int refillInput(ReadEntryState& entry) {
  if (entry.stream.avail_in != 0 || entry.compressedLeft == 0) return StatusOk;
  const uint64_t n = std::min<uint64_t>(ReadBufferSize, entry.compressedLeft);
  if (seekTo(*entry.io, entry.nextReadPosition, entry.bytesBefore) != StatusOk) return StatusIoError;
  if (readExactly(*entry.io, entry.inputBuffer.get(), n) != StatusOk) return StatusIoError;
  entry.nextReadPosition += n;
  entry.compressedLeft -= n;
  entry.stream.next_in = entry.inputBuffer.get();
  entry.stream.avail_in = static_cast<uInt>(n);
  return StatusOk;
}

void addToCrc(ReadEntryState& entry, const Bytef* bytes, uint64_t count) {
  entry.crcSoFar = crc32(static_cast<uLong>(entry.crcSoFar), bytes, static_cast<uInt>(count));
}

// Inflates into the output window once; the count produced, or zlib's status
// (Z_STREAM_END is reported through `ended`).
int inflateStep(ReadEntryState& entry, uint64_t& produced, bool& ended) {
  const uLong before = entry.stream.total_out;
  const Bytef* written = entry.stream.next_out;
  const int status = inflate(&entry.stream, Z_SYNC_FLUSH);
  produced = entry.stream.total_out - before;
  addToCrc(entry, written, produced);
  entry.uncompressedLeft -= produced;
  ended = status == Z_STREAM_END;
  return ended ? Z_OK : status;
}

// Copies stored (or raw) bytes from the input into the output window.
uint64_t copyStep(ReadEntryState& entry) {
  z_stream& stream = entry.stream;
  const uInt n = std::min(stream.avail_out, stream.avail_in);
  std::memcpy(stream.next_out, stream.next_in, n);
  addToCrc(entry, stream.next_out, n);
  entry.uncompressedLeft -= n;
  stream.next_in += n;
  stream.avail_in -= n;
  stream.next_out += n;
  stream.avail_out -= n;
  stream.total_out += n;
  return n;
}

}  // namespace

ReadEntryState::ReadEntryState() : stream() {}

ReadEntryState::~ReadEntryState() {
  if (streamInitialised) inflateEnd(&stream);
}

UnzipArchive::~UnzipArchive() {
  reading.reset();
  if (ownsIO) delete io;
}

uint64_t readLittleEndian(const unsigned char* bytes, int count) {
  uint64_t value = 0;
  for (int i = std::min(count, 8) - 1; i >= 0; --i) value = (value << 8) | bytes[i];
  return value;
}

uint64_t findEndRecord(ZipFileIO& io) {
  if (io.seek(0, SeekFromEnd) != 0) return 0;
  const int64_t end = io.tell();
  if (end <= 0) return 0;
  const uint64_t size = static_cast<uint64_t>(end);
  const uint64_t maxBack = std::min(size, MaxSearchBack);
  std::unique_ptr<unsigned char[]> window(new (std::nothrow) unsigned char[SearchWindow + SignatureLength]);
  if (!window) return 0;
  uint64_t found = 0;
  for (uint64_t back = SignatureLength; back < maxBack && found == 0;) {
    back = std::min(back + SearchWindow, maxBack);
    const uint64_t readPos = size - back;
    const uint64_t readSize = std::min(SearchWindow + SignatureLength, size - readPos);
    if (seekTo(io, readPos) != StatusOk || readExactly(io, window.get(), readSize) != StatusOk) break;
    const int64_t match = lastSignatureIn(window.get(), readSize);
    if (match >= 0) found = readPos + static_cast<uint64_t>(match);
  }
  return found;
}

bool openArchive(UnzipArchive& archive, const char* path, ZipFileIO* io) {
  // The state owns whichever file object it is given; one it held before goes.
  if (archive.io != io) releaseIO(archive);
  if (io == nullptr) io = new (std::nothrow) ZipFileIO();
  archive.io = io;
  archive.ownsIO = true;
  if (io == nullptr || !io->open(path, ModeReadExisting)) return false;
  const uint64_t position = findEndRecord(*io);
  if (readEndRecord(archive, position) != StatusOk) {
    io->close();
    return false;
  }
  archive.endRecordPosition = position;
  archive.bytesBefore = position - (archive.centralDirectoryOffset + archive.centralDirectorySize);
  archive.reading.reset();
  archive.isOpen = true;
  // An archive whose first central header is bad still opens, with no entry current.
  goToFirstEntry(archive);
  return true;
}

int closeArchive(UnzipArchive& archive) {
  if (!archiveReady(archive)) return StatusBadParameter;
  if (archive.reading) closeCurrentEntry(archive);
  releaseIO(archive);
  return StatusOk;
}

int getGlobalInfo(UnzipArchive& archive, uint64_t* entryCount, uint64_t* commentLength) {
  if (!archiveReady(archive)) return StatusBadParameter;
  if (entryCount != nullptr) *entryCount = archive.entryCount;
  if (commentLength != nullptr) *commentLength = archive.globalCommentLength;
  return StatusOk;
}

int getGlobalComment(UnzipArchive& archive, char* buffer, uint64_t size) {
  if (!archiveReady(archive)) return StatusBadParameter;
  if (buffer == nullptr && size > 0) return StatusBadParameter;
  const uint64_t n = std::min(size, archive.globalCommentLength);
  if (seekTo(*archive.io, archive.endRecordPosition, EndRecordSize) != StatusOk) return StatusIoError;
  if (n > 0) {
    buffer[0] = '\0';
    if (readExactly(*archive.io, buffer, n) != StatusOk) return StatusIoError;
  }
  if (size > archive.globalCommentLength) buffer[archive.globalCommentLength] = '\0';
  return static_cast<int>(n);
}

int goToFirstEntry(UnzipArchive& archive) {
  if (!archiveReady(archive)) return StatusBadParameter;
  archive.entryIndex = 0;
  archive.centralPosition = archive.centralDirectoryOffset;
  return readCurrentHeader(archive);
}

int goToNextEntry(UnzipArchive& archive) {
  if (!archiveReady(archive)) return StatusBadParameter;
  if (!archive.currentValid) return StatusEndOfList;
  if (archive.entryIndex + 1 == archive.entryCount) return StatusEndOfList;
  const EntryInfo& entry = archive.current;
  archive.centralPosition +=
      CentralHeaderSize + entry.fileNameLength + entry.extraFieldLength + entry.commentLength;
  archive.entryIndex += 1;
  return readCurrentHeader(archive);
}

int getCurrentEntryInfo(UnzipArchive& archive, EntryInfo* info, char* name, uint64_t nameSize,
                        void* extra, uint64_t extraSize, char* comment, uint64_t commentSize) {
  if (!archiveReady(archive)) return StatusBadParameter;
  EntryInfo entry{};
  uint64_t localHeaderOffset = 0;
  if (int status = readCentralHeader(archive, entry, localHeaderOffset); status != StatusOk) return status;
  const TrailingBuffers buffers{name, nameSize, extra, extraSize, comment, commentSize};
  if (int status = readTrailingParts(*archive.io, entry, buffers); status != StatusOk) return status;
  if (info != nullptr) *info = entry;
  return StatusOk;
}

int getEntryPosition(UnzipArchive& archive, uint64_t* centralPosition, uint64_t* entryIndex) {
  if (!archiveReady(archive) || centralPosition == nullptr || entryIndex == nullptr) {
    return StatusBadParameter;
  }
  if (!archive.currentValid) return StatusEndOfList;
  *centralPosition = archive.centralPosition;
  *entryIndex = archive.entryIndex;
  return StatusOk;
}

int goToEntryPosition(UnzipArchive& archive, uint64_t centralPosition, uint64_t entryIndex) {
  if (!archiveReady(archive)) return StatusBadParameter;
  archive.centralPosition = centralPosition;
  archive.entryIndex = entryIndex;
  return readCurrentHeader(archive);
}

int locateEntry(UnzipArchive& archive, const char* name, int caseRule) {
  if (!archiveReady(archive) || name == nullptr || std::strlen(name) > MaxEntryNameLength) {
    return StatusBadParameter;
  }
  if (!archive.currentValid) return StatusEndOfList;
  // A failed search leaves the entry that was current as it was found, so
  // that a following step to the next entry starts from the right header.
  const uint64_t savedIndex = archive.entryIndex;
  const uint64_t savedPosition = archive.centralPosition;
  const EntryInfo savedEntry = archive.current;
  const uint64_t savedLocalHeaderOffset = archive.localHeaderOffset;
  int status = goToFirstEntry(archive);
  while (status == StatusOk) {
    // One byte more than offered, so that even a name filling the buffer ends.
    char entryName[MaxEntryNameLength + 2] = {};
    status = getCurrentEntryInfo(archive, nullptr, entryName, MaxEntryNameLength + 1, nullptr, 0, nullptr, 0);
    if (status != StatusOk) break;
    if (compareEntryNames(entryName, name, caseRule) == 0) return StatusOk;
    status = goToNextEntry(archive);
  }
  archive.entryIndex = savedIndex;
  archive.centralPosition = savedPosition;
  archive.current = savedEntry;
  archive.localHeaderOffset = savedLocalHeaderOffset;
  archive.currentValid = true;
  return status;
}

int compareEntryNames(const char* a, const char* b, int caseRule) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  if (caseRule == CaseSensitive) return std::strcmp(a, b);
  for (;; ++a, ++b) {
    signed char left = static_cast<signed char>(*a);
    signed char right = static_cast<signed char>(*b);
    if (left >= 'a' && left <= 'z') left = static_cast<signed char>(left - 0x20);
    if (right >= 'a' && right <= 'z') right = static_cast<signed char>(right - 0x20);
    if (left == '\0') return right == '\0' ? 0 : -1;
    if (right == '\0') return 1;
    if (left < right) return -1;
    if (left > right) return 1;
  }
}

int openCurrentEntry(UnzipArchive& archive, int* method, int* level, int raw) {
  if (!archiveReady(archive) || !archive.currentValid) return StatusBadParameter;
  if (archive.reading) closeCurrentEntry(archive);
  LocalLayout layout{};
  if (checkLocalHeader(archive, layout) != StatusOk) return StatusBadArchive;
  std::unique_ptr<ReadEntryState> entry(new (std::nothrow) ReadEntryState());
  if (!entry) return StatusInternalError;
  entry->inputBuffer.reset(new (std::nothrow) unsigned char[ReadBufferSize]);
  if (!entry->inputBuffer) return StatusInternalError;
  const EntryInfo& info = archive.current;
  if (method != nullptr) *method = static_cast<int>(info.compressionMethod);
  if (level != nullptr) *level = levelFromFlags(info.flags);
  entry->expectedCrc = info.crc;
  entry->compressedLeft = info.compressedSize;
  entry->uncompressedLeft = info.uncompressedSize;
  entry->nextReadPosition = layout.dataStart;
  entry->localExtraOffset = layout.extraOffset;
  entry->localExtraSize = layout.extraSize;
  entry->compressionMethod = info.compressionMethod;
  entry->io = archive.io;
  entry->bytesBefore = archive.bytesBefore;
  entry->raw = raw != 0;
  if (!entry->raw && entry->compressionMethod == MethodDeflated) {
    // A failed start is not reported here: reading then fails with zlib's status.
    entry->streamInitialised = inflateInit2_(&entry->stream, RawWindowBits, ZlibVersionPassed,
                                             static_cast<int>(sizeof(z_stream))) == Z_OK;
  }
  archive.reading = std::move(entry);
  return StatusOk;
}

int readCurrentEntry(UnzipArchive& archive, void* buffer, uint32_t length) {
  if (!archiveReady(archive) || !archive.reading) return StatusBadParameter;
  ReadEntryState& entry = *archive.reading;
  if (!entry.inputBuffer) return StatusEndOfList;
  if (length == 0) return 0;
  if (buffer == nullptr) return StatusBadParameter;
  // The count is returned as an int, so one call delivers at most INT_MAX bytes.
  const uint64_t window = std::min<uint64_t>({length, entry.uncompressedLeft, INT_MAX});
  entry.stream.next_out = static_cast<Bytef*>(buffer);
  entry.stream.avail_out = static_cast<uInt>(window);
  const bool inflating = entry.compressionMethod != MethodStored && !entry.raw;
  uint64_t count = 0;
  while (entry.stream.avail_out > 0) {
    if (refillInput(entry) != StatusOk) return StatusIoError;
    if (inflating) {
      uint64_t produced = 0;
      bool ended = false;
      const int status = inflateStep(entry, produced, ended);
      count += produced;
      if (ended) break;
      if (status != Z_OK) return status;
    } else {
      if (entry.stream.avail_in == 0 && entry.compressedLeft == 0) break;
      count += copyStep(entry);
    }
  }
  return static_cast<int>(count);
}

int64_t currentEntryOffset(UnzipArchive& archive) {
  if (!archiveReady(archive) || !archive.reading) return StatusBadParameter;
  return static_cast<int64_t>(archive.reading->stream.total_out);
}

int atEndOfCurrentEntry(UnzipArchive& archive) {
  if (!archiveReady(archive) || !archive.reading) return StatusBadParameter;
  return archive.reading->uncompressedLeft == 0 ? 1 : 0;
}

int getLocalExtraField(UnzipArchive& archive, void* buffer, uint32_t length) {
  if (!archiveReady(archive) || !archive.reading) return StatusBadParameter;
  const ReadEntryState& entry = *archive.reading;
  const uint64_t available = entry.localExtraSize - entry.localExtraPosition;
  if (buffer == nullptr) return static_cast<int>(available);
  const uint64_t n = std::min<uint64_t>(available, length);
  if (n == 0) return 0;
  // The extra field's offset is taken as it stands, without the bytes in
  // front of the archive: that is how this field has always been read.
  if (seekTo(*archive.io, entry.localExtraOffset, entry.localExtraPosition) != StatusOk) return StatusIoError;
  if (readExactly(*archive.io, buffer, n) != StatusOk) return StatusIoError;
  return static_cast<int>(n);
}

int closeCurrentEntry(UnzipArchive& archive) {
  if (!archiveReady(archive) || !archive.reading) return StatusBadParameter;
  const ReadEntryState& entry = *archive.reading;
  // Only an entry read to its end can be judged by its CRC.
  int status = StatusOk;
  if (entry.uncompressedLeft == 0 && !entry.raw && entry.crcSoFar != entry.expectedCrc) status = StatusCrcError;
  archive.reading.reset();
  return status;
}

}  // namespace kxzef
