#include "support/archive_bytes.h"

#include <zlib.h>

namespace kxzef::testing {

namespace {

uint32_t little(const std::string& bytes, size_t offset, int count) {
  uint32_t value = 0;
  for (int i = count - 1; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return value;
}

bool parseLocal(const std::string& bytes, CentralEntry& entry) {
  const size_t at = entry.localHeaderOffset;
  if (at + 30 > bytes.size() || little(bytes, at, 4) != 0x04034B50) return false;
  const uint32_t nameLength = little(bytes, at + 26, 2);
  const uint32_t extraLength = little(bytes, at + 28, 2);
  const size_t data = at + 30 + nameLength + extraLength;
  if (data + entry.compressedSize > bytes.size()) return false;
  entry.localExtra = bytes.substr(at + 30 + nameLength, extraLength);
  entry.storedData = bytes.substr(data, entry.compressedSize);
  // The patched local header must agree with the central one.
  return little(bytes, at + 14, 4) == entry.crc && little(bytes, at + 18, 4) == entry.compressedSize &&
         little(bytes, at + 22, 4) == entry.uncompressedSize && little(bytes, at + 6, 2) == entry.flags &&
         little(bytes, at + 8, 2) == entry.method;
}

}  // namespace

ArchiveBytes parseArchive(const std::string& bytes) {
  ArchiveBytes archive;
  if (bytes.size() < 22) return archive;
  const size_t end = bytes.rfind(std::string("PK\x05\x06", 4));
  if (end == std::string::npos || end + 22 > bytes.size()) return archive;
  archive.entriesOnDisk = little(bytes, end + 8, 2);
  archive.entriesTotal = little(bytes, end + 10, 2);
  size_t at = little(bytes, end + 16, 4);
  while (at + 46 <= end && little(bytes, at, 4) == 0x02014B50) {
    CentralEntry entry;
    entry.versionMadeBy = little(bytes, at + 4, 2);
    entry.versionNeeded = little(bytes, at + 6, 2);
    entry.flags = little(bytes, at + 8, 2);
    entry.method = little(bytes, at + 10, 2);
    entry.dosDate = little(bytes, at + 12, 4);
    entry.crc = little(bytes, at + 16, 4);
    entry.compressedSize = little(bytes, at + 20, 4);
    entry.uncompressedSize = little(bytes, at + 24, 4);
    const uint32_t nameLength = little(bytes, at + 28, 2);
    const uint32_t extraLength = little(bytes, at + 30, 2);
    const uint32_t commentLength = little(bytes, at + 32, 2);
    entry.internalAttributes = little(bytes, at + 36, 2);
    entry.externalAttributes = little(bytes, at + 38, 4);
    entry.localHeaderOffset = little(bytes, at + 42, 4);
    entry.name = bytes.substr(at + 46, nameLength);
    entry.extra = bytes.substr(at + 46 + nameLength, extraLength);
    if (!parseLocal(bytes, entry)) return archive;
    archive.entries.push_back(entry);
    at += 46 + nameLength + extraLength + commentLength;
  }
  archive.valid = at == end;
  return archive;
}

std::string entryContent(const CentralEntry& entry) {
  if (entry.method == 0) return entry.storedData;
  std::string out(entry.uncompressedSize, '\0');
  z_stream stream{};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return "<inflate failed>";
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(entry.storedData.data()));
  stream.avail_in = static_cast<uInt>(entry.storedData.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = inflate(&stream, Z_FINISH);
  inflateEnd(&stream);
  return status == Z_STREAM_END || (status == Z_BUF_ERROR && out.empty()) ? out : "<inflate failed>";
}

std::string linkBlock(const std::string& target) {
  const size_t length = target.size() + 16;
  std::string block;
  block += '\x0D';
  block += '\0';
  block += static_cast<char>(length & 0xFF);
  block += static_cast<char>(length >> 8);
  block += std::string(12, '\0');
  return block + target;
}

}  // namespace kxzef::testing
