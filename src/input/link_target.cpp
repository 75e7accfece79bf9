// Link-target rewriting. Link data is read into a caller's buffer that is
// never filled past its last byte; every substring position is bounds-checked.
#include "input/link_target.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "input/reader_status.h"
#include "input/working_directory.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {

namespace {

constexpr char ParentPrefix[] = "../";
constexpr size_t ParentPrefixLength = 3;

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Up to and including the last "/", or "" when there is none.
std::string directoryPart(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Reads the link data into `buffer`, NUL-terminated. Returns 0 or -1 after
// reporting the failed read.
int32_t readLinkData(ZEFFileReader& reader, const std::string& sourceName, char* buffer, size_t bufferSize) {
  size_t used = 0;
  int32_t status = 0;
  while (used + 1 < bufferSize) {
    const unsigned room = static_cast<unsigned>(std::min<size_t>(bufferSize - 1 - used, UINT_MAX));
    const int count = reader.read(buffer + used, room);
    if (count == ReaderReadFailed) {
      const bool empty = statusOf(reader) == ReaderStatus::EmptyInput;
      reportError(empty ? ZEFARCHIVER_BAD_ZERO_LENGTH_FILE : ZEFARCHIVER_ERROR_READING_FILE, sourceName.c_str());
      status = ReaderReadFailed;
    }
    if (count <= 0) break;
    used += static_cast<size_t>(count);
    if (!reader.hasMore()) break;
  }
  buffer[used] = '\0';
  return status;
}

// The directory on disk that a relative link target starts from.
std::string linkDirectory(const std::string& sourceName, const std::string& inputRoot) {
  const size_t slash = sourceName.rfind('/');
  if (!sourceName.empty() && sourceName[0] == '/') return sourceName.substr(0, slash);
  if (slash == std::string::npos) return inputRoot;
  return inputRoot + "/" + sourceName.substr(0, slash);
}

// Cuts `directory` before its `levels`-th "/" from the end; "" when it has
// fewer separators.
void climb(std::string& directory, size_t levels) {
  size_t cut = directory.size();
  for (size_t i = 0; i < levels; ++i) {
    cut = cut == 0 ? std::string::npos : directory.rfind('/', cut - 1);
    if (cut == std::string::npos) {
      directory.clear();
      return;
    }
  }
  directory.erase(cut);
}

}  // namespace

int stripCommonLeadingComponents(std::string& a, std::string& b) {
  int removed = 0;
  for (size_t slash = a.find('/'); slash != std::string::npos; slash = a.find('/')) {
    if (b.compare(0, slash + 1, a, 0, slash + 1) != 0) break;
    a.erase(0, slash + 1);
    b.erase(0, slash + 1);
    removed = 1;
  }
  return removed;
}

std::string findInputRoot(const std::string& absoluteSource, const std::string& archiveName) {
  std::string root;
  size_t k = archiveName.rfind('/');
  if (startsWith(absoluteSource, "/") && k != std::string::npos && k + 1 != archiveName.size()) {
    size_t matched = 0;
    while (k != std::string::npos) {
      const size_t length = archiveName.size() - k;
      if (length > absoluteSource.size() ||
          absoluteSource.compare(absoluteSource.size() - length, length, archiveName, k, length) != 0) {
        break;
      }
      matched = length;
      k = k == 0 ? std::string::npos : archiveName.rfind('/', k - 1);
    }
    if (matched != 0) root = absoluteSource.substr(0, absoluteSource.size() - matched);
  }
  if (startsWith(root, "/")) return root;
  if (!root.empty()) root.insert(0, "/");
  return currentWorkingDirectory() + root;
}

// Kept: readContext is part of the operation's established signature; readers take none.
int32_t computeLinkTarget(const ZEFEntryRecord& /*readContext*/, const std::string& inputRoot,
                          const std::string& sourceName, const std::string& archiveName, ZEFFileReader& reader,
                          char* buffer, size_t bufferSize, std::string& linkText, std::string& targetPath,
                          std::string& storedTarget) {
  if (buffer == nullptr || bufferSize == 0) return ReaderReadFailed;
  const int32_t status = readLinkData(reader, sourceName, buffer, bufferSize);
  const std::string linkData = buffer;
  linkText = linkData;
  if (!startsWith(linkData, "/")) {
    size_t levels = 0;
    while (linkData.compare(levels * ParentPrefixLength, ParentPrefixLength, ParentPrefix) == 0) ++levels;
    std::string directory = linkDirectory(sourceName, inputRoot);
    if (levels != 0) climb(directory, levels);
    if (!directory.empty()) linkText = directory + "/" + linkData.substr(levels * ParentPrefixLength);
    struct stat ignored;
    errno = 0;
    if (lstat(linkText.c_str(), &ignored) != 0 && errno == ENOENT) {
      // A dangling link is stored as it is, beside the link.
      storedTarget = linkData;
      targetPath = directoryPart(archiveName) + linkData;
      return status;
    }
  }
  targetPath = mapTargetIntoArchive(sourceName, archiveName, linkText, inputRoot);
  storedTarget = makeTargetRelativeToLink(targetPath, archiveName);
  return status;
}

std::string mapTargetIntoArchive(std::string sourceName, const std::string& archiveName, std::string target,
                                 const std::string& inputRoot) {
  if (!startsWith(target, "/")) return target;
  if (target.find(inputRoot) == std::string::npos) return target.substr(1);
  if (sourceName.find(inputRoot) != std::string::npos) sourceName.erase(0, inputRoot.size() + 1);
  target.erase(0, inputRoot.size() + 1);
  stripCommonLeadingComponents(target, sourceName);
  std::string destination = directoryPart(archiveName);
  const std::string sourceDirectory = directoryPart(sourceName);
  if (!destination.empty() && !sourceDirectory.empty()) {
    const size_t found = destination.rfind(sourceDirectory);
    if (found != std::string::npos) destination.erase(found);
  }
  return destination + target;
}

std::string makeTargetRelativeToLink(std::string archiveTarget, std::string archiveName) {
  if (startsWith(archiveTarget, "/")) {
    reportError(ZEFARCHIVER_ERROR_ABSOLUTE_PATH_LINK, archiveName.c_str(), archiveTarget.c_str());
    return std::string();
  }
  if (startsWith(archiveName, "/")) {
    reportError(ZEFARCHIVER_ERROR_ABSOLUTE_PATH_FILE, archiveName.c_str());
    return std::string();
  }
  stripCommonLeadingComponents(archiveTarget, archiveName);
  std::string relative;
  for (size_t i = std::count(archiveName.begin(), archiveName.end(), '/'); i > 0; --i) relative += ParentPrefix;
  return relative + archiveTarget;
}

}  // namespace kxzef
