#include "extract/extract_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

namespace kxzef::testing {

PathStatus statusOf(const std::string& path) {
  PathStatus result;
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return result;
  result.exists = true;
  result.isDirectory = S_ISDIR(status.st_mode);
  result.permissions = status.st_mode & 07777;
  result.modified = static_cast<int64_t>(status.st_mtime);
  return result;
}

std::string linkTargetOf(const std::string& path) {
  char target[4096];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  return length < 0 ? "<no link>" : std::string(target, static_cast<size_t>(length));
}

uint32_t dosDate(int year, int month, int day, int hour, int minute, int second) {
  const uint32_t date = static_cast<uint32_t>(day | month << 5 | (year - 1980) << 9);
  const uint32_t time = static_cast<uint32_t>(second / 2 | minute << 5 | hour << 11);
  return date << 16 | time;
}

int64_t localSeconds(int year, int month, int day, int hour, int minute, int second) {
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return static_cast<int64_t>(std::mktime(&local));
}

int runPython(const std::string& program) {
  std::ofstream("make_archive.py", std::ios::trunc) << program;
  return runCommand("python3 make_archive.py");
}

}  // namespace kxzef::testing
