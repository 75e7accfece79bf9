// zef's staged extraction. The order of the steps is the guarantee: nothing
// is written before the audit passed, and nothing leaves the staging
// directory before every entry was extracted and checked.
#include "safe_extract.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>

#include "archive_file.h"
#include "audit/archive_audit.h"
#include "engine/parallel_extract.h"
#include "extract/unzip_driver.h"
#include "extraction_progress.h"
#include "findings.h"
#include "held_signals.h"
#include "interrupt_cleanup.h"
#include "kxzefarchiver/zefarchiver.h"
#include "library_view.h"
#include "name_patterns.h"
#include "staged_check.h"
#include "staging_tree.h"
#include "zef.h"

namespace zef {

namespace {

using kxzef::AuditFinding;
using kxzef::AuditReport;
using kxzef::FindingKind;

const char StagingTemplate[] = ".zef-stage-XXXXXX";
const char AsideSuffix[] = ".old";
const char NothingInstalled[] = "; nothing was installed";
// Up to this many entries are extracted one by one when only some are asked
// for; beyond it, everything is extracted and the rest removed. Each single
// extraction searches the directory from its start, and a record searched
// costs some hundred times less than a file made: past about this many, one
// pass over everything is the cheaper.
constexpr size_t OneByOneLimit = 128;

enum class Placement { Fresh, Merge, Replace };

mode_t currentUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

// A destination path as its lexical parent and last component.
struct PathSplit {
  std::string parent;
  std::string name;
};

PathSplit splitPath(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// True when the directory holding `name` finds it under another ASCII case.
bool foldsCase(int parentFd, const std::string& name) {
  std::string swapped = name;
  for (char& c : swapped) {
    if (c >= 'a' && c <= 'z')
      c = static_cast<char>(c - 'a' + 'A');
    else if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  }
  struct stat own {
  }, other{};
  return fstatat(parentFd, name.c_str(), &own, AT_SYMLINK_NOFOLLOW) == 0 &&
         fstatat(parentFd, swapped.c_str(), &other, AT_SYMLINK_NOFOLLOW) == 0 && own.st_ino == other.st_ino &&
         own.st_dev == other.st_dev;
}

// The audit's findings that explain why the library could not read an entry.
bool breaksReading(FindingKind kind) {
  switch (kind) {
    case FindingKind::Encrypted:
    case FindingKind::UnsupportedMethod:
    case FindingKind::LocalHeaderMismatch:
    case FindingKind::Zip64:
    case FindingKind::MultiDisk:
    case FindingKind::CountMismatch:
      return true;
    default:
      return false;
  }
}

// Missing directories above a fresh destination; removed again unless kept.
class CreatedParents {
 public:
  CreatedParents() = default;
  CreatedParents(const CreatedParents&) = delete;
  CreatedParents& operator=(const CreatedParents&) = delete;
  ~CreatedParents() {
    for (auto made = made_.rbegin(); made != made_.rend(); ++made) rmdir(made->c_str());
  }
  // Makes `path` and what is missing above it; returns 0 or an errno value.
  int make(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    if (errno != ENOENT) return errno;
    const std::string parent = splitPath(path).parent;
    if (parent != path) {
      if (int error = make(parent); error != 0) return error;
    }
    if (mkdir(path.c_str(), 0777) != 0) return errno == EEXIST ? 0 : errno;
    made_.push_back(path);
    return 0;
  }
  void keep() { made_.clear(); }

 private:
  std::vector<std::string> made_;
};

// The staging directory; removed with everything in it when this goes.
struct Staging {
  Staging() = default;
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;
  ~Staging() { remove(); }
  // Returns 0 or the first errno of the removal.
  int remove() {
    const int error = parent.valid() && !name.empty() ? removeTree(parent.get(), name) : 0;
    name.clear();
    return error;
  }
  Fd parent;  // the directory it lies in
  std::string parentPath;
  std::string name;  // "" until made
  std::string path;  // the library's root, less its "/"
  Fd fd;
};

// Signals that would cut a move into place in two are held back until it ends.
constexpr int MoveSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// Makes `fd` the working directory for as long as it lives.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(int fd) : previous_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    changed_ = previous_.valid() && fchdir(fd) == 0;
  }
  ~WorkingDirectory() {
    if (changed_ && fchdir(previous_.get()) != 0) std::abort();  // every later relative path would be wrong
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  bool changed() const { return changed_; }

 private:
  Fd previous_;
  bool changed_ = false;
};

}  // namespace

class Extraction {
 public:
  Extraction(const ExtractRequest& request, std::FILE* messages) : request_(request), messages_(messages) {}
  int run();

