// Turns a symbolic link among the inputs into the target text stored in the
// archive: relative to the link's own place, inside the archive when the
// target is. Reports on the error channel; never follows links.
#ifndef KXZEF_INPUT_LINK_TARGET_H
#define KXZEF_INPUT_LINK_TARGET_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "kxzefarchiver/ZEFEntryMap.h"
#include "kxzefarchiver/ZEFFileReader.h"

namespace kxzef {

// Removes the leading components ("name/") that `a` and `b` share from both.
// Returns 1 when at least one was removed, else 0. The last component of `a`
// (after its last "/") is never compared.
int stripCommonLeadingComponents(std::string& a, std::string& b);

// The directory that an input's archive name is relative to: `absoluteSource`
// less the trailing whole components ("/name...") that it shares with
// `archiveName`, "/name" pieces of the archive name matched from the end. The
// archive name's first component has no "/" before it and so stays in the
// root: ("/x/a/b/c", "a/b/c") gives "/x/a". Falls back to the working
// directory for a relative source or when nothing matches ("" when the
// working directory cannot be read).
std::string findInputRoot(const std::string& absoluteSource, const std::string& archiveName);

// Reads the link's data through `reader` into `buffer` (`bufferSize` bytes,
// one kept for the terminating NUL) and computes:
//  - `linkText`: the data read, or the absolute target it was resolved to;
//  - `targetPath`: the target as a name inside the archive;
//  - `storedTarget`: the text to store as the link entry's content.
// Returns 0, or -1 when a read failed (after reporting
// ZEFARCHIVER_BAD_ZERO_LENGTH_FILE for reader status -1004, else
// ZEFARCHIVER_ERROR_READING_FILE, with `sourceName`); the outputs are then
// meaningless. `readContext` is the creation run's copy of the entry record;
// readers take no context, so it is accepted for the caller's convenience and
// not used. The buffer holds a NUL-terminated text afterwards, also on
// failure, for the caller's own report. A null or zero-sized buffer yields -1
// at once, with nothing read and nothing reported.
int32_t computeLinkTarget(const ZEFEntryRecord& readContext, const std::string& inputRoot,
                          const std::string& sourceName, const std::string& archiveName, ZEFFileReader& reader,
                          char* buffer, size_t bufferSize, std::string& linkText, std::string& targetPath,
                          std::string& storedTarget);

// The archive name of an absolute `target`: a relative target is returned as
// it is; one outside `inputRoot` loses its leading "/"; one inside is placed
// relative to the link's archive directory.
std::string mapTargetIntoArchive(std::string sourceName, const std::string& archiveName, std::string target,
                                 const std::string& inputRoot);

// `archiveTarget` as seen from the link stored as `archiveName`: common
// leading components removed, one "../" per remaining directory of the link.
// Both must be relative; an absolute one is reported
// (ZEFARCHIVER_ERROR_ABSOLUTE_PATH_LINK or ..._ABSOLUTE_PATH_FILE) and ""
// returned.
std::string makeTargetRelativeToLink(std::string archiveTarget, std::string archiveName);

}  // namespace kxzef

#endif
