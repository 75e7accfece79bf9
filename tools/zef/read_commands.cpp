// zef list and zef extract: the command lines, and the listing's own check
// that it showed every entry the central directory holds.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "archive_file.h"
#include "audit/archive_audit.h"
#include "findings.h"
#include "kxzefarchiver/ZEFArchReader.h"
#include "kxzefarchiver/zefarchiver.h"
#include "safe_extract.h"
#include "zef.h"

namespace zef {

namespace {

const char MaxSizeOption[] = "--max-size=";

int parse(const std::vector<std::string>& args, ExtractRequest& request) {
  bool optionsEnded = false;
  std::string problem;
  request.jobs = defaultJobs();
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    bool* flag = arg == "--ask"       ? &request.ask
                 : arg == "--flat"    ? &request.flat
                 : arg == "--trust"   ? &request.trust
                 : arg == "--replace" ? &request.replace
                                      : nullptr;
    if (!optionsEnded && takeJobsOption(args, i, request.jobs, problem)) {
      if (!problem.empty()) return usageError("extract", problem);
    } else if (!optionsEnded && arg == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && arg == "-d") {
      if (i + 1 == args.size()) return usageError("extract", "-d needs a DIR");
      request.destination = args[++i];
    } else if (!optionsEnded && flag != nullptr) {
      *flag = true;
    } else if (!optionsEnded && arg.rfind(MaxSizeOption, 0) == 0) {
      request.limitGiven = true;
      if (!parseSize(arg.substr(std::strlen(MaxSizeOption)), request.maxTotalSize)) {
        return usageError("extract", "--max-size needs a number of bytes, not '" + arg + "'");
      }
    } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
      return usageError("extract", "unknown option '" + arg + "'");
    } else if (request.archive.empty()) {
      request.archive = arg;
    } else {
      request.entries.push_back(arg);
    }
  }
  if (request.archive.empty()) return usageError("extract", "no ARCHIVE given");
  if (request.ask && request.replace) return usageError("extract", "--ask and --replace exclude each other");
  return ExitOk;
}

// The listing's rows as the library prints them, counted by their line ends.
size_t listedLines = 0;

int toStandardOutputCounting(const char* text) {
  if (text == nullptr || std::fputs(text, stdout) < 0) return 0;
  for (const char* end = std::strchr(text, '\n'); end != nullptr; end = std::strchr(end + 1, '\n')) ++listedLines;
  return static_cast<int>(std::strlen(text));
}

// The line ends a complete listing of `report` prints: one per row, and
// those inside the names the library shows.
size_t expectedLines(const kxzef::AuditReport& report) {
  size_t lines = 0;
  for (const kxzef::AuditEntry& entry : report.entries) {
    const std::string name = libraryName(entry.name);
    lines += 1 + static_cast<size_t>(std::count(name.begin(), name.end(), '\n'));
  }
  return lines;
}

// Why a listing that ended early did: the audit's count mismatch, or the damage it stopped at.
std::string incompleteListing(const std::string& archive, int status, const kxzef::AuditReport& report) {
  for (const kxzef::AuditFinding& finding : report.findings) {
    if (finding.kind == kxzef::FindingKind::CountMismatch) {
      return archive + ": the listing is incomplete: " + findingLine(report, finding);
    }
  }
  if (status != kxzef::AuditOk) return archive + ": the listing is incomplete: the central directory is damaged";
  return archive + ": the listing is incomplete: the library could not read every entry";
}

}  // namespace

int listCommand(const std::vector<std::string>& args) {
  if (args.size() != 1) return usageError("list", args.empty() ? "no ARCHIVE given" : "too many arguments");
  const std::string& name = args[0];
  if (name.size() > 1 && name[0] == '-') return usageError("list", "unknown option '" + name + "'");
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
  kxzef::AuditReport report;
  kxzef::AuditOptions options;  // no size limit: listing writes nothing
  const int status = kxzef::auditArchive(archive.path().c_str(), options, report);
  bool mismatch = status != kxzef::AuditOk || listedLines != expectedLines(report);
  for (const kxzef::AuditFinding& finding : report.findings)
    mismatch |= finding.kind == kxzef::FindingKind::CountMismatch;
  return mismatch ? failure(incompleteListing(name, status, report)) : ExitOk;
}

int extractCommand(const std::vector<std::string>& args) {
  ExtractRequest request;
  if (int status = parse(args, request); status != ExitOk) return status;
  return safeExtract(request, stderr);
}

}  // namespace zef
