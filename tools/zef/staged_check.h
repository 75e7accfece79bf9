// The check of a staged extraction: every entry asked for is on disk below
// the staging directory as the archive declares it, and gets its final
// permission bits there. Links in the staged tree are never followed.
#ifndef KXZEF_TOOLS_STAGED_CHECK_H
#define KXZEF_TOOLS_STAGED_CHECK_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "audit/archive_audit.h"

namespace zef {

// The path, relative to the extraction root, where the library puts the
// entry called `libraryName` (see findings.h), "" for the root itself.
std::string stagedPath(const std::string& libraryName);

// The permission bits an extracted entry ends with: the archive's, less the
// set-user-ID, set-group-ID and sticky bits; without a Unix mode those of a
// new file (0666) or directory (0777) less `umask`. Directories keep owner
// rwx, so the tree can always be moved and removed.
mode_t finalMode(const kxzef::AuditEntry& entry, bool directory, mode_t umask);

struct CheckProblem {
  int64_t entryIndex = -1;  // -1 when everything checked out
  std::string observation;  // "was not extracted", "is 3 bytes long, not 10"
};

// Checks the entries marked in `selected` below `stageFd` and, when `fixModes`
// is set, gives each its final mode. Stops at the first entry that is missing,
// of another type, or of another size than declared.
CheckProblem checkStaged(int stageFd, const kxzef::AuditReport& report, const std::vector<bool>& selected,
                         bool fixModes);

// Removes from the staged tree the entries not marked in `selected`, and
// the directories left empty by that which no selected entry needs. Names
// were audited: no component above a staged path is a link.
void pruneStaged(int stageFd, const kxzef::AuditReport& report, const std::vector<bool>& selected);

}  // namespace zef

#endif
