// The whole-entry decompressor trusts nothing it is given: only a sound
// stream that ends exactly at the declared size counts as inflated.
#include "whole/whole_inflate.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/zip_records.h"

namespace kxzef {
namespace {

const unsigned char* bytesOf(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

TEST(WholeInflate, OnlyAStreamEndingAtTheDeclaredSizeCounts) {
  const std::string content = testing::sampleText(70000);
  const std::string stream = testing::deflatedEntry("x", content).data;
  const struct { std::string input; size_t declared; bool inflated; const char* why; } rows[] = {
      {stream, content.size(), true, "sound, and the size it declares"},
      {stream + "trailing bytes", content.size(), true, "bytes after the stream's end: ignored, as zlib does"},
      {stream, content.size() - 1, false, "runs past the declared size"},
      {stream, content.size() + 1, false, "ends before the declared size"},
      {stream.substr(0, stream.size() / 2), content.size(), false, "cut short"},
      {std::string(8, '\xff'), 10, false, "block type 3, which deflate never writes"},
      {"", 0, false, "no stream at all"},
  };
  WholeInflater inflater;
  for (const auto& row : rows) {
    // One guard byte past the declared size shows nothing is written there.
    std::vector<unsigned char> out(row.declared + 1, 0x5a);
    EXPECT_EQ(inflater.inflate(bytesOf(row.input), row.input.size(), out.data(), row.declared), row.inflated)
        << row.why;
    EXPECT_EQ(out[row.declared], 0x5a) << row.why;
    if (row.inflated) {
      EXPECT_TRUE(std::string(out.begin(), out.end() - 1) == content) << row.why;
      EXPECT_EQ(wholeCrc(out.data(), row.declared), testing::crcOf(content)) << row.why;
    }
  }
}

}  // namespace
}  // namespace kxzef
