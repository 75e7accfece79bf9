// ZipDriver: the writer behind ZEFArchWriter. It owns the open archive's
// writing state and turns the writing core's numbers into catalogue messages.
#ifndef KXZEF_CREATE_ZIP_DRIVER_H
#define KXZEF_CREATE_ZIP_DRIVER_H

#include <cstdint>
#include <string>
#include <vector>

#include "create/entry_prefetch.h"
#include "kxzefarchiver/ZEFArchWriter.h"
#include "zip/zip_archive.h"

namespace kxzef {

struct CreationHooks;

constexpr int DefaultCompressionLevel = 6;

class ZipDriver : public ZEFArchWriter {
 public:
  ZipDriver();
  ~ZipDriver() override;  // removes the temporary files; writes nothing into an open archive

  int open(const char* name) override;
  int openWithOptions(const char* name, bool overwrite, int level) override;
  int addInputs(ZEFEntryMap& inputs, CreationContext* context, bool closeWhenDone) override;
  int close() override;
  int createArchive(const char* name, ZEFEntryMap& inputs, CreationContext* context) override;
  bool getOverwrite() override { return overwrite; }
  int getCompressionLevel() override { return compressionLevel; }
  void setOverwrite(bool value) override { overwrite = value; }
  void setCompressionLevel(int level) override { compressionLevel = level; }

  bool overwrite = true;
  int32_t compressionLevel = DefaultCompressionLevel;
  ZipArchive archive;
  std::string archiveName;                 // as opened, ".zef" rule applied
  // Kept: the library adds no name, but removing these on destruction is part of the driver's contract.
  std::vector<std::string> temporaryFiles; // unlinked, in order, on destruction
  EntryPrefetch* prefetch = nullptr;       // borrowed; set only by zef, never through the exports
  const CreationHooks* hooks = nullptr;    // the same
};

}  // namespace kxzef

#endif
