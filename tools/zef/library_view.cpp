// The reading core's walk over the central directory, compared with the
// audit's. Only headers are read; the walk stops where the core stops.
#include "library_view.h"

#include <array>
#include <string>

#include "extract/unzip_driver.h"
#include "findings.h"
#include "zip/unzip_archive.h"

namespace zef {

namespace {

// The index of the first entry the core reads differently from the audit,
// or -1 when every entry it reads is the audit's.
int64_t firstDivergence(kxzef::UnzipArchive& archive, const kxzef::AuditReport& report) {
  uint64_t count = 0;
  uint64_t commentLength = 0;
  if (archive.getGlobalInfo(&count, &commentLength) != kxzef::StatusOk) return -1;
  std::array<char, kxzef::EntryNameBufferSize + 1> name{};
  for (uint64_t index = 0; index < count; ++index) {
    if (index > 0 && archive.goToNextEntry() != kxzef::StatusOk) return -1;
    name.fill('\0');
    if (archive.getCurrentEntryInfo(nullptr, name.data(), kxzef::EntryNameBufferSize, nullptr, 0, nullptr, 0) !=
        kxzef::StatusOk) {
      return -1;
    }
    if (index >= report.entries.size() || libraryName(report.entries[index].name) != name.data()) {
      return static_cast<int64_t>(index);
    }
  }
  return -1;
}

}  // namespace

std::vector<kxzef::AuditFinding> divergenceFindings(const char* path, const kxzef::AuditReport& report) {
  kxzef::UnzipArchive archive;
  // A file the core cannot open is one the library cannot extract from either.
  if (!archive.openArchive(path)) return {};
  const int64_t index = firstDivergence(archive, report);
  archive.closeArchive();
  if (index < 0) return {};
  return {{kxzef::FindingKind::CountMismatch, -1,
           "reads differently to the library than to the audit from entry " + std::to_string(index + 1) + " on"}};
}

}  // namespace zef
