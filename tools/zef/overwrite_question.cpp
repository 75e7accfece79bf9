// The overwrite question. It must never loop once its input has ended.
#include "overwrite_question.h"

#include <strings.h>

#include <cstdlib>

namespace zef {

namespace {

std::string trimmed(const std::string& text) {
  const size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) return "";
  return text.substr(start, text.find_last_not_of(" \t\r\n") - start + 1);
}

bool isWord(const std::string& text, const char* word) { return strcasecmp(text.c_str(), word) == 0; }

}  // namespace

bool parseOverwrite(const std::string& text, Overwrite& when) {
  if (text == "always") {
    when = Overwrite::Always;
  } else if (text == "never") {
    when = Overwrite::Never;
  } else if (text == "ask") {
    when = Overwrite::Ask;
  } else {
    return false;
  }
  return true;
}

OverwriteQuestion::Answer OverwriteQuestion::read(const std::string& line) {
  const std::string answer = trimmed(line);
  // One letter answers by its case: "n" is this one, "N" every one.
  if (answer == "y" || answer == "Y" || isWord(answer, "yes")) return Answer::Yes;
  if (answer == "n" || isWord(answer, "no")) return Answer::No;
  if (answer == "a" || answer == "A" || isWord(answer, "all")) return Answer::All;
  if (answer == "N" || isWord(answer, "none")) return Answer::None;
  return Answer::Unknown;
}

bool OverwriteQuestion::mayReplace(const std::string& path) {
  if (decided_) return decision_;
  char* buffer = nullptr;
  size_t capacity = 0;
  Answer answer = Answer::Unknown;
  while (answer == Answer::Unknown) {
    std::fprintf(prompts_, "zef: replace '%s'? [y]es, [n]o, [a]ll, [N]one: ", path.c_str());
    std::fflush(prompts_);
    if (getline(&buffer, &capacity, answers_) < 0) {
      std::fputc('\n', prompts_);
      answer = Answer::None;
      break;
    }
    answer = read(buffer);
  }
  std::free(buffer);
  decided_ = answer == Answer::All || answer == Answer::None;
  decision_ = answer == Answer::All;
  return answer == Answer::Yes || answer == Answer::All;
}

}  // namespace zef
