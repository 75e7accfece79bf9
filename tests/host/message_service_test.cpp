#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "host/host.h"

namespace kxzef::host {
namespace {

const MessageIdentifier testIdentifiers[] = {{1, 60}, {2, 60}};
const char* const testSymbols[] = {"ONE", "TWO"};
const char* const testTexts[] = {"one %s and %d", "two"};
const MessageTable testTable = {2, 60, testIdentifiers, testSymbols, testTexts, "", {}};

int format(char* buffer, size_t size, uint32_t number, ...) {
  va_list args;
  va_start(args, number);
  const int count = ut_vsprintm(utGetMessageContext(), buffer, size, number, args);
  va_end(args);
  return count;
}

class MessageService : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ut_mem_add_primary_message_table(utGetMemoryContext(), &testTable); }
};

TEST_F(MessageService, ExpandsTheRegisteredTextByNumber) {
  char buffer[64];
  EXPECT_EQ(format(buffer, sizeof buffer, 0x3C0001, "x", 42), 12);
  EXPECT_STREQ(buffer, "one x and 42");
  EXPECT_EQ(format(buffer, sizeof buffer, 0x3C0002), 3);
  EXPECT_STREQ(buffer, "two");
}

TEST_F(MessageService, UnknownNumberYieldsNothing) {
  char buffer[8] = "stale";
  EXPECT_EQ(format(buffer, sizeof buffer, 0x3C0003), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(format(buffer, sizeof buffer, 0x3D0001), 0);  // right index, wrong facility
}

TEST_F(MessageService, CutsAtTheBufferEndAndCountsWhatIsKept) {
  char buffer[8];
  EXPECT_EQ(format(buffer, sizeof buffer, 0x3C0001, "long argument", 1), 7);
  EXPECT_EQ(std::string(buffer), "one lon");
}

TEST_F(MessageService, CountsRegistrations) {
  const unsigned before = messageTableRegistrations();
  ut_mem_add_primary_message_table(utGetMemoryContext(), nullptr);
  EXPECT_EQ(messageTableRegistrations(), before);
}

}  // namespace
}  // namespace kxzef::host
