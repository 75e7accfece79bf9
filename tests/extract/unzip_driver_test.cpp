// Opening archives: the ".zef" fallback, its messages, and the root derived
// from the archive name.
#include "extract/unzip_driver.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "extract/extract_fixture.h"

namespace kxzef {
namespace {

using Opening = testing::ExtractTest;

TEST_F(Opening, FallsBackToZefDerivesTheRootAndReportsEachWayToFail) {
  const std::string archive = testing::buildArchive({testing::storedEntry("hello.txt", "hello\n")});
  writeFile("x/a.zef", archive);
  writeFile("junk.zef", std::string(300, 'x'));
  writeFile("cut.zip", archive.substr(0, archive.size() - 10));  // end record cut short
  const std::tuple<const char*, int, std::string, std::string> cases[] = {  // name, status, error, root
      {"x/a", 0, "", "x/a_qrt/"},
      {"x/a.zef", 0, "", "x/a_qrt/"},
      {"b.zef", StatusBadParameter, "The ZEF archive 'b.zef.zef' does not exist!\n", "b_qrt/"},
      {"junk", StatusInternalError, "Cannot open ZEF archive file\n 'junk'\n or \n 'junk.zip'\n", "junk_qrt/"},
      {"cut.zip", StatusInternalError, "Cannot open ZEF archive file\n 'cut.zip'\n or \n 'cut.zip.zip'\n",
       "cut.zip_qrt/"},
  };
  for (const auto& [name, status, error, root] : cases) {
    capture.clear();
    UnzipDriver driver;
    EXPECT_EQ(driver.openDefault(name), status) << name;
    EXPECT_EQ(capture.error(), error) << name;
    EXPECT_EQ(driver.getRoot(), root) << name;
  }
}

}  // namespace
}  // namespace kxzef
