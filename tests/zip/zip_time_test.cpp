#include "zip/zip_time.h"

#include <gtest/gtest.h>

namespace kxzef {
namespace {

TEST(ZipTime, BothYearFormsPackToTheSameWord) {
  const uint32_t word = dosDateFromTime(ZipTime{31, 20, 10, 5, 2, 108});
  EXPECT_EQ(word, dosDateFromTime(ZipTime{31, 20, 10, 5, 2, 2008}));
  // 2008-03-05: 28 years after 1980, month 3, day 5; 10:20 and 31 seconds halved to 15.
  EXPECT_EQ(word, ((28u << 9 | 3u << 5 | 5u) << 16) | (10u << 11 | 20u << 5 | 15u));
}

}  // namespace
}  // namespace kxzef
