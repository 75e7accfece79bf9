// The zlib floor for the peers benchmark: raw deflate, and raw inflate with
// CRC-32, of the very files an archiver packs, with one reused stream and the
// files already in memory. Prints CPU seconds, so that an archiver's time can
// be read as a ratio to the work zlib cannot avoid. With "libdeflate" it
// does the same with libdeflate at the level zef maps LEVEL to (one call per
// file, one reused compressor and decompressor), the floor of zef's engine.
// With "levels" in place of LEVEL it prints the size and CPU time of every
// zlib level and every libdeflate level, the measurement zef's level table
// is chosen from.
#include <libdeflate.h>
#include <zlib.h>

#include <time.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "whole/whole_deflate.h"

namespace {

constexpr int RawWindowBits = -15;
constexpr int MemoryLevel = 8;
constexpr size_t PieceSize = 16384;  // what an archiver hands zlib at a time

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::vector<std::string> readFiles(const char* listPath) {
  std::ifstream list(listPath);
  std::vector<std::string> contents;
  for (std::string path; std::getline(list, path);) {
    std::ifstream file(path, std::ios::binary);
    contents.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return contents;
}

// Deflates every file with one stream reset between files; keeps the output
// for the inflate half and returns the compressed total.
size_t deflateAll(const std::vector<std::string>& files, int level, std::vector<std::string>& out) {
  z_stream stream{};
  deflateInit2(&stream, level, Z_DEFLATED, RawWindowBits, MemoryLevel, Z_DEFAULT_STRATEGY);
  std::vector<unsigned char> buffer(PieceSize);
  size_t total = 0;
  for (const std::string& file : files) {
    std::string compressed;
    size_t offset = 0;
    int flush = Z_NO_FLUSH;
    do {
      const size_t piece = std::min(PieceSize, file.size() - offset);
      stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(file.data() + offset));
      stream.avail_in = static_cast<uInt>(piece);
      offset += piece;
      flush = offset == file.size() ? Z_FINISH : Z_NO_FLUSH;
      do {
        stream.next_out = buffer.data();
        stream.avail_out = static_cast<uInt>(buffer.size());
        deflate(&stream, flush);
        compressed.append(reinterpret_cast<char*>(buffer.data()), buffer.size() - stream.avail_out);
      } while (stream.avail_out == 0);
    } while (flush != Z_FINISH);
    total += compressed.size();
    out.push_back(std::move(compressed));
    deflateReset(&stream);
  }
  deflateEnd(&stream);
  return total;
}

// Inflates every stream with one reset stream and takes the CRC-32 of the output.
uLong inflateAll(const std::vector<std::string>& streams) {
  z_stream stream{};
  inflateInit2(&stream, RawWindowBits);
  std::vector<unsigned char> buffer(PieceSize);
  uLong crcs = 0;
  for (const std::string& compressed : streams) {
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    uLong crc = crc32(0, nullptr, 0);
    int status = Z_OK;
    do {
      stream.next_out = buffer.data();
      stream.avail_out = static_cast<uInt>(buffer.size());
      status = inflate(&stream, Z_NO_FLUSH);
      crc = crc32(crc, buffer.data(), static_cast<uInt>(buffer.size() - stream.avail_out));
    } while (status == Z_OK);
    crcs ^= crc;
    inflateReset(&stream);
  }
  inflateEnd(&stream);
  return crcs;
}

// Compresses every file in one call each; keeps the output for the
// decompression half and returns the compressed total.
size_t libdeflateAll(const std::vector<std::string>& files, int level, std::vector<std::string>& out) {
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(level);
  std::vector<unsigned char> buffer;
  size_t total = 0;
  for (const std::string& file : files) {
    buffer.resize(libdeflate_deflate_compress_bound(compressor, file.size()));
    const size_t size = libdeflate_deflate_compress(compressor, file.data(), file.size(), buffer.data(), buffer.size());
    out.emplace_back(reinterpret_cast<char*>(buffer.data()), size);
    total += size;
  }
  libdeflate_free_compressor(compressor);
  return total;
}

// Decompresses every stream in one call into a buffer of its file's size and
// takes the CRC-32 of the output, as zef's engine does.
uint32_t libinflateAll(const std::vector<std::string>& streams, const std::vector<std::string>& files) {
  libdeflate_decompressor* decompressor = libdeflate_alloc_decompressor();
  std::vector<unsigned char> buffer;
  uint32_t crcs = 0;
  for (size_t i = 0; i < streams.size(); ++i) {
    buffer.resize(files[i].size());
    libdeflate_deflate_decompress(decompressor, streams[i].data(), streams[i].size(), buffer.data(), buffer.size(),
                                  nullptr);
    crcs ^= libdeflate_crc32(0, buffer.data(), buffer.size());
  }
  libdeflate_free_decompressor(decompressor);
  return crcs;
}

void measureLibdeflate(const std::vector<std::string>& files, int zlibLevel) {
  const int level = kxzef::wholeDeflateLevel(zlibLevel);
  std::vector<std::string> streams;
  const double start = cpuSeconds();
  const size_t compressed = libdeflateAll(files, level, streams);
  const double deflated = cpuSeconds();
  const uint32_t crcs = libinflateAll(streams, files);
  const double inflated = cpuSeconds();
  std::printf(" libdeflate_level %d libdeflate_compressed %zu libdeflate_cpu %.4f libinflate_cpu %.4f libcrc %x", level,
              compressed, deflated - start, inflated - deflated, crcs);
}

// One line per level of each library: compressed bytes and deflate CPU seconds.
void measureLevels(const std::vector<std::string>& files) {
  constexpr int ZlibLevels = 9;
  constexpr int LibdeflateLevels = 12;
  for (int level = 1; level <= ZlibLevels; ++level) {
    std::vector<std::string> streams;
    const double start = cpuSeconds();
    const size_t compressed = deflateAll(files, level, streams);
    std::printf("zlib %d compressed %zu cpu %.4f\n", level, compressed, cpuSeconds() - start);
  }
  for (int level = 1; level <= LibdeflateLevels; ++level) {
    std::vector<std::string> streams;
    const double start = cpuSeconds();
    const size_t compressed = libdeflateAll(files, level, streams);
    std::printf("libdeflate %d compressed %zu cpu %.4f\n", level, compressed, cpuSeconds() - start);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && !(argc == 4 && std::string(argv[3]) == "libdeflate")) {
    std::fprintf(stderr, "usage: kxzef_raw_zlib LEVEL|levels FILE-LIST [libdeflate]\n");
    return 2;
  }
  const std::vector<std::string> files = readFiles(argv[2]);
  if (std::string(argv[1]) == "levels") {
    measureLevels(files);
    return 0;
  }
  size_t bytes = 0;
  for (const std::string& file : files) bytes += file.size();
  std::vector<std::string> streams;
  const double start = cpuSeconds();
  const size_t compressed = deflateAll(files, std::stoi(argv[1]), streams);
  const double deflated = cpuSeconds();
  const uLong crcs = inflateAll(streams);
  const double inflated = cpuSeconds();
  std::printf("files %zu bytes %zu compressed %zu deflate_cpu %.4f inflate_cpu %.4f crc %lx", files.size(), bytes,
              compressed, deflated - start, inflated - deflated, crcs);
  if (argc == 4) measureLibdeflate(files, std::stoi(argv[1]));
  std::printf("\n");
  return 0;
}
