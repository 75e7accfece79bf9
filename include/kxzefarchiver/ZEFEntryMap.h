// The input map of an archive creation: source path to entry record, ordered
// byte-wise. A record that owns its text never shares or leaks it.
#ifndef KXZEFARCHIVER_ZEFENTRYMAP_H
#define KXZEFARCHIVER_ZEFENTRYMAP_H

#include <cstring>
#include <map>
#include <new>
#include <string>
#include <utility>

// The only kind the library stores; hosts building an input map use it too.
constexpr unsigned char ZEFEntryKindFile = 1;

// What the library knows about one input: its kind, an optional text and the
// name under which the input is stored in the archive.
struct ZEFEntryRecord {
  unsigned char kind = ZEFEntryKindFile;
  // NUL-terminated text or null. Borrowed unless `ownsText` is set, in which
  // case the record holds its own heap copy and frees it.
  const char* text = nullptr;
  bool ownsText = false;
  // The entry's name inside the archive; empty means "use the source path".
  std::string destination;

  // Kind 1, no text, empty destination.
  ZEFEntryRecord() = default;

  // With `ownsText` set the record copies `text` (the caller keeps its own);
  // otherwise it only points at it. A null text never counts as owned, nor
  // does a copy that could not be allocated.
  ZEFEntryRecord(unsigned char kind, const char* text, bool ownsText, std::string destination)
      : kind(kind),
        text(ownsText ? duplicate(text) : text),
        ownsText(ownsText && this->text != nullptr),
        destination(std::move(destination)) {}

  // Copies duplicate an owned text, so both records own one each.
  ZEFEntryRecord(const ZEFEntryRecord& other)
      : kind(other.kind),
        text(other.ownsText ? duplicate(other.text) : other.text),
        ownsText(other.ownsText && text != nullptr),
        destination(other.destination) {}

  // Moves hand an owned text over; the source is left without text.
  ZEFEntryRecord(ZEFEntryRecord&& other) noexcept
      : kind(other.kind), text(other.text), ownsText(other.ownsText), destination(std::move(other.destination)) {
    other.text = nullptr;
    other.ownsText = false;
  }

  ZEFEntryRecord& operator=(const ZEFEntryRecord& other) {
    if (this != &other) *this = ZEFEntryRecord(other);
    return *this;
  }

  ZEFEntryRecord& operator=(ZEFEntryRecord&& other) noexcept {
    if (this == &other) return *this;
    release();
    kind = other.kind;
    text = other.text;
    ownsText = other.ownsText;
    destination = std::move(other.destination);
    other.text = nullptr;
    other.ownsText = false;
    return *this;
  }

  ~ZEFEntryRecord() { release(); }

 private:
  // A heap copy of `source`, or null for a null source or a failed allocation.
  static const char* duplicate(const char* source) {
    if (source == nullptr) return nullptr;
    const size_t length = std::strlen(source);
    char* copy = new (std::nothrow) char[length + 1];
    if (copy != nullptr) std::memcpy(copy, source, length + 1);
    return copy;
  }

  void release() {
    if (ownsText) delete[] const_cast<char*>(text);
    text = nullptr;
    ownsText = false;
  }
};

// Source path to record. std::less<std::string> compares bytes, so a string
// sorts before every longer string it is a prefix of.
typedef std::map<std::string, ZEFEntryRecord> ZEFEntryMap;

#endif
