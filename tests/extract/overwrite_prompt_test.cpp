// The overwrite question: what each answer means and that it ends with the input.
#include "extract/overwrite_prompt.h"

#include <gtest/gtest.h>

#include <string>

#include "support/channel_capture.h"
#include "support/standard_input.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using OverwritePrompt = testing::TempDirTest;

TEST_F(OverwritePrompt, AsksUntilItUnderstandsAndStopsAtTheEndOfInput) {
  struct Case {
    const char* input;
    OverwriteAnswer answer;
    int questions;
  };
  const Case cases[] = {
      {"y", OverwriteAnswer::Yes, 1},        {"Y\n", OverwriteAnswer::Yes, 1},
      {"  \n\tn", OverwriteAnswer::No, 1},   {"N", OverwriteAnswer::No, 1},
      {"a", OverwriteAnswer::All, 1},        {"A", OverwriteAnswer::All, 1},
      {"x\n?\ny\n", OverwriteAnswer::Yes, 3}, {"", OverwriteAnswer::No, 1},
      {"  \n", OverwriteAnswer::No, 1},      {"zz", OverwriteAnswer::No, 3},
  };
  const std::string question = "The file 'f.txt' exists. Overwrite ? [y]es, [n]o, [A]ll:\n";
  for (const Case& c : cases) {
    testing::ChannelCapture capture;
    ASSERT_TRUE(testing::feedStandardInput(c.input));
    EXPECT_EQ(askOverwrite("f.txt"), c.answer) << '"' << c.input << '"';
    std::string expected;
    for (int i = 0; i < c.questions; ++i) expected += question;
    EXPECT_EQ(capture.error(), expected) << '"' << c.input << '"';
  }
}

}  // namespace
}  // namespace kxzef
