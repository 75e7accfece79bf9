// Heap allocations per entry, counted by replacing malloc and its kin in
// this program: first the writing and reading cores driven entry by entry as
// the creation run and the extraction drive them, then the whole creation run
// and extraction through the exported functions. An archive sets up its
// buffers and streams with its first entry; after that a plain file should
// cost the cores nothing.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_data.h"
#include "kxzefarchiver/zefarchiver.h"
#include "zip/unzip_archive.h"
#include "zip/zip_archive.h"

namespace {

std::atomic<unsigned long> allocations{0};
std::atomic<unsigned long> directoryBlocks{0};  // allocations of one central directory block

void count(size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (size == sizeof(kxzef::CentralDirectoryBlock)) directoryBlocks.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

// glibc lets a program replace its allocator and offers the original under
// these names; every allocation in the process, zlib's and the C++ library's
// included, passes through here. The replacements must be visible to the
// shared libraries whatever visibility the build gives by default.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);

[[gnu::visibility("default")]] void* malloc(size_t size) noexcept {
  count(size);
  return __libc_malloc(size);
}
[[gnu::visibility("default")]] void* calloc(size_t number, size_t size) noexcept {
  count(number * size);
  return __libc_calloc(number, size);
}
[[gnu::visibility("default")]] void* realloc(void* memory, size_t size) noexcept {
  count(size);
  return __libc_realloc(memory, size);
}
[[gnu::visibility("default")]] void* memalign(size_t alignment, size_t size) noexcept {
  count(size);
  return __libc_memalign(alignment, size);
}
[[gnu::visibility("default")]] void* aligned_alloc(size_t alignment, size_t size) noexcept {
  return memalign(alignment, size);
}
[[gnu::visibility("default")]] int posix_memalign(void** memory, size_t alignment, size_t size) noexcept {
  *memory = memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}
[[gnu::visibility("default")]] void free(void* memory) noexcept { __libc_free(memory); }
}  // extern "C"

namespace {

using kxzef::StatusOk;

constexpr char Usage[] = "usage: kxzef_alloc_count [ENTRIES [DIRECTORY]]\n";
constexpr size_t DefaultEntries = 2000;
constexpr size_t MinimumFile = 1024;
constexpr size_t FileSpread = 3073;  // files of 1 to 4 KiB
constexpr size_t CopyBufferSize = 8192;  // what the extraction reads at a time

// Small files of 1 to 4 KiB, the same every run, with names like an application tree's.
struct SmallFiles {
  explicit SmallFiles(size_t count) {
    kxzef::bench::MixedData data;
    for (size_t i = 0; i < count; ++i) {
      names.push_back("app/lib/module" + std::to_string(i % 40) + "/file" + std::to_string(i) + ".txt");
      std::string content(MinimumFile + (i * 2654435761u) % FileSpread, '\0');
      data.fill(reinterpret_cast<unsigned char*>(content.data()), content.size());
      contents.push_back(std::move(content));
    }
  }
  std::vector<std::string> names;
  std::vector<std::string> contents;
};

// Allocations of the first entry and of all later ones, with the central
// directory blocks among them.
struct Tally {
  unsigned long first = 0;
  unsigned long later = 0;
  unsigned long laterBlocks = 0;
  size_t entries = 0;
  bool ok = true;

