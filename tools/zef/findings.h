// What zef says about an audited archive, and the rules it adds to the
// audit's: it drives the library, so it knows which path the library will
// write for each entry and refuses every entry whose path could leave the
// directory it extracts into, with or without --trust.
#ifndef KXZEF_TOOLS_FINDINGS_H
#define KXZEF_TOOLS_FINDINGS_H

#include <string>
#include <vector>

#include "audit/archive_audit.h"

namespace zef {

// The name the library writes for a stored name: cut where its name buffer
// ends, then at the first NUL.
std::string libraryName(const std::string& stored);

// `text` with ASCII letters in upper case, as the library compares names.
std::string foldedAscii(std::string text);

// True when the library makes a directory of the entry: its name ends in a
// separator ("/", or "\" as the library also counts).
bool namesDirectory(const std::string& libraryName);

// Findings for the entries whose path could leave the extraction directory:
// a ".." component ("\" counting as a separator, as the library's directory
// maker does), a name below another entry that is no directory (which the
// library may make a link), and one path given to two entries of which one
// is no directory. With `foldCase`, names are compared without regard to
// ASCII case, as a case-insensitive file system compares them.
std::vector<kxzef::AuditFinding> escapeFindings(const kxzef::AuditReport& report, bool foldCase);

// What refuses an extraction: without `trust` every finding of the audit;
// with it only the size limit's. To either come escapeFindings for entries
// the list does not name yet. In entry order, archive-wide ones first.
std::vector<kxzef::AuditFinding> refusals(const kxzef::AuditReport& report, bool trust, bool foldCase);

// One line for `finding`: the entry's name quoted, a blank and the cause in
// plain words; for a finding about the whole archive, the cause with "the
// archive" in front where it needs a subject.
std::string findingLine(const kxzef::AuditReport& report, const kxzef::AuditFinding& finding);

// The quoted name of entry `index`, "" for -1 or an index out of range.
std::string quotedEntry(const kxzef::AuditReport& report, int64_t index);

}  // namespace zef

#endif
