// zef's question before it replaces something in the destination, read as
// a whole line, so that "yes" answers one question and not three.
#ifndef KXZEF_TOOLS_ZEF_OVERWRITE_QUESTION_H
#define KXZEF_TOOLS_ZEF_OVERWRITE_QUESTION_H

#include <cstdio>
#include <string>

namespace zef {

enum class Overwrite { Always, Never, Ask };

// Reads --overwrite's WHEN ("always", "never", "ask"); false for anything else.
bool parseOverwrite(const std::string& text, Overwrite& when);

// Asks one question after another, on `prompts`, with the answers read
// line by line from `answers`.
class OverwriteQuestion {
 public:
  OverwriteQuestion(std::FILE* answers, std::FILE* prompts) : answers_(answers), prompts_(prompts) {}

  // Whether `path` may be replaced: "y" or "yes", "n" or "no", "a" or "all"
  // (this one and every later one), "N" or "none" (neither this nor any
  // later one); the words in any case. Anything else asks again; the end of
  // the answers counts as "none".
  bool mayReplace(const std::string& path);

 private:
  enum class Answer { Yes, No, All, None, Unknown };
  static Answer read(const std::string& line);

  std::FILE* answers_;
  std::FILE* prompts_;
  bool decided_ = false;  // "all" or "none" answered every later question
  bool decision_ = false;
};

}  // namespace zef

#endif
