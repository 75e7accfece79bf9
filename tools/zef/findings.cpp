// zef's own containment rules and the wording of findings. Names here come
// from the archive and are untrusted; nothing is looked up on disk.
#include "findings.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "extract/unzip_driver.h"

namespace zef {

using kxzef::AuditFinding;
using kxzef::AuditReport;
using kxzef::FindingKind;

namespace {

bool isSeparator(char c) { return c == '/' || c == '\\'; }

// The path below the extraction root that a library name leads to, as
// components joined by "/": empty and "." components dropped (the kernel
// ignores them), "\" taken as a separator. `climbs` is set by a ".." component.
std::string pathKey(const std::string& name, bool foldCase, bool& climbs) {
  std::string key;
  size_t start = 0;
  for (size_t i = 0; i <= name.size(); ++i) {
    if (i < name.size() && !isSeparator(name[i])) continue;
    const std::string_view part(name.data() + start, i - start);
    start = i + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") climbs = true;
    if (!key.empty()) key += '/';
    key.append(part);
  }
  return foldCase ? foldedAscii(std::move(key)) : key;
}

void sortByEntry(std::vector<AuditFinding>& findings) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const AuditFinding& a, const AuditFinding& b) { return a.entryIndex < b.entryIndex; });
}

using PathIndex = std::unordered_map<std::string_view, size_t>;

// The first non-directory entry a proper prefix of `key` names, or -1.
int64_t nonDirectoryAbove(std::string_view key, const PathIndex& nonDirectories) {
  for (size_t slash = key.find('/'); slash != std::string_view::npos; slash = key.find('/', slash + 1)) {
    const auto found = nonDirectories.find(key.substr(0, slash));
    if (found != nonDirectories.end()) return static_cast<int64_t>(found->second);
  }
  return -1;
}

}  // namespace

std::string foldedAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string libraryName(const std::string& stored) {
  const size_t cut = std::min(stored.size(), kxzef::EntryNameBufferSize);
  return std::string(stored.data(), strnlen(stored.data(), cut));
}

bool namesDirectory(const std::string& name) { return name.empty() || isSeparator(name.back()); }

std::vector<AuditFinding> escapeFindings(const AuditReport& report, bool foldCase) {
  const size_t count = report.entries.size();
  std::vector<AuditFinding> findings;
  // Every key is made before the indexes point into them.
  std::vector<std::string> keys(count);
  std::vector<bool> directories(count);
  for (size_t i = 0; i < count; ++i) {
    bool climbs = false;
    const std::string name = libraryName(report.entries[i].name);
    keys[i] = pathKey(name, foldCase, climbs);
    directories[i] = namesDirectory(name);
    if (climbs) findings.push_back({FindingKind::ParentComponent, static_cast<int64_t>(i), "contains a '..' component"});
  }
  PathIndex firstWithPath(2 * count);
  PathIndex nonDirectories(2 * count);
  for (size_t i = 0; i < count; ++i) {
    if (keys[i].empty()) continue;
    const bool directory = directories[i];
    const auto [first, isNew] = firstWithPath.emplace(keys[i], i);
    if (!isNew && !(directory && directories[first->second])) {
      const bool sameName = report.entries[first->second].name == report.entries[i].name;
      findings.push_back({FindingKind::NameCollision, static_cast<int64_t>(i),
                          sameName ? "appears twice in the archive"
                                   : "is written to the same path as " + quotedEntry(report, first->second)});
    }
    if (!directory) nonDirectories.emplace(keys[i], i);
  }
  for (size_t i = 0; i < count; ++i) {
    const int64_t above = nonDirectoryAbove(keys[i], nonDirectories);
    if (above < 0) continue;
    findings.push_back({FindingKind::ThroughArchiveLink, static_cast<int64_t>(i),
                        "lies below " + quotedEntry(report, above) + ", which is no directory"});
  }
  sortByEntry(findings);
  return findings;
}

std::vector<AuditFinding> refusals(const AuditReport& report, bool trust, bool foldCase) {
  std::vector<AuditFinding> list;
  std::vector<bool> named(report.entries.size(), false);
  for (const AuditFinding& finding : report.findings) {
    if (trust && finding.kind != FindingKind::TotalSizeTooLarge) continue;
    list.push_back(finding);
    if (finding.entryIndex >= 0 && static_cast<size_t>(finding.entryIndex) < named.size()) {
      named[static_cast<size_t>(finding.entryIndex)] = true;
    }
  }
  for (AuditFinding& finding : escapeFindings(report, foldCase)) {
    if (!named[static_cast<size_t>(finding.entryIndex)]) list.push_back(std::move(finding));
  }
  sortByEntry(list);
  return list;
}

std::string quotedEntry(const AuditReport& report, int64_t index) {
  if (index < 0 || static_cast<uint64_t>(index) >= report.entries.size()) return "";
  return kxzef::quotedName(report.entries[static_cast<size_t>(index)].name);
}

std::string findingLine(const AuditReport& report, const AuditFinding& finding) {
  const std::string cause = finding.detail.empty() ? kxzef::findingText(finding.kind) : finding.detail;
  const std::string subject = quotedEntry(report, finding.entryIndex);
  if (!subject.empty()) return subject + " " + cause;
  // Findings about the whole archive are mostly worded as what it does
  // ("spans several disks"); some are sentences of their own.
  return cause.rfind("the ", 0) == 0 ? cause : "the archive " + cause;
}

}  // namespace zef
