// Turns archive entries into directories, regular files (with their time and
// permission bits) and symbolic links. Files are written in place under their
// final names: one that fails half-way stays on disk for the caller to see,
// and the status says that it is incomplete.
#include "extract/unzip_driver.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>

#include "extract/driver_report.h"
#include "extract/file_name_part.h"
#include "extract/link_extra.h"
#include "extract/overwrite_prompt.h"
#include "messages/channels.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"
#include "zip/file_system.h"

namespace kxzef {

namespace {

constexpr unsigned UnixModeShift = 16;  // the Unix mode sits in the upper half of the external attributes
constexpr uint64_t UnixModeMask = 0xFFFF;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using OutputFile = std::unique_ptr<std::FILE, FileCloser>;

// The three-part report of a directory that could not be made: the catalogue
// message, the system's text with its code (the code on the output channel),
// and the path that could not be opened.
void reportDirectoryFailure(const std::string& directory, int error) {
  reportError(UNZIPDRIVER_ERROR_CREATING_EXTRACTION_DIR);
  if (error != 0) {
    reportMessageNoNewline(getMessageContext(), getErrorStream(), ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT,
                           std::strerror(error));
    getOutputStream() << std::endl << "Code: " << error << std::endl;
  }
  reportError(UNZIPDRIVER_ERROR_OPENING_FILE, directory.c_str());
}

// Opens `target` for writing. Something in the way that fopen cannot
// replace (an empty directory, say) is removed and the open tried once more.
// Writes go straight to the file in the caller's blocks: stdio's own buffer
// would only copy them once more.
OutputFile openOutputFile(const std::string& target) {
  OutputFile file(std::fopen(target.c_str(), "wb"));
  if (file) {
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
  }
  if (std::remove(target.c_str()) != 0) {
    reportError(UNZIPDRIVER_REMOVE_FAILED, target.c_str());
    reportError(UNZIPDRIVER_ERROR_OPENING_FILE, target.c_str());
    return nullptr;
  }
  file.reset(std::fopen(target.c_str(), "wb"));
  if (!file) {
    reportError(UNZIPDRIVER_ERROR_OPENING_FILE, target.c_str());
  } else {
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
  }
  return file;
}

// Makes `target` a link to `linkTarget`, with the directory it lies in. An
// existing file of that name is left alone, so the link then fails.
int createSymbolicLink(const std::string& target, const std::string& linkTarget) {
  const size_t slash = target.rfind('/');
  if (slash != std::string::npos) {
    errno = 0;
    if (!makeDirPath(target.substr(0, slash).c_str())) {
      const int error = errno;
      reportError(UNZIPDRIVER_ERROR_CREATING_SYMLINK_DIRECTORY, target.c_str());
      reportSystemErrorText(error);
      return StatusIoError;
    }
  }
  if (symlink(linkTarget.c_str(), target.c_str()) != 0) {
    const int error = errno;
    reportError(UNZIPDRIVER_ERROR_CANNOT_CREATE_SYMLINK, target.c_str(), linkTarget.c_str());
    reportSystemErrorText(error);
    return StatusIoError;
  }
  return StatusOk;
}

}  // namespace

int UnzipDriver::extractAll(bool closeAfter) {
  uint64_t count = 0;
  uint64_t commentLength = 0;
  int status = archive.getGlobalInfo(&count, &commentLength);
  if (status != StatusOk) {
    // Nothing can be walked without a count; the status is kept for an archive of no entries.
    reportCoreFailure(UNZIPDRIVER_ZIPFILE_IN_UNZGETGLOBALINFO);
    count = 0;
  }
  const bool handing = count > 0 && dispatch != nullptr && dispatch->begin();
  if (handing) handed_.reserve(count);
  for (uint64_t index = 0; index < count;) {
    status = handing ? extractOrHand() : extractCurrentEntry();
    if (status != StatusOk) break;
    if (++index < count) {
      status = archive.goToNextEntry();
      if (status != StatusOk) {
        // Files handed over before come first, with their failures.
        if (int earlier = handing ? settleHanded(false) : StatusOk; earlier != StatusOk) {
          status = earlier;
          break;
        }
        reportCoreFailure(UNZIPDRIVER_ZIPFILE_GOTONEXTFILE);
        break;
      }
    }
  }
  if (handing) status = endHanding(status);
  if (closeAfter) close();
  return status;
}

int UnzipDriver::extractCurrentEntry() {
  EntryInfo info{};
  EntryName name{};
  if (int status = readEntryName(info, name); status != StatusOk) return status;
  bool isLink = false;
  std::string linkTarget;
  if (int status = readLinkEntry(info, isLink, linkTarget); status != StatusOk) return status;
  if (!transfer_) transfer_.reset(new (std::nothrow) unsigned char[TransferBufferSize]);
  if (!transfer_) {
    reportError(UNZIPDRIVER_MEMORY_ERROR);
    return StatusInternalError;
  }
  const std::string outputPath = root + name.data();
  const size_t fileNameStart = findFileNamePart(outputPath.c_str());
  if (fileNameStart == outputPath.size()) {
    // A directory entry: nothing to read, no time or mode to set.
    if (usePaths) makeDirPath(outputPath.c_str());
    return StatusOk;
  }
  const std::string target = usePaths ? outputPath : outputPath.substr(fileNameStart);
  int status = archive.openCurrentEntry(nullptr, nullptr, 0);
  if (status != StatusOk) {
    reportCoreFailure(UNZIPDRIVER_ZIPFILE_OPENCURRENTFILE);
  } else {
    status = writeTarget(target, fileNameStart, info, isLink, linkTarget, transfer_.get());
  }
  if (status != StatusOk) {
    // The first failure is the one to report; closing can only add noise.
    archive.closeCurrentEntry();
    return status;
  }
  status = archive.closeCurrentEntry();
  if (status != StatusOk) reportCoreFailure(UNZIPDRIVER_ZIPFILE_IN_CLOSECURRENTFILE);
  return status;
}

int UnzipDriver::readEntryName(EntryInfo& info, EntryName& name) {
  const int status = archive.getCurrentEntryInfo(&info, name.data(), EntryNameBufferSize, nullptr, 0, nullptr, 0);
  if (status != StatusOk) reportCoreFailure(status, UNZIPDRIVER_ZIPFILE_GETCURRENTFILEINFO);
  return status;
}

int UnzipDriver::readLinkEntry(const EntryInfo& info, bool& isLink, std::string& linkTarget) {
  isLink = false;
  if (info.extraFieldLength == 0) return StatusOk;
  const size_t size = static_cast<size_t>(info.extraFieldLength);
  std::unique_ptr<unsigned char[]> extra(new (std::nothrow) unsigned char[size + 1]);
  if (!extra) {
    reportError(UNZIPDRIVER_MEMORY_ERROR);
    return StatusInternalError;
  }
  const int status = archive.getCurrentEntryInfo(nullptr, nullptr, 0, extra.get(), size, nullptr, 0);
  if (status != StatusOk) {
    reportCoreFailure(status, UNZIPDRIVER_ZIPFILE_GETCURRENTFILEINFO);
    return status;
  }
  isLink = readLinkTarget(extra.get(), size, linkTarget);
  return StatusOk;
}

int UnzipDriver::writeTarget(const std::string& target, size_t fileNameStart, const EntryInfo& info,
                             bool isLink, const std::string& linkTarget, unsigned char* buffer) {
  if (!overwrite && fileExists(target.c_str())) {
    const OverwriteAnswer answer = askOverwrite(target.c_str());
    if (answer == OverwriteAnswer::No) return StatusOk;
    if (answer == OverwriteAnswer::All) overwrite = true;
  }
  if (isLink) return createSymbolicLink(target, linkTarget);
  // Without paths only links are made: regular files are skipped.
  if (!usePaths) return StatusOk;
  return writeRegularFile(target, fileNameStart, info, buffer);
}

int UnzipDriver::writeRegularFile(const std::string& target, size_t fileNameStart, const EntryInfo& info,
                                  unsigned char* buffer) {
  // A name without a directory part has no separator to cut at, so the whole
  // name goes to the directory maker; the empty directory that makes is
  // removed again by openOutputFile to make way for the file.
  const std::string directory = fileNameStart > 0 ? target.substr(0, fileNameStart - 1) : target;
  errno = 0;
  if (!makeDirPath(directory.c_str())) {
    reportDirectoryFailure(directory, errno);
    return StatusOutputFileError;
  }
  OutputFile file = openOutputFile(target);
  if (!file) return StatusOutputFileError;
  const int status = copyEntryData(file.get(), buffer);
  file.reset();
  if (status != StatusOk) return status;
  setFileTime(target.c_str(), static_cast<uint32_t>(info.dosDate), info.modified);
  const mode_t mode = static_cast<mode_t>((info.externalAttributes >> UnixModeShift) & UnixModeMask);
  if (chmod(target.c_str(), mode) != 0) {
    reportError(UNZIPDRIVER_ERROR_SETTING_PERMISSIONS, target.c_str());
    return StatusIoError;
  }
  return StatusOk;
}

int UnzipDriver::copyEntryData(std::FILE* file, unsigned char* buffer) {
  for (;;) {
    const int count = archive.readCurrentEntry(buffer, TransferBufferSize);
    if (count < 0) {
      reportCoreFailure(UNZIPDRIVER_ZIPFILE_IN_UNZREADCURRENTFILE);
      return count;
    }
    if (count == 0) return StatusOk;
    if (std::fwrite(buffer, static_cast<size_t>(count), 1, file) != 1) {
      reportError(UNZIPDRIVER_ERROR_WRITING_EXTRACTED_FILE);
      return StatusIoError;
    }
  }
}

}  // namespace kxzef
