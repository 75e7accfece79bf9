// The question asked before an existing file is replaced, answered on
// standard input. It must never loop once standard input has ended.
#ifndef KXZEF_EXTRACT_OVERWRITE_PROMPT_H
#define KXZEF_EXTRACT_OVERWRITE_PROMPT_H

namespace kxzef {

enum class OverwriteAnswer { Yes, No, All };

// Asks on the error channel whether `target` may be replaced, and reads the
// first non-blank character of the next word on standard input; "y", "n"
// and "a" in either case answer, anything else asks again. The end of
// standard input answers No.
OverwriteAnswer askOverwrite(const char* target);

}  // namespace kxzef

#endif
