// zef create: checks every input first, has the writer fill a temporary
// file beside the archive, reads that file back with the audit and the
// integrity test, and only then renames it over the archive. The writer's
// own habits (removing the name it was given on failure, cutting names at
// 255 bytes) then only ever touch zef's temporary file.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "atomic_output.h"
#include "audit/archive_audit.h"
#include "create/creation_run.h"
#include "create/zip_driver.h"
#include "create_inputs.h"
#include "engine/parallel_prefetch.h"
#include "engine/parallel_test.h"
#include "entry_time.h"
#include "feedback.h"
#include "kxzefarchiver/ZEFArchWriter.h"
#include "kxzefarchiver/ZEFFileReader.h"
#include "name_patterns.h"
#include "zef.h"

namespace zef {

namespace {

constexpr size_t MaxEntries = 65535;
// With one thread the large buffers (a whole file and its deflated bytes,
// then the read-back's) each serve one phase. Served from mmap, they go back
// to the system between phases instead of staying in the heap, which keeps
// the peak at one phase's (29 MB -> 19 MB on the benchmark's tree). Workers
// reuse their buffers from file to file, where mmap would only add faults.
constexpr int SingleThreadMmapThreshold = 1 << 20;

constexpr char SourceDateEpoch[] = "SOURCE_DATE_EPOCH";

struct CreateOptions {
  int level = 6;
  unsigned jobs = defaultJobs();
  bool keep = false;
  bool zlib = false;  // the library's compressor throughout
  Verbosity verbosity;
  uint32_t dosDate = 0;  // every entry's time when not 0
  std::string archive;
  std::string manifest;
  std::vector<std::string> inputs;
  std::vector<std::string> excludes;
};

int applyValue(const std::string& name, const std::string& value, CreateOptions& options) {
  if (name == "--from") options.manifest = value;
  if (name == "--exclude") options.excludes.push_back(value);
  if (name != "--mtime") return ExitOk;
  const std::string problem = parseEntryTime(value, options.dosDate);
  return problem.empty() ? ExitOk : usageError("create", "--mtime: " + problem);
}

int takeOption(const std::vector<std::string>& args, size_t& i, CreateOptions& options) {
  const std::string& arg = args[i];
  if (std::string problem; takeJobsOption(args, i, options.jobs, problem)) {
    return problem.empty() ? ExitOk : usageError("create", problem);
  }
  if (arg.size() == 2 && arg[1] >= '0' && arg[1] <= '9') {
    options.level = arg[1] - '0';
  } else if (arg == "--keep") {
    options.keep = true;
  } else if (arg == "--zlib") {
    options.zlib = true;
  } else if (!takeVerbosity(arg, options.verbosity)) {
    bool taken = false;
    const int status = takeValued(
        "create", args, i, {{"--from", "a FILE"}, {"--exclude", "a PATTERN"}, {"--mtime", "a TIME"}},
        [&options](const std::string& name, const std::string& value) { return applyValue(name, value, options); },
        taken);
    if (status != ExitOk || taken) return status;
    return usageError("create", "unknown option '" + arg + "'");
  }
  return ExitOk;
}

int parse(const std::vector<std::string>& args, CreateOptions& options) {
  const int status = walkArguments(
      args, [&](size_t& i) { return takeOption(args, i, options); },
      [&options](const std::string& arg) {
        if (options.archive.empty()) {
          options.archive = arg;
        } else {
          options.inputs.push_back(arg);
        }
      });
  if (status != ExitOk) return status;
  if (options.archive.empty()) return usageError("create", "no ARCHIVE given");
  if (options.inputs.empty() && options.manifest.empty()) return usageError("create", "no INPUT given");
  // --mtime wins over the environment, which reproducible builds set for every tool.
  const char* epoch = std::getenv(SourceDateEpoch);
  if (options.dosDate == 0 && epoch != nullptr && *epoch != '\0') {
    if (std::string problem = parseSourceDateEpoch(epoch, options.dosDate); !problem.empty()) {
      return usageError("create", problem);
    }
  }
  return ExitOk;
}

// The writer's word on each entry, turned into -v lines and the progress
// line; it also remembers the entry under way, for the closing line of a
// failed run.
class CreationFeedback final : public kxzef::CreationObserver {
 public:
  explicit CreationFeedback(Feedback& feedback) : feedback_(feedback) {}
  void entryStarted(const std::string& source, const std::string& entryName) override {
    source_ = source;
    entry_ = entryName;
    feedback_.entry(entryName);
  }
  void inputRead(uint64_t bytes) override { feedback_.addBytes(bytes); }
  const std::string& source() const { return source_; }
  const std::string& entry() const { return entry_; }

