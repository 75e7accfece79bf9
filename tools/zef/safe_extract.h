// zef extract: the archive is audited, extracted by the library into a
// fresh staging directory, checked there, and only then moved into place.
// It never writes outside the destination and never leaves a half-done
// extraction behind; the fuzz target drives this same code.
#ifndef KXZEF_TOOLS_SAFE_EXTRACT_H
#define KXZEF_TOOLS_SAFE_EXTRACT_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "feedback.h"
#include "overwrite_question.h"

namespace zef {

struct ExtractRequest {
  std::string archive;               // as the user named it; ".zef" is tried too
  std::string destination;           // "" is the current directory
  // Shell patterns matched without regard to ASCII case from the start of a
  // name; one that matches a directory takes everything below it. Empty
  // means every entry.
  std::vector<std::string> entries;
  // Patterns of entries to leave out, tried from the start of each component.
  std::vector<std::string> excludes;
  Overwrite overwrite = Overwrite::Always;  // what to do with entries already in the destination
  Verbosity verbosity;
  bool flat = false;                 // only links, under their bare names
  bool trust = false;                // accept the audit's findings (never a path that leaves the destination)
  bool replace = false;              // swap the whole destination directory
  bool limitGiven = false;           // maxTotalSize holds the user's limit
  uint64_t maxTotalSize = 0;         // 0 lifts the limit
  unsigned jobs = 1;                 // threads that write files; 1 starts none
};

// Carries out `request`. zef's own lines ("zef: ..."; each refusal, then
// one closing line naming the archive, the entry and the cause) go to
// `messages`; the library's go to its channels. Returns ExitOk when
// everything asked for is in place, ExitFailure otherwise, in which case
// the destination is as it was (unless moving into place itself failed,
// which the closing line then says).
int safeExtract(const ExtractRequest& request, std::FILE* messages);

}  // namespace zef

#endif
