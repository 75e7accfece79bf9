// Reads the local header each central record points at. The offset is the
// archive's claim: a header outside the file, or one that runs past it, is a
// finding, never a read out of bounds.
#include <cerrno>
#include <cstring>

#include "audit/audit_steps.h"
#include "zip/unzip_archive.h"

namespace kxzef {

namespace {

// A local header with the longest name and extra field.
constexpr size_t MaxLocalRecord = LocalHeaderSize + 2 * 0xFFFF;
constexpr size_t LocalWindowSize = 160 * 1024;
// Small entries lie close together: after a header whose data is shorter
// than this, one read of this much usually holds the next headers too.
constexpr size_t LocalReadAhead = 16 * 1024;
// After a large entry's header, only room for a usual name and extra field.
constexpr size_t LocalHeaderReadAhead = 1024;
constexpr uint64_t FlagEncrypted = 0x0001;
constexpr uint64_t Marker32 = Max32BitField;  // "see the ZIP64 extra field"

// The fields the local header repeats, as it states them.
struct LocalFields {
  uint64_t flags, method, crc, compressedSize, uncompressedSize;
};

// Why the local header disagrees with the record, or nullptr when it agrees.
const char* disagreement(const AuditEntry& entry, const unsigned char* header, const LocalFields& local) {
  const size_t nameLength = getField(header, LocalHeader::NameLength);
  if (nameLength != entry.name.size() || std::memcmp(header + LocalHeaderSize, entry.name.data(), nameLength) != 0) {
    return "has a local header with another name";
  }
  if (local.method != entry.method) return "has a local header with another method";
  if ((local.flags ^ entry.flags) & (FlagEncrypted | FlagDataDescriptor)) return "has a local header with other flags";
  // With a data descriptor the local fields are zeros or guesses.
  if ((local.flags | entry.flags) & FlagDataDescriptor) return nullptr;
  if (local.crc != entry.crc) return "has a local header with another CRC";
  if (local.compressedSize != entry.compressedSize || local.uncompressedSize != entry.uncompressedSize) {
    return "has a local header with other sizes";
  }
  return nullptr;
}

// Checks one entry's local header; sets its data offset when the header is whole.
void checkLocalHeader(ReadWindow& window, uint64_t bytesBefore, int64_t index, AuditReport& report) {
  AuditEntry& entry = report.entries[static_cast<size_t>(index)];
  const uint64_t position = entry.localHeaderOffset + bytesBefore;
  const size_t readAhead = entry.compressedSize < LocalReadAhead ? LocalReadAhead : LocalHeaderReadAhead;
  const unsigned char* header =
      position >= bytesBefore ? window.bytesAt(position, LocalHeaderSize, readAhead) : nullptr;
  if (header == nullptr || getField(header, LocalHeader::Signature) != LocalHeaderSignature) {
    addFinding(report, FindingKind::LocalHeaderMismatch, index, "has no local header where its record points");
    return;
  }
  const size_t nameLength = getField(header, LocalHeader::NameLength);
  const size_t extraLength = getField(header, LocalHeader::ExtraLength);
  const size_t length = LocalHeaderSize + nameLength + extraLength;
  header = window.bytesAt(position, length);
  if (header == nullptr) {
    addFinding(report, FindingKind::LocalHeaderMismatch, index, "has a local header cut short by the file's end");
    return;
  }
  entry.dataOffset = position + length;
  LocalFields local{getField(header, LocalHeader::Flags), getField(header, LocalHeader::Method),
                    getField(header, LocalHeader::Crc), getField(header, LocalHeader::CompressedSize),
                    getField(header, LocalHeader::UncompressedSize)};
  // The reading core compares the local sizes as they stand, so ZIP64 ones
  // are refused there even when the central record needs none.
  const bool centralFits = entry.compressedSize < Marker32 && entry.uncompressedSize < Marker32;
  if (centralFits && (local.compressedSize == Marker32 || local.uncompressedSize == Marker32)) {
    addFinding(report, FindingKind::Zip64, index, "has ZIP64 sizes in its local header");
  }
  applyZip64Extra(header + LocalHeaderSize + nameLength, extraLength, local.uncompressedSize, local.compressedSize,
                  nullptr, nullptr);
  if (const char* why = disagreement(entry, header, local); why != nullptr) {
    addFinding(report, FindingKind::LocalHeaderMismatch, index, why);
  }
}

}  // namespace

int checkLocalHeaders(AuditFile& file, const DirectoryPlace& place, AuditReport& report) {
  static_assert(LocalWindowSize >= MaxLocalRecord, "a whole local header fits the window");
  ReadWindow window(file, LocalWindowSize);
  if (!window.valid()) {
    errno = ENOMEM;
    return AuditCannotOpen;
  }
  const int64_t count = static_cast<int64_t>(report.entries.size());
  for (int64_t index = 0; index < count && !file.failed(); ++index) {
    checkLocalHeader(window, place.bytesBefore, index, report);
  }
  return file.failed() ? AuditCannotOpen : AuditOk;
}

}  // namespace kxzef
