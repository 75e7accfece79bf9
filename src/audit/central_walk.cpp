// Finds the end records and walks the central directory. Every count, size
// and offset read here is the archive's claim: the walk is bounded by the
// directory's real bytes, never by the count the end record gives.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "audit/audit_steps.h"
#include "zip/unzip_archive.h"

namespace kxzef {

namespace {

constexpr uint64_t MaxCommentLength = 0xFFFF;
constexpr uint64_t Zip64LocatorSignature = 0x07064B50;
constexpr uint64_t Zip64EndSignature = 0x06064B50;
constexpr uint64_t Zip64LocatorSize = 20;
constexpr uint64_t Zip64EndSize = 56;
// A field at its largest value means "see the ZIP64 record".
constexpr uint64_t Marker16 = Max16BitField;
constexpr uint64_t Marker32 = Max32BitField;
// A central header with the longest name, extra field and comment.
constexpr size_t MaxCentralRecord = CentralHeaderSize + 3 * 0xFFFF;
constexpr size_t DirectoryReadSize = 256 * 1024;
constexpr uint64_t EntriesReservedAtOnce = 1 << 16;

struct Zip64Locator {
  static constexpr RecordField Signature{0, 4};
  static constexpr RecordField EndOffset{8, 8};
  static constexpr RecordField DiskCount{16, 4};
};

// The same fields as the end record's, wider and further on.
struct Zip64End {
  static constexpr RecordField Signature{0, 4};
  static constexpr RecordField ThisDisk{16, 4};
  static constexpr RecordField DirectoryDisk{20, 4};
  static constexpr RecordField EntriesOnDisk{24, 8};
  static constexpr RecordField TotalEntries{32, 8};
  static constexpr RecordField DirectorySize{40, 8};
  static constexpr RecordField DirectoryOffset{48, 8};
};

// An extra field's blocks each open with a tag and the length of the rest.
constexpr RecordField BlockTag{0, 2};
constexpr RecordField BlockLength{2, 2};

// The end record's fields, with the ZIP64 end record's where that one exists.
struct EndFields {
  uint64_t disk = 0, directoryDisk = 0, entriesOnDisk = 0, entriesTotal = 0, directorySize = 0,
           directoryOffset = 0;
  // A count of 0xFFFF is left out: an archive of exactly that many entries
  // needs no ZIP64, and a count that lies shows up as a mismatch.
  bool hasMarkers() const {
    return directorySize == Marker32 || directoryOffset == Marker32 || disk == Marker16 || directoryDisk == Marker16;
  }
};

// The position of the last end record signature with a whole record after
// it, within the reach a comment allows; `found` false when there is none.
int findEndRecord(AuditFile& file, uint64_t& position, bool& found) {
  found = false;
  const uint64_t reach = std::min(file.size(), MaxCommentLength + EndRecordSize);
  if (reach < EndRecordSize) return AuditOk;
  const uint64_t start = file.size() - reach;
  std::unique_ptr<unsigned char[]> tail(new (std::nothrow) unsigned char[reach]);
  if (!tail || file.readAt(start, tail.get(), reach) != reach) return AuditCannotOpen;
  for (uint64_t i = reach - EndRecordSize + 1; i-- > 0;) {
    if (getField(tail.get() + i, EndRecord::Signature) == EndRecordSignature) {
      position = start + i;
      found = true;
      return AuditOk;
    }
  }
  return AuditOk;
}

// `Record` is EndRecord or Zip64End.
template <typename Record>
EndFields readEndFields(const unsigned char* record) {
  EndFields fields;
  fields.disk = getField(record, Record::ThisDisk);
  fields.directoryDisk = getField(record, Record::DirectoryDisk);
  fields.entriesOnDisk = getField(record, Record::EntriesOnDisk);
  fields.entriesTotal = getField(record, Record::TotalEntries);
  fields.directorySize = getField(record, Record::DirectorySize);
  fields.directoryOffset = getField(record, Record::DirectoryOffset);
  return fields;
}

// Reads the ZIP64 end record the locator before `endPosition` names, or the
// one right before the locator when the named offset is wrong. Returns its
// position, or 0 when there is no locator or no record.
uint64_t readZip64End(ReadWindow& window, uint64_t endPosition, EndFields& fields, bool& hasLocator,
                      uint64_t& diskCount) {
  hasLocator = false;
  if (endPosition < Zip64LocatorSize) return 0;
  const uint64_t locatorPosition = endPosition - Zip64LocatorSize;
  const unsigned char* locator = window.bytesAt(locatorPosition, Zip64LocatorSize);
  if (locator == nullptr || getField(locator, Zip64Locator::Signature) != Zip64LocatorSignature) return 0;
  hasLocator = true;
  diskCount = getField(locator, Zip64Locator::DiskCount);
  const uint64_t candidates[] = {getField(locator, Zip64Locator::EndOffset),
                                 locatorPosition >= Zip64EndSize ? locatorPosition - Zip64EndSize : 0};
  for (uint64_t position : candidates) {
    const bool fits = locatorPosition >= Zip64EndSize && position <= locatorPosition - Zip64EndSize;
    const unsigned char* record = fits ? window.bytesAt(position, Zip64EndSize) : nullptr;
    if (record == nullptr || getField(record, Zip64End::Signature) != Zip64EndSignature) continue;
    fields = readEndFields<Zip64End>(record);
    return position;
  }
  return 0;
}

void reportEndFindings(AuditReport& report, const EndFields& fields, bool hasLocator, uint64_t zip64End,
                       uint64_t diskCount) {
  if (zip64End != 0) {
    addFinding(report, FindingKind::Zip64, -1, "has a ZIP64 end record");
  } else if (hasLocator) {
    addFinding(report, FindingKind::Zip64, -1, "has a ZIP64 locator without its end record");
  } else if (fields.hasMarkers()) {
    addFinding(report, FindingKind::Zip64, -1, "marks its end record for ZIP64 without a ZIP64 end record");
  }
  const bool severalDisks = fields.disk != 0 || fields.directoryDisk != 0 ||
                            fields.entriesOnDisk != fields.entriesTotal || diskCount > 1;
  if (severalDisks) addFinding(report, FindingKind::MultiDisk, -1, "spans several disks");
}

constexpr unsigned SystemUnix = 3;  // the high byte of "version made by"
constexpr unsigned ModeShift = 16;   // the Unix mode sits in the high half of the external attributes
constexpr uint64_t FlagEncrypted = 0x0001;
constexpr uint64_t FlagStrongEncryption = 0x0040;

// The library's own rule for a link: the central extra field opens with the
// Unix block, and the target after its header is not empty.
bool carriesLinkBlock(const unsigned char* extra, size_t size) {
  if (size <= UnixExtraHeaderSize) return false;
  if (getField(extra, UnixExtraTagField) != UnixExtraTag) return false;
  if (getField(extra, UnixExtraLengthField) <= UnixExtraHeaderSize) return false;
  return extra[UnixExtraHeaderSize] != 0;
}

// Unix modes are taken as unzip takes them: from an archive made on Unix,
// whenever the high half is not 0, with or without a file type.
void setKind(AuditEntry& entry, bool linkBlock) {
  const uint32_t high = entry.externalAttributes >> ModeShift;
  entry.hasUnixMode = (entry.versionMadeBy >> 8) == SystemUnix && high != 0;
  entry.mode = entry.hasUnixMode ? high : 0;
  const uint32_t type = entry.mode & S_IFMT;
  const bool slash = !entry.name.empty() && entry.name.back() == '/';
  entry.isDirectory = slash || type == S_IFDIR;
  // A name ending in "/" is made a directory whatever else the record says.
  entry.isLink = !slash && (type == S_IFLNK || linkBlock);
}

const char* methodName(uint64_t method) {
  switch (method) {
    case 1: return "shrink";
    case 2: case 3: case 4: case 5: return "reduce";
    case 6: return "implode";
    case 9: return "Deflate64";
    case 12: return "bzip2";
    case 14: return "LZMA";
    case 93: return "zstd";
    case 95: return "XZ";
    case 96: return "JPEG";
    case 97: return "WavPack";
    case 98: return "PPMd";
    case 99: return "AES";
    default: return nullptr;
  }
}

std::string specialBitsDetail(uint32_t mode) {
  const char* names[3];
  int count = 0;
  if (mode & S_ISUID) names[count++] = "set-user-ID";
  if (mode & S_ISGID) names[count++] = "set-group-ID";
  if (mode & S_ISVTX) names[count++] = "sticky";
  std::string detail = "has the ";
  for (int i = 0; i < count; ++i) detail += std::string(i == 0 ? "" : i + 1 == count ? " and " : ", ") + names[i];
  return detail + (count == 1 ? " bit" : " bits");
}

// What the record's fields alone say about the entry.
void reportRecordFindings(const AuditEntry& entry, int64_t index, AuditReport& report) {
  if (entry.flags & (FlagEncrypted | FlagStrongEncryption)) {
    addFinding(report, FindingKind::Encrypted, index, "is encrypted");
  }
  if (entry.flags & FlagDataDescriptor) {
    addFinding(report, FindingKind::DataDescriptor, index, "keeps its sizes and CRC in a data descriptor");
  }
  if (entry.method != MethodStored && entry.method != MethodDeflated) {
    const char* name = methodName(entry.method);
    const std::string method = name != nullptr ? name : "method " + std::to_string(entry.method);
    addFinding(report, FindingKind::UnsupportedMethod, index, "uses " + method + ", which is not supported");
  }
  if (entry.mode & (S_ISUID | S_ISGID | S_ISVTX)) {
    addFinding(report, FindingKind::SpecialModeBits, index, specialBitsDetail(entry.mode));
  }
}

// Appends the entry of one whole central record.
void readCentralRecord(const unsigned char* record, AuditReport& report) {
  AuditEntry& entry = report.entries.emplace_back();
  const int64_t index = static_cast<int64_t>(report.entries.size() - 1);
  entry.versionMadeBy = static_cast<uint16_t>(getField(record, CentralHeader::VersionMadeBy));
  entry.flags = static_cast<uint16_t>(getField(record, CentralHeader::Flags));
  entry.method = static_cast<uint16_t>(getField(record, CentralHeader::Method));
  entry.dosDateTime = static_cast<uint32_t>(getField(record, CentralHeader::DosDate));
  entry.crc = static_cast<uint32_t>(getField(record, CentralHeader::Crc));
  entry.compressedSize = getField(record, CentralHeader::CompressedSize);
  entry.uncompressedSize = getField(record, CentralHeader::UncompressedSize);
  entry.externalAttributes = static_cast<uint32_t>(getField(record, CentralHeader::ExternalAttributes));
  entry.localHeaderOffset = getField(record, CentralHeader::LocalHeaderOffset);
  const size_t nameLength = getField(record, CentralHeader::NameLength);
  const size_t extraLength = getField(record, CentralHeader::ExtraLength);
  entry.name.assign(reinterpret_cast<const char*>(record + CentralHeaderSize), nameLength);
  const unsigned char* extra = record + CentralHeaderSize + nameLength;
  uint64_t disk = getField(record, CentralHeader::DiskNumberStart);
  const bool marked = entry.compressedSize == Marker32 || entry.uncompressedSize == Marker32 ||
                      entry.localHeaderOffset == Marker32 || disk == Marker16;
  const bool zip64Extra = applyZip64Extra(extra, extraLength, entry.uncompressedSize, entry.compressedSize,
                                          &entry.localHeaderOffset, &disk);
  setKind(entry, carriesLinkBlock(extra, extraLength));
  if (marked || zip64Extra) addFinding(report, FindingKind::Zip64, index, "has ZIP64 sizes or offsets in its central record");
  if (disk != 0) addFinding(report, FindingKind::MultiDisk, index, "starts on disk " + std::to_string(disk));
  reportRecordFindings(entry, index, report);
}

}  // namespace

int placeDirectory(AuditFile& file, AuditReport& report, DirectoryPlace& place) {
  uint64_t endPosition = 0;
  bool found = false;
  if (int status = findEndRecord(file, endPosition, found); status != AuditOk) return status;
  if (!found) return AuditNotAnArchive;
  ReadWindow window(file, Zip64EndSize + Zip64LocatorSize + EndRecordSize);
  const unsigned char* record = window.bytesAt(endPosition, EndRecordSize);
  if (record == nullptr) return file.failed() ? AuditCannotOpen : AuditNotAnArchive;
  EndFields fields = readEndFields<EndRecord>(record);
  const EndFields plain = fields;
  bool hasLocator = false;
  uint64_t diskCount = 0;
  const uint64_t zip64End = readZip64End(window, endPosition, fields, hasLocator, diskCount);
  reportEndFindings(report, zip64End != 0 ? fields : plain, hasLocator, zip64End, diskCount);
  // Only fields the plain record marks are taken from the ZIP64 one.
  if (zip64End != 0) {
    if (plain.entriesTotal != Marker16) fields.entriesTotal = plain.entriesTotal;
    if (plain.directorySize != Marker32) fields.directorySize = plain.directorySize;
    if (plain.directoryOffset != Marker32) fields.directoryOffset = plain.directoryOffset;
  }
  place.directoryEnd = zip64End != 0 ? zip64End : endPosition;
  place.countedEntries = fields.entriesTotal;
  if (fields.directorySize > place.directoryEnd) return AuditNotAnArchive;
  place.directoryStart = place.directoryEnd - fields.directorySize;
  if (fields.directoryOffset > place.directoryStart) return AuditNotAnArchive;
  // As the reading core does: offsets count from where the directory claims
  // to start, so bytes prepended to the archive shift every one of them.
  place.bytesBefore = place.directoryStart - fields.directoryOffset;
  return file.failed() ? AuditCannotOpen : AuditOk;
}


bool applyZip64Extra(const unsigned char* extra, size_t size, uint64_t& uncompressedSize,
                     uint64_t& compressedSize, uint64_t* localHeaderOffset, uint64_t* disk) {
  constexpr uint64_t Zip64ExtraTag = 0x0001;
  constexpr size_t BlockHeaderSize = 4;
  for (size_t position = 0; size - position >= BlockHeaderSize;) {
    const uint64_t tag = getField(extra + position, BlockTag);
    size_t left = getField(extra + position, BlockLength);
    if (left > size - position - BlockHeaderSize) return false;
    if (tag == Zip64ExtraTag) {
      const unsigned char* field = extra + position + BlockHeaderSize;
      // Only marked fields are present, in this order; a block too short for them leaves the markers.
      const auto take = [&](uint64_t& value, uint64_t marker, size_t width) {
        if (value != marker || left < width) return;
        value = readLittleEndian(field, static_cast<int>(width));
        field += width;
        left -= width;
      };
      take(uncompressedSize, Marker32, 8);
      take(compressedSize, Marker32, 8);
      if (localHeaderOffset != nullptr) take(*localHeaderOffset, Marker32, 8);
      if (disk != nullptr) take(*disk, Marker16, 4);
      return true;
    }
    position += BlockHeaderSize + left;
  }
  return false;
}

int walkDirectory(AuditFile& file, const DirectoryPlace& place, AuditReport& report) {
  static_assert(DirectoryReadSize >= MaxCentralRecord, "a whole central record fits the window");
  ReadWindow window(file, DirectoryReadSize);
  if (!window.valid()) {
    errno = ENOMEM;
    return AuditCannotOpen;
  }
  // Room for what the claim and the directory's bytes allow, but no more than
  // a usual archive needs before a record is read: beyond that, growth follows the records.
  report.entries.reserve(std::min({place.countedEntries, (place.directoryEnd - place.directoryStart) / CentralHeaderSize,
                                   EntriesReservedAtOnce}));
  uint64_t position = place.directoryStart;
  while (place.directoryEnd - position >= CentralHeaderSize) {
    const unsigned char* header = window.bytesAt(position, CentralHeaderSize, DirectoryReadSize);
    if (header == nullptr || getField(header, CentralHeader::Signature) != CentralHeaderSignature) break;
    const uint64_t length = CentralHeaderSize + getField(header, CentralHeader::NameLength) +
                            getField(header, CentralHeader::ExtraLength) + getField(header, CentralHeader::CommentLength);
    if (length > place.directoryEnd - position) break;
    const unsigned char* record = window.bytesAt(position, static_cast<size_t>(length));
    if (record == nullptr) break;
    readCentralRecord(record, report);
    position += length;
  }
  if (file.failed()) return AuditCannotOpen;
  return report.entries.empty() && place.countedEntries != 0 ? AuditNotAnArchive : AuditOk;
}

}  // namespace kxzef
