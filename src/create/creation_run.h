// The creation run: turns an ordered map of inputs into archive entries,
// following symbolic links into the files they point to. Every failure is
// reported here, once, through the message catalogue.
#ifndef KXZEF_CREATE_CREATION_RUN_H
#define KXZEF_CREATE_CREATION_RUN_H

#include <cstdint>
#include <string>

#include "create/entry_prefetch.h"
#include "kxzefarchiver/ZEFArchWriter.h"
#include "zip/zip_archive.h"

namespace kxzef {

constexpr size_t CreationBufferSize = 16384;

// What zef alone asks of a run beyond the writer interface: a word before
// each entry and after each block read, and one time for every entry. The
// exported writer passes no hooks, so hosts see no difference.
class CreationObserver {
 public:
  virtual void entryStarted(const std::string& source, const std::string& entryName) = 0;
  virtual void inputRead(uint64_t bytes) = 0;

 protected:
  ~CreationObserver() = default;
};

struct CreationHooks {
  CreationObserver* observer = nullptr;
  uint32_t fixedDosDate = 0;  // when not 0, every entry's time instead of its file's
};

// What the run needs of its driver.
struct CreationTarget {
  ZipArchive& archive;
  int compressionLevel;
  const std::string& archiveName;  // for the close-failure message
  EntryPrefetch* prefetch = nullptr;  // zef's parallel engine; null runs everything here
  const CreationHooks* hooks = nullptr;
};

// Adds every input of `inputs`, then the files queued by links, to the open
// archive; closes it when `closeWhenDone` is set. Returns 0 or the first
// failure's code. Early failures leave the archive open and the current
// stream and reader in `context` for the caller to release.
int runCreation(const CreationTarget& target, ZEFEntryMap& inputs, CreationContext& context, bool closeWhenDone);

// Closes and deletes the context's stream and deletes its reader.
void releaseContextObjects(CreationContext& context);

}  // namespace kxzef

#endif
