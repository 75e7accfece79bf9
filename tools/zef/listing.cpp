// zef list: the central directory as the audit reads it, shown as a table
// that fits 80 columns, as names only, or as JSON lines; --raw hands the
// work to the library's own listing. One read of the directory, one of each
// local header, one per link target: no entry data is inflated otherwise.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "archive_file.h"
#include "audit/archive_audit.h"
#include "entry_text.h"
#include "entry_time.h"
#include "feedback.h"
#include "findings.h"
#include "kxzefarchiver/ZEFArchReader.h"
#include "kxzefarchiver/zefarchiver.h"
#include "zef.h"

namespace zef {

namespace {

using kxzef::AuditEntry;
using kxzef::AuditReport;
using kxzef::FindingKind;

enum class Format { Table, Names, Json, Raw };

struct ListRequest {
  std::string archive;
  Format format = Format::Table;
  Verbosity verbosity;
};

int takeOption(const std::string& arg, ListRequest& request, bool& formatGiven) {
  const Format format = arg == "-1" ? Format::Names : arg == "--json" ? Format::Json : Format::Raw;
  if (arg == "-1" || arg == "--json" || arg == "--raw") {
    if (formatGiven && request.format != format) return usageError("list", "-1, --json and --raw exclude each other");
    request.format = format;
    formatGiven = true;
    return ExitOk;
  }
  return takeVerbosity(arg, request.verbosity) ? ExitOk : usageError("list", "unknown option '" + arg + "'");
}

int parse(const std::vector<std::string>& args, ListRequest& request) {
  bool formatGiven = false;
  size_t operands = 0;
  const int status = walkArguments(
      args, [&](size_t& i) { return takeOption(args[i], request, formatGiven); },
      [&](const std::string& arg) {
        request.archive = arg;
        ++operands;
      });
  if (status != ExitOk) return status;
  if (operands == 0) return usageError("list", "no ARCHIVE given");
  if (operands > 1) return usageError("list", "too many arguments");
  if (request.verbosity.verbose && request.format != Format::Table) {
    return usageError("list", "-v adds columns to the table; it does not go with -1, --json or --raw");
  }
  return ExitOk;
}

const char* typeWord(const AuditEntry& entry) {
  return entry.isDirectory ? "directory" : entry.isLink ? "link" : "file";
}

// The share of `size` that packing saved, as a whole percentage.
int savedPercent(uint64_t size, uint64_t stored) {
  if (size == 0) return 0;
  const double saved = 100.0 * (static_cast<double>(size) - static_cast<double>(stored)) / static_cast<double>(size);
  return static_cast<int>(saved + (saved < 0 ? -0.5 : 0.5));
}

// An entry's name for the table, with " -> target" for a link.
std::string shownName(const AuditEntry& entry, const std::string& target) {
  std::string shown = terminalText(entry.name);
  if (entry.isLink) shown += " -> " + terminalText(target);
  return shown;
}

struct Totals {
  uint64_t size = 0, stored = 0;
};

Totals totalsOf(const AuditReport& report) {
  Totals totals;
  for (const AuditEntry& entry : report.entries) {
    totals.size += entry.uncompressedSize;
    totals.stored += entry.compressedSize;
  }
  return totals;
}

int digits(uint64_t value) { return static_cast<int>(std::to_string(value).size()); }

//   Size  Date       Time   Name            (80 columns hold 30 of the table's own)
void printTable(const AuditReport& report, const std::vector<std::string>& targets) {
  const Totals totals = totalsOf(report);
  const int size = std::max(4, digits(totals.size));
  std::printf("%*s  %-16s  %s\n", size, "Size", "Date       Time", "Name");
  std::printf("%s  %s  %s\n", std::string(size, '-').c_str(), "---------- -----", "----");
  for (size_t i = 0; i < report.entries.size(); ++i) {
    const AuditEntry& entry = report.entries[i];
    std::printf("%*" PRIu64 "  %s  %s\n", size, entry.uncompressedSize, formatDosDate(entry.dosDateTime, false).c_str(),
                shownName(entry, targets[i]).c_str());
  }
  std::printf("%s  %16s  %s\n", std::string(size, '-').c_str(), "", "-------");
  std::printf("%*" PRIu64 "  %16s  %s\n", size, totals.size, "", entryCount(report.entries.size()).c_str());
}

//   Size  Method  Stored  Saved  Date       Time   CRC-32    Name
void printVerboseTable(const AuditReport& report, const std::vector<std::string>& targets) {
  const Totals totals = totalsOf(report);
  const int size = std::max(4, digits(totals.size)), stored = std::max(6, digits(totals.stored));
  std::printf("%*s  Method  %*s  Saved  Date       Time   CRC-32    Name\n", size, "Size", stored, "Stored");
  const std::string sizeRule(size, '-'), storedRule(stored, '-');
  std::printf("%s  ------  %s  -----  ---------- -----  --------  ----\n", sizeRule.c_str(), storedRule.c_str());
  for (size_t i = 0; i < report.entries.size(); ++i) {
    const AuditEntry& entry = report.entries[i];
    std::printf("%*" PRIu64 "  %-6s  %*" PRIu64 "  %4d%%  %s  %08" PRIx32 "  %s\n", size, entry.uncompressedSize,
                methodColumn(entry.method, entry.flags).c_str(), stored, entry.compressedSize,
                savedPercent(entry.uncompressedSize, entry.compressedSize),
                formatDosDate(entry.dosDateTime, false).c_str(), entry.crc, shownName(entry, targets[i]).c_str());
  }
  std::printf("%s  %6s  %s  -----  %26s  -------\n", sizeRule.c_str(), "", storedRule.c_str(), "");
  std::printf("%*" PRIu64 "  %6s  %*" PRIu64 "  %4d%%  %26s  %s\n", size, totals.size, "", stored, totals.stored,
              savedPercent(totals.size, totals.stored), "", entryCount(report.entries.size()).c_str());
}

void printNames(const AuditReport& report) {
  for (const AuditEntry& entry : report.entries) {
    std::fwrite(entry.name.data(), 1, entry.name.size(), stdout);
    std::fputc('\n', stdout);
  }
}

void printJson(const AuditReport& report, const std::vector<std::string>& targets) {
  for (size_t i = 0; i < report.entries.size(); ++i) {
    const AuditEntry& entry = report.entries[i];
    char mode[8] = "null";
    if (entry.hasUnixMode) std::snprintf(mode, sizeof mode, "\"%04o\"", entry.mode & 07777);
    std::printf("{\"name\": %s, \"type\": \"%s\", \"mode\": %s, \"size\": %" PRIu64 ", \"stored_size\": %" PRIu64
                ", \"method\": %s, \"crc\": \"%08" PRIx32 "\", \"time\": \"%s\", \"target\": %s}\n",
                jsonString(entry.name).c_str(), typeWord(entry), mode, entry.uncompressedSize, entry.compressedSize,
                jsonString(methodWord(entry.method)).c_str(), entry.crc, formatDosDate(entry.dosDateTime, true).c_str(),
                entry.isLink ? jsonString(targets[i]).c_str() : "null");
  }
}

// Reads every link's target; false when one could not be read.
bool readTargets(const ArchiveFile& archive, const AuditReport& report, std::vector<std::string>& targets) {
  bool all = true;
  targets.assign(report.entries.size(), std::string());
  for (size_t i = 0; i < report.entries.size(); ++i) {
    if (report.entries[i].isLink && !readLinkTarget(archive.descriptor(), report.entries[i], targets[i])) {
      targets[i] = "?";
      all = false;
    }
  }
  return all;
}

// Names each damaged record after the listing; ExitOk when there is none.
int damage(const std::string& name, const AuditReport& report, bool targetsRead) {
  int status = ExitOk;
  for (const kxzef::AuditFinding& finding : report.findings) {
    if (finding.kind != FindingKind::CountMismatch && finding.kind != FindingKind::LocalHeaderMismatch) continue;
    std::string line = name + ": " + findingLine(report, finding);
    if (finding.kind == FindingKind::CountMismatch && !report.entries.empty()) {
      line += " (listed: " + std::to_string(report.entries.size()) + ", the last " +
              quotedEntry(report, static_cast<int64_t>(report.entries.size() - 1)) + ")";
    }
    status = failure(line);
  }
  if (!targetsRead && status == ExitOk) status = failure(name + ": a link's target could not be read (shown as '?')");
  return status;
}

int auditedListing(const ListRequest& request) {
  ArchiveFile archive;
  const std::string& name = request.archive;
  if (std::string problem = archive.open(name); !problem.empty()) return failure(name + ": " + problem);
  AuditReport report;
  const int status = kxzef::auditArchive(archive.path().c_str(), kxzef::AuditOptions{}, report);
  if (status == kxzef::AuditCannotOpen) return failure(name + ": cannot be read: " + std::strerror(errno));
  if (status != kxzef::AuditOk) {
    return failure(name + ": is no ZIP archive zef can read: its end record or central directory is damaged");
  }
  std::vector<std::string> targets;
  const bool targetsRead = request.format == Format::Names || readTargets(archive, report, targets);
  if (request.format == Format::Table) {
    if (request.verbosity.verbose) {
      printVerboseTable(report, targets);
    } else {
      printTable(report, targets);
    }
  }
  if (request.format == Format::Names) printNames(report);
  if (request.format == Format::Json) printJson(report, targets);
  std::fflush(stdout);
  return damage(name, report, targetsRead);
}

// The library's listing: rows as it prints them, counted by their line ends.
size_t listedLines = 0;

int toStandardOutputCounting(const char* text) {
  if (text == nullptr || std::fputs(text, stdout) < 0) return 0;
  for (const char* end = std::strchr(text, '\n'); end != nullptr; end = std::strchr(end + 1, '\n')) ++listedLines;
  return static_cast<int>(std::strlen(text));
}

// The line ends a complete listing of `report` prints: one per row, and
// those inside the names the library shows.
size_t expectedLines(const AuditReport& report) {
  size_t lines = 0;
  for (const AuditEntry& entry : report.entries) {
    const std::string shown = libraryName(entry.name);
    lines += 1 + static_cast<size_t>(std::count(shown.begin(), shown.end(), '\n'));
  }
  return lines;
}

// Why a listing that ended early did: the audit's count mismatch, or the damage it stopped at.
std::string incompleteListing(const std::string& archive, int status, const AuditReport& report) {
  for (const kxzef::AuditFinding& finding : report.findings) {
    if (finding.kind == FindingKind::CountMismatch) {
      return archive + ": the listing is incomplete: " + findingLine(report, finding);
    }
  }
  if (status != kxzef::AuditOk) return archive + ": the listing is incomplete: the central directory is damaged";
  return archive + ": the listing is incomplete: the library could not read every entry";
}

int rawListing(const std::string& name) {
  // A FIFO or device is refused before the library waits on it; a missing
  // archive is the library's to report.
  ArchiveFile archive;
  if (std::string problem = archive.open(name); !problem.empty() && !archive.missing()) {
    return failure(name + ": " + problem);
  }
  std::unique_ptr<ZEFArchReader> reader(getZipReader());
  if (!reader) return failure("cannot make a reader for '" + name + "'");
  // The handler stays counting for the rest of the run; only this listing prints rows.
  set_zefarchiver_output_handler(toStandardOutputCounting);
  if (reader->listArchive(name.c_str()) != 0) return failure("could not list '" + name + "'");
  std::fflush(stdout);
  // The library lists what the end record counts and stops at the first
  // damaged header without saying so in its result: compare with the audit.
  AuditReport report;
  const int status = kxzef::auditArchive(archive.path().c_str(), kxzef::AuditOptions{}, report);
  bool mismatch = status != kxzef::AuditOk || listedLines != expectedLines(report);
  for (const kxzef::AuditFinding& finding : report.findings)
    mismatch |= finding.kind == FindingKind::CountMismatch;
  return mismatch ? failure(incompleteListing(name, status, report)) : ExitOk;
}

}  // namespace

int listCommand(const std::vector<std::string>& args) {
  ListRequest request;
  if (int status = parse(args, request); status != ExitOk) return status;
  if (request.format == Format::Raw) return rawListing(request.archive);
  return auditedListing(request);
}

}  // namespace zef
