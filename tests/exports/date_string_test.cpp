#include <gtest/gtest.h>

#include <ctime>

#include "kxzefarchiver/zefarchiver.h"

namespace {

time_t localSeconds(const char* when) {
  std::tm local{};
  strptime(when, "%Y-%m-%d %H:%M:%S", &local);
  local.tm_isdst = -1;
  return std::mktime(&local);
}

TEST(DateString, ReadsTheAsctimeFormAsLocalTime) {
  EXPECT_EQ(DateStringToSeconds("Wed Jun 30 21:49:08 1993\n"), localSeconds("1993-06-30 21:49:08"));
}

TEST(DateString, TextWithoutTheTrailingNewlineGivesZero) {
  EXPECT_EQ(DateStringToSeconds("Wed Jun 30 21:49:08 1993"), 0);  // 24 characters are too few
  EXPECT_EQ(DateStringToSeconds(nullptr), 0);
}

TEST(DateString, UnknownMonthCountsAsDecemberOfTheYearBefore) {
  EXPECT_EQ(DateStringToSeconds("Wed Foo 30 21:49:08 1993\n"), localSeconds("1992-12-30 21:49:08"));
  EXPECT_EQ(DateStringToSeconds("Wed jun 30 21:49:08 1993\n"), localSeconds("1992-12-30 21:49:08"));  // case counts
}

}  // namespace