 private:
  int fail(const std::string& text) const;
  int refuse(const std::vector<AuditFinding>& list, bool trustWouldDo) const;
  int openAndAudit();
  int select();
  bool oneByOne() const;
  bool madeByLibrary(size_t index) const;
  bool countKept(bool replace) {
    kept_ += replace ? 0 : 1;
    return replace;
  }
  int extractSelected(ZEFArchReader& reader);
  int prepare();
  int prepareFresh();
  int makeStaging(const std::string& parentPath);
  int extractStaged();
  int failedExtraction() const;
  int checkExtracted();
  int install();
  int installFresh();
  int installMerge(int destinationFd);
  int installReplace();
  std::string explain(int64_t index, const std::string& observation) const;
  void warnLeftOver(const std::string& name, int error) const;

  const ExtractRequest& request_;
  std::FILE* messages_;
  ArchiveFile archive_;
  AuditReport report_;
  std::vector<bool> selected_;   // what was asked for
  std::vector<bool> extracted_;  // what the library is asked to extract
  size_t selectedCount_ = 0;
  bool oneByOne_ = false;        // the selected entries are extracted one by one, by name
  std::unique_ptr<ExtractionProgress> progress_;
  Placement placement_ = Placement::Merge;
  size_t kept_ = 0;  // files and links already in the destination, left as they were
  std::string destination_;  // the destination as shown in messages ("" for the current directory)
  CreatedParents parents_;
  Staging staging_;
};

int Extraction::fail(const std::string& text) const {
  std::fprintf(messages_, "zef: %s: %s\n", request_.archive.c_str(), text.c_str());
  return ExitFailure;
}

int Extraction::refuse(const std::vector<AuditFinding>& list, bool trustWouldDo) const {
  for (const AuditFinding& finding : list) {
    std::fprintf(messages_, "zef: %s: %s\n", request_.archive.c_str(), findingLine(report_, finding).c_str());
  }
  const std::string count = std::to_string(list.size()) + (list.size() == 1 ? " finding" : " findings");
  return fail("refused for " + count + "; nothing was extracted" +
              (trustWouldDo ? " (--trust extracts it anyway)" : ""));
}

int Extraction::openAndAudit() {
  if (std::string problem = archive_.open(request_.archive); !problem.empty()) return fail(problem);
  kxzef::AuditOptions options;
  options.maxTotalSize = request_.limitGiven ? request_.maxTotalSize : kxzef::defaultMaxTotalSize(archive_.size());
  // A replaced destination goes as a whole, links below it included.
  if (!request_.replace) options.destination = request_.destination.empty() ? "." : request_.destination;
  const int status = kxzef::auditArchive(archive_.path().c_str(), options, report_);
  if (status == kxzef::AuditCannotOpen) return fail(std::string("cannot be read: ") + std::strerror(errno));
  if (status != kxzef::AuditOk) {
    for (const AuditFinding& finding : report_.findings) fail(findingLine(report_, finding));
    return fail("is no ZIP archive zef can read: its end record or central directory is damaged");
  }
  // zef's rules are checked on the audit's entries: they must be the library's.
  if (std::vector<AuditFinding> divergent = divergenceFindings(archive_.path().c_str(), report_); !divergent.empty()) {
    return refuse(divergent, false);
  }
  const std::vector<AuditFinding> list = refusals(report_, request_.trust, false);
  return list.empty() ? ExitOk : refuse(list, !request_.trust && refusals(report_, true, false).empty());
}

int Extraction::select() {
  NamePatterns wanted(true, true), excluded(false, true);
  for (const std::string& pattern : request_.entries) wanted.add(pattern);
  for (const std::string& pattern : request_.excludes) excluded.add(pattern);
  selected_.assign(report_.entries.size(), false);
  for (size_t i = 0; i < report_.entries.size(); ++i) {
    const std::string name = libraryName(report_.entries[i].name);
    selected_[i] = (wanted.empty() || wanted.matches(name)) && !excluded.matches(name);
    selectedCount_ += selected_[i] ? 1 : 0;
  }
  const std::vector<std::string> missing = wanted.unmatched();
  for (size_t i = 0; i < missing.size(); ++i) {
    const bool glob = missing[i].find_first_of("*?[") != std::string::npos;
    fail(kxzef::quotedName(missing[i]) + (glob ? " matches no entry" : " is not in the archive") +
         (i + 1 == missing.size() ? "; nothing was extracted" : ""));
  }
  if (!missing.empty()) return ExitFailure;
  if (selectedCount_ == 0 && !report_.entries.empty()) return fail("every entry is excluded; nothing was extracted");
  oneByOne_ = oneByOne();
  extracted_ = oneByOne_ ? selected_ : std::vector<bool>(report_.entries.size(), true);
  std::vector<bool> made = selected_;
  for (size_t i = 0; i < made.size(); ++i) made[i] = made[i] && madeByLibrary(i);
  progress_ = std::make_unique<ExtractionProgress>(request_.verbosity, report_, made);
  return ExitOk;
}

// The library finds a named entry by its name without regard to case, the
// first one first: only entries that are the first of their name can be
// asked for by name.
bool Extraction::oneByOne() const {
  if (selectedCount_ == report_.entries.size()) return false;
  if (request_.flat) return true;  // the library makes links under bare names: nothing to prune by path
  if (selectedCount_ > OneByOneLimit) return false;
  std::unordered_map<std::string, size_t> firstByName;
  for (size_t i = 0; i < report_.entries.size(); ++i) {
    const auto [first, fresh] = firstByName.emplace(foldedAscii(libraryName(report_.entries[i].name)), i);
    if (!fresh && selected_[i]) return false;
  }
  return true;
}

// Without paths the library makes links only: -v names and counts those alone.
bool Extraction::madeByLibrary(size_t index) const { return !request_.flat || report_.entries[index].isLink; }

int Extraction::makeStaging(const std::string& parentPath) {
  staging_.parentPath = parentPath;
  staging_.parent = Fd(open(parentPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!staging_.parent.valid()) return fail("cannot open '" + parentPath + "': " + std::strerror(errno));
  std::string path = (parentPath == "/" ? "" : parentPath) + "/" + StagingTemplate;
  if (mkdtemp(path.data()) == nullptr) {
    return fail("cannot make a staging directory in '" + parentPath + "': " + std::strerror(errno));
  }
  staging_.name = splitPath(path).name;
  staging_.path = path;
  staging_.fd = openDirectory(staging_.parent.get(), staging_.name);
  if (!staging_.fd.valid()) return fail("cannot open '" + path + "': " + std::strerror(errno));
  if (!foldsCase(staging_.parent.get(), staging_.name)) return ExitOk;
  // Names that differ only in case meet on this file system.
  const std::vector<AuditFinding> list = refusals(report_, request_.trust, true);
  return list.empty() ? ExitOk : refuse(list, !request_.trust && refusals(report_, true, true).empty());
}

int Extraction::prepareFresh() {
  const PathSplit split = splitPath(request_.destination);
  if (split.name.empty() || split.name == "." || split.name == "..") {
    return fail("cannot create '" + request_.destination + "'");
  }
  if (int error = parents_.make(split.parent); error != 0) {
    return fail("cannot create '" + split.parent + "': " + std::strerror(error));
  }
  placement_ = Placement::Fresh;
  return makeStaging(split.parent);
}

int Extraction::prepare() {
  destination_ = request_.destination;
  const std::string path = destination_.empty() ? "." : destination_;
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) return fail("cannot examine '" + path + "': " + std::strerror(errno));
    return prepareFresh();
  }
  if (request_.replace) {
    if (S_ISLNK(status.st_mode)) return fail("'" + path + "' is a symbolic link; --replace swaps directories only");
    if (!S_ISDIR(status.st_mode)) return fail("'" + path + "' is not a directory");
    const PathSplit split = splitPath(path);
    if (split.name.empty() || split.name == "." || split.name == "..") {
      return fail("--replace needs the destination by its name, not '" + path + "'");
    }
    placement_ = Placement::Replace;
    return makeStaging(split.parent);
  }
  // The destination the user named may itself be a link to a directory.
  if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return fail("'" + path + "' is not a directory");
  placement_ = Placement::Merge;
  return makeStaging(path);
}

