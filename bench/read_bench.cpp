// The read half: the reading core on an archive made by the writing core,
// against raw inflate and CRC-32 of the same deflated bytes in memory.
#include <benchmark/benchmark.h>

#include <zlib.h>

#include <cstdio>

#include "bench_data.h"
#include "zip/unzip_archive.h"

namespace kxzef::bench {
namespace {

constexpr char ReadArchive[] = "kxzef-bench-read.zip";

uLong expectedCrc() {
  static const uLong crc = crc32(0, inputBytes().data(), static_cast<uInt>(InputSize));
  return crc;
}

// Inflates the whole stream in ChunkSize pieces; the CRC-32 of the output.
int rawInflate(const std::vector<unsigned char>& deflated, uLong& crc) {
  unsigned char window[ChunkSize];
  z_stream stream{};
  int status = inflateInit2_(&stream, DeflateWindowBits, ZlibVersion, static_cast<int>(sizeof stream));
  stream.next_in = const_cast<unsigned char*>(deflated.data());
  stream.avail_in = static_cast<uInt>(deflated.size());
  crc = 0;
  while (status == Z_OK) {
    stream.next_out = window;
    stream.avail_out = sizeof window;
    status = inflate(&stream, Z_SYNC_FLUSH);
    crc = crc32(crc, window, static_cast<uInt>(sizeof window - stream.avail_out));
  }
  inflateEnd(&stream);
  return status == Z_STREAM_END ? Z_OK : status;
}

void RawInflateCrc(benchmark::State& state) {
  const std::vector<unsigned char>& deflated = deflatedInput();
  for (auto _ : state) {
    uLong crc = 0;
    if (rawInflate(deflated, crc) != Z_OK || crc != expectedCrc()) {
      return state.SkipWithError("inflate failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * InputSize));
}
BENCHMARK(RawInflateCrc)->Unit(benchmark::kMillisecond)->UseRealTime();

// The archive to read, written once per process at level 6 and removed at exit.
bool readArchiveWritten() {
  static const struct Fixture {
    Fixture() {
      const std::vector<unsigned char>& input = inputBytes();
      const ChunkSource fromMemory = [&input](size_t offset, size_t) { return input.data() + offset; };
      written = writeThroughCore(ReadArchive, 6, input.size(), fromMemory);
    }
    ~Fixture() { std::remove(ReadArchive); }
    bool written = false;
  } fixture;
  return fixture.written;
}

// Reads the one entry to its end; the reading core checks the CRC-32 on close.
bool readThroughCore(const char* path) {
  unsigned char buffer[ChunkSize];
  UnzipArchive archive;
  if (!archive.openArchive(path, nullptr)) return false;
  bool ok = archive.openCurrentEntry(nullptr, nullptr, 0) == StatusOk;
  int64_t total = 0;
  for (int count = 1; ok && count > 0;) {
    count = archive.readCurrentEntry(buffer, sizeof buffer);
    ok = count >= 0;
    total += count > 0 ? count : 0;
  }
  ok = archive.closeCurrentEntry() == StatusOk && ok && total == static_cast<int64_t>(InputSize);
  return archive.closeArchive() == StatusOk && ok;
}

void ReadingCore(benchmark::State& state) {
  if (!readArchiveWritten()) return state.SkipWithError("the writing core failed");
  for (auto _ : state) {
    if (!readThroughCore(ReadArchive)) return state.SkipWithError("the reading core failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * InputSize));
}
BENCHMARK(ReadingCore)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace kxzef::bench
