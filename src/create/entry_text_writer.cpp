// Link entries: content from memory, then the duplicate check.
#include "create/entry_text_writer.h"

#include "input/duplicate_entry.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {

int writeEntryTextAndCheck(ZipArchive& archive, const std::string& text, const char* entryName,
                           const char* linkSource, const char* linkDestination, const char* source,
                           const char* destination, const char* baseDirectory, ZEFEntryMap& recorded,
                           const ZEFEntryMap& inputs) {
  if (archive.writeEntryData(text.data(), static_cast<uint32_t>(text.size())) < 0) {
    reportError(ZEFARCHIVER_ERROR_WRITING_FILE, entryName);
    return StatusIoError;
  }
  const int accepted = checkDuplicateEntry(linkSource, linkDestination, source, destination, baseDirectory,
                                           recorded, inputs);
  return accepted ? StatusOk : StatusBadParameter;  // -102 here: the duplicate check refused the entry
}

}  // namespace kxzef
