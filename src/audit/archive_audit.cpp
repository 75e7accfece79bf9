// The archive audit: runs the steps in audit_steps.h over one archive and
// puts their findings in entry order. It reads the archive only, and trusts
// nothing in it.
#include "audit/archive_audit.h"

#include <algorithm>
#include <cerrno>

#include "audit/audit_file.h"
#include "audit/audit_steps.h"

namespace kxzef {

namespace {

// Deflate cannot expand data by more than about 1032:1 and stored data does
// not expand at all, so entries whose data does not overlap cannot truly
// hold more than about 1032 times the archive's size; declaring more is a
// lie or a bomb. The margin covers rounding in very small streams; the floor
// keeps the limit out of the way of small archives, where it guards nothing.
constexpr uint64_t SizeRatioLimit = 1100;
constexpr uint64_t SizeLimitFloor = uint64_t{1} << 30;

std::string entriesText(uint64_t count) { return std::to_string(count) + (count == 1 ? " entry" : " entries"); }

void checkTotals(const DirectoryPlace& place, const AuditOptions& options, AuditReport& report) {
  if (place.countedEntries != report.entries.size()) {
    addFinding(report, FindingKind::CountMismatch, -1,
               "the end record counts " + entriesText(place.countedEntries) + ", the directory holds " +
                   std::to_string(report.entries.size()));
  }
  uint64_t total = 0;
  for (const AuditEntry& entry : report.entries) {
    total = entry.uncompressedSize > UINT64_MAX - total ? UINT64_MAX : total + entry.uncompressedSize;
  }
  report.totalUncompressed = total;
  if (options.maxTotalSize != 0 && total > options.maxTotalSize) {
    addFinding(report, FindingKind::TotalSizeTooLarge, -1,
               "declares " + std::to_string(total) + " bytes in all, more than the limit of " +
                   std::to_string(options.maxTotalSize));
  }
}

}  // namespace

void addFinding(AuditReport& report, FindingKind kind, int64_t entryIndex, std::string detail) {
  report.findings.push_back(AuditFinding{kind, entryIndex, std::move(detail)});
}

uint64_t defaultMaxTotalSize(uint64_t archiveSize) {
  if (archiveSize > UINT64_MAX / SizeRatioLimit) return UINT64_MAX;
  return std::max(archiveSize * SizeRatioLimit, SizeLimitFloor);
}

int auditArchive(const char* path, const AuditOptions& options, AuditReport& report) {
  report = AuditReport{};
  AuditFile file;
  if (path == nullptr) {
    errno = EINVAL;
    return AuditCannotOpen;
  }
  if (!file.open(path)) return AuditCannotOpen;
  report.archiveSize = file.size();
  DirectoryPlace place;
  int status = placeDirectory(file, report, place);
  if (status == AuditOk) status = walkDirectory(file, place, report);
  if (status == AuditOk) {
    checkNames(options.destination, report);
    status = checkLocalHeaders(file, place, report);
  }
  if (status == AuditOk) {
    checkDataLayout(place, report);
    checkTotals(place, options, report);
  }
  std::stable_sort(report.findings.begin(), report.findings.end(),
                   [](const AuditFinding& a, const AuditFinding& b) { return a.entryIndex < b.entryIndex; });
  return status;
}

const char* findingText(FindingKind kind) {
  switch (kind) {
    case FindingKind::AbsoluteName: return "absolute name";
    case FindingKind::ParentComponent: return "'..' in name";
    case FindingKind::Backslash: return "backslash in name";
    case FindingKind::EmptyName: return "empty name";
    case FindingKind::NulInName: return "NUL byte in name";
    case FindingKind::NameTooLong: return "name too long";
    case FindingKind::NameCollision: return "name collision";
    case FindingKind::ThroughArchiveLink: return "path through a link entry";
    case FindingKind::ThroughExistingLink: return "path through an existing link";
    case FindingKind::SharedLocalHeader: return "shared local header";
    case FindingKind::OverlappingData: return "overlapping data";
    case FindingKind::CountMismatch: return "entry count mismatch";
    case FindingKind::Encrypted: return "encrypted entry";
    case FindingKind::DataDescriptor: return "data descriptor";
    case FindingKind::UnsupportedMethod: return "unsupported method";
    case FindingKind::SpecialModeBits: return "set-ID or sticky bit";
    case FindingKind::Zip64: return "ZIP64";
    case FindingKind::MultiDisk: return "multi-disk archive";
    case FindingKind::TotalSizeTooLarge: return "total size over the limit";
    case FindingKind::LocalHeaderMismatch: return "local header mismatch";
    case FindingKind::BadData: return "damaged data";
  }
  return "unknown finding";
}

std::string quotedName(const std::string& name) {
  static const char hexDigits[] = "0123456789abcdef";
  constexpr unsigned char FirstPrintable = 0x20, LastPrintable = 0x7E;
  std::string out;
  out.reserve(name.size() + 2);
  out += '\'';
  for (const unsigned char c : name) {
    switch (c) {
      case '\'': out += "\\'"; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c >= FirstPrintable && c <= LastPrintable) {
          out += static_cast<char>(c);
        } else {
          out += "\\x";
          out += hexDigits[c >> 4];
          out += hexDigits[c & 0xF];
        }
    }
  }
  out += '\'';
  return out;
}

}  // namespace kxzef
