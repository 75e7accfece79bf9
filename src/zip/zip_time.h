// Entry times: the broken-down record carried by entries and its packing
// into the 32-bit MS-DOS date/time word of ZIP records (local time, 2-second
// resolution, no time zone).
#ifndef KXZEF_ZIP_ZIP_TIME_H
#define KXZEF_ZIP_ZIP_TIME_H

#include <cstdint>

namespace kxzef {

struct ZipTime {
  uint32_t second;      // 0-59
  uint32_t minute;      // 0-59
  uint32_t hour;        // 0-23
  uint32_t dayOfMonth;  // 1-31
  uint32_t month;       // 0-11
  uint32_t year;        // a full year (1980 on) or years since 1900; both are accepted
};

// Packs `time` into a DOS word. Fields are not range-checked: an
// out-of-range field spills into its neighbour.
uint32_t dosDateFromTime(const ZipTime& time);

// Unpacks a DOS word; the year comes out as a full year. A month field of 0
// gives month 0xFFFFFFFF, as the word says nothing better.
void timeFromDosDate(uint32_t dosDate, ZipTime& time);

}  // namespace kxzef

#endif
