// The creation run. Inputs are visited in key order, then the files that
// links queued; each becomes one entry. The 16 KB buffer is the only data
// memory, so memory use does not grow with the inputs. With a prefetch, data
// it finished is copied into the archive as it is, under the same headers.
#include "create/creation_run.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include "host/host.h"
#include "input/duplicate_entry.h"
#include "create/entry_text_writer.h"
#include "input/find_transform.h"
#include "input/link_target.h"
#include "input/path_readers.h"
#include "input/plain_file_reader.h"
#include "input/reader_status.h"
#include "input/transform_file_reader.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"
#include "zip/file_system.h"

namespace kxzef {

namespace {

constexpr mode_t KeptModeBits = 0xF1FF;  // type and rwx bits; set-id and sticky bits are dropped
constexpr size_t NotPrefetched = SIZE_MAX;  // the input index of a file a link queued

struct FreeDeleter {
  void operator()(char* buffer) const { std::free(buffer); }
};

// How the loop goes on after one input.
enum class Flow { Next, EndLoop, ReturnNow };

void report(uint32_t message, const std::string& text) {
  reportError(message, text.c_str());
}

// "\" becomes "/", except a byte that belongs to a multibyte character.
std::string withForwardSlashes(std::string name) {
  for (char* hit = host::utMultiByteStrChr(name.data(), '\\'); hit != nullptr;
       hit = host::utMultiByteStrChr(hit, '\\')) {
    *hit = '/';
  }
  return name;
}

ZipTime currentLocalTime() {
  const time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return ZipTime{static_cast<uint32_t>(local.tm_sec),  static_cast<uint32_t>(local.tm_min),
                 static_cast<uint32_t>(local.tm_hour), static_cast<uint32_t>(local.tm_mday),
                 static_cast<uint32_t>(local.tm_mon),  static_cast<uint32_t>(local.tm_year)};
}

class CreationRun {
 public:
  CreationRun(const CreationTarget& target, ZEFEntryMap& inputs, CreationContext& context)
      : target_(target),
        inputs_(inputs),
        context_(context),
        observer_(target.hooks != nullptr ? target.hooks->observer : nullptr) {}

  int execute(bool closeWhenDone);

 private:
  Flow addEntry(const std::string& key, const ZEFEntryRecord& record, const struct stat& first, int& result);
  ZipEntryInfo fileInformation(const std::string& source, const struct stat& status,
                               const struct stat* followed) const;
  int openInput(const std::string& source, const struct stat& first, const struct stat* followed);
  int openFailure(const std::string& source);
  int chooseReader(const std::string& source);
  int writeInputData(const std::string& key);
  int finish(int result, bool closeWhenDone);
  void beginPrefetch();
  const PrefetchedEntry* takePrefetched(const struct stat& first);
  int writePrefetched(const PrefetchedEntry& entry, const std::string& key);