  void add(size_t index, unsigned long allocated, unsigned long blocks) {
    if (index == 0) {
      first = allocated;
    } else {
      later += allocated;
      laterBlocks += blocks;
    }
    ++entries;
  }
};

void print(const char* what, const Tally& tally) {
  std::printf("%-14s first entry %lu, entries 2-%zu %lu in all (%.3f per entry; %lu of them central directory "
              "blocks)%s\n",
              what, tally.first, tally.entries, tally.later,
              tally.entries > 1 ? static_cast<double>(tally.later) / static_cast<double>(tally.entries - 1) : 0.0,
              tally.laterBlocks, tally.ok ? "" : "  FAILED");
}

// The writing core, entry by entry, as the creation run drives it at level 6.
Tally writeThroughCore(const std::string& path, const SmallFiles& files) {
  Tally tally;
  kxzef::ZipArchive archive;
  tally.ok = archive.openForWriting(path.c_str(), 0);
  const kxzef::ZipEntryInfo info{kxzef::ZipTime{0, 0, 12, 1, 0, 2024}, 0, 0, 0100644u << 16};
  for (size_t i = 0; i < files.names.size() && tally.ok; ++i) {
    const unsigned long before = allocations.load();
    const unsigned long blocksBefore = directoryBlocks.load();
    const std::string& content = files.contents[i];
    tally.ok = archive.openNewEntry(files.names[i].c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                    kxzef::MethodDeflated, 6, nullptr, nullptr, 0) == StatusOk &&
               archive.writeEntryData(content.data(), static_cast<uint32_t>(content.size())) == StatusOk &&
               archive.closeEntry(0, 0) == StatusOk;
    tally.add(i, allocations.load() - before, directoryBlocks.load() - blocksBefore);
  }
  tally.ok = archive.closeForWriting(nullptr) == StatusOk && tally.ok;
  return tally;
}

// The reading core, entry by entry, as the extraction drives it.
Tally readThroughCore(const std::string& path) {
  Tally tally;
  kxzef::UnzipArchive archive;
  tally.ok = archive.openArchive(path.c_str());
  uint64_t entries = 0;
  archive.getGlobalInfo(&entries, nullptr);
  std::vector<unsigned char> buffer(CopyBufferSize);
  for (uint64_t i = 0; i < entries && tally.ok; ++i) {
    const unsigned long before = allocations.load();
    kxzef::EntryInfo info{};
    char name[257] = {};
    tally.ok = (i == 0 || archive.goToNextEntry() == StatusOk) &&
               archive.getCurrentEntryInfo(&info, name, sizeof name - 1, nullptr, 0, nullptr, 0) == StatusOk &&
               archive.openCurrentEntry(nullptr, nullptr, 0) == StatusOk;
    while (tally.ok && archive.readCurrentEntry(buffer.data(), CopyBufferSize) > 0) {
    }
    tally.ok = tally.ok && archive.closeCurrentEntry() == StatusOk;
    tally.add(i, allocations.load() - before, 0);
  }
  tally.ok = archive.closeArchive() == StatusOk && tally.ok;
  return tally;
}

bool writeFiles(const std::string& directory, const SmallFiles& files, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const std::string path = directory + "/" + files.names[i];
    std::string folder = path.substr(0, path.rfind('/'));
    if (zefMakeDir(folder.c_str()) == 0) return false;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return false;
    const bool written = std::fwrite(files.contents[i].data(), 1, files.contents[i].size(), file) ==
                         files.contents[i].size();
    if (std::fclose(file) != 0 || !written) return false;
  }
  return true;
}

// Allocations of one exported creation run over the first `count` files,
// and of extracting its archive again.
struct RunCount {
  unsigned long create = 0;
  unsigned long extract = 0;
  bool ok = false;
};

RunCount runExported(const std::string& directory, const SmallFiles& files, size_t count) {
  std::vector<const char*> sources, destinations;
  for (size_t i = 0; i < count; ++i) {
    sources.push_back(files.names[i].c_str());
    destinations.push_back(files.names[i].c_str());
  }
  const std::string archive = directory + "/run-" + std::to_string(count) + ".zef";
  const std::string out = directory + "/out-" + std::to_string(count);
  RunCount run;
  unsigned long before = allocations.load();
  run.ok = zefCreateZipFile(archive.c_str(), sources.data(), destinations.data(), static_cast<int>(count));
  run.create = allocations.load() - before;
  run.ok = run.ok && zefMakeDir(out.c_str()) != 0 && chdir(out.c_str()) == 0;
  before = allocations.load();
  run.ok = run.ok && zefExtractZipFile(archive.c_str()) == 1;
  run.extract = allocations.load() - before;
  run.ok = chdir(directory.c_str()) == 0 && run.ok;
  return run;
}

}  // namespace

int main(int argc, char** argv) {
  const size_t entries = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : DefaultEntries;
  std::string directory = argc > 2 ? argv[2] : "/tmp";
  if (argc > 3 || entries < 2) {
    std::fputs(Usage, stderr);
    return 2;
  }
  directory += "/kxzef-alloc-count-" + std::to_string(getpid());
  if (zefMakeDir(directory.c_str()) == 0 || chdir(directory.c_str()) != 0) {
    std::fprintf(stderr, "cannot use %s\n", directory.c_str());
    return 1;
  }
  const SmallFiles files(entries);
  if (allocations.load() == 0) {
    std::fputs("the allocator replacement is not in effect: nothing was counted\n", stderr);
    return 1;
  }
  std::printf("heap allocations, %zu files of 1-4 KiB, level 6\n", entries);
  const Tally written = writeThroughCore(directory + "/core.zef", files);
  print("writing core", written);
  const Tally read = readThroughCore(directory + "/core.zef");
  print("reading core", read);

  // Per entry of the whole runs: the difference between runs over half the
  // files and over all of them, so that what a run sets up once drops out.
  const size_t half = entries / 2;
  bool ok = written.ok && read.ok && writeFiles(directory, files, entries);
  const RunCount small = runExported(directory, files, half);
  const RunCount large = runExported(directory, files, entries);
  ok = ok && small.ok && large.ok;
  const double extra = static_cast<double>(entries - half);
  std::printf("creation run   %.2f per entry (%lu for %zu files, %lu for %zu)\n",
              static_cast<double>(large.create - small.create) / extra, small.create, half, large.create, entries);
  std::printf("extraction     %.2f per entry (%lu for %zu files, %lu for %zu)\n",
              static_cast<double>(large.extract - small.extract) / extra, small.extract, half, large.extract,
              entries);
  const std::string remove = "rm -rf '" + directory + "'";
  if (std::system(remove.c_str()) != 0) std::fprintf(stderr, "could not remove %s\n", directory.c_str());
  if (!ok) std::fputs("a run failed\n", stderr);
  return ok ? 0 : 1;
}
