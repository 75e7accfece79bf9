// Input gathering for zef create. Each input costs one lstat and, for files,
// one access check; a directory is read once, its names sorted so that
// messages come in a stable order.
#include "create_inputs.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "atomic_output.h"
#include "feedback.h"

namespace zef {

namespace {

constexpr char EmptyCause[] = "empty file (an archive entry must have content)";

std::string joined(const std::string& directory, const char* name) {
  if (!directory.empty() && directory.back() == '/') return directory + name;
  return directory + "/" + name;
}

const char* specialKind(mode_t mode) {
  if (S_ISFIFO(mode)) return "a FIFO (named pipe)";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  return "neither a file, a directory nor a link";
}

// Whether `name` grants `access` (R_OK, X_OK). The owner's own permission
// bits decide for the owner, ACLs or not, which spares the common case a
// system call; a security module could still refuse, and the run then
// reports the input as it opens it.
bool accessible(int directory, const char* name, const struct stat& status, int access) {
  const mode_t ownerBits = ((access & R_OK) ? S_IRUSR : 0) | ((access & X_OK) ? S_IXUSR : 0);
  static const uid_t effectiveUser = geteuid();  // zef never changes it
  if (status.st_uid == effectiveUser && (status.st_mode & ownerBits) == ownerBits) return true;
  return faccessat(directory, name, access, AT_EACCESS) == 0;
}

// "" when the regular file can be stored, else why not.
std::string fileCause(int directory, const char* name, const struct stat& status) {
  if (!accessible(directory, name, status, R_OK)) return "cannot be read (" + systemCause(errno) + ")";
  if (status.st_size == 0) return EmptyCause;
  return "";
}

// The name the writer gives the entry: the destination, or the source
// without one, "\" read as "/", directories ending in "/".
std::string entryName(const std::string& source, const std::string& destination, bool directory) {
  std::string name = destination.empty() ? source : destination;
  std::replace(name.begin(), name.end(), '\\', '/');
  if (directory && (name.empty() || name.back() != '/')) name += '/';
  return name;
}

// `name` below the stored directory name `directory` ("" for the top).
std::string below(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + "/" + name;
}

bool isDirectory(int directory, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) return type == DT_DIR;
  struct stat status;
  return fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string cleanName(const std::string& name, bool& climbed) {
  std::vector<std::string_view> kept;
  for (size_t start = 0; start <= name.size();) {
    const size_t end = std::min(name.find('/', start), name.size());
    const std::string_view part(name.data() + start, end - start);
    start = end + 1;
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      kept.push_back(part);
    } else if (kept.empty()) {
      climbed = true;
    } else {
      kept.pop_back();
    }
  }
  std::string clean;
  for (const std::string_view part : kept) {
    if (!clean.empty()) clean += '/';
    clean.append(part);
  }
  return clean;
}

InputGatherer::InputGatherer(const struct stat* archive) {
  if (archive == nullptr) return;
  haveArchive_ = true;
  archiveDevice_ = archive->st_dev;
  archiveInode_ = archive->st_ino;
}

void InputGatherer::addArgument(const std::string& argument) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos) return add(argument, "");
  add(argument.substr(0, equals), argument.substr(equals + 1));
}

bool InputGatherer::addManifest(const std::string& manifest) {
  std::ifstream in(manifest);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) {
      add(line, "");
    } else {
      add(line.substr(0, tab), line.substr(tab + 1));
    }
  }
  return !in.bad();
}

// An input without a destination is stored under its source path, cleaned.
// Naming that path as the destination, rather than leaving it empty, lets
// links among the inputs find the entries they point to instead of storing
// those files twice. A directory stored under no name at all ("." or "/")
// gives its contents without an entry of its own.
void InputGatherer::add(const std::string& source, const std::string& destination) {
  bool climbed = false;
  const std::string stored = cleanName(destination.empty() ? source : destination, climbed);
  if (climbed) warning(source + ": stored as '" + stored + "', without the '..' that leads above it");
  if (excluded(stored, isDirectory(AT_FDCWD, source.c_str(), DT_UNKNOWN))) return;
  const Verdict verdict = judge(AT_FDCWD, source.c_str(), source, true);
  if (verdict != Verdict::Store && verdict != Verdict::Walk) return;
  if (stored.empty() && verdict != Verdict::Walk) {
    refuse(source, "would be stored under an empty name; give it one with SOURCE=DEST");
    return;
  }
  if (!stored.empty()) inputs_[source] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, stored);
  if (verdict == Verdict::Walk) {
    if (!stored.empty()) directories_.insert(source);
    walk(source, stored);
  }
}

bool InputGatherer::excluded(const std::string& stored, bool directory) {
  return excludes_ != nullptr && !stored.empty() && excludes_->matches(directory ? stored + "/" : stored);
}

