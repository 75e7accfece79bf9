#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "input/find_transform.h"
#include "kxzefarchiver/ZEFTransform.h"

namespace kxzef {
namespace {

class NamedTransform : public ZEFTransform {
 public:
  explicit NamedTransform(const char* name) : ZEFTransform(false, false, name) {}
  bool apply(const ZEFByteArray&, ZEFByteArray&, ZEFResultHolder*) override { return false; }
};

TEST(FindTransform, UsesTheLastDotOfTheWholePathInLowerCase) {
  NamedTransform text(".t"), gzip(".z"), matlab(".m");
  std::vector<std::string> textExtensions{".txt", ".d"}, gzipExtensions{".gz"}, matlabExtensions{".m"};
  TransformRule third{&matlabExtensions, &matlab, nullptr};
  TransformRule second{&gzipExtensions, &gzip, &third};
  TransformRule first{&textExtensions, &text, &second};
  struct Row {
    const char* path;
    const ZEFTransform* expected;
  } rows[] = {
      {"Data.TXT", &text},          // lowered before comparing
      {"notes.txt", &text},
      {"archive.tar.gz", &gzip},    // only the last extension counts
      {"/a/f.M", &matlab},          // found further down the chain
      {"/src.d/readme", nullptr},   // the extension is ".d/readme"
      {"/a.m/f", nullptr},          // ".m/f"
      {"README", nullptr},          // no "." at all
      {"file.", nullptr},           // "." alone is listed nowhere
      {"x.txt.bak", nullptr},
  };
  for (const Row& row : rows) EXPECT_EQ(findTransform(&first, row.path), row.expected) << row.path;
}

TEST(FindTransform, FirstMatchingRuleWinsAndEmptyRulesAreSkipped) {
  NamedTransform early("e"), late("l");
  std::vector<std::string> both{".x"};
  TransformRule last{&both, &late, nullptr};
  TransformRule middle{&both, &early, &last};
  TransformRule withoutList{nullptr, &late, &middle};
  EXPECT_EQ(findTransform(&withoutList, "a.x"), &early);
  EXPECT_EQ(findTransform(nullptr, "a.x"), nullptr);
  EXPECT_EQ(findTransform(&withoutList, nullptr), nullptr);
}

}  // namespace
}  // namespace kxzef
