// Entry texts for listings. Every read here is bounded by the sizes the
// caller's buffers have, whatever the archive claims.
#include "entry_text.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <zlib.h>

namespace zef {

namespace {

constexpr size_t LinkTargetLimit = 4096;       // the longest path a link can hold
constexpr size_t PackedLinkLimit = 64 * 1024;  // more than any deflated 4096 bytes need
constexpr uint16_t MethodStored = 0;
constexpr uint16_t MethodDeflated = 8;
constexpr uint16_t LevelBits = 0x0006;

// The length of the well-formed UTF-8 sequence at `at`, 0 when there is none.
size_t utf8Length(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the range of the first continuation byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;  // no UTF-16 surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (at + length > text.size() || byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
  }
  return length;
}

void appendEscape(std::string& out, const char* format, unsigned value) {
  char escape[8];
  std::snprintf(escape, sizeof escape, format, value);
  out += escape;
}

bool inflateBounded(const std::vector<unsigned char>& packed, std::string& target) {
  z_stream stream{};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return false;
  target.resize(LinkTargetLimit);
  stream.next_in = const_cast<unsigned char*>(packed.data());
  stream.avail_in = static_cast<uInt>(packed.size());
  stream.next_out = reinterpret_cast<unsigned char*>(&target[0]);
  stream.avail_out = static_cast<uInt>(target.size());
  const int status = inflate(&stream, Z_FINISH);
  target.resize(stream.total_out);
  inflateEnd(&stream);
  return status == Z_STREAM_END || status == Z_BUF_ERROR || status == Z_OK;
}

}  // namespace

std::string terminalText(const std::string& name) {
  std::string out;
  out.reserve(name.size());
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      appendEscape(out, "\\x%02x", byte);
    } else {
      out += c;
    }
  }
  return out;
}

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte == '"' || byte == '\\') {
      out += '\\';
      out += text[i++];
    } else if (byte < 0x20 || byte == 0x7F) {
      appendEscape(out, "\\u%04x", byte);
      ++i;
    } else if (byte < 0x80) {
      out += text[i++];
    } else if (const size_t length = utf8Length(text, i); length != 0) {
      out.append(text, i, length);
      i += length;
    } else {
      appendEscape(out, "\\udc%02x", byte);
      ++i;
    }
  }
  return out + "\"";
}

std::string methodWord(uint16_t method) {
  static const struct {
    uint16_t number;
    const char* word;
  } words[] = {{0, "stored"}, {8, "deflate"}, {9, "deflate64"}, {12, "bzip2"}, {14, "lzma"},
               {93, "zstd"},  {95, "xz"},     {98, "ppmd"},      {99, "aes"}};
  for (const auto& entry : words) {
    if (entry.number == method) return entry.word;
  }
  return "method " + std::to_string(method);
}

std::string methodColumn(uint16_t method, uint16_t flags) {
  if (method == MethodStored) return "Stored";
  if (method != MethodDeflated) return methodWord(method);
  static const char levels[] = {'N', 'X', 'F', 'S'};  // normal, maximum, fast, fastest
  return std::string("Defl:") + levels[(flags & LevelBits) >> 1];
}

bool readLinkTarget(int fd, const kxzef::AuditEntry& entry, std::string& target) {
  if (entry.dataOffset == 0 || (entry.method != MethodStored && entry.method != MethodDeflated)) return false;
  const size_t wanted = static_cast<size_t>(std::min<uint64_t>(entry.compressedSize, PackedLinkLimit));
  std::vector<unsigned char> packed(wanted);
  size_t done = 0;
  while (done < wanted) {
    const ssize_t got = pread(fd, packed.data() + done, wanted - done, static_cast<off_t>(entry.dataOffset + done));
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  if (entry.method == MethodDeflated && !inflateBounded(packed, target)) return false;
  if (entry.method == MethodStored) target.assign(packed.begin(), packed.end());
  target.resize(std::min<uint64_t>({target.size(), entry.uncompressedSize, LinkTargetLimit}));
  return true;
}

}  // namespace zef
