#include <gtest/gtest.h>

#include <ctime>

#include "kxzefarchiver/zefarchiver.h"

namespace {

time_t localSeconds(int year, int month, int day, int hour, int minute, int second) {
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return std::mktime(&local);
}

TEST(DateString, ParsesTheAsctimeFormAsLocalTime) {
  EXPECT_EQ(DateStringToSeconds("Wed Jun 30 21:49:08 1993\n"), localSeconds(1993, 5, 30, 21, 49, 8));
  EXPECT_EQ(DateStringToSeconds("Sat Jan  1 00:00:00 2000\n"), localSeconds(2000, 0, 1, 0, 0, 0));
}

TEST(DateString, RejectsShortTextsIncludingTheDateWithoutItsNewline) {
  EXPECT_EQ(DateStringToSeconds(nullptr), 0);
  EXPECT_EQ(DateStringToSeconds(""), 0);
  EXPECT_EQ(DateStringToSeconds("Wed Jun 30 21:49:08 1993"), 0);  // 24 characters
}

TEST(DateString, UnknownOrMiscasedMonthMeansDecemberOfTheYearBefore) {
  EXPECT_EQ(DateStringToSeconds("Wed Foo 30 21:49:08 1993\n"), localSeconds(1992, 11, 30, 21, 49, 8));
  EXPECT_EQ(DateStringToSeconds("Wed jun 30 21:49:08 1993\n"), localSeconds(1992, 11, 30, 21, 49, 8));
}

TEST(DateString, WeekdayIsNotCheckedAndUnscannedFieldsStayZero) {
  EXPECT_EQ(DateStringToSeconds("Xyz Jun 30 21:49:08 1993\n"), localSeconds(1993, 5, 30, 21, 49, 8));
  // Everything after the month fails to scan: day 0, year 0 (1900 - 1900).
  EXPECT_EQ(DateStringToSeconds("Wed Jun xx xx:xx:xx xxxx\n"), localSeconds(0, 5, 0, 0, 0, 0));
}

}  // namespace
