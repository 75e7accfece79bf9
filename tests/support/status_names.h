// Prints a ZIP core status as its name and number, so that a failing
// comparison says "StatusBadArchive (-103)" rather than "-103".
#ifndef KXZEF_TESTS_SUPPORT_STATUS_NAMES_H
#define KXZEF_TESTS_SUPPORT_STATUS_NAMES_H

#include <gtest/gtest.h>

#include <string>

namespace kxzef::testing {

std::string describeStatus(int status);

}  // namespace kxzef::testing

#define EXPECT_STATUS(expected, actual) \
  EXPECT_EQ(::kxzef::testing::describeStatus(expected), ::kxzef::testing::describeStatus(actual))
#define ASSERT_STATUS(expected, actual) \
  ASSERT_EQ(::kxzef::testing::describeStatus(expected), ::kxzef::testing::describeStatus(actual))

#endif
