// The write-and-check step for link entries: the link's target text becomes
// the entry's content, then the file it points to goes through the
// duplicate check.
#ifndef KXZEF_CREATE_ENTRY_TEXT_WRITER_H
#define KXZEF_CREATE_ENTRY_TEXT_WRITER_H

#include <string>

#include "kxzefarchiver/ZEFEntryMap.h"
#include "zip/zip_archive.h"

namespace kxzef {

// Writes `text` into the archive's open entry (ZEFARCHIVER_ERROR_WRITING_FILE
// naming `entryName` and StatusIoError when that fails), then runs
// checkDuplicateEntry with the remaining arguments. Returns StatusOk,
// StatusIoError, or StatusBadParameter (-102) when the check refuses the
// target.
int writeEntryTextAndCheck(ZipArchive& archive, const std::string& text, const char* entryName,
                           const char* linkSource, const char* linkDestination, const char* source,
                           const char* destination, const char* baseDirectory, ZEFEntryMap& recorded,
                           const ZEFEntryMap& inputs);

}  // namespace kxzef

#endif