 private:
  Feedback& feedback_;
  std::string source_;
  std::string entry_;
};

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

// Why the writer stopped at the entry from `source`, as far as zef can tell.
std::string writeFailureCause(const std::string& source, const ArchivePath& archive, const AtomicOutput& output) {
  if (std::string problem = inputProblem(source); !problem.empty()) return "its file " + problem;
  struct rlimit limit {};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      output.size() + kxzef::CreationBufferSize >= limit.rlim_cur) {
    return "the archive reached the file size limit of " + std::to_string(limit.rlim_cur) + " bytes";
  }
  struct statvfs space {};
  if (statvfs(archive.directory.c_str(), &space) == 0 && space.f_bavail == 0) return "the disk is full";
  return "reading its file or writing the archive failed (the library's message above says which)";
}

bool writeArchive(const CreateOptions& options, const ArchivePath& archive, const AtomicOutput& output,
                  ZEFEntryMap& inputs, CreationFeedback& observer) {
  // The writer getZipWriter() makes, with zef's hooks and engine beside the run; -j 1 starts no
  // thread, and with --zlib no engine either: the run then writes what a host's run writes.
  kxzef::ZipDriver writer;
  const kxzef::CreationHooks hooks{&observer, options.dosDate};
  writer.hooks = &hooks;
  writer.setCompressionLevel(options.level);
  writer.setOverwrite(true);  // the temporary file is already there, and ours
  std::unique_ptr<kxzef::ParallelPrefetch> engine;
  if (options.jobs > 1 || !options.zlib) {
    const auto deflater = options.zlib ? kxzef::PrefetchDeflater::Zlib : kxzef::PrefetchDeflater::Whole;
    engine = std::make_unique<kxzef::ParallelPrefetch>(options.jobs > 1 ? options.jobs : 0, kxzef::PrefetchLimits{},
                                                       deflater);
    writer.prefetch = engine.get();
  }
  CreationContext context;
  const int status = writer.createArchive(output.writerPath().c_str(), inputs, &context);
  release(context);
  if (status == 0) return true;
  if (!observer.entry().empty()) {
    failure("could not create '" + archive.path + "': " + kxzef::quotedName(observer.entry()) + " could not be stored: " +
            writeFailureCause(observer.source(), archive, output) + "; " + unchanged(archive));
  } else {
    notCreated(archive, unchanged(archive));
  }
  return false;
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
bool readsBack(const ArchivePath& archive, const std::string& path, unsigned jobs) {
  kxzef::AuditReport report;
  std::vector<kxzef::AuditFinding> failures;
  if (kxzef::auditArchive(path.c_str(), kxzef::AuditOptions{}, report) != kxzef::AuditOk ||
      kxzef::testArchiveInParallel(path.c_str(), report, jobs, failures) != kxzef::AuditOk) {
    failure(archive.path + ": the new archive cannot be read back; it is incomplete "
            "(was the disk full, or a file size limit reached?)");
    return false;
  }
  for (const kxzef::AuditFinding& finding : report.findings) reportFinding(archive, report, finding);
  for (const kxzef::AuditFinding& finding : failures) reportFinding(archive, report, finding);
  return report.findings.empty() && failures.empty();
}

uint64_t fileSize(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

int writeAndReplace(const CreateOptions& options, const ArchivePath& archive, InputGatherer& gatherer) {
  AtomicOutput output;
  if (std::string problem = output.open(archive); !problem.empty()) {
    failure(problem);
    return notCreated(archive, unchanged(archive));
  }
  Feedback feedback(options.verbosity, gatherer.inputs().size(), gatherer.fileBytes());
  CreationFeedback observer(feedback);
  if (!writeArchive(options, archive, output, gatherer.inputs(), observer)) return ExitFailure;
  feedback.erase();
  if (!readsBack(archive, output.writerPath(), options.jobs)) return notCreated(archive, unchanged(archive));
  const uint64_t written = fileSize(output.writerPath());
  if (std::string problem = output.seal(archive); !problem.empty()) {
    failure(problem);
    return notCreated(archive, unchanged(archive));
  }
  if (std::string problem = output.commit(archive, options.keep); !problem.empty()) return failure(problem);
  if (options.verbosity.verbose) printSummary(archive.path, feedback.entries(), feedback.bytes(), written);
  return ExitOk;
}

}  // namespace

int createCommand(const std::vector<std::string>& args) {
  CreateOptions options;
  if (int status = parse(args, options); status != ExitOk) return status;
  ArchivePath archive;
  const std::string archiveProblem = resolveArchivePath(options.archive, options.keep, archive);
  if (!archiveProblem.empty()) failure(archive.path + ": " + archiveProblem);
  NamePatterns excludes(false, false);
  for (const std::string& pattern : options.excludes) excludes.add(pattern);
  InputGatherer gatherer(archive.exists ? &archive.current : nullptr);
  gatherer.setExcludes(excludes);
  if (!gatherInputs(options, gatherer) || !archiveProblem.empty()) return notCreated(archive, "nothing was written");
  if (gatherer.inputs().empty()) return notCreated(archive, "there is nothing to store (every input excluded or empty); nothing was written");
  // A file size limit then fails the write, which is reported, instead of ending zef.
  std::signal(SIGXFSZ, SIG_IGN);
  if (options.jobs <= 1) mallopt(M_MMAP_THRESHOLD, SingleThreadMmapThreshold);
  return writeAndReplace(options, archive, gatherer);
}

}  // namespace zef
