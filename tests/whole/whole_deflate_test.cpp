// The whole-entry compressor: its output is deflate that zlib inflates, and
// its text verdict is the one zlib's stream gives, with zlib as the judge.
#include "whole/whole_deflate.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "support/zip_records.h"

namespace kxzef {
namespace {

const unsigned char* bytesOf(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

// What zlib's stream says at `level`, as the writing core asks it.
bool zlibSaysText(const std::string& bytes, int level) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::vector<unsigned char> out(deflateBound(&stream, static_cast<uLong>(bytes.size())));
  stream.next_in = const_cast<unsigned char*>(bytesOf(bytes));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  const bool text = stream.data_type == Z_TEXT;
  deflateEnd(&stream);
  return text;
}

// Text (bytes from 32 up) that deflate finds few matches in, so that its
// first block ends soon after 16,383 bytes.
std::string letters(size_t size) {
  std::mt19937 generator(5);
  std::string text(size, ' ');
  for (char& letter : text) letter = static_cast<char>(' ' + generator() % 224);
  return text;
}

TEST(WholeDeflate, TextVerdictIsZlibs) {
  const struct { std::string bytes; const char* why; } rows[] = {
      {"plain words\n", "printable bytes and a line feed"},
      {"\t\r\n", "the three text controls alone"},
      {std::string("a\0b", 3), "a NUL is on the block list"},
      {"ab\x1b[0m", "ESC is allowed beside text"},
      {"\x07\x08\x0b\x0c\x1a\x1b", "only allowed controls, nothing that makes text: binary"},
      {"", "nothing at all: binary"},
      {"caf\xc3\xa9 \xff", "bytes from 128 up count as text"},
      {testing::sampleText(50000) + std::string(1, '\0'), "a NUL inside zlib's first block, stretched by matches"},
      {testing::noise(3, 20000), "noise holds listed bytes at once"},
      {letters(16382) + std::string(1, '\x01') + letters(100), "a listed byte among the bytes zlib always judges"},
  };
  for (const auto& row : rows) {
    for (int level : {1, 6, 9}) {
      EXPECT_EQ(zlibJudgesText(bytesOf(row.bytes), row.bytes.size()), zlibSaysText(row.bytes, level))
          << row.why << " at level " << level;
    }
  }
}

// The one difference, by design: zlib judges only its first block, which
// ends soon after 16,383 bytes when there are few matches to stretch it.
TEST(WholeDeflate, TextVerdictJudgesBytesPastZlibsFirstBlock) {
  const std::string late = letters(40000) + std::string(1, '\0');
  EXPECT_TRUE(zlibSaysText(late, 6));
  EXPECT_FALSE(zlibJudgesText(bytesOf(late), late.size()));
}

TEST(WholeDeflate, OutputInflatesToTheInputAtEveryLevel) {
  const std::string input = testing::sampleText(200000) + testing::noise(3, 30000);
  WholeDeflater deflater;
  for (int level = 1; level <= 9; ++level) {
    ASSERT_TRUE(deflater.start(level));
    std::string out(deflater.bound(input.size()), '\0');
    const size_t size = deflater.compress(bytesOf(input), input.size(),
                                          reinterpret_cast<unsigned char*>(&out[0]), out.size());
    ASSERT_NE(size, 0u) << level;
    testing::HandEntry entry = testing::deflatedEntry("x", "");
    entry.data = out.substr(0, size);
    entry.uncompressedSize = input.size();
    EXPECT_TRUE(testing::entryContent(entry) == input) << level;
  }
  std::string tooSmall(16, '\0');
  EXPECT_EQ(deflater.compress(bytesOf(input), input.size(), reinterpret_cast<unsigned char*>(&tooSmall[0]),
                              tooSmall.size()),
            0u);
}

}  // namespace
}  // namespace kxzef
