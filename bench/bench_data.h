// Input and helpers shared by the benchmarks: a deterministic mix of text
// and binary data, made in pieces so that nothing needs the whole file.
#ifndef KXZEF_BENCH_BENCH_DATA_H
#define KXZEF_BENCH_BENCH_DATA_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace kxzef::bench {

constexpr size_t MiB = 1024 * 1024;
constexpr size_t InputSize = 256 * MiB;
constexpr size_t ChunkSize = 16384;  // what the creation run hands over at a time
constexpr int DeflateWindowBits = -15;
constexpr int DeflateMemoryLevel = 8;
constexpr char ZlibVersion[] = "1.2.3";

// Runs of word text alternate with runs of binary data of varying entropy;
// the same sequence every time.
class MixedData {
 public:
  void fill(unsigned char* out, size_t size);

 private:
  uint32_t random();
  void startRun();

  uint32_t state_ = 20240601u;
  size_t runLeft_ = 0;
  bool text_ = false;
  uint32_t mask_ = 0xFF;
  size_t word_ = 0;     // position inside the current word
  size_t wordIndex_ = 0;
  size_t wordsOnLine_ = 0;
};

// The first InputSize bytes of MixedData, made once per process.
const std::vector<unsigned char>& inputBytes();

// The same bytes as raw deflate data at level 6, made once per process.
const std::vector<unsigned char>& deflatedInput();

// Hands out the `count` bytes at `offset` of the input; valid until the next
// call. Null when the bytes cannot be had (a failed read).
using ChunkSource = std::function<const unsigned char*(size_t offset, size_t count)>;

// Deflates `size` bytes taken from `source` at `level` in ChunkSize pieces
// into a 16 KiB window, appending the output to `out` when it is not null.
// Returns zlib's status, Z_ERRNO when the source fails.
int rawDeflate(size_t size, const ChunkSource& source, int level, std::vector<unsigned char>* out);

// The same over bytes in memory.
int rawDeflate(const unsigned char* bytes, size_t size, int level, std::vector<unsigned char>* out);

// Writes the first `size` bytes of MixedData to the file `path` in ChunkSize
// pieces, so that even a large file is made without a copy in memory. True
// when the whole file was written.
bool writeInputFile(const char* path, size_t size);

// Writes one entry of `size` bytes taken in ChunkSize pieces from `source`
// into the archive `path` through the writing core, stored at level 0 and
// deflated otherwise, as the creation run does. True when every step succeeded.
bool writeThroughCore(const char* path, int level, size_t size, const ChunkSource& source);

}  // namespace kxzef::bench

#endif
