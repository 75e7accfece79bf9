// Link detection from the central extra field; every read stays inside it.
#include "extract/link_extra.h"

#include <cstring>

#include "zip/unzip_archive.h"

namespace kxzef {

namespace {

constexpr size_t TagSize = 2;
constexpr size_t SizeFieldSize = 2;

}  // namespace

bool readLinkTarget(const unsigned char* extra, size_t size, std::string& target) {
  if (extra == nullptr || size <= UnixExtraHeaderSize) return false;
  if (readLittleEndian(extra, TagSize) != UnixExtraTag) return false;
  if (readLittleEndian(extra + TagSize, SizeFieldSize) <= UnixExtraHeaderSize) return false;
  const unsigned char* text = extra + UnixExtraHeaderSize;
  const size_t available = size - UnixExtraHeaderSize;
  const void* terminator = std::memchr(text, '\0', available);
  const size_t length = terminator == nullptr ? available : static_cast<const unsigned char*>(terminator) - text;
  if (length == 0) return false;
  target.assign(reinterpret_cast<const char*>(text), length);
  return true;
}

}  // namespace kxzef
