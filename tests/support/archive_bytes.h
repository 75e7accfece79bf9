// Builds ZIP archives byte by byte for tests, so that a test controls every
// field the reading side sees, including wrong ones. Independent of the
// library's writing core on purpose.
#ifndef KXZEF_TESTS_SUPPORT_ARCHIVE_BYTES_H
#define KXZEF_TESTS_SUPPORT_ARCHIVE_BYTES_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kxzef::testing {

struct FixtureEntry {
  FixtureEntry(std::string entryName, std::string entryData)
      : name(std::move(entryName)), data(std::move(entryData)) {}

  std::string name;
  std::string data;                           // the uncompressed bytes; their CRC goes in the headers
  std::optional<std::string> storedBytes;     // the bytes written as data when they differ from `data`
  uint16_t method = 0;                        // 0 stored, 8 deflated
  uint16_t flags = 0;
  uint32_t dosDate = 0x38652489;              // 2008-03-05 04:36:18
  std::optional<uint32_t> crc;                // replaces the CRC of `data` in both headers
  uint16_t versionMadeBy = 0x031E;            // Unix, 3.0
  uint32_t externalAttributes = 0100644u << 16;
  std::string centralExtra;                   // the local header gets none
};

// The archive: every entry's local header and data, the central directory,
// then the end record; `prefix` goes in front of it all (a stub), and
// `claimedEntries` replaces the entry count of the end record when given.
std::string buildArchive(const std::vector<FixtureEntry>& entries, const std::string& prefix = "",
                         std::optional<uint16_t> claimedEntries = std::nullopt);

// A Unix extra block (tag 13) that marks a link to `target`: its size field
// counts the 4-byte block header too (target length + 16), then 12 bytes of
// times and ids (zero), then the target without a terminator.
std::string unixLinkExtra(const std::string& target);

// `data` as a raw deflate stream (no zlib header), as ZIP entries hold it.
std::string rawDeflate(const std::string& data);

// The DOS date/time word of a local time (month 1-12).
uint32_t dosDate(int year, int month, int day, int hour, int minute, int second);

// The seconds since the epoch of a local time (month 1-12), as mktime gives them.
int64_t localSeconds(int year, int month, int day, int hour, int minute, int second);

}  // namespace kxzef::testing

#endif
