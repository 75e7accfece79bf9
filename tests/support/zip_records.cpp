// Builders write exactly the fields they are given and never check them; the
// parser trusts nothing it reads.
#include "support/zip_records.h"

#include <zlib.h>

#include <random>

namespace kxzef::testing {

namespace {

void putLE(std::string& out, uint64_t value, int width) {
  for (int i = 0; i < width; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

uint64_t little(const std::string& bytes, size_t offset, int width) {
  uint64_t value = 0;
  for (int i = width - 1; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return value;
}

}  // namespace

// zlib's stream less its 2-byte header and 4-byte Adler-32 trailer: what a
// fresh raw deflate stream with zlib's default settings writes.
std::string rawDeflate(const std::string& content, int level) {
  uLongf size = compressBound(content.size());
  std::string out(size, '\0');
  compress2(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(content.data()),
            content.size(), level);
  return out.substr(2, size - 6);
}

std::string leBytes(uint64_t value, int width) {
  std::string out;
  putLE(out, value, width);
  return out;
}

std::string sampleText(size_t size) {
  std::string text;
  for (size_t i = 0; text.size() < size; ++i) text += "line " + std::to_string(i * 7919 % 10007) + "\n";
  return text.substr(0, size);
}

std::string noise(uint32_t seed, size_t size) {
  std::mt19937 generator(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(generator());
  return bytes;
}

uint32_t crcOf(const std::string& content) {
  return static_cast<uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size())));
}

HandEntry storedEntry(const std::string& name, const std::string& content) {
  HandEntry entry;
  entry.name = name;
  entry.data = content;
  entry.crc = crcOf(content);
  entry.compressedSize = content.size();
  entry.uncompressedSize = content.size();
  return entry;
}

HandEntry withMode(HandEntry entry, uint64_t mode) {
  entry.externalAttributes = mode << 16;
  return entry;
}

HandEntry linkEntry(const std::string& name, const std::string& target) {
  HandEntry entry = withMode(storedEntry(name, target), 0120777);
  entry.centralExtra = linkBlock(target);
  return entry;
}

HandEntry deflatedEntry(const std::string& name, const std::string& content) {
  HandEntry entry = storedEntry(name, content);
  entry.method = 8;
  entry.flags = 2;  // best compression
  entry.data = rawDeflate(content, Z_BEST_COMPRESSION);
  entry.compressedSize = entry.data.size();
  return entry;
}

void patchLE(std::string& bytes, size_t offset, uint64_t value, int width) {
  for (int i = 0; i < width; ++i) bytes.at(offset + i) = static_cast<char>((value >> (8 * i)) & 0xFF);
}

namespace {

uint64_t nameLength(const HandEntry& entry) {
  return entry.nameLengthField == UINT64_MAX ? entry.name.size() : entry.nameLengthField;
}

// The run of fields that local and central headers share, in their order.
void putSharedFields(std::string& out, const HandEntry& entry) {
  putLE(out, entry.versionNeeded, 2);     // version needed to extract
  putLE(out, entry.flags, 2);             // general-purpose flags
  putLE(out, entry.method, 2);            // compression method
  putLE(out, entry.dosDate, 4);           // DOS date/time
  putLE(out, entry.crc, 4);               // CRC-32
  putLE(out, entry.compressedSize, 4);    // compressed size
  putLE(out, entry.uncompressedSize, 4);  // uncompressed size
  putLE(out, nameLength(entry), 2);       // file name length
}

}  // namespace

std::string localHeader(const HandEntry& entry) {
  std::string out;
  putLE(out, 0x04034B50, 4);               // signature
  putSharedFields(out, entry);
  putLE(out, entry.localExtra.size(), 2);  // extra field length
  return out + entry.name + entry.localExtra;
}

std::string centralHeader(const HandEntry& entry, uint64_t localHeaderOffset) {
  std::string out;
  putLE(out, 0x02014B50, 4);                // signature
  putLE(out, entry.versionMadeBy, 2);       // version made by
  putSharedFields(out, entry);
  putLE(out, entry.centralExtra.size(), 2); // extra field length
  putLE(out, entry.comment.size(), 2);      // file comment length
  putLE(out, 0, 2);                         // disk number start
  putLE(out, entry.internalAttributes, 2);  // internal attributes
  putLE(out, entry.externalAttributes, 4);  // external attributes
  putLE(out, localHeaderOffset, 4);         // offset of the local header
  return out + entry.name + entry.centralExtra + entry.comment;
}

std::string endRecord(uint64_t entriesOnDisk, uint64_t totalEntries, uint64_t directorySize,
                      uint64_t directoryOffset, const std::string& comment) {
  std::string out;
  putLE(out, 0x06054B50, 4);       // signature
  putLE(out, 0, 2);                // number of this disk
  putLE(out, 0, 2);                // disk where the central directory starts
  putLE(out, entriesOnDisk, 2);    // entries on this disk
  putLE(out, totalEntries, 2);     // entries in total
  putLE(out, directorySize, 4);    // size of the central directory
  putLE(out, directoryOffset, 4);  // offset of the central directory
  putLE(out, comment.size(), 2);   // comment length
  return out + comment;
}

std::string buildArchive(const std::vector<HandEntry>& entries, const std::string& comment,
                         const std::vector<HandEntry>* locals) {
  std::string archive;
  std::vector<uint64_t> offsets;
  for (size_t i = 0; i < entries.size(); ++i) {
    const HandEntry& local = locals != nullptr ? locals->at(i) : entries[i];
    offsets.push_back(archive.size());
    archive += localHeader(local) + entries[i].data;
  }
  const uint64_t directoryOffset = archive.size();
  for (size_t i = 0; i < entries.size(); ++i) {
    const uint64_t offset = entries[i].localHeaderOffset == UINT64_MAX ? offsets[i] : entries[i].localHeaderOffset;
    archive += centralHeader(entries[i], offset);
  }
  const uint64_t directorySize = archive.size() - directoryOffset;
  return archive + endRecord(entries.size(), entries.size(), directorySize, directoryOffset, comment);
}

namespace {

// Reads the local header the central entry points at; false when it is out of
// bounds or disagrees with the central one.
bool parseLocal(const std::string& bytes, HandEntry& entry) {
  const size_t at = entry.localHeaderOffset;
  if (at + 30 > bytes.size() || little(bytes, at, 4) != 0x04034B50) return false;
  const size_t nameLength = little(bytes, at + 26, 2), extraLength = little(bytes, at + 28, 2);
  const size_t data = at + 30 + nameLength + extraLength;
  if (data + entry.compressedSize > bytes.size()) return false;
  entry.localExtra = bytes.substr(at + 30 + nameLength, extraLength);
  entry.data = bytes.substr(data, entry.compressedSize);
  return little(bytes, at + 14, 4) == entry.crc && little(bytes, at + 18, 4) == entry.compressedSize &&
         little(bytes, at + 22, 4) == entry.uncompressedSize && little(bytes, at + 6, 2) == entry.flags &&
         little(bytes, at + 8, 2) == entry.method;
}

}  // namespace

ParsedArchive parseArchive(const std::string& bytes) {
  ParsedArchive archive;
  const size_t end = bytes.rfind(std::string("PK\x05\x06", 4));
  if (end == std::string::npos || end + 22 > bytes.size()) return archive;
  archive.entriesOnDisk = little(bytes, end + 8, 2);
  archive.entriesTotal = little(bytes, end + 10, 2);
  size_t at = little(bytes, end + 16, 4);
  while (at + 46 <= end && little(bytes, at, 4) == 0x02014B50) {
    HandEntry entry;
    entry.versionMadeBy = little(bytes, at + 4, 2);
    entry.versionNeeded = little(bytes, at + 6, 2);
    entry.flags = little(bytes, at + 8, 2);
    entry.method = little(bytes, at + 10, 2);
    entry.dosDate = little(bytes, at + 12, 4);
    entry.crc = little(bytes, at + 16, 4);
    entry.compressedSize = little(bytes, at + 20, 4);
    entry.uncompressedSize = little(bytes, at + 24, 4);
    const size_t nameLength = little(bytes, at + 28, 2), extraLength = little(bytes, at + 30, 2);
    entry.internalAttributes = little(bytes, at + 36, 2);
    entry.externalAttributes = little(bytes, at + 38, 4);
    entry.localHeaderOffset = little(bytes, at + 42, 4);
    entry.name = bytes.substr(at + 46, nameLength);
    entry.centralExtra = bytes.substr(at + 46 + nameLength, extraLength);
    if (!parseLocal(bytes, entry)) return archive;
    at += 46 + nameLength + extraLength + little(bytes, at + 32, 2);
    archive.entries.push_back(std::move(entry));
  }
  archive.valid = at == end;
  return archive;
}

std::vector<std::string> entryNames(const std::string& bytes) {
  std::vector<std::string> names;
  for (const HandEntry& entry : parseArchive(bytes).entries) names.push_back(entry.name);
  return names;
}

std::string entryContent(const HandEntry& entry) {
  if (entry.method == 0) return entry.data;
  std::string out(entry.uncompressedSize, '\0');
  z_stream stream{};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return "<inflate failed>";
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(entry.data.data()));
  stream.avail_in = static_cast<uInt>(entry.data.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = inflate(&stream, Z_FINISH);
  inflateEnd(&stream);
  return status == Z_STREAM_END || (status == Z_BUF_ERROR && out.empty()) ? out : "<inflate failed>";
}

std::string linkBlock(const std::string& target) {
  std::string block("\x0D\0", 2);
  putLE(block, target.size() + 16, 2);
  return block + std::string(12, '\0') + target;
}

}  // namespace kxzef::testing
