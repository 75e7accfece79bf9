// DateStringToSeconds: asctime-form dates back to seconds, as local time.
#include <cstdio>
#include <cstring>
#include <ctime>

#include "kxzefarchiver/zefarchiver.h"

namespace {

// The length of "Wed Jun 30 21:49:08 1993\n": a date without its newline is refused.
constexpr size_t AsctimeLength = 25;

const char* const MonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec", nullptr};

int monthIndex(const char* name) {
  for (int i = 0; MonthNames[i] != nullptr; ++i) {
    if (std::strcmp(name, MonthNames[i]) == 0) return i;
  }
  return -1;  // mktime turns this into December of the year before
}

}  // namespace

time_t DateStringToSeconds(const char* text) {
  if (text == nullptr || std::strlen(text) < AsctimeLength) return 0;
  std::tm local{};
  char weekday[4] = {};
  char month[4] = {};
  int year = 0;
  std::sscanf(text, "%3s %3s %d %d:%d:%d %d", weekday, month, &local.tm_mday, &local.tm_hour,
              &local.tm_min, &local.tm_sec, &year);
  local.tm_year = year - 1900;
  local.tm_mon = monthIndex(month);
  local.tm_isdst = -1;
  return std::mktime(&local);
}
