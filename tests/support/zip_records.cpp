// Builders for hand-made ZIP bytes; they write exactly the fields they are
// given, true or not, and never check them.
#include "support/zip_records.h"

#include <zlib.h>

namespace kxzef::testing {

std::string rawDeflate(const std::string& content) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, content.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string sampleText(size_t size) {
  std::string text;
  for (size_t i = 0; text.size() < size; ++i) text += "line " + std::to_string(i * 7919 % 10007) + "\n";
  return text.substr(0, size);
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

HandEntry deflatedEntry(const std::string& name, const std::string& content) {
  HandEntry entry = storedEntry(name, content);
  entry.method = 8;
  entry.flags = 2;  // best compression
  entry.data = rawDeflate(content);
  entry.compressedSize = entry.data.size();
  return entry;
}

void putLE(std::string& out, uint64_t value, int width) {
  for (int i = 0; i < width; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
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

}  // namespace kxzef::testing
