// The ZIP records both cores read and write: signatures, fixed sizes, where
// each field sits, methods, flags and tags. Every integer in a record is
// unsigned little-endian; values read through these layouts are untrusted.
#ifndef KXZEF_ZIP_ZIP_FORMAT_H
#define KXZEF_ZIP_ZIP_FORMAT_H

#include <cstddef>
#include <cstdint>

namespace kxzef {

// Record signatures and the sizes of the fixed parts.
constexpr uint64_t LocalHeaderSignature = 0x04034B50;
constexpr uint64_t CentralHeaderSignature = 0x02014B50;
constexpr uint64_t EndRecordSignature = 0x06054B50;
constexpr uint64_t LocalHeaderSize = 30;    // then name, extra field, data
constexpr uint64_t CentralHeaderSize = 46;  // then name, extra field, comment
constexpr uint64_t EndRecordSize = 22;      // then the archive comment

// One fixed-width field of a record.
struct RecordField {
  size_t offset;
  int width;
};

// The fields a local header repeats from its central record, in the same
// order from `Start`: 4 in the local header, 6 in the central record (after
// its version made by).
template <size_t Start>
struct EntryFields {
  static constexpr RecordField VersionNeeded{Start, 2};
  static constexpr RecordField Flags{Start + 2, 2};
  static constexpr RecordField Method{Start + 4, 2};
  static constexpr RecordField DosDate{Start + 6, 4};
  static constexpr RecordField Crc{Start + 10, 4};  // both sizes follow it
  static constexpr RecordField CompressedSize{Start + 14, 4};
  static constexpr RecordField UncompressedSize{Start + 18, 4};
  static constexpr RecordField NameLength{Start + 22, 2};
  static constexpr RecordField ExtraLength{Start + 24, 2};
};

struct LocalHeader : EntryFields<4> {
  static constexpr RecordField Signature{0, 4};
};

struct CentralHeader : EntryFields<6> {
  static constexpr RecordField Signature{0, 4};
  static constexpr RecordField VersionMadeBy{4, 2};
  static constexpr RecordField CommentLength{32, 2};
  static constexpr RecordField DiskNumberStart{34, 2};
  static constexpr RecordField InternalAttributes{36, 2};
  static constexpr RecordField ExternalAttributes{38, 4};
  static constexpr RecordField LocalHeaderOffset{42, 4};
};
static_assert(LocalHeader::ExtraLength.offset + 2 == LocalHeaderSize, "the local header's fields fill its fixed part");
static_assert(CentralHeader::ExtraLength.offset + 2 == CentralHeader::CommentLength.offset &&
                  CentralHeader::LocalHeaderOffset.offset + 4 == CentralHeaderSize,
              "the central record's fields fill its fixed part");

struct EndRecord {
  static constexpr RecordField Signature{0, 4};
  static constexpr RecordField ThisDisk{4, 2};
  static constexpr RecordField DirectoryDisk{6, 2};
  static constexpr RecordField EntriesOnDisk{8, 2};
  static constexpr RecordField TotalEntries{10, 2};
  static constexpr RecordField DirectorySize{12, 4};
  static constexpr RecordField DirectoryOffset{16, 4};
  static constexpr RecordField CommentLength{20, 2};
};

// The largest values of the 16- and 32-bit fields: there are no 64-bit extensions.
constexpr uint64_t Max16BitField = 0xFFFF;
constexpr uint64_t Max32BitField = 0xFFFFFFFF;

// Versions: made by Unix (high byte 3), so that the external attributes carry
// a mode; version 2.0 made by and needed.
constexpr uint64_t VersionMadeByUnix20 = 0x0314;
constexpr uint64_t VersionNeeded20 = 20;

// Methods and general-purpose flags.
constexpr int MethodStored = 0;
constexpr int MethodDeflated = 8;
constexpr uint64_t FlagDataDescriptor = 0x0008;  // CRC and sizes follow the data
constexpr uint64_t FlagLevelMask = 0x0006;       // bits 1-2 hint at the compression level
constexpr uint64_t FlagLevelMaximum = 0x0002;    // levels 8 and 9
constexpr uint64_t FlagLevelFast = 0x0004;       // level 2
constexpr uint64_t FlagLevelFastest = 0x0006;    // level 1

// Internal attributes bit 0: the data is text.
constexpr uint64_t TextAttribute = 1;

// The Unix extra block that carries a link target: tag, a length that counts
// the block's own 4-byte header too (our readers expect that), 12 bytes of
// times and ids, then the target without a terminator.
constexpr uint64_t UnixExtraTag = 0x000D;
constexpr uint64_t UnixExtraHeaderSize = 16;
constexpr RecordField UnixExtraTagField{0, 2};
constexpr RecordField UnixExtraLengthField{2, 2};

// `count` (1-8) bytes, least significant first; 0 for count <= 0.
inline uint64_t readLittleEndian(const unsigned char* bytes, int count) {
  uint64_t value = 0;
  for (int i = (count < 8 ? count : 8) - 1; i >= 0; --i) value = (value << 8) | bytes[i];
  return value;
}

// Stores `value` as `count` little-endian bytes at `destination`.
inline void putValue(unsigned char* destination, uint64_t value, int count) {
  for (int i = 0; i < count; ++i) {
    destination[i] = static_cast<unsigned char>(value & 0xFF);
    value >>= 8;
  }
}

inline uint64_t getField(const unsigned char* record, RecordField field) {
  return readLittleEndian(record + field.offset, field.width);
}

inline void putField(unsigned char* record, RecordField field, uint64_t value) {
  putValue(record + field.offset, value, field.width);
}

}  // namespace kxzef

#endif
