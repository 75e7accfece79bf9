#include "support/archive_bytes.h"

#include <zlib.h>

#include <ctime>

namespace kxzef::testing {

namespace {

void put16(std::string& out, uint32_t value) {
  out += static_cast<char>(value & 0xFF);
  out += static_cast<char>((value >> 8) & 0xFF);
}

void put32(std::string& out, uint32_t value) {
  put16(out, value & 0xFFFF);
  put16(out, value >> 16);
}

uint32_t crcOf(const FixtureEntry& entry) {
  if (entry.crc) return *entry.crc;
  return static_cast<uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(entry.data.data()), static_cast<uInt>(entry.data.size())));
}

const std::string& storedBytes(const FixtureEntry& entry) {
  return entry.storedBytes ? *entry.storedBytes : entry.data;
}

// The fields that local and central headers share, from "version needed"
// to the name length.
void putSharedFields(std::string& out, const FixtureEntry& entry) {
  put16(out, 20);                                                  // version needed
  put16(out, entry.flags);                                         // flags
  put16(out, entry.method);                                        // method
  put32(out, entry.dosDate);                                       // DOS date/time
  put32(out, crcOf(entry));                                        // CRC-32
  put32(out, static_cast<uint32_t>(storedBytes(entry).size()));    // compressed size
  put32(out, static_cast<uint32_t>(entry.data.size()));            // uncompressed size
  put16(out, static_cast<uint32_t>(entry.name.size()));            // name length
}

std::string localHeader(const FixtureEntry& entry) {
  std::string out;
  put32(out, 0x04034B50);                                          // signature
  putSharedFields(out, entry);
  put16(out, 0);                                                   // extra length
  return out + entry.name;
}

std::string centralHeader(const FixtureEntry& entry, uint32_t localOffset) {
  std::string out;
  put32(out, 0x02014B50);                                          // signature
  put16(out, entry.versionMadeBy);                                 // version made by
  putSharedFields(out, entry);
  put16(out, static_cast<uint32_t>(entry.centralExtra.size()));    // extra length
  put16(out, 0);                                                   // comment length
  put16(out, 0);                                                   // disk number start
  put16(out, 0);                                                   // internal attributes
  put32(out, entry.externalAttributes);                            // external attributes
  put32(out, localOffset);                                         // local header offset
  return out + entry.name + entry.centralExtra;
}

}  // namespace

std::string buildArchive(const std::vector<FixtureEntry>& entries, const std::string& prefix,
                         std::optional<uint16_t> claimedEntries) {
  std::string body;
  std::string central;
  for (const FixtureEntry& entry : entries) {
    central += centralHeader(entry, static_cast<uint32_t>(body.size()));
    body += localHeader(entry) + storedBytes(entry);
  }
  const uint16_t count = claimedEntries.value_or(static_cast<uint16_t>(entries.size()));
  std::string end;
  put32(end, 0x06054B50);                                 // signature
  put16(end, 0);                                          // this disk
  put16(end, 0);                                          // disk of the central directory
  put16(end, count);                                      // entries on this disk
  put16(end, count);                                      // entries in total
  put32(end, static_cast<uint32_t>(central.size()));      // central directory size
  put32(end, static_cast<uint32_t>(body.size()));         // central directory offset
  put16(end, 0);                                          // comment length
  return prefix + body + central + end;
}

std::string unixLinkExtra(const std::string& target) {
  std::string out;
  put16(out, 0x000D);                                          // tag: Unix
  put16(out, static_cast<uint32_t>(target.size() + 16));       // size, counting this 4-byte header
  out += std::string(12, '\0');                                // access time, modification time, uid, gid
  return out + target;
}

std::string rawDeflate(const std::string& data) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, static_cast<uLong>(data.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

uint32_t dosDate(int year, int month, int day, int hour, int minute, int second) {
  const uint32_t date = static_cast<uint32_t>(day | month << 5 | (year - 1980) << 9);
  const uint32_t time = static_cast<uint32_t>(second / 2 | minute << 5 | hour << 11);
  return date << 16 | time;
}

int64_t localSeconds(int year, int month, int day, int hour, int minute, int second) {
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return static_cast<int64_t>(std::mktime(&local));
}

}  // namespace kxzef::testing
