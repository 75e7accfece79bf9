// The creation run on a file on disk beside raw deflate of the same file read
// the same way: both sides pay for reading the file, only the run writes.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include <zlib.h>

#include "bench_data.h"
#include "create/creation_run.h"
#include "kxzefarchiver/ZEFArchWriter.h"

namespace kxzef::bench {
namespace {

constexpr char InputPath[] = "kxzef-bench-create-input.dat";
constexpr char EntryName[] = "input.dat";

// The input file, written once per process and removed at exit.
bool inputFileWritten() {
  static const struct Fixture {
    Fixture() : written(writeInputFile(InputPath, InputSize)) {}
    ~Fixture() { std::remove(InputPath); }
    bool written;
  } fixture;
  return fixture.written;
}

// Reads a file front to back in the pieces asked for, into one ChunkSize
// buffer, as the creation run's file reader does.
class FileChunks {
 public:
  explicit FileChunks(const char* path) : descriptor_(::open(path, O_RDONLY)) {}
  ~FileChunks() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  FileChunks(const FileChunks&) = delete;
  FileChunks& operator=(const FileChunks&) = delete;

  // Null when the file cannot be read or ends early.
  const unsigned char* next(size_t count) {
    if (descriptor_ < 0 || count > sizeof buffer_) return nullptr;
    for (size_t have = 0; have < count;) {
      const ssize_t got = ::read(descriptor_, buffer_ + have, count - have);
      if (got <= 0) return nullptr;
      have += static_cast<size_t>(got);
    }
    return buffer_;
  }

 private:
  int descriptor_;
  unsigned char buffer_[ChunkSize];
};

// One archive holding the input file, made through the writer a host gets
// from getZipWriter(), as zefCreateZipFile does but at the given level.
bool createArchiveFrom(const char* archive, const char* input, int level) {
  std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
  if (!writer) return false;
  writer->setCompressionLevel(level);
  ZEFEntryMap inputs;
  inputs[input] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, EntryName);
  CreationContext context;
  const int status = writer->createArchive(archive, inputs, &context);
  releaseContextObjects(context);
  return status == 0;
}

void RawDeflateFile(benchmark::State& state) {
  if (!inputFileWritten()) return state.SkipWithError("the input file could not be written");
  for (auto _ : state) {
    FileChunks file(InputPath);
    const ChunkSource fromFile = [&file](size_t, size_t count) { return file.next(count); };
    if (rawDeflate(InputSize, fromFile, static_cast<int>(state.range(0)), nullptr) != Z_OK) {
      return state.SkipWithError("reading or deflating the input failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * InputSize));
}
BENCHMARK(RawDeflateFile)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor for a stored archive: reading the file and its CRC-32.
void FileCrc(benchmark::State& state) {
  if (!inputFileWritten()) return state.SkipWithError("the input file could not be written");
  for (auto _ : state) {
    FileChunks file(InputPath);
    uLong crc = crc32(0, nullptr, 0);
    for (size_t at = 0; at < InputSize; at += ChunkSize) {
      const unsigned char* chunk = file.next(ChunkSize);
      if (chunk == nullptr) return state.SkipWithError("reading the input failed");
      crc = crc32(crc, chunk, static_cast<uInt>(ChunkSize));
    }
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * InputSize));
}
BENCHMARK(FileCrc)->Unit(benchmark::kMillisecond)->UseRealTime();

void CreationRun(benchmark::State& state) {
  if (!inputFileWritten()) return state.SkipWithError("the input file could not be written");
  const int level = static_cast<int>(state.range(0));
  const std::string archive = "kxzef-bench-create-" + std::to_string(level) + ".zip";
  for (auto _ : state) {
    // Truncating the previous run's archive would charge its page-cache release to this run.
    state.PauseTiming();
    std::remove(archive.c_str());
    state.ResumeTiming();
    if (!createArchiveFrom(archive.c_str(), InputPath, level)) {
      return state.SkipWithError("the creation run failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * InputSize));
  std::remove(archive.c_str());
}
BENCHMARK(CreationRun)->Arg(6)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace kxzef::bench
