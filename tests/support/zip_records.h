// ZIP records for tests, independent of the library's cores: builders that
// write every field as given, true or not, and a small parser that reads them back.
#ifndef KXZEF_TESTS_SUPPORT_ZIP_RECORDS_H
#define KXZEF_TESTS_SUPPORT_ZIP_RECORDS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kxzef::testing {

// The fields one entry shows in its headers, with its data as stored.
struct HandEntry {
  std::string name;
  std::string data;  // the bytes following the local header (compressed when deflated)
  uint64_t versionMadeBy = 0x031E;  // Unix, 3.0
  uint64_t versionNeeded = 20;
  uint64_t flags = 0;
  uint64_t method = 0;
  uint64_t dosDate = 0x38654A43;  // 2008-03-05 09:18:06
  uint64_t crc = 0;
  uint64_t compressedSize = 0;
  uint64_t uncompressedSize = 0;
  std::string localExtra;
  std::string centralExtra;
  std::string comment;
  uint64_t internalAttributes = 0;
  uint64_t externalAttributes = 0100644u << 16;
  uint64_t localHeaderOffset = UINT64_MAX;  // UINT64_MAX: where buildArchive puts it
  uint64_t nameLengthField = UINT64_MAX;    // UINT64_MAX: the name's true length
};

// An entry holding `content` stored, or deflated, with true sizes and CRC.
HandEntry storedEntry(const std::string& name, const std::string& content);
HandEntry deflatedEntry(const std::string& name, const std::string& content);

// `entry` with the Unix mode `mode` (type and permissions) in its external attributes.
HandEntry withMode(HandEntry entry, uint64_t mode);

// `entry` with `change` applied to it: a field made wrong inside a table's row.
template <typename Change>
HandEntry edited(HandEntry entry, Change change) {
  change(entry);
  return entry;
}

// A link as this library writes it: mode 0120777 and the target both as the
// data and in the Unix link block.
HandEntry linkEntry(const std::string& name, const std::string& target);

// Lines of numbers: text that deflates, but not so well that a large one fits
// in one input block.
std::string sampleText(size_t size);
// Bytes deflate cannot shrink, the same for the same seed.
std::string noise(uint32_t seed, size_t size);
uint32_t crcOf(const std::string& content);

// `content` as zlib deflates it at `level` in a raw stream of its own.
std::string rawDeflate(const std::string& content, int level);

// `value` as `width` little-endian bytes.
std::string leBytes(uint64_t value, int width);

// Overwrites `width` little-endian bytes at `offset`.
void patchLE(std::string& bytes, size_t offset, uint64_t value, int width);

std::string localHeader(const HandEntry& entry);
std::string centralHeader(const HandEntry& entry, uint64_t localHeaderOffset);
std::string endRecord(uint64_t entriesOnDisk, uint64_t totalEntries, uint64_t directorySize,
                      uint64_t directoryOffset, const std::string& comment);

// Local headers with data, then the central directory, then the end record.
// When `locals` is given, local header i is built from locals[i] (data still
// from entries[i]), so a test can make a local header disagree.
std::string buildArchive(const std::vector<HandEntry>& entries, const std::string& comment = "",
                         const std::vector<HandEntry>* locals = nullptr);

struct ParsedArchive {
  bool valid = false;  // end record and every header found where the records say, local agreeing with central
  uint64_t entriesOnDisk = 0;
  uint64_t entriesTotal = 0;
  std::vector<HandEntry> entries;  // central fields, with the local extra field and the stored data
};
ParsedArchive parseArchive(const std::string& bytes);
std::vector<std::string> entryNames(const std::string& bytes);  // in directory order

// The entry's content: stored data as it is, deflated data inflated.
std::string entryContent(const HandEntry& entry);

// The Unix link block this library writes: tag 13, a length that counts its
// own header (target length + 16), 12 zero bytes, the target.
std::string linkBlock(const std::string& target);

}  // namespace kxzef::testing

#endif
