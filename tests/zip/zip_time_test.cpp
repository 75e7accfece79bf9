#include <gtest/gtest.h>

#include "zip/zip_time.h"

namespace kxzef {
namespace {

TEST(ZipTime, BothYearFormsPackToTheSameWord) {
  const ZipTime sinceTm{31, 20, 10, 5, 2, 108};
  const ZipTime fullYear{31, 20, 10, 5, 2, 2008};
  const uint32_t word = dosDateFromTime(sinceTm);
  EXPECT_EQ(word, dosDateFromTime(fullYear));
  // 2008-03-05: 28 years, month 3, day 5; 10:20:30 with seconds halved to 15.
  EXPECT_EQ(word, ((28u << 9 | 3u << 5 | 5u) << 16) | (10u << 11 | 20u << 5 | 15u));
  ZipTime back{};
  timeFromDosDate(word, back);
  EXPECT_EQ(back.year, 2008u);
  EXPECT_EQ(back.month, 2u);
  EXPECT_EQ(back.dayOfMonth, 5u);
  EXPECT_EQ(back.hour, 10u);
  EXPECT_EQ(back.minute, 20u);
  EXPECT_EQ(back.second, 30u);  // 2-second resolution
}

TEST(ZipTime, DosEpochUnpacks) {
  ZipTime back{};
  timeFromDosDate(0x00210000, back);  // 1980-01-01 00:00:00
  EXPECT_EQ(back.year, 1980u);
  EXPECT_EQ(back.month, 0u);
  EXPECT_EQ(back.dayOfMonth, 1u);
  EXPECT_EQ(back.hour + back.minute + back.second, 0u);
}

TEST(ZipTime, YearRulesAtTheirBoundaries) {
  struct Row {
    uint32_t year;
    uint32_t packed;  // the 7-bit year field written
    const char* why;
  };
  const Row rows[] = {
      {1981, 1, "a full year after 1980"},
      {2000, 20, "a full year"},
      {81, 1, "years since 1900"},
      {80, 80, "80 is kept as it is"},
      {2107, 127, "the last year the field holds"},
  };
  for (const Row& row : rows) {
    const uint32_t word = dosDateFromTime(ZipTime{0, 0, 0, 1, 0, row.year});
    EXPECT_EQ((word >> 25) & 0x7F, row.packed) << row.why;
  }
}

TEST(ZipTime, OutOfRangeFieldsSpillWithoutFailing) {
  // 64 minutes overflow the minute field into the hour field.
  const uint32_t word = dosDateFromTime(ZipTime{0, 64, 1, 1, 0, 2000});
  ZipTime back{};
  timeFromDosDate(word, back);
  EXPECT_EQ(back.hour, 2u);
  EXPECT_EQ(back.minute, 0u);
}

TEST(ZipTime, MonthZeroInTheWordUnderflows) {
  ZipTime back{};
  timeFromDosDate(0, back);
  EXPECT_EQ(back.month, 0xFFFFFFFFu);
  EXPECT_EQ(back.year, 1980u);
  EXPECT_EQ(back.dayOfMonth, 0u);
}

}  // namespace
}  // namespace kxzef
