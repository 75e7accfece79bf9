// zef extract's command line.
#include <cstdint>
#include <string>
#include <vector>

#include "feedback.h"
#include "overwrite_question.h"
#include "safe_extract.h"
#include "zef.h"

namespace zef {

namespace {

int applyValue(const std::string& name, const std::string& value, ExtractRequest& request) {
  if (name == "-d") request.destination = value;
  if (name == "--exclude") request.excludes.push_back(value);
  if (name == "--overwrite" && !parseOverwrite(value, request.overwrite)) {
    return usageError("extract", "--overwrite needs always, never or ask, not '" + value + "'");
  }
  if (name == "--max-size") {
    request.limitGiven = true;
    if (!parseSize(value, request.maxTotalSize)) {
      return usageError("extract", "--max-size needs a number of bytes, not '" + value + "'");
    }
  }
  return ExitOk;
}

int takeOption(const std::vector<std::string>& args, size_t& i, ExtractRequest& request) {
  const std::string& arg = args[i];
  if (std::string problem; takeJobsOption(args, i, request.jobs, problem)) {
    return problem.empty() ? ExitOk : usageError("extract", problem);
  }
  bool* flag = arg == "--flat" ? &request.flat : arg == "--trust" ? &request.trust : arg == "--replace" ? &request.replace : nullptr;
  if (flag != nullptr) {
    *flag = true;
  } else if (arg == "--ask") {
    request.overwrite = Overwrite::Ask;
  } else if (!takeVerbosity(arg, request.verbosity)) {
    bool taken = false;
    const int status = takeValued(
        "extract", args, i,
        {{"-d", "a DIR"}, {"--exclude", "a PATTERN"}, {"--overwrite", "always, never or ask"},
         {"--max-size", "a number of bytes"}},
        [&request](const std::string& name, const std::string& value) { return applyValue(name, value, request); },
        taken);
    if (status != ExitOk || taken) return status;
    return usageError("extract", "unknown option '" + arg + "'");
  }
  return ExitOk;
}

int parse(const std::vector<std::string>& args, ExtractRequest& request) {
  request.jobs = defaultJobs();
  const int status = walkArguments(
      args, [&](size_t& i) { return takeOption(args, i, request); },
      [&request](const std::string& arg) {
        if (request.archive.empty()) {
          request.archive = arg;
        } else {
          request.entries.push_back(arg);
        }
      });
  if (status != ExitOk) return status;
  if (request.archive.empty()) return usageError("extract", "no ARCHIVE given");
  if (request.overwrite == Overwrite::Ask && request.replace) {
    return usageError("extract", "--overwrite=ask and --replace exclude each other");
  }
  return ExitOk;
}

}  // namespace

int extractCommand(const std::vector<std::string>& args) {
  ExtractRequest request;
  if (int status = parse(args, request); status != ExitOk) return status;
  return safeExtract(request, stderr);
}

}  // namespace zef
