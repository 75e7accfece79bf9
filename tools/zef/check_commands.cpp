// zef check and zef test: the audit's findings, and the integrity test's
// failures, one line each on standard output; the verdict on standard error.
#include <cerrno>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "archive_file.h"
#include "feedback.h"
#include "audit/archive_audit.h"
#include "engine/parallel_test.h"
#include "findings.h"
#include "library_view.h"
#include "zef.h"

namespace zef {

namespace {

const char MaxSizeOption[] = "--max-size=";

struct CheckRequest {
  std::string archive;
  Verbosity verbosity;
  bool limitGiven = false;
  uint64_t maxTotalSize = 0;
  unsigned jobs = defaultJobs();  // threads of the integrity test
};

int parse(const std::string& command, const std::vector<std::string>& args, CheckRequest& request) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    std::string problem;
    if (command == "test" && takeJobsOption(args, i, request.jobs, problem)) {
      if (!problem.empty()) return usageError(command, problem);
    } else if (arg.rfind(MaxSizeOption, 0) == 0) {
      request.limitGiven = true;
      if (!parseSize(arg.substr(std::strlen(MaxSizeOption)), request.maxTotalSize)) {
        return usageError(command, "--max-size needs a number of bytes, not '" + arg + "'");
      }
    } else if (takeVerbosity(arg, request.verbosity)) {
    } else if (arg.size() > 1 && arg[0] == '-') {
      return usageError(command, "unknown option '" + arg + "'");
    } else if (!request.archive.empty()) {
      return usageError(command, "too many arguments");
    } else {
      request.archive = arg;
    }
  }
  return request.archive.empty() ? usageError(command, "no ARCHIVE given") : ExitOk;
}

std::string plural(size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// The -v summary: the bytes the archive's entries take in it and unpacked.
void summarize(const std::string& archive, const kxzef::AuditReport& report) {
  uint64_t packed = 0;
  for (const kxzef::AuditEntry& entry : report.entries) packed += entry.compressedSize;
  printSummary(archive, report.entries.size(), packed, report.totalUncompressed);
}

// Audits the archive and prints the findings, zef's own refusals included;
// `integrity` adds the integrity test's failures.
int examine(const std::string& command, const std::vector<std::string>& args, bool integrity) {
  CheckRequest request;
  if (int status = parse(command, args, request); status != ExitOk) return status;
  ArchiveFile archive;
  if (std::string problem = archive.open(request.archive); !problem.empty())
    return failure(request.archive + ": " + problem);
  kxzef::AuditOptions options;
  options.maxTotalSize = request.limitGiven ? request.maxTotalSize : kxzef::defaultMaxTotalSize(archive.size());
  kxzef::AuditReport report;
  const int status = kxzef::auditArchive(archive.path().c_str(), options, report);
  if (status == kxzef::AuditCannotOpen) return failure(request.archive + ": cannot be read: " + std::strerror(errno));
  std::vector<kxzef::AuditFinding> found = divergenceFindings(archive.path().c_str(), report);
  for (kxzef::AuditFinding& finding : refusals(report, false, false)) found.push_back(std::move(finding));
  std::vector<kxzef::AuditFinding> failed;
  if (status == kxzef::AuditOk && integrity) kxzef::testArchiveInParallel(archive.path().c_str(), report, request.jobs, failed);
  for (const auto* list : {&found, &failed}) {
    for (const kxzef::AuditFinding& finding : *list) std::printf("%s\n", findingLine(report, finding).c_str());
  }
  if (request.verbosity.verbose) summarize(request.archive, report);
  std::fflush(stdout);
  const std::string entries = plural(report.entries.size(), "entry", "entries");
  if (status != kxzef::AuditOk) return failure(request.archive + ": the central directory is damaged; read " + entries);
  if (!found.empty() || !failed.empty()) {
    std::string verdict = request.archive + ": " + plural(found.size(), "finding", "findings");
    if (integrity) verdict += ", " + plural(failed.size(), "entry failed", "entries failed");
    return failure(verdict + " in " + entries);
  }
  std::printf("%s: %s, no findings%s\n", request.archive.c_str(), entries.c_str(), integrity ? ", all intact" : "");
  return ExitOk;
}

}  // namespace

bool parseSize(const std::string& text, uint64_t& size) {
  constexpr char Suffixes[] = "KMGT";
  if (text.empty() || text[0] < '0' || text[0] > '9') return false;
  size_t end = 0;
  errno = 0;
  const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
  while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
  unsigned shift = 0;
  if (end + 1 == text.size()) {
    const char* suffix = std::strchr(Suffixes, text[end] & ~0x20);
    if (suffix == nullptr || *suffix == '\0') return false;
    shift = 10 * static_cast<unsigned>(suffix - Suffixes + 1);
  } else if (end != text.size()) {
    return false;
  }
  if (errno == ERANGE || (shift > 0 && number > (UINT64_MAX >> shift))) return false;
  size = static_cast<uint64_t>(number) << shift;
  return true;
}

int checkCommand(const std::vector<std::string>& args) { return examine("check", args, false); }

int testCommand(const std::vector<std::string>& args) { return examine("test", args, true); }

}  // namespace zef