int Extraction::extractSelected(ZEFArchReader& reader) {
  for (size_t i = 0; i < report_.entries.size(); ++i) {
    if (!selected_[i]) continue;
    if (madeByLibrary(i)) progress_->entry(i);
    if (reader.extractEntry(libraryName(report_.entries[i].name).c_str(), false) != kxzef::EntryExtracted) {
      return failedExtraction();
    }
  }
  return ExitOk;
}

int Extraction::extractStaged() {
  // The reader getZipReader() makes, with zef's engine beside it, which
  // inflates files with libdeflate, on threads with -j or here with -j 1.
  // Flat names and entries picked one by one are the library's alone.
  std::unique_ptr<kxzef::UnzipDriver> reader(new (std::nothrow) kxzef::UnzipDriver());
  if (!reader) return fail(std::string("cannot make a reader: ") + std::strerror(ENOMEM));
  std::unique_ptr<kxzef::ParallelExtract> engine;
  if (!request_.flat && !oneByOne_) {
    const unsigned workers = request_.jobs > 1 ? request_.jobs : 0;
    engine = std::make_unique<kxzef::ParallelExtract>(workers, archive_.path(), kxzef::ExtractInflater::Whole);
    reader->dispatch = engine.get();
  }
  // The staging directory is new: nothing in it to ask about.
  const std::string root = staging_.path + "/";
  if (reader->openWithRoot(archive_.path().c_str(), root.c_str(), true, !request_.flat) != 0) {
    return fail(std::string("the library cannot open it") + NothingInstalled);
  }
  // Without paths the library makes links in the working directory.
  std::unique_ptr<WorkingDirectory> inStaging;
  if (request_.flat) {
    inStaging = std::make_unique<WorkingDirectory>(staging_.fd.get());
    if (!inStaging->changed()) return fail(std::string("cannot enter the staging directory: ") + std::strerror(errno));
  }
  if (oneByOne_) {
    const int status = extractSelected(*reader);
    reader->close();
    return status;
  }
  progress_->follow(staging_.fd.get());
  const bool extracted = reader->extractAll(true) == 0;
  progress_->stop(extracted);
  if (!extracted) return failedExtraction();
  if (selectedCount_ != report_.entries.size()) pruneStaged(staging_.fd.get(), report_, selected_);
  return ExitOk;
}

