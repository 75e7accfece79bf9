// Opening, closing and one-call creation of an archive for writing.
#include "create/zip_driver.h"

#include <unistd.h>

#include <cstring>

#include "create/block_crc.h"
#include "create/creation_run.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"
#include "zip/file_system.h"

namespace kxzef {

namespace {

constexpr size_t ArchiveNameLimit = 255;
constexpr char ArchiveExtension[] = ".zef";

// The name the archive is written under: cut to 255 bytes, ".zef" added when
// nothing in the whole text (directories included) holds a ".".
std::string archiveFileName(const char* name) {
  std::string file(name == nullptr ? "" : name);
  if (file.size() > ArchiveNameLimit) file.resize(ArchiveNameLimit);
  if (file.find('.') == std::string::npos) file += ArchiveExtension;
  return file;
}

}  // namespace

ZipDriver::ZipDriver() { fillCrcTable(); }

ZipDriver::~ZipDriver() {
  for (const std::string& file : temporaryFiles) {
    if (unlink(file.c_str()) == 0) continue;
    reportSystemFailure(ZEFARCHIVER_TEMP_FILE_REMOVE_FAILED, file.c_str());
  }
}

int ZipDriver::open(const char* name) {
  const std::string file = archiveFileName(name);
  if (!overwrite && fileExists(file.c_str())) {
    reportError(ZEFARCHIVER_FILE_EXISTS, file.c_str());
    return StatusBadParameter;  // -102 here: refused, the archive exists and overwriting is off
  }
  archiveName = file;
  if (!archive.openForWriting(archiveName.c_str(), 0, nullptr)) {
    reportError(ZEFARCHIVER_ERROR_OPENING_FILE, archiveName.c_str());
    return StatusIoError;
  }
  return StatusOk;
}

int ZipDriver::openWithOptions(const char* name, bool overwriteExisting, int level) {
  overwrite = overwriteExisting;
  compressionLevel = level;
  return open(name);
}

int ZipDriver::addInputs(ZEFEntryMap& inputs, CreationContext* context, bool closeWhenDone) {
  CreationContext ownContext;  // for callers that pass none; released here
  CreationContext& used = context != nullptr ? *context : ownContext;
  const int status =
      runCreation(CreationTarget{archive, compressionLevel, archiveName, prefetch, hooks}, inputs, used, closeWhenDone);
  releaseContextObjects(ownContext);
  return status;
}

int ZipDriver::close() { return archive.closeForWriting(nullptr); }

int ZipDriver::createArchive(const char* name, ZEFEntryMap& inputs, CreationContext* context) {
  if (int status = open(name); status != StatusOk) return status;
  const int status = addInputs(inputs, context, true);
  if (status == StatusOk) return StatusOk;
  // The caller's exact name is removed: a name that had ".zef" added leaves
  // the half-written archive in place. Callers rely on this behaviour.
  ZipFileIO remover;
  remover.removeFile(name);
  return status;
}

}  // namespace kxzef
