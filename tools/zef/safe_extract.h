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

namespace zef {

struct ExtractRequest {
  std::string archive;               // as the user named it; ".zef" is tried too
  std::string destination;           // "" is the current directory
  std::vector<std::string> entries;  // names matched without regard to ASCII case; empty means all
  bool ask = false;                  // ask before replacing anything in the destination
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