// The directory is closed before its subdirectories are opened, so that
// depth costs no descriptors.
void InputGatherer::walk(const std::string& source, const std::string& destination) {
  const int fd = open(source.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  DIR* directory = fd < 0 ? nullptr : fdopendir(fd);
  if (directory == nullptr) {
    if (fd >= 0) close(fd);
    refuse(source, "directory cannot be read (" + systemCause(errno) + "), so nothing below it could be stored");
    return;
  }
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(directory)) {
    const char* name = entry->d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 || isTemporaryArchiveName(name)) continue;
    // Excluded names are never examined: an unreadable one is no refusal.
    if (!excluded(below(destination, name), isDirectory(fd, name, entry->d_type))) names.emplace_back(name);
    errno = 0;
  }
  if (errno != 0) refuse(source, "directory cannot be read to its end (" + systemCause(errno) + ")");
  std::sort(names.begin(), names.end());
  std::vector<std::pair<std::string, bool>> kept;  // name, walked
  for (const std::string& name : names) {
    const Verdict verdict = judge(fd, name.c_str(), joined(source, name.c_str()), false);
    if (verdict == Verdict::Store || verdict == Verdict::Walk) kept.emplace_back(name, verdict == Verdict::Walk);
  }
  closedir(directory);
  for (const auto& [name, walked] : kept) {
    const std::string child = joined(source, name.c_str());
    const std::string childDestination = below(destination, name);
    inputs_[child] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, childDestination);
    if (!walked) continue;
    directories_.insert(child);
    walk(child, childDestination);
  }
}

InputGatherer::Verdict InputGatherer::judge(int directory, const char* name, const std::string& shown, bool named) {
  struct stat status;
  if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return refuse(shown, errno == ENOENT ? "no such file or directory" : "cannot be examined (" + systemCause(errno) + ")");
  }
  if (haveArchive_ && status.st_dev == archiveDevice_ && status.st_ino == archiveInode_) {
    if (named) return refuse(shown, "is the archive being written");
    return skip(shown, "the archive being written, skipped (an archive is never stored in itself)");
  }
  if (std::strchr(name, '\\') != nullptr) {
    return refuse(shown, "the name holds a \"\\\", which the writer would read as \"/\"");
  }
  if (S_ISDIR(status.st_mode)) {
    if (accessible(directory, name, status, R_OK | X_OK)) return Verdict::Walk;
    return refuse(shown, "directory cannot be read (" + systemCause(errno) + "), so nothing below it could be stored");
  }
  if (S_ISLNK(status.st_mode)) return judgeLink(directory, name, shown, named);
  if (!S_ISREG(status.st_mode)) return judgeSpecial(status.st_mode, shown, named, "is");
  const std::string cause = fileCause(directory, name, status);
  if (!cause.empty()) return refuse(shown, cause);
  fileBytes_ += static_cast<uint64_t>(status.st_size);
  return Verdict::Store;
}

// The writer stores the file a link points to as well, so that file must
// pass as an input would. A dangling link is stored alone.
InputGatherer::Verdict InputGatherer::judgeLink(int directory, const char* name, const std::string& shown,
                                                bool named) {
  struct stat target;
  if (fstatat(directory, name, &target, 0) != 0 || S_ISDIR(target.st_mode)) return Verdict::Store;
  if (!S_ISREG(target.st_mode)) return judgeSpecial(target.st_mode, shown, named, "points to");
  const std::string cause = fileCause(directory, name, target);
  if (cause.empty()) return Verdict::Store;
  return refuse(shown, "points to a file that " + (cause == EmptyCause ? "is empty (an archive entry must have content)" : cause));
}

InputGatherer::Verdict InputGatherer::judgeSpecial(mode_t mode, const std::string& shown, bool named,
                                                   const char* verb) {
  const std::string what = std::string(verb) + " " + specialKind(mode);
  if (named) return refuse(shown, what + "; only files, directories and links can be archived");
  return skip(shown, what + ", skipped (only files, directories and links are archived)");
}

InputGatherer::Verdict InputGatherer::refuse(const std::string& shown, const std::string& cause) {
  std::fprintf(stderr, "zef: %s: %s\n", shown.c_str(), cause.c_str());
  ++refusals_;
  return Verdict::Refuse;
}

InputGatherer::Verdict InputGatherer::skip(const std::string& shown, const std::string& cause) {
  warning(shown + ": " + cause);
  return Verdict::Skip;
}

std::string inputProblem(const std::string& source) {
  struct stat status;
  if (lstat(source.c_str(), &status) != 0) {
    return errno == ENOENT ? "no longer exists" : "cannot be examined (" + systemCause(errno) + ")";
  }
  if (!S_ISREG(status.st_mode)) return "";
  const std::string cause = fileCause(AT_FDCWD, source.c_str(), status);
  return cause == EmptyCause ? "is empty" : cause;
}

void InputGatherer::checkNames() {
  std::unordered_map<std::string, const std::string*> owners;  // entry name to the source that takes it
  owners.reserve(inputs_.size());
  for (auto it = inputs_.begin(); it != inputs_.end();) {
    const bool directory = directories_.count(it->first) != 0;
    const auto [owner, fresh] = owners.emplace(entryName(it->first, it->second.destination, directory), &it->first);
    if (!fresh && directory && directories_.count(*owner->second) != 0) {
      it = inputs_.erase(it);
      continue;
    }
    if (!fresh) {
      refuse(owner->first, "two inputs would be stored under this name ('" + *owner->second + "' and '" + it->first + "')");
    }
    ++it;
  }
}

}  // namespace zef
