#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "surface/message_catalogue.h"

namespace kxzef {
namespace {

int placeholders(const char* text) {
  int count = 0;
  for (const char* p = std::strchr(text, '%'); p != nullptr; p = std::strchr(p + 2, '%')) {
    if (p[1] == 's' || p[1] == 'd') ++count;
  }
  return count;
}

TEST(MessageCatalogue, HoldsFiftyThreeNumberedEntriesInOrder) {
  ASSERT_EQ(MessageCatalogue.count, 53u);
  EXPECT_EQ(MessageCatalogue.facility, 59u);
  std::set<std::string> symbols;
  for (uint32_t i = 0; i < MessageCatalogue.count; ++i) {
    EXPECT_EQ(MessageCatalogue.identifiers[i].index, i + 1);
    EXPECT_EQ(MessageCatalogue.identifiers[i].facility, 59u);
    symbols.insert(MessageCatalogue.symbols[i]);
  }
  EXPECT_EQ(symbols.size(), 53u);
  EXPECT_STREQ(MessageCatalogue.empty, "");
  EXPECT_EQ(MessageCatalogue.reserved[0], nullptr);
}

TEST(MessageCatalogue, SymbolsMatchTheirNumbers) {
  EXPECT_EQ(ZEFARCHIVER_FILE_EXISTS, 0x3B0001u);
  EXPECT_EQ(UNZIPDRIVER_ERROR, 0x3B0017u);
  EXPECT_EQ(ZEFARCHIVER_TEMP_FILE_REMOVE_FAILED, 0x3B0035u);
  EXPECT_STREQ(MessageCatalogue.symbols[22], "UNZIPDRIVER_ERROR");
  EXPECT_STREQ(MessageCatalogue.symbols[52], "ZEFARCHIVER_TEMP_FILE_REMOVE_FAILED");
}

TEST(MessageCatalogue, PlaceholderCountsFitTheArgumentsCallersPass) {
  // Messages taking two or three texts, and the one taking a text and a number.
  EXPECT_EQ(placeholders(MessageCatalogue.texts[13]), 2);  // link target not computed
  EXPECT_EQ(placeholders(MessageCatalogue.texts[15]), 2);  // absolute path link
  EXPECT_EQ(placeholders(MessageCatalogue.texts[18]), 3);  // duplicate destination
  EXPECT_EQ(placeholders(MessageCatalogue.texts[37]), 2);  // cannot open archive
  EXPECT_EQ(placeholders(MessageCatalogue.texts[39]), 2);  // cannot create link
  EXPECT_EQ(placeholders(MessageCatalogue.texts[46]), 2);  // failed to stat
  EXPECT_EQ(placeholders(MessageCatalogue.texts[22]), 0);  // "Error"
  EXPECT_EQ(placeholders(MessageCatalogue.texts[24]), 0);  // listing header
  EXPECT_EQ(placeholders(MessageCatalogue.texts[43]), 0);  // extraction directory
}

}  // namespace
}  // namespace kxzef
