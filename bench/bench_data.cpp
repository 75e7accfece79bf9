// The benchmarks' input and the loops both sides share. Nothing here is
// timed on its own; every loop reports failure instead of hiding it.
#include "bench_data.h"

#include <cstdio>

#include <zlib.h>

#include "zip/zip_archive.h"

namespace kxzef::bench {

namespace {

const char* const Words[] = {"archive", "entry",  "header", "central", "deflate", "inflate", "stored",
                             "link",    "target", "zef",    "kx",      "data",    "block",   "record",
                             "name",    "the",    "a",      "of",      "and",     "to",      "length",
                             "offset",  "size",   "crc",    "time",    "date",    "mode",    "file"};
constexpr size_t WordCount = sizeof Words / sizeof Words[0];
constexpr size_t MinimumRun = 4096;
constexpr size_t RunSpread = 60 * 1024;

size_t wordLength(size_t index) {
  size_t length = 0;
  while (Words[index][length] != '\0') ++length;
  return length;
}

}  // namespace

uint32_t MixedData::random() {
  state_ = state_ * 1664525u + 1013904223u;
  return state_;
}

// Text runs are words and lines; binary runs are noise of 2 to 8 bits per byte.
void MixedData::startRun() {
  text_ = !text_;
  runLeft_ = MinimumRun + random() % RunSpread;
  static const uint32_t masks[] = {0x0F, 0x3F, 0xFF, 0xFF};
  mask_ = masks[(random() >> 16) % 4];
}

void MixedData::fill(unsigned char* out, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (runLeft_ == 0) startRun();
    --runLeft_;
    if (!text_) {
      out[i] = static_cast<unsigned char>((random() >> 13) & mask_);
      continue;
    }
    if (word_ < wordLength(wordIndex_)) {
      out[i] = static_cast<unsigned char>(Words[wordIndex_][word_++]);
      continue;
    }
    word_ = 0;
    wordIndex_ = (random() >> 16) % WordCount;
    out[i] = ++wordsOnLine_ % 12 == 0 ? '\n' : ' ';
  }
}

const std::vector<unsigned char>& inputBytes() {
  static const std::vector<unsigned char> bytes = [] {
    std::vector<unsigned char> made(InputSize);
    MixedData().fill(made.data(), made.size());
    return made;
  }();
  return bytes;
}

const std::vector<unsigned char>& deflatedInput() {
  static const std::vector<unsigned char> bytes = [] {
    std::vector<unsigned char> made;
    made.reserve(InputSize / 2);
    rawDeflate(inputBytes().data(), InputSize, 6, &made);
    return made;
  }();
  return bytes;
}

int rawDeflate(const unsigned char* bytes, size_t size, int level, std::vector<unsigned char>* out) {
  return rawDeflate(size, [bytes](size_t offset, size_t) { return bytes + offset; }, level, out);
}

int rawDeflate(size_t size, const ChunkSource& source, int level, std::vector<unsigned char>* out) {
  unsigned char window[ChunkSize];
  z_stream stream{};
  int status = deflateInit2_(&stream, level, Z_DEFLATED, DeflateWindowBits, DeflateMemoryLevel,
                             Z_DEFAULT_STRATEGY, ZlibVersion, static_cast<int>(sizeof stream));
  if (status != Z_OK) return status;
  const auto drain = [&] {
    if (out != nullptr) out->insert(out->end(), window, window + (sizeof window - stream.avail_out));
    stream.next_out = window;
    stream.avail_out = sizeof window;
  };
  stream.next_out = window;
  stream.avail_out = sizeof window;
  for (size_t at = 0; at < size && status == Z_OK; at += ChunkSize) {
    const size_t count = size - at < ChunkSize ? size - at : ChunkSize;
    const unsigned char* chunk = source(at, count);
    if (chunk == nullptr) status = Z_ERRNO;
    stream.next_in = const_cast<unsigned char*>(chunk);
    stream.avail_in = chunk != nullptr ? static_cast<uInt>(count) : 0;
    while (stream.avail_in > 0 && status == Z_OK) {
      if (stream.avail_out == 0) drain();
      status = deflate(&stream, Z_NO_FLUSH);
    }
  }
  while (status == Z_OK) {
    if (stream.avail_out == 0) drain();
    status = deflate(&stream, Z_FINISH);
  }
  drain();
  deflateEnd(&stream);
  return status == Z_STREAM_END ? Z_OK : status;
}

bool writeThroughCore(const char* path, int level, size_t size, const ChunkSource& source) {
  ZipArchive archive;
  if (!archive.openForWriting(path, 0, nullptr)) return false;
  const ZipEntryInfo info{{0, 0, 12, 1, 5, 2024}, 0, 0, 0100644u << 16};
  bool ok = archive.openNewEntry("input.dat", &info, nullptr, 0, nullptr, 0, nullptr,
                         level != 0 ? MethodDeflated : MethodStored, level, nullptr, nullptr, 0) == StatusOk;
  for (size_t at = 0; ok && at < size; at += ChunkSize) {
    const size_t count = size - at < ChunkSize ? size - at : ChunkSize;
    const unsigned char* chunk = source(at, count);
    ok = chunk != nullptr && archive.writeEntryData(chunk, static_cast<uint32_t>(count)) == StatusOk;
  }
  ok = ok && archive.closeEntry(0, 0) == StatusOk;
  return archive.closeForWriting(nullptr) == StatusOk && ok;
}

bool writeInputFile(const char* path, size_t size) {
  std::FILE* file = std::fopen(path, "wb");
  if (file == nullptr) return false;
  MixedData data;
  unsigned char chunk[ChunkSize];
  bool ok = true;
  for (size_t at = 0; ok && at < size; at += ChunkSize) {
    const size_t count = size - at < ChunkSize ? size - at : ChunkSize;
    data.fill(chunk, count);
    ok = std::fwrite(chunk, 1, count, file) == count;
  }
  ok = std::fclose(file) == 0 && ok;
  if (!ok) std::remove(path);
  return ok;
}

}  // namespace kxzef::bench
