// Where each entry's bytes lie, from its local header to the end of its
// data: several records on one header, or ranges that overlap, let a small
// archive extract far more than it holds.
#include <algorithm>
#include <vector>

#include "audit/audit_steps.h"

namespace kxzef {

namespace {

struct Span {
  uint64_t start;  // the local header
  uint64_t end;    // one past the data, as the record sizes it
  size_t index;
};

std::vector<Span> entrySpans(const DirectoryPlace& place, const AuditReport& report) {
  std::vector<Span> spans;
  spans.reserve(report.entries.size());
  for (size_t i = 0; i < report.entries.size(); ++i) {
    const AuditEntry& entry = report.entries[i];
    if (entry.dataOffset == 0) continue;  // no whole local header: reported already
    const uint64_t size = std::min(entry.compressedSize, UINT64_MAX - entry.dataOffset);
    spans.push_back({entry.localHeaderOffset + place.bytesBefore, entry.dataOffset + size, i});
  }
  std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) {
    return a.start != b.start ? a.start < b.start : a.index < b.index;
  });
  return spans;
}

}  // namespace

// One sweep in header order: each span is compared with the first span on
// its header and with the furthest-reaching span before it, so an archive of
// n entries gives at most two findings an entry, never n squared.
void checkDataLayout(const DirectoryPlace& place, AuditReport& report) {
  const std::vector<Span> spans = entrySpans(place, report);
  const Span* leader = nullptr;  // the first span on the current header
  const Span* furthest = nullptr;
  for (const Span& span : spans) {
    const auto index = static_cast<int64_t>(span.index);
    if (leader != nullptr && span.start == leader->start) {
      addFinding(report, FindingKind::SharedLocalHeader, index,
                 "shares its local header with " + quotedName(report.entries[leader->index].name));
    } else {
      if (furthest != nullptr && span.start < furthest->end) {
        addFinding(report, FindingKind::OverlappingData, index,
                   "overlaps the data of " + quotedName(report.entries[furthest->index].name));
      }
      leader = &span;
    }
    if (span.end > place.directoryStart) {
      addFinding(report, FindingKind::OverlappingData, index, "runs into the central directory");
    }
    if (furthest == nullptr || span.end > furthest->end) furthest = &span;
  }
}

}  // namespace kxzef
