// Feeds arbitrary bytes to zef's audited extraction as an archive and holds
// it to its promises: nothing changes outside the directory that holds the
// destination (the write guard aborts first), a successful extraction has
// every entry in place at its declared size within the size limit, and a
// refused or failed one leaves that directory exactly as it was.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "audit/archive_audit.h"
#include "findings.h"
#include "kxzefarchiver/zefarchiver.h"
#include "safe_extract.h"
#include "staged_check.h"
#include "staging_tree.h"
#include "write_guard.h"
#include "zef.h"

namespace {

using namespace zef;

constexpr uint64_t SizeLimit = 8u << 20;
// fresh, merge into planted links, replace, fresh without paths, fresh leaving out names with an "a"
constexpr int Placements = 5;

void require(bool promise, const char* what) {
  if (promise) return;
  std::fprintf(stderr, "broken promise: %s\n", what);
  std::abort();
}

int quiet(const char* text) { return text == nullptr ? 0 : static_cast<int>(std::strlen(text)); }

struct Sandbox {
  std::string archive;  // the input, outside the guarded directory
  std::string outside;  // where the planted links point
  std::string guarded;  // the destination's parent: the only place that may change
  std::string destination;
  std::FILE* messages = nullptr;
};

Sandbox makeSandbox() {
  const char* scratch = std::getenv("TMPDIR");
  std::string pattern =
      std::string(scratch != nullptr && *scratch != '\0' ? scratch : "/tmp") + "/zef-extract-fuzz-XXXXXX";
  require(mkdtemp(pattern.data()) != nullptr, "a scratch directory");
  char real[4096];
  require(realpath(pattern.c_str(), real) != nullptr, "its real path");
  Sandbox box;
  const std::string base = real;
  box.archive = base + "/input.zef";
  box.outside = base + "/outside";
  box.guarded = base + "/guarded";
  box.destination = box.guarded + "/dest";
  require(mkdir(box.outside.c_str(), 0755) == 0, "the outside directory");
  box.messages = std::fopen("/dev/null", "w");
  set_zefarchiver_error_handler(quiet);
  set_zefarchiver_output_handler(quiet);
  return box;
}

// Every path below `directory` with its type and size or link target, sorted.
void describeTree(const std::string& directory, const std::string& shown, std::vector<std::string>& lines,
                  uint64_t& bytes) {
  DIR* stream = opendir(directory.c_str());
  if (stream == nullptr) return;
  while (const dirent* entry = readdir(stream)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = directory + "/" + name;
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) continue;
    std::string line = shown + "/" + name + " " + std::to_string(status.st_mode) + " " + std::to_string(status.st_size);
    if (S_ISREG(status.st_mode)) bytes += static_cast<uint64_t>(status.st_size);
    lines.push_back(line);
    if (S_ISDIR(status.st_mode)) describeTree(path, shown + "/" + name, lines, bytes);
  }
  closedir(stream);
}

std::string snapshot(const std::string& directory, uint64_t& bytes) {
  std::vector<std::string> lines;
  bytes = 0;
  describeTree(directory, "", lines, bytes);
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

void writeArchive(const std::string& path, const uint8_t* data, size_t size) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  require(file != nullptr && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0, "the input file");
}

// A destination already there: links out of the guarded directory where an
// archive may well name a directory, a file, an empty directory.
void plantDestination(const Sandbox& box) {
  require(mkdir(box.destination.c_str(), 0755) == 0, "the planted destination");
  for (const char* name : {"app", "a", "d", "l"}) {
    require(symlink(box.outside.c_str(), (box.destination + "/" + name).c_str()) == 0, "a planted link");
  }
  std::FILE* file = std::fopen((box.destination + "/f").c_str(), "w");
  require(file != nullptr && std::fputs("planted", file) >= 0 && std::fclose(file) == 0, "a planted file");
  require(mkdir((box.destination + "/e").c_str(), 0755) == 0, "a planted directory");
}

// After a successful extraction with paths: every entry where the library
// puts it, a directory or a file of its declared size (or a link).
void checkEntries(const Sandbox& box, const kxzef::AuditReport& report) {
  for (const kxzef::AuditEntry& entry : report.entries) {
    const std::string name = libraryName(entry.name);
    const std::string path = stagedPath(name);
    if (path.empty()) continue;
    struct stat status {};
    require(lstat((box.destination + "/" + path).c_str(), &status) == 0, "every entry extracted");
    if (namesDirectory(name)) {
      require(S_ISDIR(status.st_mode), "a directory entry extracted as a directory");
    } else {
      require(S_ISLNK(status.st_mode) ||
                  (S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) == entry.uncompressedSize),
              "a file entry extracted at its declared size");
      require((status.st_mode & (S_ISUID | S_ISGID | S_ISVTX)) == 0, "no set-ID or sticky bit");
    }
  }
}

// Nothing but the destination is left beside it: no staging directory, no old tree.
void requireOnlyDestination(const Sandbox& box) {
  DIR* stream = opendir(box.guarded.c_str());
  require(stream != nullptr, "the guarded directory still there");
  while (const dirent* entry = readdir(stream)) {
    const std::string name = entry->d_name;
    require(name == "." || name == ".." || name == "dest", "nothing left beside the destination");
  }
  closedir(stream);
}

// Extracts as zef would, then with --trust when that was refused or failed.
// Returns zef's status.
int extractGuarded(const Sandbox& box, int placement, const std::string& before, uint64_t plantedBytes) {
  ExtractRequest request;
  request.archive = box.archive;
  request.destination = box.destination;
  request.replace = placement == 2;
  request.flat = placement == 3;
  if (placement == 4) request.excludes = {"*a*"};
  request.verbosity.quiet = true;  // no progress line, whatever standard error is
  request.limitGiven = true;
  request.maxTotalSize = SizeLimit;
  kxzef::fuzz::guardWritesBelow(box.guarded);
  int status = ExitFailure;
  for (bool trust : {false, true}) {
    request.trust = trust;
    status = safeExtract(request, box.messages);
    uint64_t bytes = 0;
    const std::string after = snapshot(box.guarded, bytes);
    if (status == ExitOk) {
      require(bytes <= SizeLimit + plantedBytes, "output within the size limit");
      requireOnlyDestination(box);
      break;
    }
    require(after == before, "a refused or failed extraction changes nothing");
  }
  kxzef::fuzz::guardWritesBelow("");
  return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Sandbox box = makeSandbox();
  kxzef::fuzz::guardWritesBelow("");
  writeArchive(box.archive, data, size);
  removeTree(AT_FDCWD, box.guarded);
  require(mkdir(box.guarded.c_str(), 0755) == 0, "the guarded directory");
  const int placement = static_cast<int>(size % Placements);
  if (placement == 1 || placement == 2) plantDestination(box);
  uint64_t plantedBytes = 0;
  const std::string before = snapshot(box.guarded, plantedBytes);
  if (extractGuarded(box, placement, before, plantedBytes) != ExitOk || placement >= 3) return 0;

  kxzef::AuditReport report;
  kxzef::AuditOptions options;
  options.maxTotalSize = SizeLimit;
  require(kxzef::auditArchive(box.archive.c_str(), options, report) == kxzef::AuditOk,
          "an archive extracted was audited");
  require(report.totalUncompressed <= SizeLimit, "the declared total within the limit");
  checkEntries(box, report);
  return 0;
}
