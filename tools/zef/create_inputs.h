// The inputs of zef create, gathered into the writer's map and checked
// before anything is written: whatever the writer would stop on half-way,
// hang on or silently drop is refused here, each with its own line.
#ifndef KXZEF_TOOLS_ZEF_CREATE_INPUTS_H
#define KXZEF_TOOLS_ZEF_CREATE_INPUTS_H

#include <sys/stat.h>

#include <cstdint>
#include <set>
#include <string>

#include "kxzefarchiver/ZEFEntryMap.h"
#include "name_patterns.h"

namespace zef {

// `name` without empty or "." components, each ".." taking back the
// component before it; `climbed` is set when a ".." had none to take back
// (it is dropped).
std::string cleanName(const std::string& name, bool& climbed);

class InputGatherer {
 public:
  // `archive` describes the archive as it exists now, or is null; a walk
  // that meets it skips it, so that an archive is never stored in itself.
  explicit InputGatherer(const struct stat* archive);

  // Inputs whose stored name `excludes` matches are left out, and so is
  // everything below an excluded directory. The patterns must outlive this.
  void setExcludes(NamePatterns& excludes) { excludes_ = &excludes; }

  // "SOURCE" or "SOURCE=DEST". A directory brings everything below it; links
  // below it are not followed. Names are stored clean: no empty or "."
  // components, ".." taken back against the component before it (a leading
  // one dropped with a warning). Refusals and warnings go to standard error.
  void addArgument(const std::string& argument);

  // One SOURCE<TAB>DEST pair a line; blank lines are skipped. False when the
  // manifest cannot be read.
  bool addManifest(const std::string& manifest);

  // Refuses two inputs that would be stored under one name; directories that
  // share a name keep one entry between them.
  void checkNames();

  // The bytes of the regular files among the inputs, as they were examined.
  uint64_t fileBytes() const { return fileBytes_; }

  // How many inputs were refused so far.
  int refusals() const { return refusals_; }

  // Source path to record, in the writer's order; ordered by source, the
  // last destination of a source winning, as the library's own callers do.
  ZEFEntryMap& inputs() { return inputs_; }

 private:
  enum class Verdict { Store, Walk, Skip, Refuse };

  void add(const std::string& source, const std::string& destination);
  bool excluded(const std::string& stored, bool directory);
  void walk(const std::string& source, const std::string& destination);
  Verdict judge(int directory, const char* name, const std::string& shown, bool named);
  Verdict judgeLink(int directory, const char* name, const std::string& shown, bool named);
  Verdict judgeSpecial(mode_t mode, const std::string& shown, bool named, const char* verb);
  Verdict refuse(const std::string& shown, const std::string& cause);
  static Verdict skip(const std::string& shown, const std::string& cause);

  ZEFEntryMap inputs_;
  std::set<std::string> directories_;  // sources stored as directory entries
  NamePatterns* excludes_ = nullptr;
  bool haveArchive_ = false;
  dev_t archiveDevice_ = 0;
  ino_t archiveInode_ = 0;
  int refusals_ = 0;
  uint64_t fileBytes_ = 0;
};

// What keeps `source` from being stored now, in plain words ("no longer
// exists", "is empty", "cannot be read (permission denied)"), or "".
std::string inputProblem(const std::string& source);

}  // namespace zef

#endif
