// File-existence test, file times and directory creation.
#include "zip/file_system.h"

#include <sys/stat.h>
#include <utime.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

namespace kxzef {

namespace {

constexpr size_t TimePathLimit = 255;   // characters of a path that getFileTime examines
constexpr mode_t NewDirectoryMode = 0775;

ZipTime brokenDownLocalTime(time_t seconds) {
  std::tm local{};
  localtime_r(&seconds, &local);
  return ZipTime{static_cast<uint32_t>(local.tm_sec),  static_cast<uint32_t>(local.tm_min),
                 static_cast<uint32_t>(local.tm_hour), static_cast<uint32_t>(local.tm_mday),
                 static_cast<uint32_t>(local.tm_mon),  static_cast<uint32_t>(local.tm_year)};
}

}  // namespace

int fileExists(const char* path) {
  if (path == nullptr) return 0;
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return 0;
  std::fclose(file);
  return 1;
}

bool fileTimeExaminesWholePath(const char* path) {
  if (path == nullptr || std::strcmp(path, "-") == 0) return false;
  const size_t length = std::strlen(path);
  return length > 0 && length <= TimePathLimit && path[length - 1] != '/';
}

ZipTime localFileTime(int64_t seconds) { return brokenDownLocalTime(static_cast<time_t>(seconds)); }

int getFileTime(const char* path, ZipTime& time) {
  int result = 0;
  time_t modified = 0;
  if (path != nullptr && std::strcmp(path, "-") != 0) {
    char name[TimePathLimit + 2] = {};
    std::strncpy(name, path, TimePathLimit);
    const size_t length = std::strlen(path);
    // A trailing "/" makes stat fail on some systems; the test stays inside the buffer.
    if (length > 0 && length - 1 < sizeof name && name[length - 1] == '/') name[length - 1] = '\0';
    struct stat status;
    if (stat(name, &status) == 0) {
      modified = status.st_mtime;
      result = 1;
    }
  }
  time = brokenDownLocalTime(modified);
  return result;
}

void setFileTime(const char* path, uint32_t /*dosDate*/, ZipTime time) {
  const auto seconds = static_cast<time_t>(localTimeSeconds(time));
  const utimbuf times{seconds, seconds};
  utime(path, &times);
}

int64_t localTimeSeconds(ZipTime time) {
  std::tm local{};
  local.tm_sec = static_cast<int>(time.second);
  local.tm_min = static_cast<int>(time.minute);
  local.tm_hour = static_cast<int>(time.hour);
  local.tm_mday = static_cast<int>(time.dayOfMonth);
  local.tm_mon = static_cast<int>(time.month);
  local.tm_year = static_cast<int>(time.year > 1900 ? time.year - 1900 : time.year);
  local.tm_isdst = -1;
  return static_cast<int64_t>(std::mktime(&local));
}

int makeOneDir(const char* path) {
  errno = 0;
  struct stat status;
  if (stat(path, &status) == 0) return 0;
  if (errno != ENOENT) return -1;
  return mkdir(path, NewDirectoryMode);
}

int makeDirPath(const char* path) {
  if (path == nullptr || *path == '\0') return 0;
  std::string buffer(path);
  for (char& c : buffer) {
    if (c == '\\') c = '/';
  }
  if (buffer.back() == '/') buffer.pop_back();
  if (makeOneDir(buffer.c_str()) == 0) return 1;

  // Index 0 is skipped so that the root of an absolute path is never a prefix.
  for (size_t i = 1; i <= buffer.size(); ++i) {
    const bool atEnd = i == buffer.size();
    if (!atEnd && buffer[i] != '/') continue;
    const std::string prefix = buffer.substr(0, i);
    errno = 0;
    const int made = makeOneDir(prefix.c_str());
    if (made == -1 && errno != EACCES && errno != EEXIST) return 0;
    if (atEnd) return made == 0 || errno == EEXIST ? 1 : 0;
  }
  return 0;
}

}  // namespace kxzef
