// The entries as the library's extraction will meet them. zef's rules are
// checked on the audit's list of entries; this makes sure that list is the
// one the library walks, so a directory that reads one way to the audit and
// another way to the library cannot slip an entry past the rules.
#ifndef KXZEF_TOOLS_LIBRARY_VIEW_H
#define KXZEF_TOOLS_LIBRARY_VIEW_H

#include <vector>

#include "audit/archive_audit.h"

namespace zef {

// Walks the central directory of the archive at `path` with the library's
// reading core, as its extraction does (the end record's count, one header
// after the other, names cut by the extraction's name buffer), and returns
// one archive-wide finding when that walk meets an entry the audit did not
// list at the same place under the same name. Empty when the walks agree, or
// when the core reads fewer entries (the library then stops there too).
std::vector<kxzef::AuditFinding> divergenceFindings(const char* path, const kxzef::AuditReport& report);

}  // namespace zef

#endif