// The library stops at the first entry it fails on: the first one not on
// disk as declared is the best guess when neither audit nor test names one.
int Extraction::failedExtraction() const {
  const CheckProblem problem =
      request_.flat ? CheckProblem{} : checkStaged(staging_.fd.get(), report_, extracted_, false);
  return fail(explain(problem.entryIndex, "could not be extracted") + NothingInstalled);
}

int Extraction::checkExtracted() {
  // Without paths only links are made, under names the entries do not give.
  if (request_.flat) return ExitOk;
  const CheckProblem problem = checkStaged(staging_.fd.get(), report_, selected_, true);
  if (problem.entryIndex < 0) return ExitOk;
  return fail(explain(problem.entryIndex, problem.observation) + NothingInstalled);
}

// The closing words for a failed extraction: the first entry (by index) that
// the audit or the integrity test finds unreadable, else what is known.
std::string Extraction::explain(int64_t index, const std::string& observation) const {
  std::vector<AuditFinding> causes;
  kxzef::testArchive(archive_.path().c_str(), report_, causes);
  for (const AuditFinding& finding : report_.findings) {
    if (breaksReading(finding.kind)) causes.push_back(finding);
  }
  const AuditFinding* first = nullptr;
  const AuditFinding* archiveWide = nullptr;
  for (const AuditFinding& cause : causes) {
    if (cause.entryIndex < 0) {
      archiveWide = archiveWide ? archiveWide : &cause;
    } else if (static_cast<size_t>(cause.entryIndex) < extracted_.size() && extracted_[cause.entryIndex] &&
               (!first || cause.entryIndex < first->entryIndex)) {
      first = &cause;
    }
  }
  if (first) return findingLine(report_, *first);
  const std::string subject = quotedEntry(report_, index);
  if (archiveWide)
    return (subject.empty() ? "" : subject + " " + observation + ": ") + findingLine(report_, *archiveWide);
  if (!subject.empty()) return subject + " " + observation;
  return "the extraction failed (the library's messages above say where)";
}

