#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "host/host.h"

namespace kxzef::host {
namespace {

// Switches LC_CTYPE for one test and puts it back.
class LocaleGuard {
 public:
  explicit LocaleGuard(const char* name) : previous_(std::setlocale(LC_CTYPE, nullptr)) {
    active_ = std::setlocale(LC_CTYPE, name) != nullptr;
  }
  ~LocaleGuard() { std::setlocale(LC_CTYPE, previous_.c_str()); }
  bool active() const { return active_; }

 private:
  std::string previous_;
  bool active_ = false;
};

TEST(Multibyte, CLocaleStepsOneByteWhereUtf8StepsOverWholeCharacters) {
  const char text[] = "\xC3\xA9\xE2\x82\xAC/a";  // e-acute, euro sign, "/a"
  {
    LocaleGuard locale("C");
    EXPECT_FALSE(utIsMultiByteCharSet());
    EXPECT_FALSE(utIsMultiByteLeadEx(text));
    EXPECT_EQ(utMultiByteNextChar(text), text + 1);
  }
  LocaleGuard locale("C.UTF-8");
  if (!locale.active()) GTEST_SKIP() << "no C.UTF-8 locale on this machine";
  EXPECT_TRUE(utIsMultiByteCharSet());
  EXPECT_TRUE(utIsMultiByteLeadEx(text));
  EXPECT_EQ(utMultiByteNextChar(text), text + 2);
  EXPECT_EQ(utMultiByteNextChar(text + 2), text + 5);
  EXPECT_EQ(utMultiByteStrChr(text, '/'), text + 5);
  const char truncated[] = "\xE2\x82";  // a three-byte character cut short
  EXPECT_EQ(utMultiByteNextChar(truncated), truncated + 1);
}

}  // namespace
}  // namespace kxzef::host
