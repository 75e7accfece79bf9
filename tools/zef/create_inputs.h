// The inputs of zef create, gathered into the writer's map and checked
// before anything is written: whatever the writer would stop on half-way,
// hang on or silently drop is refused here, each with its own line.
#ifndef KXZEF_TOOLS_ZEF_CREATE_INPUTS_H
#define KXZEF_TOOLS_ZEF_CREATE_INPUTS_H

#include <sys/stat.h>

#include <set>
#include <string>

#include "kxzefarchiver/ZEFEntryMap.h"

namespace zef {

class InputGatherer {
 public:
  // `archive` describes the archive as it exists now, or is null; a walk
  // that meets it skips it, so that an archive is never stored in itself.
  explicit InputGatherer(const struct stat* archive);

  // "SOURCE" or "SOURCE=DEST". A directory brings everything below it; links
  // below it are not followed. Refusals and warnings go to standard error.
  void addArgument(const std::string& argument);

  // One SOURCE<TAB>DEST pair a line; blank lines are skipped. False when the
  // manifest cannot be read.
  bool addManifest(const std::string& manifest);

  // Refuses two inputs that would be stored under one name; directories that
  // share a name keep one entry between them.
  void checkNames();

  // How many inputs were refused so far.
  int refusals() const { return refusals_; }

  // Source path to record, in the writer's order; ordered by source, the
  // last destination of a source winning, as the library's own callers do.
  ZEFEntryMap& inputs() { return inputs_; }

 private:
  enum class Verdict { Store, Walk, Skip, Refuse };

  void add(const std::string& source, const std::string& destination);
  void walk(const std::string& source, const std::string& destination);
  Verdict judge(int directory, const char* name, const std::string& shown, bool named);
  Verdict judgeLink(int directory, const char* name, const std::string& shown, bool named);
  Verdict judgeSpecial(mode_t mode, const std::string& shown, bool named, const char* verb);
  Verdict refuse(const std::string& shown, const std::string& cause);
  static Verdict skip(const std::string& shown, const std::string& cause);

  ZEFEntryMap inputs_;
  std::set<std::string> directories_;  // sources stored as directory entries
  bool haveArchive_ = false;
  dev_t archiveDevice_ = 0;
  ino_t archiveInode_ = 0;
  int refusals_ = 0;
};

}  // namespace zef

#endif
