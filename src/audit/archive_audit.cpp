// The archive audit. A placeholder that finds nothing, until the bounded
// walk of the central directory lands.
#include "audit/archive_audit.h"

namespace kxzef {

uint64_t defaultMaxTotalSize(uint64_t archiveSize) {
  constexpr uint64_t Floor = uint64_t{1} << 30;
  return archiveSize * 1032 > Floor ? archiveSize * 1032 : Floor;
}

int auditArchive(const char* /*path*/, const AuditOptions& /*options*/, AuditReport& report) {
  report = AuditReport{};
  return AuditOk;
}

int testArchive(const char* /*path*/, const AuditReport& /*report*/, std::vector<AuditFinding>& failures) {
  failures.clear();
  return AuditOk;
}

const char* findingText(FindingKind /*kind*/) { return ""; }

std::string quotedName(const std::string& name) { return "'" + name + "'"; }

}  // namespace kxzef
