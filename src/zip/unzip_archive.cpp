// The ZIP reading core. Every offset, size and count read from the archive is
// untrusted: nothing here allocates by such a value or touches memory beyond
// the caller's stated buffer sizes, and every walk is bounded by the file.
#include "zip/unzip_archive.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include <zlib.h>

namespace kxzef {

// Where an entry's data starts and what its local header says about its extra field.
struct UnzipArchive::LocalLayout {
  uint64_t extraOffset;
  uint64_t extraSize;
  uint64_t dataStart;
};

// The entry open for reading, with the buffer and stream every entry reuses.
struct UnzipArchive::ReadEntryState {
  std::unique_ptr<unsigned char[]> inputBuffer;  // ReadBufferSize bytes
  InflateStream inflater;  // started (or reset) only for deflated data read plain

  const unsigned char* input = nullptr;  // compressed bytes not yet used, in inputBuffer
  uint64_t inputLeft = 0;
  uint64_t nextReadPosition = 0;  // archive offset of the next compressed bytes, without bytesBefore
  uint64_t localExtraOffset = 0;
  uint64_t localExtraSize = 0;
  uint64_t localExtraPosition = 0;
  uint64_t crcSoFar = 0;
  uint64_t expectedCrc = 0;
  uint64_t compressedLeft = 0;
  uint64_t uncompressedLeft = 0;
  uint64_t delivered = 0;  // uncompressed bytes handed out
  uint64_t compressionMethod = 0;
  bool raw = false;

