// extractAll with a dispatch: regular files are handed over, everything else
// is done here in archive order. Before anything is done here (but a link
// that meets none of them), every file handed over is finished, and those
// that failed are extracted again here, first to last: the first failure is
// then reported, and ends the run, exactly where a run without a dispatch
// has it. Files handed over at once
// never share a path, nor lie below one another, so none of them can change
// how another one turns out.
#include "extract/unzip_driver.h"

#include <unistd.h>

#include "extract/driver_report.h"
#include "extract/file_name_part.h"
#include "extract/link_extra.h"
#include "messages/message_catalogue.h"
#include "zip/file_system.h"

namespace kxzef {

namespace {

constexpr unsigned UnixModeShift = 16;
constexpr uint64_t UnixModeMask = 0xFFFF;
constexpr uint64_t HashBasis = 14695981039346656037ULL;  // FNV-1a
constexpr uint64_t HashPrime = 1099511628211ULL;
constexpr size_t SmallestTable = 64;

// Paths meet on disk without regard to ASCII case on some file systems, and
// the driver takes "\" for "/": the hash does the same, erring towards meeting.
uint64_t hashStep(uint64_t hash, char c) {
  if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  if (c == '\\') c = '/';
  return (hash ^ static_cast<unsigned char>(c)) * HashPrime;
}

// 0 marks a free place in the table.
uint64_t stored(uint64_t hash) { return hash | 1; }

}  // namespace

void UnzipDriver::HandedPaths::reserve(uint64_t entries) {
  size_t size = SmallestTable;
  while (size < 2 * entries) size *= 2;
  table_.assign(size, 0);
  used_.clear();
  used_.reserve(size / 2);
}

bool UnzipDriver::HandedPaths::contains(uint64_t hash) const {
  const size_t mask = table_.size() - 1;
  for (size_t place = hash & mask; table_[place] != 0; place = (place + 1) & mask) {
    if (table_[place] == stored(hash)) return true;
  }
  return false;
}

bool UnzipDriver::HandedPaths::meets(const std::string& path) const {
  uint64_t hash = HashBasis;
  for (char c : path) {
    if ((c == '/' || c == '\\') && contains(hash)) return true;
    hash = hashStep(hash, c);
  }
  return contains(hash);
}

void UnzipDriver::HandedPaths::add(const std::string& path) {
  uint64_t hash = HashBasis;
  for (char c : path) hash = hashStep(hash, c);
  const size_t mask = table_.size() - 1;
  size_t place = hash & mask;
  while (table_[place] != 0) {
    if (table_[place] == stored(hash)) return;
    place = (place + 1) & mask;
  }
  table_[place] = stored(hash);
  used_.push_back(place);
}

void UnzipDriver::HandedPaths::clear() {
  for (size_t place : used_) table_[place] = 0;
  used_.clear();
}

int UnzipDriver::extractOrHand() {
  const EntryRoute route = routeEntry();
  if (route == EntryRoute::Done) return StatusOk;
  if (route == EntryRoute::Hand && dispatch->hand(job_)) {
    handed_.add(job_.target);
    return StatusOk;
  }
  if (route != EntryRoute::HereAtOnce) {
    if (int earlier = settleHanded(true); earlier != StatusOk) return earlier;
  }
  return extractCurrentEntry();
}

// Where the current entry goes. A regular file that may be handed over gets
// job_ filled and its directory made, silently: if that fails, the entry is
// extracted here, which reports it. A directory that meets no file handed
// over is made here at once: making it reports nothing, and its headers
// were just read without fault.
UnzipDriver::EntryRoute UnzipDriver::routeEntry() {
  if (!usePaths || !overwrite) return EntryRoute::HereAfterHanded;  // the prompt and flat names stay here
  EntryInfo info{};
  EntryName name{};
  if (archive.getCurrentEntryInfo(&info, name.data(), EntryNameBufferSize, nullptr, 0, nullptr, 0) != StatusOk) {
    return EntryRoute::HereAfterHanded;
  }
  if (info.extraFieldLength > 0 && isLinkEntry(info.extraFieldLength)) {
    return linkMadeAtOnce(name.data()) ? EntryRoute::Done : EntryRoute::HereAfterHanded;
  }
  job_.target.assign(root).append(name.data());
  const size_t fileNameStart = findFileNamePart(job_.target.c_str());
  if (handed_.meets(job_.target)) return EntryRoute::HereAfterHanded;
  if (fileNameStart == job_.target.size()) return EntryRoute::HereAtOnce;
  if (fileNameStart == 0) return EntryRoute::HereAfterHanded;
  // Files handed over never remove a directory, so the last one made since
  // the last settle still stands and need not be examined again.
  const size_t directoryLength = fileNameStart - 1;
  const bool madeAlready =
      directory_.size() == directoryLength && job_.target.compare(0, directoryLength, directory_) == 0;
  if (!madeAlready) {
    directory_.assign(job_.target, 0, directoryLength);
    if (!makeDirPath(directory_.c_str())) {
      directory_.clear();
      return EntryRoute::HereAfterHanded;
    }
  }
  if (archive.getEntryPosition(&job_.centralPosition, &job_.entryIndex) != StatusOk) {
    return EntryRoute::HereAfterHanded;
  }
  job_.crc = info.crc;
  job_.compressedSize = info.compressedSize;
  job_.uncompressedSize = info.uncompressedSize;
  job_.dosDate = static_cast<uint32_t>(info.dosDate);
  job_.modified = info.modified;
  job_.mode = static_cast<uint32_t>((info.externalAttributes >> UnixModeShift) & UnixModeMask);
  return EntryRoute::Hand;
}

bool UnzipDriver::isLinkEntry(uint64_t extraLength) {
  extra_.resize(static_cast<size_t>(extraLength) + 1);
  if (archive.getCurrentEntryInfo(nullptr, nullptr, 0, extra_.data(), extraLength, nullptr, 0) != StatusOk) {
    linkText_.clear();  // no link to make at once
    return true;        // unreadable: extracting it here reports why
  }
  return readLinkTarget(extra_.data(), static_cast<size_t>(extraLength), linkText_);
}

// A link that meets no file handed over is made at once, in silence, so that
// links do not stall the workers. No file in flight can change how it turns
// out: a file's directories exist before it is handed over, so a link over
// one of them fails as it would after the file. Anything that does not
// succeed is left to be done again after the files handed over, which
// reports it in archive order, as the same steps fail the same way again.
bool UnzipDriver::linkMadeAtOnce(const char* name) {
  job_.target.assign(root).append(name);
  const size_t fileNameStart = findFileNamePart(job_.target.c_str());
  if (linkText_.empty() || fileNameStart == job_.target.size() || handed_.meets(job_.target)) return false;
  const bool readable = archive.openCurrentEntry(nullptr, nullptr, 0) == StatusOk;
  if (archive.closeCurrentEntry() != StatusOk || !readable) return false;
  const size_t slash = job_.target.rfind('/');
  if (slash != std::string::npos && !makeDirPath(job_.target.substr(0, slash).c_str())) return false;
  return symlink(linkText_.c_str(), job_.target.c_str()) == 0;
}

// Finishes the files handed over and extracts those that failed again here;
// the first to fail here too ends the run with its own messages. With
// `resume`, the walk goes on from the entry it was at.
int UnzipDriver::settleHanded(bool resume) {
  const std::vector<FailedFile>& failed = dispatch->finish();
  handed_.clear();
  directory_.clear();  // what is done here next may remove it
  if (failed.empty()) return StatusOk;
  uint64_t position = 0;
  uint64_t index = 0;
  const int here = archive.getEntryPosition(&position, &index);
  for (const FailedFile& file : failed) {
    int status = archive.goToEntryPosition(file.centralPosition, file.entryIndex);
    if (status == StatusOk) status = extractCurrentEntry();
    else reportCoreFailure(UNZIPDRIVER_ZIPFILE_GOTONEXTFILE);
    if (status != StatusOk) return status;
  }
  if (!resume) return StatusOk;
  const int status = here == StatusOk ? archive.goToEntryPosition(position, index) : here;
  if (status != StatusOk) reportCoreFailure(UNZIPDRIVER_ZIPFILE_GOTONEXTFILE);
  return status;
}

int UnzipDriver::endHanding(int status) {
  if (status == StatusOk) status = settleHanded(false);
  dispatch->end();
  return status;
}

}  // namespace kxzef
