// Conversions between DOS words and the times people type and read.
#include "entry_time.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace zef {

namespace {

constexpr int DosFirstYear = 1980;
constexpr int DosLastYear = 2107;
constexpr int TmYearBase = 1900;

uint32_t packDos(const std::tm& time) {
  const uint32_t date = static_cast<uint32_t>(time.tm_mday) + 32u * static_cast<uint32_t>(time.tm_mon + 1) +
                        512u * static_cast<uint32_t>(time.tm_year + TmYearBase - DosFirstYear);
  const uint32_t clock = static_cast<uint32_t>(time.tm_sec / 2) + 32u * static_cast<uint32_t>(time.tm_min) +
                         2048u * static_cast<uint32_t>(time.tm_hour);
  return (date << 16) | clock;
}

bool inDosRange(const std::tm& time) {
  const int year = time.tm_year + TmYearBase;
  return year >= DosFirstYear && year <= DosLastYear;
}

// A broken-down time is a real calendar time when normalising it changes nothing.
bool isCalendarTime(const std::tm& time) {
  std::tm normal = time;
  if (timegm(&normal) == static_cast<time_t>(-1)) return false;
  return normal.tm_mday == time.tm_mday && normal.tm_mon == time.tm_mon && normal.tm_year == time.tm_year &&
         normal.tm_hour == time.tm_hour && normal.tm_min == time.tm_min && normal.tm_sec == time.tm_sec;
}

bool allDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string parseEntryTime(const std::string& text, uint32_t& dosDate) {
  std::tm time{};
  if (text.size() > 1 && text[0] == '@') {
    const std::string seconds = text.substr(1);
    if (!allDigits(seconds)) return "'" + text + "' is no count of seconds";
    const time_t value = static_cast<time_t>(std::strtoll(seconds.c_str(), nullptr, 10));
    gmtime_r(&value, &time);
  } else {
    int consumed = 0;
    char separator = ' ';
    const int fields = std::sscanf(text.c_str(), "%4d-%2d-%2d%n%c%2d:%2d%n:%2d%n", &time.tm_year, &time.tm_mon,
                                   &time.tm_mday, &consumed, &separator, &time.tm_hour, &time.tm_min, &consumed,
                                   &time.tm_sec, &consumed);
    const bool shape = (fields == 3 || fields >= 6) && (separator == ' ' || separator == 'T');
    if (!shape || static_cast<size_t>(consumed) != text.size()) {
      return "'" + text + "' is no time: give YYYY-MM-DD, YYYY-MM-DD HH:MM[:SS] or @SECONDS";
    }
    time.tm_year -= TmYearBase;
    time.tm_mon -= 1;
    if (!isCalendarTime(time)) return "'" + text + "' is no date and time of the calendar";
  }
  if (!inDosRange(time)) return "'" + text + "' lies outside 1980-2107, the years a ZIP entry can hold";
  dosDate = packDos(time);
  return "";
}

std::string parseSourceDateEpoch(const std::string& text, uint32_t& dosDate) {
  if (!allDigits(text) || text.size() > 12) return "SOURCE_DATE_EPOCH='" + text + "' is no count of seconds";
  std::tm time{};
  const time_t value = static_cast<time_t>(std::strtoll(text.c_str(), nullptr, 10));
  gmtime_r(&value, &time);
  if (time.tm_year + TmYearBase < DosFirstYear) {
    time = std::tm{};
    time.tm_mday = 1;
    time.tm_year = DosFirstYear - TmYearBase;
  } else if (time.tm_year + TmYearBase > DosLastYear) {
    time = std::tm{};
    time.tm_mday = 31;
    time.tm_mon = 11;
    time.tm_year = DosLastYear - TmYearBase;
    time.tm_hour = 23;
    time.tm_min = 59;
    time.tm_sec = 58;
  }
  dosDate = packDos(time);
  return "";
}

std::string formatDosDate(uint32_t dosDate, bool iso) {
  const unsigned date = dosDate >> 16;
  const unsigned year = (date >> 9) + DosFirstYear, month = (date >> 5) & 0xF, day = date & 0x1F;
  const unsigned hour = (dosDate >> 11) & 0x1F, minute = (dosDate >> 5) & 0x3F, second = (dosDate & 0x1F) * 2;
  char text[40];
  if (iso) {
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u", year, month, day, hour, minute, second);
  } else {
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u", year, month, day, hour, minute);
  }
  return text;
}

}  // namespace zef
