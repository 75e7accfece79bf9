// zef create: checks every input first, has the writer fill a temporary
// file beside the archive, reads that file back with the audit and the
// integrity test, and only then renames it over the archive. The writer's
// own habits (removing the name it was given on failure, cutting names at
// 255 bytes) then only ever touch zef's temporary file.
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "atomic_output.h"
#include "audit/archive_audit.h"
#include "create/zip_driver.h"
#include "create_inputs.h"
#include "engine/parallel_prefetch.h"
#include "kxzefarchiver/ZEFArchWriter.h"
#include "kxzefarchiver/ZEFFileReader.h"
#include "zef.h"

namespace zef {

namespace {

constexpr size_t MaxEntries = 65535;

struct CreateOptions {
  int level = 6;
  unsigned jobs = defaultJobs();
  bool keep = false;
  std::string archive;
  std::string manifest;
  std::vector<std::string> inputs;
};

int parse(const std::vector<std::string>& args, CreateOptions& options) {
  bool optionsEnded = false;
  std::string problem;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!optionsEnded && takeJobsOption(args, i, options.jobs, problem)) {
      if (!problem.empty()) return usageError("create", problem);
    } else if (!optionsEnded && arg == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && arg.size() == 2 && arg[0] == '-' && arg[1] >= '0' && arg[1] <= '9') {
      options.level = arg[1] - '0';
    } else if (!optionsEnded && arg == "--keep") {
      options.keep = true;
    } else if (!optionsEnded && arg == "--from") {
      if (i + 1 == args.size()) return usageError("create", "--from needs a FILE");
      options.manifest = args[++i];
    } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
      return usageError("create", "unknown option '" + arg + "'");
    } else if (options.archive.empty()) {
      options.archive = arg;
    } else {
      options.inputs.push_back(arg);
    }
  }
  if (options.archive.empty()) return usageError("create", "no ARCHIVE given");
  if (options.inputs.empty() && options.manifest.empty()) return usageError("create", "no INPUT given");
  return ExitOk;
}

// What a failed run leaves in the context is ours to release.
void release(CreationContext& context) {
  delete context.currentStream;
  delete context.currentReader;
  context = CreationContext();
}

// The closing line of a run that changed nothing.
int notCreated(const ArchivePath& archive, const char* outcome) {
  return failure("could not create '" + archive.path + "'; " + outcome);
}

const char* unchanged(const ArchivePath& archive) {
  return archive.exists ? "the previous archive is unchanged" : "nothing was written";
}

// Everything is checked before the first byte is written; every refusal has
// had its own line.
bool gatherInputs(const CreateOptions& options, InputGatherer& gatherer) {
  for (const std::string& input : options.inputs) gatherer.addArgument(input);
  bool ok = true;
  if (!options.manifest.empty() && !gatherer.addManifest(options.manifest)) {
    failure(options.manifest + ": the manifest cannot be read");
    ok = false;
  }
  gatherer.checkNames();
  // The end record counts entries in 16 bits; readers would lose the rest.
  if (gatherer.inputs().size() > MaxEntries) {
    failure(std::to_string(gatherer.inputs().size()) + " inputs: an archive holds at most 65535 entries");
    ok = false;
  }
  return ok && gatherer.refusals() == 0;
}

bool writeArchive(const CreateOptions& options, const std::string& path, ZEFEntryMap& inputs) {
  // The writer getZipWriter() makes, with zef's engine beside the run; -j 1 starts no thread.
  kxzef::ZipDriver writer;
  writer.setCompressionLevel(options.level);
  writer.setOverwrite(true);  // the temporary file is already there, and ours
  std::unique_ptr<kxzef::ParallelPrefetch> engine;
  if (options.jobs > 1) {
    engine = std::make_unique<kxzef::ParallelPrefetch>(options.jobs);
    writer.prefetch = engine.get();
  }
  CreationContext context;
  const int status = writer.createArchive(path.c_str(), inputs, &context);
  release(context);
  return status == 0;
}

void reportFinding(const ArchivePath& archive, const kxzef::AuditReport& report, const kxzef::AuditFinding& finding) {
  const std::string cause = finding.detail.empty() ? kxzef::findingText(finding.kind) : finding.detail;
  if (finding.entryIndex < 0 || static_cast<size_t>(finding.entryIndex) >= report.entries.size()) {
    failure(archive.path + ": " + cause);
    return;
  }
  failure(archive.path + ": " + kxzef::quotedName(report.entries[finding.entryIndex].name) + " " + cause);
}

// The writer does not notice a failure to flush its last bytes (a full disk,
// a file size limit); reading the file back does.
bool readsBack(const ArchivePath& archive, const std::string& path) {
  kxzef::AuditReport report;
  std::vector<kxzef::AuditFinding> failures;
  if (kxzef::auditArchive(path.c_str(), kxzef::AuditOptions{}, report) != kxzef::AuditOk ||
      kxzef::testArchive(path.c_str(), report, failures) != kxzef::AuditOk) {
    failure(archive.path + ": the new archive cannot be read back; it is incomplete "
            "(was the disk full, or a file size limit reached?)");
    return false;
  }
  for (const kxzef::AuditFinding& finding : report.findings) reportFinding(archive, report, finding);
  for (const kxzef::AuditFinding& finding : failures) reportFinding(archive, report, finding);
  return report.findings.empty() && failures.empty();
}

int writeAndReplace(const CreateOptions& options, const ArchivePath& archive, ZEFEntryMap& inputs) {
  AtomicOutput output;
  if (std::string problem = output.open(archive); !problem.empty()) {
    failure(problem);
    return notCreated(archive, unchanged(archive));
  }
  if (!writeArchive(options, output.writerPath(), inputs) || !readsBack(archive, output.writerPath())) {
    return notCreated(archive, unchanged(archive));
  }
  if (std::string problem = output.seal(archive); !problem.empty()) {
    failure(problem);
    return notCreated(archive, unchanged(archive));
  }
  if (std::string problem = output.commit(archive, options.keep); !problem.empty()) return failure(problem);
  return ExitOk;
}

}  // namespace

int createCommand(const std::vector<std::string>& args) {
  CreateOptions options;
  if (int status = parse(args, options); status != ExitOk) return status;
  ArchivePath archive;
  const std::string archiveProblem = resolveArchivePath(options.archive, options.keep, archive);
  if (!archiveProblem.empty()) failure(archive.path + ": " + archiveProblem);
  InputGatherer gatherer(archive.exists ? &archive.current : nullptr);
  if (!gatherInputs(options, gatherer) || !archiveProblem.empty()) return notCreated(archive, "nothing was written");
  // A file size limit then fails the write, which is reported, instead of ending zef.
  std::signal(SIGXFSZ, SIG_IGN);
  return writeAndReplace(options, archive, gatherer.inputs());
}

}  // namespace zef
