// Feeds arbitrary bytes to the ZIP reading core as an archive and drives every
// operation over them. Any crash, sanitizer report or broken promise is a bug.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zip/unzip_archive.h"

namespace {

using namespace kxzef;

// Serves the fuzzer's bytes as a read-only archive file, with the error and
// position rules of the file-backed object: a short read sets the error, a
// seek clears it, a seek before the start leaves the position where it was.
class MemoryFileIO : public ZipFileIO {
 public:
  MemoryFileIO(const uint8_t* data, size_t size) : data_(data), size_(static_cast<int64_t>(size)) {}

  bool open(const char*, int) override { return true; }

  int64_t read(void* buffer, int64_t count) override {
    if (count <= 0) return 0;
    const int64_t available = position_ < size_ ? size_ - position_ : 0;
    const int64_t n = count < available ? count : available;
    if (n > 0) std::memcpy(buffer, data_ + position_, static_cast<size_t>(n));
    position_ += n;
    error_ = n < count;
    return n;
  }

  int64_t write(const void*, int64_t) override { return 0; }
  int64_t tell() override { return position_; }

  int seek(int64_t offset, int origin) override {
    const int64_t base = origin == SeekFromStart ? 0 : origin == SeekFromCurrent ? position_ : size_;
    if (origin != SeekFromStart && origin != SeekFromCurrent && origin != SeekFromEnd) return -1;
    if (offset >= 0 ? base <= INT64_MAX - offset : base + offset >= 0) position_ = base + offset;
    error_ = false;
    return 0;
  }

  int close() override { return 0; }
  bool removeFile(const char*) override { return false; }
  bool hasError() override { return error_; }

 private:
  const uint8_t* data_;
  int64_t size_;
  int64_t position_ = 0;
  bool error_ = false;
};

// Limits that keep one input quick even when many central headers share one
// highly compressed local entry.
constexpr uint64_t MaxBytesInflated = 8u << 20;
constexpr int MaxEntriesWalked = 70000;
constexpr size_t NamesKept = 4;

void require(bool promise) {
  if (!promise) std::abort();
}

char largeBuffer[65536 + 2];

// The entry opened raw again and read whole in one call, as zef's engine reads it.
void readWholeRaw(UnzipArchive& archive) {
  EntryInfo info{};
  if (archive.getCurrentEntryInfo(&info, nullptr, 0, nullptr, 0, nullptr, 0) != StatusOk ||
      info.compressedSize > sizeof largeBuffer || archive.openCurrentEntry(nullptr, nullptr, 1) != StatusOk) {
    return;
  }
  const int status = archive.readWholeRawEntry(largeBuffer, info.compressedSize);
  require(status == StatusOk || status == StatusIoError);
  if (status == StatusOk) require(archive.readCurrentEntry(largeBuffer, 1) == 0);
  archive.closeCurrentEntry();
}

void readEntryToItsEnd(UnzipArchive& archive, uint64_t index, uint64_t& budget) {
  int method = -1;
  int level = -1;
  const int raw = index % 5 == 4 ? 1 : 0;
  if (archive.openCurrentEntry(&method, &level, raw) != StatusOk) return;
  require(level == 1 || level == 2 || level == 6 || level == 9);
  const int extraAvailable = archive.getLocalExtraField(nullptr, 0);
  require(extraAvailable >= 0 && extraAvailable <= 65535);
  require(archive.getLocalExtraField(largeBuffer, 3) <= 3);
  const int extraRead = archive.getLocalExtraField(largeBuffer, sizeof largeBuffer);
  require(extraRead == extraAvailable || extraRead == StatusIoError);
  static const uint32_t pieces[] = {1, 7, 4096, 65536};
  const uint32_t piece = pieces[index % 4];
  int count = 0;
  while (budget > 0 && (count = archive.readCurrentEntry(largeBuffer, piece)) > 0) {
    require(static_cast<uint32_t>(count) <= piece);
    budget = budget > static_cast<uint64_t>(count) + 64 ? budget - count - 64 : 0;
  }
  require(archive.currentEntryOffset() >= 0);
  const int atEnd = archive.atEndOfCurrentEntry();
  require(atEnd == 0 || atEnd == 1);
  archive.closeCurrentEntry();
  readWholeRaw(archive);
}

// What the walk remembers of its first entries, to come back to them.
struct Seen {
  std::vector<std::string> names;
  std::vector<std::pair<uint64_t, uint64_t>> positions;
};

void visitCurrentEntry(UnzipArchive& archive, uint64_t index, Seen& seen, uint64_t& budget) {
  EntryInfo info{};
  char name[4];
  char extra[3];
  char comment[2];
  archive.getCurrentEntryInfo(&info, name, sizeof name, extra, sizeof extra, comment, sizeof comment);
  archive.getCurrentEntryInfo(nullptr, nullptr, 0, nullptr, 0, comment, sizeof comment);
  static char longName[65536 + 1];
  static char longComment[65536 + 1];
  if (archive.getCurrentEntryInfo(&info, longName, sizeof longName, largeBuffer, sizeof largeBuffer,
                          longComment, sizeof longComment) == StatusOk) {
    require(info.fileNameLength <= 65535 && longName[info.fileNameLength] == '\0');
    if (seen.names.size() < NamesKept) seen.names.emplace_back(longName, info.fileNameLength);
  }
  uint64_t position = 0;
  uint64_t entryIndex = 0;
  require(archive.getEntryPosition(&position, &entryIndex) == StatusOk && entryIndex == index);
  if (seen.positions.size() < NamesKept) seen.positions.emplace_back(position, entryIndex);
  readEntryToItsEnd(archive, index, budget);
}

void revisit(UnzipArchive& archive, const Seen& seen, uint64_t& budget) {
  for (const auto& [position, index] : seen.positions) {
    if (archive.goToEntryPosition(position, index) == StatusOk) readEntryToItsEnd(archive, index, budget);
  }
  for (const std::string& name : seen.names) {
    for (int rule : {CaseInsensitive, CaseSensitive}) {
      if (archive.locateEntry(name.c_str(), rule) == StatusOk) readEntryToItsEnd(archive, 0, budget);
    }
  }
  require(archive.locateEntry(std::string(256, 'a').c_str(), CaseInsensitive) == StatusBadParameter);
  archive.locateEntry("absent", CaseInsensitive);
  archive.goToNextEntry();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  UnzipArchive archive;
  if (!archive.openArchive("fuzz", std::make_unique<MemoryFileIO>(data, size))) return 0;  // the archive owns it
  uint64_t entryCount = 0;
  uint64_t commentLength = 0;
  require(archive.getGlobalInfo(&entryCount, &commentLength) == StatusOk);
  char smallComment[5];
  require(archive.getGlobalComment(smallComment, sizeof smallComment) <= 5);
  require(archive.getGlobalComment(largeBuffer, sizeof largeBuffer) <= static_cast<int>(commentLength));

  uint64_t budget = MaxBytesInflated;
  Seen seen;
  int status = archive.goToFirstEntry();
  for (int walked = 0; status == StatusOk && walked < MaxEntriesWalked; ++walked) {
    visitCurrentEntry(archive, archive.entryIndex(), seen, budget);
    status = archive.goToNextEntry();
  }
  revisit(archive, seen, budget);
  require(archive.closeArchive() == StatusOk);
  require(archive.closeArchive() == StatusBadParameter);
  require(archive.goToFirstEntry() == StatusBadParameter);
  return 0;
}
