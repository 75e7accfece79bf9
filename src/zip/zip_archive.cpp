// The ZIP writing core: one entry at a time, its local header and data
// stored or raw-deflated through one 16 KiB buffer, the header patched in the
// buffer (or in the file, for an entry larger than the buffer) afterwards.
// It reports by status only and never prints; the caller removes a failed archive.
#include "zip/zip_archive.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <new>
#include <string>
#include <utility>

#include <zlib.h>

namespace kxzef {

// What openNewEntry works out before it writes anything.
struct ZipArchive::EntryLayout {
  const char* name = nullptr;
  uint64_t nameLength = 0;
  uint64_t commentLength = 0;
  std::unique_ptr<unsigned char[]> linkBlock;
  uint64_t linkBlockLength = 0;
};

namespace {

// The central header buffer starts with room for most entries and doubles,
// so that names growing from entry to entry do not allocate each time.
constexpr uint64_t MinCentralHeaderCapacity = 1024;

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

// The general-purpose flag bits 1-2 that hint at the compression level.
uint64_t flagsForLevel(int level) {
  if (level == 8 || level == 9) return FlagLevelMaximum;
  if (level == 2) return FlagLevelFast;
  if (level == 1) return FlagLevelFastest;
  return 0;
}

// The target to record for a symbolic link: the caller's text when given,
// else what the source path points to; empty for anything but a link.
std::string linkTargetOf(const char* sourcePath, const char* linkTarget) {
  if (sourcePath == nullptr) return {};
  if (linkTarget != nullptr && linkTarget[0] != '\0') return linkTarget;
  char target[LinkTargetLimit];
  const ssize_t length = readlink(sourcePath, target, sizeof target);
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

// The Unix extra block: tag, a length that counts the block's own header,
// 12 bytes of zeroed times and ids, then the target without a terminator.
int makeLinkBlock(const std::string& target, std::unique_ptr<unsigned char[]>& block, uint64_t& length) {
  if (target.empty()) return StatusOk;
  length = target.size() + UnixExtraHeaderSize;
  if (length > Max16BitField) return StatusBadParameter;
  block.reset(new (std::nothrow) unsigned char[length]);
  if (!block) return StatusInternalError;
  std::memset(block.get(), 0, UnixExtraHeaderSize);
  putField(block.get(), UnixExtraTagField, UnixExtraTag);
  putField(block.get(), UnixExtraLengthField, length);
  std::memcpy(block.get() + UnixExtraHeaderSize, target.data(), target.size());
  return StatusOk;
}

// What the local and the central header both record of an entry.
struct SharedFields {
  uint64_t flags;
  uint64_t method;
  uint64_t dosDate;
  uint64_t nameLength;
  uint64_t extraLength;
};

// Puts the shared fields at the offsets of `Header`, with CRC and sizes 0.
template <typename Header>
void putSharedFields(unsigned char* record, const SharedFields& fields) {
  putField(record, Header::VersionNeeded, VersionNeeded20);
  putField(record, Header::Flags, fields.flags);
  putField(record, Header::Method, fields.method);
  putField(record, Header::DosDate, fields.dosDate);
  putField(record, Header::Crc, 0);
  putField(record, Header::CompressedSize, 0);
  putField(record, Header::UncompressedSize, 0);
  putField(record, Header::NameLength, fields.nameLength);
  putField(record, Header::ExtraLength, fields.extraLength);
}

// Copies `length` bytes to `at` and returns the position after them.
unsigned char* append(unsigned char* at, const void* bytes, uint64_t length) {
  if (length > 0) std::memcpy(at, bytes, length);
  return at + length;
}

}  // namespace

ZipArchive::ZipArchive() = default;

ZipArchive::~ZipArchive() = default;

bool ZipArchive::openForWriting(const char* path, int append, std::unique_ptr<ZipFileIO> io) {
  // A state used before starts over: its stream, blocks and file object go.
  deflater_.end();
  centralDirectory_.clear();
  io_ = io ? std::move(io) : std::unique_ptr<ZipFileIO>(new (std::nothrow) ZipFileIO());
  if (!io_ || !io_->open(path, append != 0 ? ModeAppendExisting : ModeCreateNew)) return false;
  beginPosition_ = io_->tell();
  filePosition_ = beginPosition_;
  bufferedCount_ = 0;
  headerBuffered_ = false;
  entryOpen_ = false;
  entryCount_ = 0;
  isOpen_ = true;
  return true;
}

int ZipArchive::layoutEntry(EntryLayout& layout, const char* name, const char* comment, uint32_t localExtraLength,
                            uint32_t globalExtraLength, const char* sourcePath, const char* linkTarget) {
  // Refuses what the record fields (16 bits for lengths, 32 for offsets) cannot hold.
  layout.name = name != nullptr ? name : "-";
  layout.nameLength = std::strlen(layout.name);
  layout.commentLength = comment != nullptr ? std::strlen(comment) : 0;
  if (int status = makeLinkBlock(linkTargetOf(sourcePath, linkTarget), layout.linkBlock, layout.linkBlockLength);
      status != StatusOk) {
    return status;
  }
  // After a failed write the file's position is unknown: nothing more goes in.
  if (io_->hasError()) return StatusIoError;
  const int64_t position = filePosition_;
  localHeaderPosition_ = position;
  const bool fits = layout.nameLength <= Max16BitField && layout.commentLength <= Max16BitField &&
                    localExtraLength + layout.linkBlockLength <= Max16BitField &&
                    globalExtraLength + layout.linkBlockLength <= Max16BitField &&
                    static_cast<uint64_t>(position) <= Max32BitField;
  return fits ? StatusOk : StatusBadParameter;
}

void ZipArchive::buildCentralHeader(const EntryLayout& layout, const ZipEntryInfo* info, const void* globalExtra,
                                    uint32_t globalExtraLength, const char* comment) {
  unsigned char* header = centralHeader_.get();
  putField(header, CentralHeader::Signature, CentralHeaderSignature);
  putField(header, CentralHeader::VersionMadeBy, VersionMadeByUnix20);
  // CRC and sizes are settled at close.
  putSharedFields<CentralHeader>(header, {flags_, static_cast<uint64_t>(method_), dosDate_, layout.nameLength,
                                          globalExtraLength + layout.linkBlockLength});
  putField(header, CentralHeader::CommentLength, layout.commentLength);
  putField(header, CentralHeader::DiskNumberStart, 0);
  putField(header, CentralHeader::InternalAttributes, info != nullptr ? info->internalAttributes : 0);
  putField(header, CentralHeader::ExternalAttributes, info != nullptr ? info->externalAttributes : 0);
  putField(header, CentralHeader::LocalHeaderOffset, static_cast<uint64_t>(localHeaderPosition_));
  unsigned char* at = append(header + CentralHeaderSize, layout.name, layout.nameLength);
  at = append(at, globalExtra, globalExtraLength);
  at = append(at, layout.linkBlock.get(), layout.linkBlockLength);
  append(at, comment, layout.commentLength);
}

int ZipArchive::reserveCentralHeader(uint64_t size) {
  centralHeaderSize_ = size;
  if (size <= centralHeaderCapacity_) return StatusOk;
  uint64_t capacity = centralHeaderCapacity_ * 2;
  if (capacity < MinCentralHeaderCapacity) capacity = MinCentralHeaderCapacity;
  if (capacity < size) capacity = size;
  centralHeader_.reset(new (std::nothrow) unsigned char[capacity]);
  centralHeaderCapacity_ = centralHeader_ ? capacity : 0;
  return centralHeader_ ? StatusOk : StatusInternalError;
}

int ZipArchive::bufferLocalHeader(const EntryLayout& layout, const void* localExtra, uint32_t localExtraLength) {
  // The header goes first into the empty buffer, so that closeEntry finds it
  // at the start as long as nothing was flushed.
  unsigned char* header = outputBuffer_;
  putField(header, LocalHeader::Signature, LocalHeaderSignature);
  // CRC and sizes are patched at close.
  putSharedFields<LocalHeader>(header, {flags_, static_cast<uint64_t>(method_), dosDate_, layout.nameLength,
                                        localExtraLength + layout.linkBlockLength});
  bufferedCount_ = LocalHeaderSize;
  headerBuffered_ = true;
  if (int status = bufferBytes(layout.name, layout.nameLength); status != StatusOk) return status;
  if (int status = bufferBytes(localExtra, localExtraLength); status != StatusOk) return status;
  return bufferBytes(layout.linkBlock.get(), layout.linkBlockLength);
}

int ZipArchive::bufferBytes(const void* bytes, uint64_t length) {
  const auto* from = static_cast<const unsigned char*>(bytes);
  while (length > 0) {
    if (bufferedCount_ == WriteBufferSize) {
      if (int status = flushOutput(); status != StatusOk) return status;
    }
    const uint64_t space = WriteBufferSize - bufferedCount_;
    const uint64_t piece = length < space ? length : space;
    std::memcpy(outputBuffer_ + bufferedCount_, from, piece);
    bufferedCount_ += static_cast<uint32_t>(piece);
    from += piece;
    length -= piece;
  }
  return StatusOk;
}

void ZipArchive::resetEntry(const ZipEntryInfo* info, int method, int level, int raw) {
  dosDate_ = info == nullptr ? 0 : info->dosDate != 0 ? info->dosDate : dosDateFromTime(info->modified);
  flags_ = flagsForLevel(level);
  crcSoFar_ = 0;
  method_ = method;
  raw_ = raw;
  deflating_ = false;
  entryIn_ = 0;
  entryOut_ = 0;
  inputLeft_ = 0;
  bufferedCount_ = 0;  // what a failed entry left behind is dropped
  headerBuffered_ = false;
}

int ZipArchive::openNewEntry(const char* name, const ZipEntryInfo* info, const void* localExtra,
                             uint32_t localExtraLength, const void* globalExtra, uint32_t globalExtraLength,
                             const char* comment, int method, int level, const char* sourcePath,
                             const char* linkTarget, int raw) {
  if (!writable() || (method != MethodStored && method != MethodDeflated)) return StatusBadParameter;
  if ((localExtra == nullptr && localExtraLength > 0) || (globalExtra == nullptr && globalExtraLength > 0)) {
    return StatusBadParameter;
  }
  if (entryOpen_) {
    if (int status = closeEntry(0, 0); status != StatusOk) return status;
  }
  EntryLayout layout;
  if (int status = layoutEntry(layout, name, comment, localExtraLength, globalExtraLength, sourcePath, linkTarget);
      status != StatusOk) {
    return status;
  }
  resetEntry(info, method, level, raw);
  if (int status = reserveCentralHeader(CentralHeaderSize + layout.nameLength + globalExtraLength +
                                        layout.linkBlockLength + layout.commentLength);
      status != StatusOk) {
    return status;
  }
  buildCentralHeader(layout, info, globalExtra, globalExtraLength, comment);
  if (int status = bufferLocalHeader(layout, localExtra, localExtraLength); status != StatusOk) return status;
  // Raw data arrives compressed already and is copied as it comes.
  if (method == MethodDeflated && raw == 0) {
    if (int status = deflater_.start(level); status != Z_OK) {
      // The header of an entry that never opened still reaches the file.
      return flushOutput() == StatusOk ? status : StatusIoError;
    }
    deflating_ = true;
  }
  entryOpen_ = true;
  return StatusOk;
}

int ZipArchive::flushOutput() {
  // Writes the buffered output and makes the whole buffer free again.
  const int64_t count = bufferedCount_;
  const bool written = io_->write(outputBuffer_, count) == count;
  if (written) filePosition_ += count;
  bufferedCount_ = 0;
  headerBuffered_ = false;
  return written ? StatusOk : StatusIoError;
}

int ZipArchive::deflateStep(int flush) {
  // Runs deflate once on the input left, into the free part of the buffer.
  z_stream& stream = deflater_.get();
  const uInt space = static_cast<uInt>(WriteBufferSize - bufferedCount_);
  stream.next_in = const_cast<Bytef*>(input_);
  stream.avail_in = inputLeft_;
  stream.next_out = outputBuffer_ + bufferedCount_;
  stream.avail_out = space;
  const int status = deflate(&stream, flush);
  entryIn_ += inputLeft_ - stream.avail_in;
  input_ = stream.next_in;
  inputLeft_ = stream.avail_in;
  bufferedCount_ += space - stream.avail_out;
  entryOut_ += space - stream.avail_out;
  return status;
}

void ZipArchive::copyStored() {
  // Stored data passes through the buffer like deflate output, on the same
  // counters, so both methods close the same way.
  const uint32_t space = static_cast<uint32_t>(WriteBufferSize - bufferedCount_);
  const uint32_t piece = inputLeft_ < space ? inputLeft_ : space;
  std::memcpy(outputBuffer_ + bufferedCount_, input_, piece);
  input_ += piece;
  inputLeft_ -= piece;
  entryIn_ += piece;
  bufferedCount_ += piece;
  entryOut_ += piece;
}

int ZipArchive::writeEntryData(const void* bytes, uint32_t length) {
  if (!writable() || !entryOpen_) return StatusBadParameter;
  if (length == 0) return StatusOk;
  if (bytes == nullptr) return StatusBadParameter;
  input_ = static_cast<const unsigned char*>(bytes);
  inputLeft_ = length;
  crcSoFar_ = crc32(static_cast<uLong>(crcSoFar_), input_, length);
  while (inputLeft_ > 0) {
    if (bufferedCount_ == WriteBufferSize) {
      if (int status = flushOutput(); status != StatusOk) return status;
    }
    if (deflating_) {
      if (int status = deflateStep(Z_NO_FLUSH); status != Z_OK) return status;
    } else {
      copyStored();
    }
  }
  return StatusOk;
}

int ZipArchive::finishDeflate() {
  int status = Z_OK;
  do {
    if (bufferedCount_ == WriteBufferSize) {
      if (int written = flushOutput(); written != StatusOk) return written;
    }
    status = deflateStep(Z_FINISH);
  } while (status == Z_OK);
  return status == Z_STREAM_END ? StatusOk : status;
}

int ZipArchive::recordEntry(bool headerPatched, uint64_t crc, uint64_t compressedSize, uint64_t uncompressedSize) {
  // Keeps the finished central header and, unless that was done in the
  // buffer, puts CRC and sizes into the local header in the file, leaving the
  // file position where the next entry starts.
  if (appendToCentralDirectory(&centralDirectory_, centralHeader_.get(), centralHeaderSize_) != StatusOk) {
    return StatusInternalError;
  }
  if (headerPatched) return StatusOk;
  if (io_->seek(localHeaderPosition_ + static_cast<int64_t>(LocalHeader::Crc.offset), SeekFromStart) != 0) {
    return StatusIoError;
  }
  const int status = writeFields(*io_, {{crc, 4}, {compressedSize, 4}, {uncompressedSize, 4}});
  if (io_->seek(filePosition_, SeekFromStart) != 0) return StatusIoError;
  return status;
}

int ZipArchive::closeEntry(uint64_t uncompressedSize, uint64_t crc) {
  if (!writable() || !entryOpen_) return StatusBadParameter;
  inputLeft_ = 0;
  // The deflate stream stays set up for the next entry, which resets it.
  int status = deflating_ ? finishDeflate() : StatusOk;
  if (raw_ == 0) {
    crc = crcSoFar_;
    uncompressedSize = entryIn_;
  }
  const uint64_t compressedSize = entryOut_;
  const bool fits = uncompressedSize <= Max32BitField && compressedSize <= Max32BitField;
  // Nothing flushed since the header went in: it is patched where it waits.
  const bool headerPatched = status == StatusOk && headerBuffered_ && fits;
  if (headerPatched) {
    putField(outputBuffer_, LocalHeader::Crc, crc);
    putField(outputBuffer_, LocalHeader::CompressedSize, compressedSize);
    putField(outputBuffer_, LocalHeader::UncompressedSize, uncompressedSize);
  }
  if (status == StatusOk && bufferedCount_ > 0) status = flushOutput();
  if (status == StatusOk && !fits) status = StatusBadParameter;  // no 64-bit extensions to hold it
  unsigned char* header = centralHeader_.get();
  putField(header, CentralHeader::Crc, crc);
  putField(header, CentralHeader::CompressedSize, compressedSize);
  putField(header, CentralHeader::UncompressedSize, uncompressedSize);
  if (deflating_ && deflater_.get().data_type == Z_TEXT) {
    putField(header, CentralHeader::InternalAttributes, TextAttribute);
  }
  if (status == StatusOk) status = recordEntry(headerPatched, crc, compressedSize, uncompressedSize);
  centralHeaderSize_ = 0;
  entryCount_ += 1;
  entryOpen_ = false;
  return status;
}

int ZipArchive::writeCentralDirectory(int status, uint64_t& size) {
  // Writes the collected central headers in order and frees them whatever
  // happens; `size` is their total even after a failed write.
  size = 0;
  for (const CentralDirectoryBlock* block = centralDirectory_.first; block != nullptr; block = block->next) {
    const auto filled = static_cast<int64_t>(block->filled);
    if (status == StatusOk && io_->write(block->data, filled) != filled) status = StatusIoError;
    size += block->filled;
  }
  centralDirectory_.clear();
  return status;
}

int ZipArchive::writeEndRecord(int64_t start, uint64_t size, const char* comment) {
  const uint64_t commentLength = comment != nullptr ? std::strlen(comment) : 0;
  if (commentLength > Max16BitField || static_cast<uint64_t>(start) > Max32BitField || size > Max32BitField) {
    return StatusBadParameter;
  }
  // The counts are 16-bit fields: beyond 65,535 entries they wrap.
  const int status = writeFields(*io_, {
      {EndRecordSignature, 4},
      {0, 2},  // this disk
      {0, 2},  // disk where the central directory starts
      {entryCount_ & Max16BitField, 2},
      {entryCount_ & Max16BitField, 2},
      {size, 4},
      {static_cast<uint64_t>(start), 4},
      {commentLength, 2},
  });
  if (status != StatusOk) return status;
  const auto length = static_cast<int64_t>(commentLength);
  return length == 0 || io_->write(comment, length) == length ? StatusOk : StatusIoError;
}

int ZipArchive::closeForWriting(const char* comment) {
  if (!writable()) return StatusBadParameter;
  int status = entryOpen_ ? closeEntry(0, 0) : StatusOk;
  const int64_t start = io_->tell();
  if (status == StatusOk && start < 0) status = StatusIoError;
  uint64_t size = 0;
  status = writeCentralDirectory(status, size);
  if (status == StatusOk) status = writeEndRecord(start, size, comment);
  io_->close();
  io_.reset();
  return status;
}

int writeValue(ZipFileIO& io, uint64_t value, int count) {
  unsigned char bytes[sizeof(uint64_t)];
  if (count <= 0 || count > static_cast<int>(sizeof bytes)) return StatusIoError;
  putValue(bytes, value, count);
  return io.write(bytes, count) == count ? StatusOk : StatusIoError;
}

}  // namespace kxzef
