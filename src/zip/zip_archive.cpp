// The ZIP writing core: one entry at a time, data stored or raw-deflated
// through a 16 KiB buffer, the local header patched in place afterwards.
// It reports by status only and never prints; the caller removes a failed archive.
#include "zip/zip_archive.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <new>
#include <string>

#include <zlib.h>

namespace kxzef {

namespace {

constexpr uint64_t Max16BitField = 0xFFFF;
constexpr uint64_t Max32BitField = 0xFFFFFFFF;

// Central header offsets of the fields settled when an entry is closed.
constexpr size_t CentralCrcOffset = 16;
constexpr size_t CentralInternalAttributesOffset = 36;
// The local header's CRC field; both sizes follow it.
constexpr int64_t LocalCrcOffset = 14;

constexpr int DeflateMemoryLevel = 8;
constexpr uint64_t TextAttribute = 1;

struct Field {
  uint64_t value;
  int size;
};

int writeFields(ZipFileIO& io, std::initializer_list<Field> fields) {
  for (const Field& field : fields) {
    if (writeValue(io, field.value, field.size) != StatusOk) return StatusIoError;
  }
  return StatusOk;
}

unsigned char* putFields(unsigned char* destination, std::initializer_list<Field> fields) {
  for (const Field& field : fields) {
    putValue(destination, field.value, field.size);
    destination += field.size;
  }
  return destination;
}

// The general-purpose flag bits 1-2 that hint at the compression level.
uint64_t flagsForLevel(int level) {
  if (level == 8 || level == 9) return 2;
  if (level == 2) return 4;
  if (level == 1) return 6;
  return 0;
}

// An archive whose file is gone (closed, or never opened) takes no more writes.
bool isWritable(const ZipArchive& archive) { return archive.isOpen && archive.io != nullptr; }

// What openNewEntry works out before it writes anything.
struct EntryLayout {
  const char* name = nullptr;
  uint64_t nameLength = 0;
  uint64_t commentLength = 0;
  std::unique_ptr<unsigned char[]> linkBlock;
  uint64_t linkBlockLength = 0;
};

// The target to record for a symbolic link: the caller's text when given,
// else what the source path points to; empty for anything but a link.
std::string linkTargetOf(const char* sourcePath, const char* linkTarget) {
  if (sourcePath == nullptr) return {};
  if (linkTarget != nullptr && linkTarget[0] != '\0') return linkTarget;
  char target[LinkTargetLimit];
  const ssize_t length = readlink(sourcePath, target, sizeof target);
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

// The Unix extra block: tag, a length that counts the block's own 4-byte
// header too (our readers expect that), 12 bytes of zeroed times and ids,
// then the target without a terminator.
int makeLinkBlock(const std::string& target, EntryLayout& layout) {
  if (target.empty()) return StatusOk;
  layout.linkBlockLength = target.size() + UnixExtraHeaderSize;
  if (layout.linkBlockLength > Max16BitField) return StatusBadParameter;
  layout.linkBlock.reset(new (std::nothrow) unsigned char[layout.linkBlockLength]);
  if (!layout.linkBlock) return StatusInternalError;
  unsigned char* block = layout.linkBlock.get();
  std::memset(block, 0, UnixExtraHeaderSize);
  putFields(block, {{UnixExtraTag, 2}, {layout.linkBlockLength, 2}});
  std::memcpy(block + UnixExtraHeaderSize, target.data(), target.size());
  return StatusOk;
}

void resetStream(ZipArchive& archive) {
  z_stream& stream = archive.stream;
  stream.next_in = nullptr;
  stream.avail_in = 0;
  stream.next_out = archive.outputBuffer;
  stream.avail_out = WriteBufferSize;
  stream.total_in = 0;
  stream.total_out = 0;
  stream.data_type = Z_UNKNOWN;  // only deflate tells text from binary
}

void buildCentralHeader(ZipArchive& archive, const EntryLayout& layout, const ZipEntryInfo* info,
                        const void* globalExtra, uint32_t globalExtraLength, const char* comment) {
  unsigned char* at = putFields(archive.centralHeader.get(), {
      {CentralHeaderSignature, 4},
      {VersionMadeByUnix20, 2},
      {VersionNeeded20, 2},
      {archive.flags, 2},
      {static_cast<uint64_t>(archive.method), 2},
      {archive.dosDate, 4},
      {0, 4},  // CRC, settled at close
      {0, 4},  // compressed size, settled at close
      {0, 4},  // uncompressed size, settled at close
      {layout.nameLength, 2},
      {globalExtraLength + layout.linkBlockLength, 2},
      {layout.commentLength, 2},
      {0, 2},  // disk number start
      {info != nullptr ? info->internalAttributes : 0, 2},
      {info != nullptr ? info->externalAttributes : 0, 4},
      {static_cast<uint64_t>(archive.localHeaderPosition), 4},
  });
  std::memcpy(at, layout.name, layout.nameLength);
  at += layout.nameLength;
  if (globalExtraLength > 0) std::memcpy(at, globalExtra, globalExtraLength);
  at += globalExtraLength;
  if (layout.linkBlockLength > 0) std::memcpy(at, layout.linkBlock.get(), layout.linkBlockLength);
  at += layout.linkBlockLength;
  if (layout.commentLength > 0) std::memcpy(at, comment, layout.commentLength);
}

int writeLocalHeader(ZipArchive& archive, const EntryLayout& layout, const void* localExtra,
                     uint32_t localExtraLength) {
  ZipFileIO& io = *archive.io;
  const int status = writeFields(io, {
      {LocalHeaderSignature, 4},
      {VersionNeeded20, 2},
      {archive.flags, 2},
      {static_cast<uint64_t>(archive.method), 2},
      {archive.dosDate, 4},
      {0, 4},  // CRC, patched at close
      {0, 4},  // compressed size, patched at close
      {0, 4},  // uncompressed size, patched at close
      {layout.nameLength, 2},
      {localExtraLength + layout.linkBlockLength, 2},
  });
  if (status != StatusOk) return status;
  const auto writeAll = [&io](const void* bytes, uint64_t length) {
    return length == 0 || io.write(bytes, static_cast<int64_t>(length)) == static_cast<int64_t>(length);
  };
  if (!writeAll(layout.name, layout.nameLength) || !writeAll(localExtra, localExtraLength) ||
      !writeAll(layout.linkBlock.get(), layout.linkBlockLength)) {
    return StatusIoError;
  }
  return StatusOk;
}

// Works out name, comment and link block, notes where the local header goes,
// and refuses what the record fields (16 bits for lengths, 32 for offsets)
// cannot hold.
int layoutEntry(ZipArchive& archive, EntryLayout& layout, const char* name, const char* comment,
                uint32_t localExtraLength, uint32_t globalExtraLength, const char* sourcePath,
                const char* linkTarget) {
  layout.name = name != nullptr ? name : "-";
  layout.nameLength = std::strlen(layout.name);
  layout.commentLength = comment != nullptr ? std::strlen(comment) : 0;
  if (int status = makeLinkBlock(linkTargetOf(sourcePath, linkTarget), layout); status != StatusOk) {
    return status;
  }
  const int64_t position = archive.io->tell();
  if (position < 0) return StatusIoError;
  archive.localHeaderPosition = position;
  const bool fits = layout.nameLength <= Max16BitField && layout.commentLength <= Max16BitField &&
                    localExtraLength + layout.linkBlockLength <= Max16BitField &&
                    globalExtraLength + layout.linkBlockLength <= Max16BitField &&
                    static_cast<uint64_t>(position) <= Max32BitField;
  return fits ? StatusOk : StatusBadParameter;
}

int startDeflate(ZipArchive& archive, int level) {
  z_stream& stream = archive.stream;
  stream.zalloc = nullptr;
  stream.zfree = nullptr;
  stream.opaque = nullptr;
  const int status = deflateInit2_(&stream, level, Z_DEFLATED, RawWindowBits, DeflateMemoryLevel,
                                   Z_DEFAULT_STRATEGY, ZlibVersionPassed, static_cast<int>(sizeof(z_stream)));
  archive.streamInitialised = status == Z_OK;
  return status;
}

// Writes the buffered output and makes the whole buffer the window again.
int flushOutput(ZipArchive& archive) {
  const int64_t count = archive.bufferedCount;
  const bool written = archive.io->write(archive.outputBuffer, count) == count;
  archive.bufferedCount = 0;
  archive.stream.next_out = archive.outputBuffer;
  archive.stream.avail_out = WriteBufferSize;
  return written ? StatusOk : StatusIoError;
}

// Runs deflate once and counts what it added to the buffer.
int deflateStep(ZipArchive& archive, int flush) {
  const uLong before = archive.stream.total_out;
  const int status = deflate(&archive.stream, flush);
  archive.bufferedCount += static_cast<uint32_t>(archive.stream.total_out - before);
  return status;
}

// Stored data passes through the buffer like deflate output, on the same
// stream counters, so both methods close the same way.
void copyStored(ZipArchive& archive) {
  z_stream& stream = archive.stream;
  const uInt piece = stream.avail_in < stream.avail_out ? stream.avail_in : stream.avail_out;
  std::memcpy(stream.next_out, stream.next_in, piece);
  stream.next_in += piece;
  stream.avail_in -= piece;
  stream.total_in += piece;
  stream.next_out += piece;
  stream.avail_out -= piece;
  stream.total_out += piece;
  archive.bufferedCount += piece;
}

int finishDeflate(ZipArchive& archive) {
  int status = Z_OK;
  do {
    if (archive.stream.avail_out == 0) {
      if (int written = flushOutput(archive); written != StatusOk) return written;
    }
    status = deflateStep(archive, Z_FINISH);
  } while (status == Z_OK);
  return status == Z_STREAM_END ? StatusOk : status;
}

// Keeps the finished central header and puts CRC and sizes into the local
// header, leaving the file position where the next entry starts.
int recordEntry(ZipArchive& archive, uint64_t crc, uint64_t compressedSize, uint64_t uncompressedSize) {
  if (appendToCentralDirectory(&archive.centralDirectory, archive.centralHeader.get(),
                               archive.centralHeaderSize) != StatusOk) {
    return StatusInternalError;
  }
  ZipFileIO& io = *archive.io;
  const int64_t end = io.tell();
  if (io.seek(archive.localHeaderPosition + LocalCrcOffset, SeekFromStart) != 0) return StatusIoError;
  const int status = writeFields(io, {{crc, 4}, {compressedSize, 4}, {uncompressedSize, 4}});
  if (io.seek(end, SeekFromStart) != 0) return StatusIoError;
  return status;
}

}  // namespace

ZipArchive::ZipArchive() : stream() {}

ZipArchive::~ZipArchive() {
  if (streamInitialised) deflateEnd(&stream);
  if (ownsIO) delete io;
}

bool openForWriting(ZipArchive& archive, const char* path, int append, ZipFileIO* io) {
  // A state used before starts over: its stream, blocks and file object go.
  if (archive.streamInitialised) deflateEnd(&archive.stream);
  archive.streamInitialised = false;
  archive.centralDirectory.clear();
  archive.centralHeader.reset();
  if (archive.ownsIO && archive.io != io) delete archive.io;
  archive.io = io != nullptr ? io : new (std::nothrow) ZipFileIO;
  archive.ownsIO = true;
  if (archive.io == nullptr || !archive.io->open(path, append != 0 ? ModeAppendExisting : ModeCreateNew)) {
    return false;
  }
  archive.beginPosition = archive.io->tell();
  archive.entryOpen = false;
  archive.entryCount = 0;
  archive.isOpen = true;
  return true;
}

int openNewEntry(ZipArchive& archive, const char* name, const ZipEntryInfo* info, const void* localExtra,
                 uint32_t localExtraLength, const void* globalExtra, uint32_t globalExtraLength,
                 const char* comment, int method, int level, const char* sourcePath,
                 const char* linkTarget, int raw) {
  if (!isWritable(archive) || (method != MethodStored && method != MethodDeflated)) return StatusBadParameter;
  if ((localExtra == nullptr && localExtraLength > 0) || (globalExtra == nullptr && globalExtraLength > 0)) {
    return StatusBadParameter;
  }
  if (archive.entryOpen) {
    if (int status = closeEntry(archive, 0, 0); status != StatusOk) return status;
  }
  EntryLayout layout;
  if (int status = layoutEntry(archive, layout, name, comment, localExtraLength, globalExtraLength,
                               sourcePath, linkTarget);
      status != StatusOk) {
    return status;
  }
  archive.dosDate = info == nullptr ? 0 : info->dosDate != 0 ? info->dosDate : dosDateFromTime(info->modified);
  archive.flags = flagsForLevel(level);
  archive.crcSoFar = 0;
  archive.method = method;
  archive.raw = raw;
  archive.bufferedCount = 0;
  archive.centralHeaderSize =
      CentralHeaderSize + layout.nameLength + globalExtraLength + layout.linkBlockLength + layout.commentLength;
  archive.centralHeader.reset(new (std::nothrow) unsigned char[archive.centralHeaderSize]);
  if (!archive.centralHeader) return StatusInternalError;
  buildCentralHeader(archive, layout, info, globalExtra, globalExtraLength, comment);

  const int written = writeLocalHeader(archive, layout, localExtra, localExtraLength);
  resetStream(archive);
  // Raw data arrives compressed already and is copied as it comes.
  const int status = written != StatusOk                         ? written
                     : method == MethodDeflated && raw == 0 ? startDeflate(archive, level)
                                                                : StatusOk;
  if (status != StatusOk) {
    archive.centralHeader.reset();
    return status;
  }
  archive.entryOpen = true;
  return StatusOk;
}

int writeEntryData(ZipArchive& archive, const void* bytes, uint32_t length) {
  if (!isWritable(archive) || !archive.entryOpen) return StatusBadParameter;
  if (length == 0) return StatusOk;
  if (bytes == nullptr) return StatusBadParameter;
  z_stream& stream = archive.stream;
  stream.next_in = static_cast<Bytef*>(const_cast<void*>(bytes));
  stream.avail_in = length;
  archive.crcSoFar = crc32(static_cast<uLong>(archive.crcSoFar), stream.next_in, length);
  while (stream.avail_in > 0) {
    if (stream.avail_out == 0) {
      if (int status = flushOutput(archive); status != StatusOk) return status;
    }
    if (archive.streamInitialised) {
      if (int status = deflateStep(archive, Z_NO_FLUSH); status != Z_OK) return status;
    } else {
      copyStored(archive);
    }
  }
  return StatusOk;
}

int closeEntry(ZipArchive& archive, uint64_t uncompressedSize, uint64_t crc) {
  if (!isWritable(archive) || !archive.entryOpen) return StatusBadParameter;
  z_stream& stream = archive.stream;
  stream.avail_in = 0;
  int status = archive.streamInitialised ? finishDeflate(archive) : StatusOk;
  if (status == StatusOk && archive.bufferedCount > 0) status = flushOutput(archive);
  if (archive.streamInitialised) {
    // The first failure is the one reported: ending a stream cut short fails too.
    const int ended = deflateEnd(&stream);
    if (status == StatusOk) status = ended;
    archive.streamInitialised = false;
  }
  if (archive.raw == 0) {
    crc = archive.crcSoFar;
    uncompressedSize = stream.total_in;
  }
  const uint64_t compressedSize = stream.total_out;
  if (status == StatusOk && (uncompressedSize > Max32BitField || compressedSize > Max32BitField)) {
    status = StatusBadParameter;  // too large for a record without 64-bit extensions
  }
  unsigned char* header = archive.centralHeader.get();
  putFields(header + CentralCrcOffset, {{crc, 4}, {compressedSize, 4}, {uncompressedSize, 4}});
  if (stream.data_type == Z_TEXT) putValue(header + CentralInternalAttributesOffset, TextAttribute, 2);
  if (status == StatusOk) status = recordEntry(archive, crc, compressedSize, uncompressedSize);
  archive.centralHeader.reset();
  archive.centralHeaderSize = 0;
  archive.entryCount += 1;
  archive.entryOpen = false;
  return status;
}

namespace {

// Writes the collected central headers in order and frees them whatever
// happens; `size` is their total even after a failed write.
int writeCentralDirectory(ZipArchive& archive, int status, uint64_t& size) {
  size = 0;
  for (const CentralDirectoryBlock* block = archive.centralDirectory.first; block != nullptr;
       block = block->next) {
    const auto filled = static_cast<int64_t>(block->filled);
    if (status == StatusOk && archive.io->write(block->data, filled) != filled) status = StatusIoError;
    size += block->filled;
  }
  archive.centralDirectory.clear();
  return status;
}

int writeEndRecord(ZipArchive& archive, int64_t start, uint64_t size, const char* comment) {
  const uint64_t commentLength = comment != nullptr ? std::strlen(comment) : 0;
  if (commentLength > Max16BitField || static_cast<uint64_t>(start) > Max32BitField || size > Max32BitField) {
    return StatusBadParameter;
  }
  ZipFileIO& io = *archive.io;
  // The counts are 16-bit fields: beyond 65,535 entries they wrap.
  const int status = writeFields(io, {
      {EndRecordSignature, 4},
      {0, 2},  // this disk
      {0, 2},  // disk where the central directory starts
      {archive.entryCount & Max16BitField, 2},
      {archive.entryCount & Max16BitField, 2},
      {size, 4},
      {static_cast<uint64_t>(start), 4},
      {commentLength, 2},
  });
  if (status != StatusOk) return status;
  const auto length = static_cast<int64_t>(commentLength);
  return length == 0 || io.write(comment, length) == length ? StatusOk : StatusIoError;
}

}  // namespace

int closeForWriting(ZipArchive& archive, const char* comment) {
  if (!isWritable(archive)) return StatusBadParameter;
  int status = archive.entryOpen ? closeEntry(archive, 0, 0) : StatusOk;
  const int64_t start = archive.io->tell();
  if (status == StatusOk && start < 0) status = StatusIoError;
  uint64_t size = 0;
  status = writeCentralDirectory(archive, status, size);
  if (status == StatusOk) status = writeEndRecord(archive, start, size, comment);
  archive.io->close();
  if (archive.ownsIO) {
    delete archive.io;
    archive.io = nullptr;
    archive.ownsIO = false;
  }
  return status;
}

int writeValue(ZipFileIO& io, uint64_t value, int count) {
  unsigned char bytes[sizeof(uint64_t)];
  if (count <= 0 || count > static_cast<int>(sizeof bytes)) return StatusIoError;
  putValue(bytes, value, count);
  return io.write(bytes, count) == count ? StatusOk : StatusIoError;
}

void putValue(unsigned char* destination, uint64_t value, int count) {
  for (int i = 0; i < count; ++i) {
    destination[i] = static_cast<unsigned char>(value & 0xFF);
    value >>= 8;
  }
}

}  // namespace kxzef
