// The overwrite question of extraction.
#include "extract/overwrite_prompt.h"

#include <cstdio>

#include "extract/driver_report.h"
#include "messages/message_catalogue.h"

namespace kxzef {

namespace {

char toUpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

OverwriteAnswer askOverwrite(const char* target) {
  for (;;) {
    reportError(UNZIPDRIVER_FILE_EXISTS, target);
    char word[2] = {};
    // A host run without a terminal has nobody to answer: once standard input
    // has ended (or fails) the question is taken as refused, like "n", rather
    // than asked forever.
    if (std::scanf("%1s", word) != 1) return OverwriteAnswer::No;
    switch (toUpperAscii(word[0])) {
      case 'Y':
        return OverwriteAnswer::Yes;
      case 'N':
        return OverwriteAnswer::No;
      case 'A':
        return OverwriteAnswer::All;
      default:
        break;
    }
  }
}

}  // namespace kxzef
