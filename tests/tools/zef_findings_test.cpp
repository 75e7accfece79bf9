// zef's own containment rules: which names it refuses even with --trust,
// because the library could write them outside the extraction directory.
#include "findings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kxzef::AuditEntry;
using kxzef::AuditReport;
using kxzef::FindingKind;

AuditReport reportOf(const std::vector<std::string>& names) {
  AuditReport report;
  for (const std::string& name : names) {
    AuditEntry entry;
    entry.name = name;
    report.entries.push_back(entry);
  }
  return report;
}

const char* shortName(FindingKind kind) {
  switch (kind) {
    case FindingKind::ParentComponent:
      return "climbs";
    case FindingKind::NameCollision:
      return "twice";
    case FindingKind::ThroughArchiveLink:
      return "below";
    case FindingKind::AbsoluteName:
      return "absolute";
    case FindingKind::TotalSizeTooLarge:
      return "size";
    default:
      return "other";
  }
}

// The findings as "index:kind" words, in order.
std::string described(const std::vector<kxzef::AuditFinding>& findings) {
  std::string text;
  for (const auto& finding : findings) {
    text += (text.empty() ? "" : " ") + std::to_string(finding.entryIndex) + ":" + shortName(finding.kind);
  }
  return text;
}

TEST(ZefFindings, EscapesAreFoundAsTheLibraryWouldWriteTheNames) {
  const std::string nul("a\0/../../x", 10);
  const std::string longName = std::string(255, 'a') + "/../x";  // the library keeps 256 bytes: "a...a/"
  const struct {
    const char* reason;
    std::vector<std::string> names;
    const char* found;
  } rows[] = {
      {"a plain tree", {"app/", "app/bin/run", "app/etc/"}, ""},
      {"\"..\" as a whole component only", {"a/..b", "..c", "b../d"}, ""},
      {"backslashes separate for the directory maker", {"..\\x"}, "0:climbs"},
      {"a directory given twice is harmless", {"d/", "d//", "./d/"}, ""},
      {"empty and \".\" components do not hide a collision", {"l", "./l"}, "1:twice"},
      {"below a file or link of the archive", {"d", "d/x", "d\\y\\"}, "1:below 2:below"},
      {"the name ends at its first NUL", {nul}, ""},
      {"the cut at the name buffer drops the \"..\"", {longName}, ""},
      {"names that meet after the NUL cut", {std::string("f\0one", 5), std::string("f\0two", 5)}, "1:twice"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(described(zef::escapeFindings(reportOf(row.names), false)), row.found) << row.reason;
  }
}

TEST(ZefFindings, CaseIsFoldedOnlyWhereTheFileSystemFoldsIt) {
  const AuditReport report = reportOf({"L", "l/x", "README", "readme"});
  EXPECT_EQ(described(zef::escapeFindings(report, false)), "");
  EXPECT_EQ(described(zef::escapeFindings(report, true)), "1:below 3:twice");
}

TEST(ZefFindings, TrustKeepsOnlyTheSizeLimitAndTheEscapes) {
  AuditReport report = reportOf({"/abs", "../up"});
  report.findings = {{FindingKind::TotalSizeTooLarge, -1, "declares too much"},
                     {FindingKind::AbsoluteName, 0, "is an absolute path"},
                     {FindingKind::ParentComponent, 1, "contains a '..' component"}};
  EXPECT_EQ(described(zef::refusals(report, false, false)), "-1:size 0:absolute 1:climbs");
  EXPECT_EQ(described(zef::refusals(report, true, false)), "-1:size 1:climbs");
  EXPECT_EQ(zef::findingLine(report, report.findings[0]), "the archive declares too much");
}

}  // namespace
