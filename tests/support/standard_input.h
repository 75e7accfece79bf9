// Feeds a test's text to the library's readers of standard input.
#ifndef KXZEF_TESTS_SUPPORT_STANDARD_INPUT_H
#define KXZEF_TESTS_SUPPORT_STANDARD_INPUT_H

#include <string>

namespace kxzef::testing {

// Makes standard input read `text` (then end of input) from a file in the
// current directory. Returns false when that could not be arranged.
bool feedStandardInput(const std::string& text);

}  // namespace kxzef::testing

#endif
