// The integrity test: inflates every entry an audit listed and compares what
// comes out with the declared size and CRC-32. An entry within
// WholeEntryBudget is inflated in one call of libdeflate; anything but a
// clean result there, and every larger entry, goes through zlib's stream in
// fixed buffers, whose verdict is the one reported. It writes nothing, and
// never produces more than one byte past a declared size, so a bomb costs no
// more than what it declares.
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "audit/archive_audit.h"
#include "audit/audit_file.h"
#include "whole/whole_buffer.h"
#include "whole/whole_inflate.h"
#include "zip/unzip_archive.h"
#include "zip/zlib_stream.h"

namespace kxzef {

namespace {

constexpr size_t InputBufferSize = 256 * 1024;
constexpr size_t OutputBufferSize = 128 * 1024;
constexpr uint16_t FlagsEncrypted = 0x0001 | 0x0040;

constexpr char EndsEarly[] = "ends before its declared size";
constexpr char RunsLong[] = "inflates past its declared size";
constexpr char BadCrc[] = "failed its CRC check";
constexpr char BadStream[] = "has damaged compressed data";

// The archive's bytes come through a window, so that the data of many small
// entries is read at once; what comes out goes to one buffer.
// The output buffer need not be larger than the largest entry's output, one
// byte past its declared size included.
struct Buffers {
  Buffers(AuditFile& archive, uint64_t largestEntry)
      : file(archive),
        input(archive, InputBufferSize),
        outputSize(static_cast<size_t>(std::min<uint64_t>(OutputBufferSize, largestEntry + 1))),
        output(new (std::nothrow) unsigned char[outputSize]) {}
  bool valid() const { return input.valid() && output != nullptr; }

