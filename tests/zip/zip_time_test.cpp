#include "zip/zip_time.h"

#include <gtest/gtest.h>

#include <vector>

namespace kxzef {
namespace {

TEST(ZipTime, BothYearFormsPackToTheSameWord) {
  const uint32_t word = dosDateFromTime(ZipTime{31, 20, 10, 5, 2, 108});
  EXPECT_EQ(word, dosDateFromTime(ZipTime{31, 20, 10, 5, 2, 2008}));
  // 2008-03-05: 28 years after 1980, month 3, day 5; 10:20 and 31 seconds halved to 15.
  EXPECT_EQ(word, ((28u << 9 | 3u << 5 | 5u) << 16) | (10u << 11 | 20u << 5 | 15u));
}

TEST(ZipTime, DosWordDecodesToTwoSecondResolution) {
  ZipTime back{};
  timeFromDosDate(((28u << 9 | 3u << 5 | 5u) << 16) | (10u << 11 | 20u << 5 | 15u), back);
  EXPECT_EQ(std::vector<uint32_t>({back.year, back.month, back.dayOfMonth, back.hour, back.minute, back.second}),
            (std::vector<uint32_t>{2008, 2, 5, 10, 20, 30}));
  timeFromDosDate(0x00210000, back);  // 1980-01-01 00:00:00
  EXPECT_EQ(std::vector<uint32_t>({back.year, back.month, back.dayOfMonth}), (std::vector<uint32_t>{1980, 0, 1}));
}

}  // namespace
}  // namespace kxzef
