// Feeds arbitrary bytes to the archive audit and, when the declared sizes
// are within a small limit, to the integrity test, as zef does before it
// trusts an archive. Any crash, sanitizer report, hang, outsized allocation
// or broken promise of the report (checked with abort()) is a bug.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "audit/archive_audit.h"

namespace {

using namespace kxzef;

// Bounds the integrity test's work per input: declared sizes above this are
// a finding, and zef would stop there too.
constexpr uint64_t MaxDeclaredTotal = 16u << 20;
constexpr uint64_t SmallestCentralRecord = 46;

void require(bool promise) {
  if (!promise) std::abort();
}

// The fuzzer's bytes as a file the audit can open by name: a memory file,
// rewritten for each input, reached through /proc.
std::string memoryFilePath() {
  static const int descriptor = memfd_create("audit-fuzz", MFD_CLOEXEC);
  require(descriptor >= 0);
  return "/proc/self/fd/" + std::to_string(descriptor);
}

void fillMemoryFile(const std::string& path, const uint8_t* data, size_t size) {
  const int descriptor = std::atoi(path.c_str() + path.rfind('/') + 1);
  require(ftruncate(descriptor, 0) == 0);
  for (size_t done = 0; done < size;) {
    const ssize_t written = pwrite(descriptor, data + done, size - done, static_cast<off_t>(done));
    require(written > 0);
    done += static_cast<size_t>(written);
  }
}

// A destination holding one real directory and one link, so that the
// existing-link check meets both.
std::string destination() {
  static const std::string made = [] {
    char pattern[] = "/tmp/kxzef-audit-fuzz-XXXXXX";
    require(mkdtemp(pattern) != nullptr);
    const std::string root = pattern;
    require(mkdir((root + "/d").c_str(), 0755) == 0);
    require(symlink("/", (root + "/l").c_str()) == 0);
    return root;
  }();
  return made;
}

void checkReport(const AuditReport& report, int status, size_t size) {
  require(status == AuditOk || status == AuditNotAnArchive || status == AuditCannotOpen);
  require(report.archiveSize == size);
  require(report.entries.size() <= size / SmallestCentralRecord);
  require(report.safe() == report.findings.empty());
  int64_t previous = -1;
  for (const AuditFinding& finding : report.findings) {
    require(finding.entryIndex >= previous && finding.entryIndex < static_cast<int64_t>(report.entries.size()));
    require(!finding.detail.empty() && findingText(finding.kind)[0] != '\0');
    previous = finding.entryIndex;
  }
  for (const AuditEntry& entry : report.entries) {
    require(entry.dataOffset <= size);
    require(!(entry.isLink && !entry.name.empty() && entry.name.back() == '/'));
    const std::string quoted = quotedName(entry.name);
    require(std::all_of(quoted.begin(), quoted.end(), [](char c) { return c >= 0x20 && c < 0x7F; }));
  }
}

bool declaresTooMuch(const AuditReport& report) {
  return std::any_of(report.findings.begin(), report.findings.end(),
                     [](const AuditFinding& f) { return f.kind == FindingKind::TotalSizeTooLarge; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = memoryFilePath();
  fillMemoryFile(path, data, size);
  AuditOptions options;
  options.maxTotalSize = MaxDeclaredTotal;
  options.destination = destination();
  AuditReport report;
  const int status = auditArchive(path.c_str(), options, report);
  checkReport(report, status, size);
  if (status != AuditOk || declaresTooMuch(report)) return 0;
  std::vector<AuditFinding> failures;
  require(testArchive(path.c_str(), report, failures) == AuditOk);
  for (const AuditFinding& failure : failures) {
    require(failure.kind == FindingKind::BadData);
    require(failure.entryIndex >= 0 && failure.entryIndex < static_cast<int64_t>(report.entries.size()));
  }
  return 0;
}