int Extraction::installFresh() {
  if (fchmod(staging_.fd.get(), 0777 & ~currentUmask()) != 0)
    return fail(std::string("cannot set the mode of the staging directory: ") + std::strerror(errno));
  const std::string name = splitPath(request_.destination).name;
  const int error = renameNoReplace(staging_.parent.get(), staging_.name, name);
  if (error == 0) {
    staging_.name.clear();
    parents_.keep();
    return ExitOk;
  }
  if (error != EEXIST && error != ENOTEMPTY)
    return fail("cannot move the extracted tree into place: " + std::string(std::strerror(error)) + NothingInstalled);
  // Something took the name meanwhile: merge into it as into any existing directory.
  Fd destination = openDirectory(staging_.parent.get(), name);
  if (!destination.valid()) return fail("'" + request_.destination + "' is not a directory" + NothingInstalled);
  return installMerge(destination.get());
}

int Extraction::installMerge(int destinationFd) {
  MergePlan plan;
  ReplaceQuestion mayReplace;
  OverwriteQuestion question(stdin, messages_);
  if (request_.overwrite == Overwrite::Ask) {
    mayReplace = [this, &question](const std::string& path) { return countKept(question.mayReplace(path)); };
  } else if (request_.overwrite == Overwrite::Never) {
    mayReplace = [this](const std::string&) { return countKept(false); };
  }
  if (std::string problem = planMerge(staging_.fd.get(), destinationFd, destination_, mayReplace, plan);
      !problem.empty()) {
    return fail(problem + NothingInstalled);
  }
  HeldSignals held(MoveSignals);
  if (std::string problem = commitMerge(staging_.fd.get(), destinationFd, destination_, plan); !problem.empty()) {
    return fail(problem + "; the destination holds only part of the archive");
  }
  return ExitOk;
}

int Extraction::installReplace() {
  const PathSplit split = splitPath(request_.destination);
  struct stat old {};
  if (fstatat(staging_.parent.get(), split.name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0) {
    fchmod(staging_.fd.get(), old.st_mode & 0777);  // the new directory takes the old one's permissions
  }
  const std::string aside = staging_.name + AsideSuffix;
  {
    HeldSignals held(MoveSignals);
    if (int error = swapDirectories(staging_.parent.get(), staging_.name, split.name, aside); error != 0) {
      return fail("cannot swap in the extracted tree: " + std::string(std::strerror(error)) + NothingInstalled);
    }
  }
  // The old tree now lies under the staging name, or aside where the file
  // system cannot swap; run() removes the staging name.
  if (int error = removeTree(staging_.parent.get(), aside); error != 0) warnLeftOver(aside, error);
  return ExitOk;
}

int Extraction::install() {
  switch (placement_) {
    case Placement::Fresh:
      return installFresh();
    case Placement::Replace:
      return installReplace();
    case Placement::Merge:
      break;
  }
  return installMerge(staging_.parent.get());
}

void Extraction::warnLeftOver(const std::string& name, int error) const {
  warning("cannot remove '" + staging_.parentPath + "/" + name + "': " + std::strerror(error));
}

int Extraction::run() {
  if (int status = openAndAudit(); status != ExitOk) return status;
  if (int status = select(); status != ExitOk) return status;
  if (int status = prepare(); status != ExitOk) return status;
  InterruptCleanup onInterrupt(staging_.parent.get(), staging_.name);
  int status = extractStaged();
  if (status == ExitOk) status = checkExtracted();
  if (status == ExitOk) status = install();
  const std::string name = staging_.name;
  if (int error = staging_.remove(); error != 0) warnLeftOver(name, error);
  if (status == ExitOk && request_.verbosity.verbose) {
    printSummary(request_.archive, progress_->entries(), progress_->packedBytes(), progress_->unpackedBytes(),
                 kept_ == 0 ? "" : std::to_string(kept_) + " left as they were");
  }
  return status;
}

int safeExtract(const ExtractRequest& request, std::FILE* messages) {
  Extraction extraction(request, messages);
  return extraction.run();
}

}  // namespace zef
