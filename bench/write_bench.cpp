// The write half: the writing core against raw deflate of the same bytes in
// memory, stored writing through the page cache, and a streamed write whose
// peak memory must not grow with the input.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "bench_data.h"

namespace kxzef::bench {
namespace {

void reportFailure(benchmark::State& state, const char* what) { state.SkipWithError(what); }

void RawDeflate(benchmark::State& state) {
  const std::vector<unsigned char>& input = inputBytes();
  for (auto _ : state) {
    if (rawDeflate(input.data(), input.size(), static_cast<int>(state.range(0)), nullptr) != 0) {
      return reportFailure(state, "deflate failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}
BENCHMARK(RawDeflate)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

void WritingCore(benchmark::State& state) {
  const std::vector<unsigned char>& input = inputBytes();
  const std::string path = "kxzef-bench-write-" + std::to_string(state.range(0)) + ".zip";
  const ChunkSource fromMemory = [&input](size_t offset, size_t) { return input.data() + offset; };
  for (auto _ : state) {
    // Truncating the previous run's file would charge its page-cache release to this run.
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    if (!writeThroughCore(path.c_str(), static_cast<int>(state.range(0)), input.size(), fromMemory)) {
      return reportFailure(state, "the writing core failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
  std::remove(path.c_str());
}
BENCHMARK(WritingCore)->Arg(6)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// Generates the input piece by piece: with nothing else held, the process's
// peak RSS (see README.md) is the writing core's own.
void StreamedWrite(benchmark::State& state) {
  const size_t size = static_cast<size_t>(state.range(0)) * MiB;
  unsigned char chunk[ChunkSize];
  for (auto _ : state) {
    MixedData data;
    const ChunkSource generated = [&](size_t, size_t count) {
      data.fill(chunk, count);
      return chunk;
    };
    if (!writeThroughCore("kxzef-bench-streamed.zip", 6, size, generated)) {
      return reportFailure(state, "the writing core failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
  std::remove("kxzef-bench-streamed.zip");
}
BENCHMARK(StreamedWrite)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace
}  // namespace kxzef::bench
