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

// The findings as "index:kind", in order.
std::string described(const std::vector<kxzef::AuditFinding>& findings) {
  std::string text;
  for (const auto& finding : findings) {
    text += (text.empty() ? "" : ", ") + std::to_string(finding.entryIndex) + ":" + kxzef::findingText(finding.kind);
  }
  return text;
}

const std::string Climbs = "'..' in name", Twice = "name collision", Below = "path through a link entry";
const std::string TooLarge = "total size over the limit";

TEST(ZefFindings, EscapesAreFoundAsTheLibraryWouldWriteTheNames) {
  const std::string nul("a\0/../../x", 10);
  const std::string longName = std::string(255, 'a') + "/../x";  // the library keeps 256 bytes: "a...a/"
  const struct { const char* reason; std::vector<std::string> names; std::string found; } rows[] = {
      {"a plain tree", {"app/", "app/bin/run", "app/etc/"}, ""},
      {"\"..\" as a whole component only", {"a/..b", "..c", "b../d"}, ""},
      {"backslashes separate for the directory maker", {"..\\x"}, "0:" + Climbs},
      {"a directory given twice is harmless", {"d/", "d//", "./d/"}, ""},
      {"empty and \".\" components do not hide a collision", {"l", "./l"}, "1:" + Twice},
      {"below a file or link of the archive", {"d", "d/x", "d\\y\\"}, "1:" + Below + ", 2:" + Below},
      {"the name ends at its first NUL", {nul}, ""},
      {"the cut at the name buffer drops the \"..\"", {longName}, ""},
      {"names that meet after the NUL cut", {std::string("f\0one", 5), std::string("f\0two", 5)}, "1:" + Twice},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(described(zef::escapeFindings(reportOf(row.names), false)), row.found) << row.reason;
  }
}

TEST(ZefFindings, CaseIsFoldedOnlyWhereTheFileSystemFoldsIt) {
  const AuditReport report = reportOf({"L", "l/x", "README", "readme"});
  EXPECT_EQ(described(zef::escapeFindings(report, false)), "");
  EXPECT_EQ(described(zef::escapeFindings(report, true)), "1:" + Below + ", 3:" + Twice);
}

TEST(ZefFindings, TrustKeepsOnlyTheSizeLimitAndTheEscapes) {
  AuditReport report = reportOf({"/abs", "../up"});
  report.findings = {{FindingKind::TotalSizeTooLarge, -1, "declares too much"},
                     {FindingKind::AbsoluteName, 0, "is an absolute path"},
                     {FindingKind::ParentComponent, 1, "contains a '..' component"}};
  EXPECT_EQ(described(zef::refusals(report, false, false)), "-1:" + TooLarge + ", 0:absolute name, 1:" + Climbs);
  EXPECT_EQ(described(zef::refusals(report, true, false)), "-1:" + TooLarge + ", 1:" + Climbs);
  EXPECT_EQ(zef::findingLine(report, report.findings[0]), "the archive declares too much");
}

}  // namespace
