// Opening archives (the ".zef" fallback, its messages, the root derived from
// the archive name), the one-call operations, and the reader's slot order.
#include "extract/unzip_driver.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "extract/extract_fixture.h"

namespace kxzef {
namespace {

using testing::storedEntry;
using Opening = testing::ExtractTest;
using Combinations = testing::ExtractTest;

TEST_F(Opening, MissingNameFallsBackToItsZefFile) {
  const std::string archive = testing::buildArchive({storedEntry("hello.txt", "hello\n")});
  writeFile("x/a.zef", archive);
  writeFile("junk.zef", std::string(300, 'x'));
  writeFile("cut.zip", archive.substr(0, archive.size() - 10));  // end record cut short
  const std::tuple<const char*, int, std::string> rows[] = {  // name, status, error
      {"x/a", 0, ""},        // found through the fallback
      {"x/a.zef", 0, ""},    // found as given
      {"b.zef", StatusBadParameter, "The ZEF archive 'b.zef.zef' does not exist!\n"},  // names the fallback
      {"junk", StatusInternalError, "Cannot open ZEF archive file\n 'junk'\n or \n 'junk.zip'\n"},  // not an archive
      {"cut.zip", StatusInternalError, "Cannot open ZEF archive file\n 'cut.zip'\n or \n 'cut.zip.zip'\n"},  // cut
  };
  for (const auto& [name, status, error] : rows) {
    capture.clear();
    EXPECT_EQ(UnzipDriver().openDefault(name), status) << name;
    EXPECT_EQ(capture.error(), error) << name;
  }
}

TEST_F(Opening, RootIsDerivedFromTheNameAlone) {
  writeFile("x/a.zef", testing::buildArchive({storedEntry("hello.txt", "hello\n")}));
  const std::pair<const char*, std::string> rows[] = {
      {"x/a", "x/a_qrt/"},
      {"x/a.zef", "x/a_qrt/"},  // ".zef" is dropped
      {"b.zip", "b.zip_qrt/"},  // any other extension stays; the archive does not exist
  };
  for (const auto& [name, root] : rows) {
    UnzipDriver byDefault, byDefaultIn;
    byDefault.openDefault(name);
    byDefaultIn.openDefaultIn(name, "elsewhere/");  // the directory has no effect
    EXPECT_EQ(byDefault.getRoot() + " " + byDefaultIn.getRoot(), root + " " + root) << name;
  }
}

TEST_F(Combinations, UnzipFilesStopsAtTheFirstEntryNotExtracted) {
  testing::HandEntry bad = storedEntry("bad", "payload");
  bad.crc ^= 1;
  writeFile("app.zef", testing::buildArchive({storedEntry("a", "A"), storedEntry("b", "B"), bad}));
  const std::tuple<std::vector<std::string>, int, std::string> rows[] = {  // names, result, files on disk
      {{"a", "B"}, 0, "a b "},                           // every name found, without regard to case
      {{"a", "missing", "b"}, EntryNotFound, "a "},      // a missing name ends the run
      {{"bad", "a"}, EntryFailed, "bad "},               // so does a failed extraction, whose file stays
  };
  for (const auto& [names, result, files] : rows) {
    std::filesystem::remove_all("app_qrt");
    auto reader = newReader();
    EXPECT_EQ(reader->unzipFiles("app.zef", names), result) << files;
    std::string found;
    for (const char* name : {"a", "b", "bad"})
      if (std::filesystem::exists(std::string("app_qrt/") + name)) found += std::string(name) + " ";
    EXPECT_EQ(found, files);
    EXPECT_EQ(reader->close(), StatusBadParameter);  // closed on every path
  }
}

// The 0-based index of virtual `operation` among its table's function entries,
// read from the pointer to it as the Itanium C++ ABI (GCC, Clang) encodes one.
template <typename Operation>
std::ptrdiff_t vtableIndex(Operation operation) {
  struct { std::ptrdiff_t pointer, adjustment; } encoded;
  static_assert(sizeof(Operation) == sizeof(encoded), "an Itanium pointer to member function");
  std::memcpy(&encoded, &operation, sizeof encoded);
  // The byte offset, with 1 added to flag a virtual operation except on ARM.
  return (encoded.pointer & ~std::ptrdiff_t{1}) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

// Hosts call the reader by slot: after the two destructor entries, in this order.
TEST(ReaderInterface, OperationsSitInTheirDocumentedSlots) {
  using R = ZEFArchReader;
  const std::ptrdiff_t indices[] = {
      vtableIndex(&R::openDefault),  vtableIndex(&R::openDefaultIn), vtableIndex(&R::open),
      vtableIndex(&R::openWithDerivedRoot), vtableIndex(&R::openWithRoot), vtableIndex(&R::extractAll),
      vtableIndex(&R::extractEntry), vtableIndex(&R::listContents), vtableIndex(&R::close),
      vtableIndex(&R::unzipAll),     vtableIndex(&R::unzipAllTo),    vtableIndex(&R::unzipFiles),
      vtableIndex(&R::listArchive),  vtableIndex(&R::getOverwrite),  vtableIndex(&R::getUsePaths),
      vtableIndex(&R::setOverwrite), vtableIndex(&R::setUsePaths)};
  for (std::ptrdiff_t slot = 1; slot <= 17; ++slot) EXPECT_EQ(indices[slot - 1], slot + 1) << "slot " << slot;
}

}  // namespace
}  // namespace kxzef