  void begin(const EntryInfo& info, const LocalLayout& layout, bool rawData);
  // Up to `space` uncompressed bytes into `out`: the count, or a failing status.
  int read(BlockReader& reader, ZipFileIO& io, uint64_t bytesBefore, unsigned char* out, uint64_t space);
  int refillInput(BlockReader& reader, ZipFileIO& io, uint64_t bytesBefore);
  int inflateStep(unsigned char* out, uint64_t space, uint64_t& produced, bool& ended);
  uint64_t copyStep(unsigned char* out, uint64_t space);
  // Counts bytes handed out and adds them to the CRC.
  void deliver(const unsigned char* bytes, uint64_t count);
};

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

// Reads exactly `count` bytes; a short read off the end of the file is an I/O error.
int readExactly(ZipFileIO& io, void* buffer, uint64_t count) {
  if (count == 0) return StatusOk;
  return io.read(buffer, static_cast<int64_t>(count)) == static_cast<int64_t>(count) ? StatusOk
                                                                                     : StatusIoError;
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

// Decodes a central header's fixed bytes into `entry`.
void decodeCentralHeader(const unsigned char* header, EntryInfo& entry, uint64_t& localHeaderOffset) {
  entry.versionMadeBy = getField(header, CentralHeader::VersionMadeBy);
  entry.versionNeeded = getField(header, CentralHeader::VersionNeeded);
  entry.flags = getField(header, CentralHeader::Flags);
  entry.compressionMethod = getField(header, CentralHeader::Method);
  entry.dosDate = getField(header, CentralHeader::DosDate);
  entry.crc = getField(header, CentralHeader::Crc);
  entry.compressedSize = getField(header, CentralHeader::CompressedSize);
  entry.uncompressedSize = getField(header, CentralHeader::UncompressedSize);
  entry.fileNameLength = getField(header, CentralHeader::NameLength);
  entry.extraFieldLength = getField(header, CentralHeader::ExtraLength);
  entry.commentLength = getField(header, CentralHeader::CommentLength);
  entry.diskNumberStart = getField(header, CentralHeader::DiskNumberStart);
  entry.internalAttributes = getField(header, CentralHeader::InternalAttributes);
  entry.externalAttributes = getField(header, CentralHeader::ExternalAttributes);
  localHeaderOffset = getField(header, CentralHeader::LocalHeaderOffset);
  timeFromDosDate(static_cast<uint32_t>(entry.dosDate), entry.modified);
}

// The variable parts that follow a central header, each copied only as far as
// its buffer reaches.
struct TrailingBuffers {
  char* name;
  uint64_t nameSize;
  void* extra;
  uint64_t extraSize;
  char* comment;
  uint64_t commentSize;
};

// Reads the parts of the central header at `base` + `offset` into the buffers given.
int readTrailingParts(BlockReader& reader, ZipFileIO& io, uint64_t base, uint64_t offset, const EntryInfo& entry,
                      const TrailingBuffers& out) {
  const uint64_t nameAt = offset + CentralHeaderSize;
  const uint64_t extraAt = nameAt + entry.fileNameLength;
  if (out.name != nullptr) {
    if (entry.fileNameLength < out.nameSize) out.name[entry.fileNameLength] = '\0';
    const uint64_t n = std::min(entry.fileNameLength, out.nameSize);
    if (int status = reader.read(io, base, nameAt, out.name, n); status != StatusOk) return status;
  }
  if (out.extra != nullptr) {
    const uint64_t n = std::min(entry.extraFieldLength, out.extraSize);
    if (int status = reader.read(io, base, extraAt, out.extra, n); status != StatusOk) return status;
  }
  if (out.comment != nullptr) {
    if (entry.commentLength < out.commentSize) out.comment[entry.commentLength] = '\0';
    const uint64_t n = std::min(entry.commentLength, out.commentSize);
    return reader.read(io, base, extraAt + entry.extraFieldLength, out.comment, n);
  }
  return StatusOk;
}

// The deflate level that bits 1 and 2 of the flags hint at.
int levelFromFlags(uint64_t flags) {
  switch (flags & FlagLevelMask) {
    case FlagLevelFastest: return 1;
    case FlagLevelFast: return 2;
    case FlagLevelMaximum: return 9;
    default: return LevelDefault;
  }
}

}  // namespace

UnzipArchive::UnzipArchive() = default;

UnzipArchive::~UnzipArchive() = default;

int UnzipArchive::readCentralHeader(EntryInfo& entry, uint64_t& localHeaderOffset) {
  // A failed read wins over a wrong signature, as it says more about the file.
  unsigned char header[CentralHeaderSize];
  if (int status = centralReader_.read(*io_, centralPosition_, bytesBefore_, header, sizeof header);
      status != StatusOk) {
    return status;
  }
  if (getField(header, CentralHeader::Signature) != CentralHeaderSignature) return StatusBadArchive;
  decodeCentralHeader(header, entry, localHeaderOffset);
  return StatusOk;
}

int UnzipArchive::readCurrentHeader() {
  const int status = readCentralHeader(current_, localHeaderOffset_);
  currentValid_ = status == StatusOk;
  return status;
}

int UnzipArchive::readEndRecord(uint64_t position) {
  unsigned char record[EndRecordSize];
  if (position == 0) return StatusIoError;
  if (int status = seekTo(*io_, position); status != StatusOk) return status;
  if (int status = readExactly(*io_, record, sizeof record); status != StatusOk) return status;
  const uint64_t entriesOnDisk = getField(record, EndRecord::EntriesOnDisk);
  entryCount_ = entriesOnDisk;
  centralDirectorySize_ = getField(record, EndRecord::DirectorySize);
  centralDirectoryOffset_ = getField(record, EndRecord::DirectoryOffset);
  globalCommentLength_ = getField(record, EndRecord::CommentLength);
  if (entriesOnDisk != getField(record, EndRecord::TotalEntries) || getField(record, EndRecord::ThisDisk) != 0 ||
      getField(record, EndRecord::DirectoryDisk) != 0) {
    return StatusBadArchive;
  }
  if (position < centralDirectoryOffset_ + centralDirectorySize_) return StatusBadArchive;
  return StatusOk;
}

void UnzipArchive::releaseIO() {
  entryOpen_ = false;
  centralReader_.clear();
  entryReader_.clear();
  if (io_) io_->close();
  io_.reset();
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

bool UnzipArchive::openArchive(const char* path, std::unique_ptr<ZipFileIO> io) {
  releaseIO();
  io_ = io ? std::move(io) : std::unique_ptr<ZipFileIO>(new (std::nothrow) ZipFileIO());
  if (!io_ || !io_->open(path, ModeReadExisting)) return false;
  const uint64_t position = findEndRecord(*io_);
  if (readEndRecord(position) != StatusOk) {
    io_->close();
    return false;
  }
  endRecordPosition_ = position;
  bytesBefore_ = position - (centralDirectoryOffset_ + centralDirectorySize_);
  isOpen_ = true;
  // An archive whose first central header is bad still opens, with no entry current.
  goToFirstEntry();
  return true;
}

int UnzipArchive::closeArchive() {
  if (!ready()) return StatusBadParameter;
  if (entryOpen_) closeCurrentEntry();
  releaseIO();
  return StatusOk;
}

int UnzipArchive::getGlobalInfo(uint64_t* entryCount, uint64_t* commentLength) const {
  if (!ready()) return StatusBadParameter;
  if (entryCount != nullptr) *entryCount = entryCount_;
  if (commentLength != nullptr) *commentLength = globalCommentLength_;
  return StatusOk;
}

int UnzipArchive::getGlobalComment(char* buffer, uint64_t size) {
  if (!ready()) return StatusBadParameter;
  if (buffer == nullptr && size > 0) return StatusBadParameter;
  const uint64_t n = std::min(size, globalCommentLength_);
  if (seekTo(*io_, endRecordPosition_, EndRecordSize) != StatusOk) return StatusIoError;
  if (n > 0) {
    buffer[0] = '\0';
    if (readExactly(*io_, buffer, n) != StatusOk) return StatusIoError;
  }
  if (size > globalCommentLength_) buffer[globalCommentLength_] = '\0';
  return static_cast<int>(n);
}

int UnzipArchive::goToFirstEntry() {
  if (!ready()) return StatusBadParameter;
  entryIndex_ = 0;
  centralPosition_ = centralDirectoryOffset_;
  return readCurrentHeader();
}

int UnzipArchive::goToNextEntry() {
  if (!ready()) return StatusBadParameter;
  if (!currentValid_) return StatusEndOfList;
  if (entryIndex_ + 1 == entryCount_) return StatusEndOfList;
  centralPosition_ += CentralHeaderSize + current_.fileNameLength + current_.extraFieldLength + current_.commentLength;
  entryIndex_ += 1;
  return readCurrentHeader();
}

int UnzipArchive::getCurrentEntryInfo(EntryInfo* info, char* name, uint64_t nameSize, void* extra,
                                      uint64_t extraSize, char* comment, uint64_t commentSize) {
  if (!ready()) return StatusBadParameter;
  EntryInfo entry{};
  uint64_t localHeaderOffset = 0;
  if (int status = readCentralHeader(entry, localHeaderOffset); status != StatusOk) return status;
  const TrailingBuffers buffers{name, nameSize, extra, extraSize, comment, commentSize};
  if (int status = readTrailingParts(centralReader_, *io_, centralPosition_, bytesBefore_, entry, buffers);
      status != StatusOk) {
    return status;
  }
  if (info != nullptr) *info = entry;
  return StatusOk;
}

int UnzipArchive::getEntryPosition(uint64_t* centralPosition, uint64_t* entryIndex) const {
  if (!ready() || centralPosition == nullptr || entryIndex == nullptr) return StatusBadParameter;
  if (!currentValid_) return StatusEndOfList;
  *centralPosition = centralPosition_;
  *entryIndex = entryIndex_;
  return StatusOk;
}

int UnzipArchive::goToEntryPosition(uint64_t centralPosition, uint64_t entryIndex) {
  if (!ready()) return StatusBadParameter;
  centralPosition_ = centralPosition;
  entryIndex_ = entryIndex;
  return readCurrentHeader();
}

int UnzipArchive::locateEntry(const char* name, int caseRule) {
  if (!ready() || name == nullptr || std::strlen(name) > MaxEntryNameLength) return StatusBadParameter;
  if (!currentValid_) return StatusEndOfList;
  // A failed search leaves the entry that was current as it was found, so
  // that a following step to the next entry starts from the right header.
  const uint64_t savedIndex = entryIndex_;
  const uint64_t savedPosition = centralPosition_;
  const EntryInfo savedEntry = current_;
  const uint64_t savedLocalHeaderOffset = localHeaderOffset_;
  int status = goToFirstEntry();
  while (status == StatusOk) {
    // One byte more than offered, so that even a name filling the buffer ends.
    char entryName[MaxEntryNameLength + 2] = {};
    status = getCurrentEntryInfo(nullptr, entryName, MaxEntryNameLength + 1, nullptr, 0, nullptr, 0);
    if (status != StatusOk) break;
    if (compareEntryNames(entryName, name, caseRule) == 0) return StatusOk;
    status = goToNextEntry();
  }
  entryIndex_ = savedIndex;
  centralPosition_ = savedPosition;
  current_ = savedEntry;
  localHeaderOffset_ = savedLocalHeaderOffset;
  currentValid_ = true;
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

int UnzipArchive::checkLocalHeader(LocalLayout& layout) {
  // The local extra field may differ in length; the version and date are not compared.
  unsigned char header[LocalHeaderSize];
  const EntryInfo& entry = current_;
  if (int status = entryReader_.read(*io_, localHeaderOffset_, bytesBefore_, header, sizeof header);
      status != StatusOk) {
    return status;
  }
  const uint64_t method = getField(header, LocalHeader::Method);
  const bool sizesFollowData = (getField(header, LocalHeader::Flags) & FlagDataDescriptor) != 0;
  if (getField(header, LocalHeader::Signature) != LocalHeaderSignature) return StatusBadArchive;
  if (method != entry.compressionMethod) return StatusBadArchive;
  if (method != MethodStored && method != MethodDeflated) return StatusBadArchive;
  if (!sizesFollowData && (getField(header, LocalHeader::Crc) != entry.crc ||
                           getField(header, LocalHeader::CompressedSize) != entry.compressedSize ||
                           getField(header, LocalHeader::UncompressedSize) != entry.uncompressedSize)) {
    return StatusBadArchive;
  }
  const uint64_t nameLength = getField(header, LocalHeader::NameLength);
  if (nameLength != entry.fileNameLength) return StatusBadArchive;
  layout.extraOffset = localHeaderOffset_ + LocalHeaderSize + nameLength;
  layout.extraSize = getField(header, LocalHeader::ExtraLength);
  layout.dataStart = layout.extraOffset + layout.extraSize;
  return StatusOk;
}

int UnzipArchive::prepareEntryState() {
  if (!reading_) reading_.reset(new (std::nothrow) ReadEntryState());
  if (!reading_) return StatusInternalError;
  if (!reading_->inputBuffer) reading_->inputBuffer.reset(new (std::nothrow) unsigned char[ReadBufferSize]);
  return reading_->inputBuffer ? StatusOk : StatusInternalError;
}

int UnzipArchive::openCurrentEntry(int* method, int* level, int raw) {
  if (!ready() || !currentValid_) return StatusBadParameter;
  if (entryOpen_) closeCurrentEntry();
  LocalLayout layout{};
  if (checkLocalHeader(layout) != StatusOk) return StatusBadArchive;
  if (int status = prepareEntryState(); status != StatusOk) return status;
  if (method != nullptr) *method = static_cast<int>(current_.compressionMethod);
  if (level != nullptr) *level = levelFromFlags(current_.flags);
  reading_->begin(current_, layout, raw != 0);
  entryOpen_ = true;
  return StatusOk;
}

int UnzipArchive::readCurrentEntry(void* buffer, uint32_t length) {
  if (!ready() || !entryOpen_) return StatusBadParameter;
  ReadEntryState& entry = *reading_;
  if (length == 0) return 0;
  if (buffer == nullptr) return StatusBadParameter;
  // The count is returned as an int, so one call delivers at most INT_MAX bytes.
  const uint64_t window = std::min<uint64_t>({length, entry.uncompressedLeft, INT_MAX});
  return entry.read(entryReader_, *io_, bytesBefore_, static_cast<unsigned char*>(buffer), window);
}

int UnzipArchive::readWholeRawEntry(void* buffer, uint64_t count) {
  if (!ready() || !entryOpen_ || buffer == nullptr) return StatusBadParameter;
  ReadEntryState& entry = *reading_;
  if (!entry.raw || entry.inputLeft != 0 || count != entry.compressedLeft || entry.delivered != 0) {
    return StatusBadParameter;
  }
  if (entryReader_.read(*io_, entry.nextReadPosition, bytesBefore_, buffer, count) != StatusOk) return StatusIoError;
  entry.nextReadPosition += count;
  entry.compressedLeft = 0;
  entry.uncompressedLeft = 0;
  entry.delivered = count;
  return StatusOk;
}

int64_t UnzipArchive::currentEntryOffset() const {
  if (!ready() || !entryOpen_) return StatusBadParameter;
  return static_cast<int64_t>(reading_->delivered);
}

int UnzipArchive::atEndOfCurrentEntry() const {
  if (!ready() || !entryOpen_) return StatusBadParameter;
  return reading_->uncompressedLeft == 0 ? 1 : 0;
}

int UnzipArchive::getLocalExtraField(void* buffer, uint32_t length) {
  if (!ready() || !entryOpen_) return StatusBadParameter;
  const ReadEntryState& entry = *reading_;
  const uint64_t available = entry.localExtraSize - entry.localExtraPosition;
  if (buffer == nullptr) return static_cast<int>(available);
  const uint64_t n = std::min<uint64_t>(available, length);
  if (n == 0) return 0;
  // The extra field's offset is taken as it stands, without the bytes in
  // front of the archive: that is how this field has always been read.
  if (entryReader_.read(*io_, entry.localExtraOffset, entry.localExtraPosition, buffer, n) != StatusOk) {
    return StatusIoError;
  }
  return static_cast<int>(n);
}

int UnzipArchive::closeCurrentEntry() {
  if (!ready() || !entryOpen_) return StatusBadParameter;
  const ReadEntryState& entry = *reading_;
  // Only an entry read to its end can be judged by its CRC.
  int status = StatusOk;
  if (entry.uncompressedLeft == 0 && !entry.raw && entry.crcSoFar != entry.expectedCrc) status = StatusCrcError;
  entryOpen_ = false;
  return status;
}

void UnzipArchive::ReadEntryState::begin(const EntryInfo& info, const LocalLayout& layout, bool rawData) {
  input = nullptr;
  inputLeft = 0;
  nextReadPosition = layout.dataStart;
  localExtraOffset = layout.extraOffset;
  localExtraSize = layout.extraSize;
  localExtraPosition = 0;
  crcSoFar = 0;
  expectedCrc = info.crc;
  compressedLeft = info.compressedSize;
  uncompressedLeft = info.uncompressedSize;
  delivered = 0;
  compressionMethod = info.compressionMethod;
  raw = rawData;
  // A failed start is not reported here: reading then fails with zlib's status.
  if (!raw && compressionMethod == MethodDeflated) inflater.start();
}

int UnzipArchive::ReadEntryState::read(BlockReader& reader, ZipFileIO& io, uint64_t bytesBefore, unsigned char* out,
                                       uint64_t space) {
  const bool inflating = compressionMethod != MethodStored && !raw;
  uint64_t count = 0;
  while (count < space) {
    if (refillInput(reader, io, bytesBefore) != StatusOk) return StatusIoError;
    if (inflating) {
      uint64_t produced = 0;
      bool ended = false;
      const int status = inflateStep(out + count, space - count, produced, ended);
      count += produced;
      if (ended) break;
      if (status != Z_OK) return status;
    } else {
      if (inputLeft == 0 && compressedLeft == 0) break;
      count += copyStep(out + count, space - count);
    }
  }
  return static_cast<int>(count);
}

// Brings in the next block of compressed bytes when the input has run dry.
int UnzipArchive::ReadEntryState::refillInput(BlockReader& reader, ZipFileIO& io, uint64_t bytesBefore) {
  if (inputLeft != 0 || compressedLeft == 0) return StatusOk;
  const uint64_t n = std::min<uint64_t>(ReadBufferSize, compressedLeft);
  if (reader.read(io, nextReadPosition, bytesBefore, inputBuffer.get(), n) != StatusOk) return StatusIoError;
  nextReadPosition += n;
  compressedLeft -= n;
  input = inputBuffer.get();
  inputLeft = n;
  return StatusOk;
}

// Inflates into `out` once; the count produced, or zlib's status
// (Z_STREAM_END is reported through `ended`).
int UnzipArchive::ReadEntryState::inflateStep(unsigned char* out, uint64_t space, uint64_t& produced,
                                              bool& ended) {
  z_stream& stream = inflater.get();
  stream.next_in = const_cast<Bytef*>(input);
  stream.avail_in = static_cast<uInt>(inputLeft);
  stream.next_out = out;
  stream.avail_out = static_cast<uInt>(space);
  const int status = inflate(&stream, Z_SYNC_FLUSH);
  input = stream.next_in;
  inputLeft = stream.avail_in;
  produced = space - stream.avail_out;
  deliver(out, produced);
  ended = status == Z_STREAM_END;
  return ended ? Z_OK : status;
}

// Copies stored (or raw) bytes from the input into `out`.
uint64_t UnzipArchive::ReadEntryState::copyStep(unsigned char* out, uint64_t space) {
  const uint64_t n = std::min(space, inputLeft);
  std::memcpy(out, input, n);
  deliver(out, n);
  input += n;
  inputLeft -= n;
  return n;
}

void UnzipArchive::ReadEntryState::deliver(const unsigned char* bytes, uint64_t count) {
  crcSoFar = crc32(static_cast<uLong>(crcSoFar), bytes, static_cast<uInt>(count));
  uncompressedLeft -= count;
  delivered += count;
}

}  // namespace kxzef
