// Conversions between ZipTime and the DOS date/time word.
#include "zip/zip_time.h"

namespace kxzef {

namespace {

constexpr uint32_t DosEpochYear = 1980;
constexpr uint32_t TmEpochYear = 1900;

uint32_t yearsSince1980(uint32_t year) {
  if (year > DosEpochYear) return year - DosEpochYear;
  if (year > DosEpochYear - TmEpochYear) return year - (DosEpochYear - TmEpochYear);
  return year;
}

}  // namespace

uint32_t dosDateFromTime(const ZipTime& time) {
  const uint32_t date = time.dayOfMonth + 32 * (time.month + 1) + 512 * yearsSince1980(time.year);
  const uint32_t clock = time.second / 2 + 32 * time.minute + 2048 * time.hour;
  return (date << 16) | clock;
}

void timeFromDosDate(uint32_t dosDate, ZipTime& time) {
  const uint32_t date = dosDate >> 16;
  time.dayOfMonth = date & 0x1F;
  time.month = ((date & 0x1E0) >> 5) - 1;
  time.year = ((date & 0xFE00) >> 9) + DosEpochYear;
  time.hour = (dosDate & 0xF800) >> 11;
  time.minute = (dosDate & 0x7E0) >> 5;
  time.second = 2 * (dosDate & 0x1F);
}

}  // namespace kxzef
