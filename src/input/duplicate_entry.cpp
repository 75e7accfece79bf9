// The duplicate check. Comparisons are byte for byte; link text is read into
// a zero-filled buffer one byte longer than the most it may receive.
#include "input/duplicate_entry.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {

namespace {

constexpr int Accepted = 1;
constexpr int Refused = 0;

void reportUnreadable(const char* source) {
  reportError(ZEFARCHIVER_ERROR_UNREADABLE_LINK, source);
  reportSystemErrorText();  // errno as the report left it, as hosts have always seen it
}

std::string absoluteName(const std::string& name, const char* baseDirectory) {
  return name.compare(0, 1, "/") == 0 ? name : baseDirectory + ("/" + name);
}

// The destination is free: remember the source so that the run archives it.
int recordSource(const char* source, const char* destination, ZEFEntryMap& recorded) {
  struct stat status;
  errno = 0;
  if (lstat(source, &status) != 0) {
    if (errno != ENOENT) reportUnreadable(source);
    return Accepted;
  }
  const char* stored = destination[0] == '/' ? destination + 1 : destination;
  recorded.emplace(source, ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, stored));
  return Accepted;
}

// The destination belongs to `previous`: accept only the same file or a
// link whose text names it.
int checkAgainstOwner(const std::string& previous, const char* source, const char* destination,
                      const char* baseDirectory) {
  if (absoluteName(previous, baseDirectory) == absoluteName(source, baseDirectory)) return Accepted;
  struct stat status;
  errno = 0;
  if (lstat(source, &status) != 0) {
    reportUnreadable(source);
    return Refused;
  }
  if (S_ISLNK(status.st_mode)) {
    char target[LinkCompareBufferSize] = {};
    if (readlink(source, target, LinkCompareBufferSize - 1) < 0) {
      reportUnreadable(source);
      return Refused;
    }
    if (std::strcmp(target, previous.c_str()) == 0) return Accepted;
  }
  reportError(ZEFARCHIVER_ERROR_DUPLICATE_DESTINATION_FILE, previous.c_str(), source, destination);
  return Refused;
}

}  // namespace

std::string findSourceOfDestination(const ZEFEntryMap& map, const char* destination) {
  for (const auto& [source, record] : map) {
    if (std::strcmp(record.destination.c_str(), destination) == 0) return source;
  }
  return std::string();
}

int checkDuplicateEntry(const char* linkSource, const char* linkDestination, const char* source,
                        const char* destination, const char* baseDirectory, ZEFEntryMap& recorded,
                        const ZEFEntryMap& inputs) {
  if (linkSource == nullptr || linkDestination == nullptr) return Refused;
  if (source == nullptr || destination == nullptr || baseDirectory == nullptr) return Refused;
  if (recorded.count(source) != 0 || inputs.count(source) != 0) return Accepted;
  std::string previous = findSourceOfDestination(recorded, destination);
  if (previous.empty()) previous = findSourceOfDestination(inputs, destination);
  if (previous.empty()) return recordSource(source, destination, recorded);
  return checkAgainstOwner(previous, source, destination, baseDirectory);
}

}  // namespace kxzef
