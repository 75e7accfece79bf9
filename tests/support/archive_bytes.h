// A deliberately small ZIP parser for tests, independent of the library's
// reading core, so that archive bytes can be checked field by field.
#ifndef KXZEF_TESTS_SUPPORT_ARCHIVE_BYTES_H
#define KXZEF_TESTS_SUPPORT_ARCHIVE_BYTES_H

#include <cstdint>
#include <string>
#include <vector>

namespace kxzef::testing {

struct CentralEntry {
  uint32_t versionMadeBy = 0;
  uint32_t versionNeeded = 0;
  uint32_t flags = 0;
  uint32_t method = 0;
  uint32_t dosDate = 0;
  uint32_t crc = 0;
  uint32_t compressedSize = 0;
  uint32_t uncompressedSize = 0;
  uint32_t internalAttributes = 0;
  uint32_t externalAttributes = 0;
  uint32_t localHeaderOffset = 0;
  std::string name;
  std::string extra;        // central extra field
  std::string localExtra;   // the local header's extra field
  std::string storedData;   // the entry's bytes as stored (compressed or not)
};

struct ArchiveBytes {
  bool valid = false;  // end record and every header found where the records say
  uint32_t entriesOnDisk = 0;
  uint32_t entriesTotal = 0;
  std::vector<CentralEntry> entries;
};

ArchiveBytes parseArchive(const std::string& bytes);

// The entry's content: stored data as it is, deflated data inflated.
std::string entryContent(const CentralEntry& entry);

// The Unix link block this library writes: tag 13, a length that counts its
// own header (target length + 16), 12 zero bytes, the target.
std::string linkBlock(const std::string& target);

}  // namespace kxzef::testing

#endif