  const CreationTarget& target_;
  ZEFEntryMap& inputs_;
  CreationContext& context_;
  CreationObserver* observer_;  // zef's, or null
  std::unique_ptr<char, FreeDeleter> buffer_;
  ZEFEntryMap extra_;    // files that links point to, queued by the duplicate check
  std::string source_;   // the current input; the context borrows it
  bool plainFile_ = false;               // the current input has a reader without transform
  ZEFTransform* transform_ = nullptr;    // the rule the current input matches, if any
  size_t inputIndex_ = NotPrefetched;    // the current input's place in the inputs
  const PrefetchedEntry* ready_ = nullptr;  // the current input's finished data, if the prefetch has it
};

// Ends the prefetch when the run ends, whichever way.
struct PrefetchEnd {
  ~PrefetchEnd() {
    if (prefetch != nullptr) prefetch->end();
  }
  EntryPrefetch* prefetch;
};

int CreationRun::execute(bool closeWhenDone) {
  buffer_.reset(static_cast<char*>(std::malloc(CreationBufferSize)));
  if (!buffer_) {
    reportError(ZEFARCHIVER_MEM_ALLOC_ERROR);
    return StatusInternalError;
  }
  beginPrefetch();
  const PrefetchEnd prefetchEnd{target_.prefetch};
  int result = StatusOk;
  const ZEFEntryMap* walking = &inputs_;
  auto cursor = inputs_.begin();
  for (size_t index = 0; cursor != walking->end() && result == StatusOk; ++index) {
    inputIndex_ = walking == &inputs_ ? index : NotPrefetched;
    struct stat first;
    if (lstat(withForwardSlashes(cursor->first).c_str(), &first) != 0) {
      // A warning, not a failure. Skipping the last input ends the walk
      // before the queued files are reached; callers rely on that.
      report(ZEFARCHIVER_WARN_UNREADABLE_PERM, withForwardSlashes(cursor->first));
      reportSystemErrorText();  // errno as the warning left it
      ++cursor;
      continue;
    }
    const Flow flow = addEntry(cursor->first, cursor->second, first, result);
    if (flow == Flow::ReturnNow) return result;
    if (flow == Flow::EndLoop) break;
    ++cursor;
    if (walking == &inputs_ && cursor == inputs_.end() && !extra_.empty()) {
      walking = &extra_;
      cursor = extra_.begin();
    }
  }
  return finish(result, closeWhenDone);
}

Flow CreationRun::addEntry(const std::string& key, const ZEFEntryRecord& entry, const struct stat& first,
                           int& result) {
  const ZEFEntryRecord record = entry;  // the caller's map stays untouched
  source_ = withForwardSlashes(key);
  transform_ = context_.transformRules != nullptr ? findTransform(context_.transformRules, source_.c_str()) : nullptr;
  std::string dest = withForwardSlashes(record.destination);
  // One stat serves the entry's time and the type check below; the path is
  // looked up again only where that could give a different answer. The
  // lstat a moment ago is that stat unless the path ends in a link.
  struct stat followed = first;
  const bool known = fileTimeExaminesWholePath(source_.c_str()) &&
                     (!S_ISLNK(first.st_mode) || stat(source_.c_str(), &followed) == 0);
  ZipEntryInfo info = fileInformation(source_, first, known ? &followed : nullptr);

  if ((result = openInput(source_, first, known ? &followed : nullptr)) != StatusOk) return Flow::ReturnNow;
  if ((result = chooseReader(source_)) != StatusOk) return Flow::ReturnNow;
  const PrefetchedEntry* ready = ready_;
  if (ready != nullptr && ready->text) info.internalAttributes = TextAttribute;
  if (context_.isDirectory) {
    if (dest.empty()) dest = source_;
    if (dest.back() != '/') dest += '/';
  }

  const bool isLink = S_ISLNK(first.st_mode);
  const std::string& linkName = dest.empty() ? source_ : dest;
  std::string inputRoot, linkText, targetPath, storedTarget;
  if (isLink) {
    inputRoot = findInputRoot(source_, dest);
    result = computeLinkTarget(record, inputRoot, source_, linkName, *context_.currentReader, buffer_.get(),
                               CreationBufferSize, linkText, targetPath, storedTarget);
    if (result != StatusOk) {
      reportError(ZEFARCHIVER_ERROR_COMPUTING_ZEF_LINK_TARGET, source_.c_str(), buffer_.get());
      return Flow::ReturnNow;
    }
  }

  const std::string entryName = dest.empty() ? source_ : dest + context_.currentReader->name();
  if (observer_ != nullptr) observer_->entryStarted(source_, entryName);
  const int level = target_.compressionLevel;
  result = target_.archive.openNewEntry(entryName.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                        level != 0 ? MethodDeflated : MethodStored, level, isLink ? linkName.c_str() : nullptr,
                        storedTarget.c_str(), ready != nullptr ? 1 : 0);
  if (result != StatusOk) {
    report(ZEFARCHIVER_ERROR_OPENING_IN_ZIP, source_);
    return Flow::ReturnNow;
  }

  const int data = context_.isLink
                       ? writeEntryTextAndCheck(target_.archive, storedTarget, source_.c_str(), source_.c_str(),
                                                dest.c_str(), linkText.c_str(), targetPath.c_str(),
                                                inputRoot.c_str(), extra_, inputs_)
                       : ready != nullptr ? writePrefetched(*ready, key) : writeInputData(key);
  releaseContextObjects(context_);
  context_.isLink = false;
  context_.isDirectory = false;
  if (data < 0) {
    result = StatusIoError;
    return Flow::EndLoop;
  }
  result = ready != nullptr ? target_.archive.closeEntry(ready->uncompressedSize, ready->crc)
                            : target_.archive.closeEntry(0, 0);
  if (result != StatusOk) report(ZEFARCHIVER_ERROR_CLOSING_FILE_IN_ZIP, source_);
  return Flow::Next;
}

ZipEntryInfo CreationRun::fileInformation(const std::string& source, const struct stat& status,
                                          const struct stat* followed) const {
  ZipEntryInfo info{};
  info.externalAttributes = static_cast<uint64_t>(status.st_mode & KeptModeBits) << 16;
  if (followed != nullptr) {
    info.modified = localFileTime(followed->st_mtime);
  } else {
    getFileTime(source.c_str(), info.modified);
  }
  // A transformed file carries the time it was archived, not its own.
  if (transform_ != nullptr) {
    info.modified = currentLocalTime();
    info.dosDate = dosDateFromTime(info.modified);
  }
  if (target_.hooks != nullptr && target_.hooks->fixedDosDate != 0) info.dosDate = target_.hooks->fixedDosDate;
  return info;
}

// `first` is the run's lstat of `source` a moment ago, `followed` its stat
// when one was made.
int CreationRun::openInput(const std::string& source, const struct stat& first, const struct stat* followed) {
  errno = 0;
  releaseContextObjects(context_);
  context_.isLink = false;
  context_.isDirectory = false;
  context_.currentSource = source.c_str();
  ready_ = nullptr;

  if (S_ISLNK(first.st_mode)) {
    context_.isLink = true;
    return StatusOk;
  }
  struct stat status;
  if (followed != nullptr) {
    status = *followed;
  } else if (stat(source.c_str(), &status) != 0) {
    return openFailure(source);
  }
  // Only this one bit is tested: block devices and sockets count as directories.
  if (status.st_mode & S_IFDIR) {
    context_.isDirectory = true;
    return StatusOk;
  }
  // Data the prefetch finished needs no stream: its worker read the same file.
  if ((ready_ = takePrefetched(first)) != nullptr) return StatusOk;
  context_.currentStream = new std::ifstream(source, std::ios::in | std::ios::binary);
  if (!context_.currentStream->is_open()) {
    // Kept: hosts see this line on standard error itself, past the channels, before the catalogue report.
    std::cerr << '\n' << "COULD NOT OPEN FILE: " << source << "!" << std::endl;
    return openFailure(source);
  }
  return StatusOk;
}

int CreationRun::openFailure(const std::string& source) {
  reportSystemFailure(ZEFARCHIVER_ERROR_OPENING_FILE_FOR_READ, source.c_str());
  return StatusBadParameter;  // -102 here: an input that cannot be opened stops the run
}

int CreationRun::chooseReader(const std::string& source) {
  delete context_.currentReader;
  context_.currentReader = nullptr;
  plainFile_ = false;
  std::ifstream* stream = context_.currentStream;
  if (ready_ != nullptr) {
    context_.currentReader = new ZEFFileReaderWithoutTransform(nullptr);  // names the entry; never read
    plainFile_ = true;
  } else if (context_.isDirectory) {
    context_.currentReader = new ZEFDirectoryReader(source);
  } else if (context_.isLink) {
    context_.currentReader = new ZEFSymbolicLinkReader(source);
  } else if (stream != nullptr && stream->is_open() && stream->good()) {
    if (transform_ != nullptr) {
      context_.currentReader = new ZEFFileReaderWithTransform(stream, transform_);
    } else {
      context_.currentReader = new ZEFFileReaderWithoutTransform(stream);
      plainFile_ = true;
    }
  }
  if (context_.currentReader != nullptr) return StatusOk;
  report(ZEFARCHIVER_ERROR_CREATING_READER, source);
  return StatusBadParameter;  // -102 here: an input without a reader stops the run
}

int CreationRun::writeInputData(const std::string& key) {
  ZEFFileReader& reader = *context_.currentReader;
  int written = StatusOk;
  for (;;) {
    const int count = reader.read(buffer_.get(), CreationBufferSize);
    if (count == ReaderReadFailed) {
      const bool empty = statusOf(reader) == ReaderStatus::EmptyInput;
      report(empty ? ZEFARCHIVER_BAD_ZERO_LENGTH_FILE : ZEFARCHIVER_ERROR_READING_FILE, key);
      return StatusIoError;
    }
    if (count < 1) return written;
    if (observer_ != nullptr) observer_->inputRead(static_cast<uint64_t>(count));
    written = target_.archive.writeEntryData(buffer_.get(), static_cast<uint32_t>(count));
    if (written < 0) {
      report(ZEFARCHIVER_ERROR_WRITING_FILE, key);
      return StatusIoError;
    }
    // Kept: a positive core result ends the entry's data without failing it, as hosts have always seen.
    if (written > 0) return written;
    if (!reader.isOk()) return StatusOk;
  }
}

void CreationRun::beginPrefetch() {
  if (target_.prefetch == nullptr) return;
  std::vector<std::string> sources;
  sources.reserve(inputs_.size());
  for (const auto& input : inputs_) sources.push_back(withForwardSlashes(input.first));
  target_.prefetch->begin(std::move(sources), target_.compressionLevel);
}

// Only a plain file is ever asked about: a transformed one is left to its reader.
const PrefetchedEntry* CreationRun::takePrefetched(const struct stat& first) {
  if (target_.prefetch == nullptr || inputIndex_ == NotPrefetched) return nullptr;
  if (transform_ != nullptr) return nullptr;
  return target_.prefetch->take(inputIndex_, first);
}

// Handed over one output buffer at a time. After a failed write a deflating
// core still holds its stream's last bytes and tries them again when the
// entry is closed; the piece that failed is handed over again to leave the
// core the same way, so the close fails or succeeds as it would inline.
int CreationRun::writePrefetched(const PrefetchedEntry& entry, const std::string& key) {
  if (observer_ != nullptr) observer_->inputRead(entry.uncompressedSize);  // read ahead, by the prefetch
  for (uint64_t done = 0; done < entry.size;) {
    const uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(entry.size - done, WriteBufferSize));
    if (target_.archive.writeEntryData(entry.data + done, piece) < 0) {
      report(ZEFARCHIVER_ERROR_WRITING_FILE, key);
      if (target_.compressionLevel != 0) target_.archive.writeEntryData(entry.data + done, piece);
      return StatusIoError;
    }
    done += piece;
  }
  return StatusOk;
}

int CreationRun::finish(int result, bool closeWhenDone) {
  if (!closeWhenDone) return result;
  if (int closed = target_.archive.closeForWriting(nullptr); closed != StatusOk) {
    report(ZEFARCHIVER_ERROR_CLOSING_FILE, target_.archiveName);
    return closed;
  }
  return result;
}

}  // namespace

void releaseContextObjects(CreationContext& context) {
  if (context.currentStream != nullptr) {
    if (context.currentStream->is_open()) {
      context.currentStream->close();
      context.currentStream->clear();
    }
    delete context.currentStream;
    context.currentStream = nullptr;
  }
  delete context.currentReader;
  context.currentReader = nullptr;
}

int runCreation(const CreationTarget& target, ZEFEntryMap& inputs, CreationContext& context, bool closeWhenDone) {
  const int result = CreationRun(target, inputs, context).execute(closeWhenDone);
  // The run's copy of the current source name dies with it.
  context.currentSource = nullptr;
  return result;
}

}  // namespace kxzef