  AuditFile& file;
  ReadWindow input;
  size_t outputSize;
  std::unique_ptr<unsigned char[]> output;
};

// The next run of an entry's data at `position`, at most `left` bytes; 0 past
// the file's end or when the read failed.
size_t nextInput(Buffers& buffers, uint64_t position, uint64_t left, const unsigned char*& bytes) {
  const uint64_t size = buffers.file.size();
  if (position >= size) return 0;
  const auto count = static_cast<size_t>(std::min({left, size - position, uint64_t{InputBufferSize}}));
  bytes = buffers.input.bytesAt(position, count, InputBufferSize);
  return bytes != nullptr ? count : 0;
}

// What came out of one entry's data.
struct Produced {
  uint64_t size = 0;
  uint32_t crc = 0;
  const char* failure = nullptr;  // set when the data itself is broken
};

void addCrc(Produced& produced, const unsigned char* bytes, size_t count) {
  produced.crc = static_cast<uint32_t>(crc32(produced.crc, bytes, static_cast<uInt>(count)));
  produced.size += count;
}

Produced readStored(const AuditEntry& entry, Buffers& buffers) {
  Produced produced;
  const uint64_t wanted = std::min(entry.compressedSize, entry.uncompressedSize);
  while (produced.size < wanted) {
    const unsigned char* bytes = nullptr;
    const size_t got = nextInput(buffers, entry.dataOffset + produced.size, wanted - produced.size, bytes);
    if (got == 0) return produced;
    addCrc(produced, bytes, got);
  }
  if (entry.compressedSize > entry.uncompressedSize) produced.failure = RunsLong;
  return produced;
}

// Inflates until the stream ends, the input runs out, or one byte more than
// declared comes out; the output buffer is never offered past that byte.
Produced readDeflated(const AuditEntry& entry, Buffers& buffers, z_stream& stream) {
  Produced produced;
  uint64_t inputLeft = entry.compressedSize, inputPosition = entry.dataOffset;
  stream.avail_in = 0;
  for (;;) {
    if (stream.avail_in == 0 && inputLeft > 0) {
      const unsigned char* bytes = nullptr;
      const size_t got = nextInput(buffers, inputPosition, inputLeft, bytes);
      inputLeft = got == 0 ? 0 : inputLeft - got;
      inputPosition += got;
      stream.next_in = const_cast<unsigned char*>(bytes);  // zlib only reads it
      stream.avail_in = static_cast<uInt>(got);
    }
    const uint64_t room = entry.uncompressedSize - produced.size;
    const auto offered = static_cast<uInt>(room >= buffers.outputSize ? buffers.outputSize : room + 1);
    stream.next_out = buffers.output.get();
    stream.avail_out = offered;
    const int result = inflate(&stream, Z_NO_FLUSH);
    const size_t count = offered - stream.avail_out;
    if (count > room) {
      produced.failure = RunsLong;
      return produced;
    }
    addCrc(produced, buffers.output.get(), count);
    if (result == Z_STREAM_END) return produced;
    if (result == Z_BUF_ERROR && inputLeft > 0) continue;  // wants the next read
    if (result != Z_OK) {
      // A stream cut short (no input left) that gave all it declared is still damaged.
      const bool cutShort = result == Z_BUF_ERROR && produced.size < entry.uncompressedSize;
      if (!cutShort) produced.failure = BadStream;
      return produced;
    }
  }
}

// What the whole inflation keeps from entry to entry.
struct WholeTools {
  WholeInflater inflater;
  WholeBuffer compressed;  // entries whose data the read window cannot hold
  WholeBuffer inflated;
};

// The entry's compressed bytes, through the read window when they fit it.
const unsigned char* wholeInput(const AuditEntry& entry, Buffers& buffers, WholeTools& whole) {
  const auto count = static_cast<size_t>(entry.compressedSize);
  if (count <= InputBufferSize) return buffers.input.bytesAt(entry.dataOffset, count, InputBufferSize);
  if (!whole.compressed.reserve(count)) return nullptr;
  if (buffers.file.readAt(entry.dataOffset, whole.compressed.data(), count) != count) return nullptr;
  return whole.compressed.data();
}

// True when the deflated entry inflates whole to its declared size, setting
// `cause` by its CRC-32; false when zlib's stream must judge it.
bool checkWhole(const AuditEntry& entry, Buffers& buffers, WholeTools& whole, const char*& cause) {
  if (!inflatesWhole(entry.compressedSize, entry.uncompressedSize)) return false;
  if (entry.dataOffset + entry.compressedSize > buffers.file.size()) return false;  // cut short: zlib says how
  const auto size = static_cast<size_t>(entry.uncompressedSize);
  // Room for one byte at least, so that an empty entry has somewhere to go.
  if (!whole.inflated.reserve(std::max<size_t>(size, 1))) return false;
  const unsigned char* input = wholeInput(entry, buffers, whole);
  unsigned char* out = whole.inflated.data();
  if (input == nullptr || !whole.inflater.inflate(input, static_cast<size_t>(entry.compressedSize), out, size)) {
    return false;
  }
  cause = wholeCrc(out, size) == entry.crc ? nullptr : BadCrc;
  return true;
}

// The cause of the entry's failure, or nullptr when it checks out.
const char* checkEntry(const AuditEntry& entry, Buffers& buffers, InflateStream& inflater, WholeTools& whole) {
  if (const char* cause = nullptr; entry.method == MethodDeflated && checkWhole(entry, buffers, whole, cause)) {
    return cause;
  }
  Produced produced;
  if (entry.method == MethodStored) {
    produced = readStored(entry, buffers);
  } else {
    inflater.start();  // a reset: the stream was set up before the first entry
    produced = readDeflated(entry, buffers, inflater.get());
  }
  if (produced.failure != nullptr) return produced.failure;
  if (produced.size < entry.uncompressedSize) return EndsEarly;
  return produced.crc == entry.crc ? nullptr : BadCrc;
}

bool testable(const AuditEntry& entry) {
  const bool knownMethod = entry.method == MethodStored || entry.method == MethodDeflated;
  return knownMethod && (entry.flags & FlagsEncrypted) == 0 && entry.dataOffset != 0;
}

}  // namespace

int testArchive(const char* path, const AuditReport& report, std::vector<AuditFinding>& failures) {
  return testEntries(path, report, 0, report.entries.size(), failures);
}

int testEntries(const char* path, const AuditReport& report, size_t first, size_t last,
                std::vector<AuditFinding>& failures) {
  last = std::min(last, report.entries.size());
  AuditFile file;
  if (path == nullptr) {
    errno = EINVAL;
    return AuditCannotOpen;
  }
  if (!file.open(path)) return AuditCannotOpen;
  uint64_t largestEntry = 0;
  for (size_t i = first; i < last; ++i) largestEntry = std::max(largestEntry, report.entries[i].uncompressedSize);
  Buffers buffers(file, std::min<uint64_t>(largestEntry, OutputBufferSize));
  InflateStream inflater;
  WholeTools whole;
  if (!buffers.valid() || inflater.start() != Z_OK) {
    errno = ENOMEM;
    return AuditCannotOpen;
  }
  for (size_t i = first; i < last; ++i) {
    const AuditEntry& entry = report.entries[i];
    if (!testable(entry)) continue;  // the audit has said why
    const char* cause = checkEntry(entry, buffers, inflater, whole);
    if (file.failed()) return AuditCannotOpen;
    if (cause != nullptr) failures.push_back(AuditFinding{FindingKind::BadData, static_cast<int64_t>(i), cause});
  }
  return AuditOk;
}

}  // namespace kxzef
