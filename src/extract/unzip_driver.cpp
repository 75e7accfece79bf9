// Opening an archive (the ".zef" fallback and the extraction root), closing
// it, and the one-call combinations. Archive names are cut, never overrun.
#include "extract/unzip_driver.h"

#include <cstring>
#include <string>

#include "messages/message_catalogue.h"
#include "messages/message_report.h"
#include "zip/file_system.h"

namespace kxzef {

namespace {

const std::string ArchiveSuffix = ".zef";
const std::string DerivedRootSuffix = "_qrt/";

const char* textOrEmpty(const char* text) { return text == nullptr ? "" : text; }

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

int UnzipDriver::openDefault(const char* name) {
  return openWithDerivedRoot(name, nullptr, overwrite, usePaths);
}

int UnzipDriver::openDefaultIn(const char* name, const char* directory) {
  return openWithDerivedRoot(name, directory, overwrite, usePaths);
}

int UnzipDriver::open(const char* name, bool overwriteFlag, bool usePathsFlag) {
  getMessageContext();  // Kept: the message context exists from the first open on, whatever follows
  overwrite = overwriteFlag;
  usePaths = usePathsFlag;
  const char* given = textOrEmpty(name);
  std::string path(given, strnlen(given, ArchiveNameLimit));
  if (!fileExists(path.c_str())) {
    path += ArchiveSuffix;
    if (!fileExists(path.c_str())) {
      reportError(UNZIPDRIVER_ZEF_FILE_DOES_NOT_EXIST, path.c_str());
      return StatusBadParameter;  // -102 here: refused, no archive by that name
    }
  }
  if (!archive.openArchive(path.c_str(), nullptr)) {
    // The text names a ".zip" fallback; it is the wording hosts know, so it stays.
    reportError(UNZIPDRIVER_CANNOT_OPEN_FILE, given, given);
    return StatusInternalError;  // -104 here: the file is no archive the core can open
  }
  return StatusOk;
}

int UnzipDriver::openWithDerivedRoot(const char* name, const char* /*unused*/, bool overwriteFlag,
                                     bool usePathsFlag) {
  std::string stem = textOrEmpty(name);
  if (endsWith(stem, ArchiveSuffix)) stem.resize(stem.size() - ArchiveSuffix.size());
  root = stem + DerivedRootSuffix;
  return open(name, overwriteFlag, usePathsFlag);
}

int UnzipDriver::openWithRoot(const char* name, const char* rootText, bool overwriteFlag, bool usePathsFlag) {
  root = textOrEmpty(rootText);
  return open(name, overwriteFlag, usePathsFlag);
}

int UnzipDriver::close() { return archive.closeArchive(); }

int UnzipDriver::unzipAll(const char* name) {
  if (int status = openDefault(name); status != StatusOk) return status;
  return extractAllAndClose();
}

int UnzipDriver::unzipAllTo(const char* name, const char* directory) {
  if (int status = openDefault(name); status != StatusOk) return status;
  if (directory != nullptr) {
    root = directory;
    if (!endsWith(root, "/")) root += '/';
  }
  return extractAllAndClose();
}

int UnzipDriver::extractAllAndClose() {
  const int extracted = extractAll(false);
  const int closed = close();
  return extracted != StatusOk ? extracted : closed;
}

int UnzipDriver::unzipFiles(const char* name, const std::vector<std::string>& entryNames) {
  if (int status = openDefault(name); status != StatusOk) return status;
  for (const std::string& entryName : entryNames) {
    if (int result = extractEntry(entryName.c_str(), false); result != EntryExtracted) {
      close();
      return result;
    }
  }
  return close();
}

int UnzipDriver::listArchive(const char* name) {
  if (int status = openDefault(name); status != StatusOk) return status;
  listContents(false);
  return close();
}

int UnzipDriver::setOverwrite(bool value) {
  overwrite = value;
  return StatusOk;
}

int UnzipDriver::setUsePaths(bool value) {
  usePaths = value;
  return StatusOk;
}

}  // namespace kxzef
