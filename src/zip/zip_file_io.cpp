// ZipFileIO over a binary std::fstream. One file position serves reading and
// writing; every operation is safe on an object that opened nothing.
#include "zip/zip_file_io.h"

#include <cstdio>

namespace kxzef {

namespace {

std::ios_base::openmode streamMode(int mode) {
  if ((mode & (ModeRead | ModeWrite)) == ModeRead) return std::ios::in | std::ios::binary;
  if (mode & ModeExisting) return std::ios::in | std::ios::out | std::ios::binary;
  if (mode & ModeCreate) return std::ios::out | std::ios::trunc | std::ios::binary;
  return std::ios::binary;  // opens nothing
}

std::ios_base::seekdir seekDirection(int origin) {
  if (origin == SeekFromCurrent) return std::ios::cur;
  if (origin == SeekFromEnd) return std::ios::end;
  return std::ios::beg;
}

}  // namespace

bool ZipFileIO::open(const char* path, int mode) {
  if (path == nullptr) return false;
  stream_ = std::make_unique<std::fstream>();
  stream_->open(path, streamMode(mode));
  if (!stream_->is_open()) stream_->setstate(std::ios::failbit);
  if (!stream_->good()) return false;
  stream_->seekg(0);
  stream_->seekp(0);
  return true;
}

int64_t ZipFileIO::read(void* buffer, int64_t count) {
  if (!stream_ || count <= 0) return 0;
  stream_->read(static_cast<char*>(buffer), count);
  if (stream_->bad()) return 0;
  return stream_->gcount();
}

int64_t ZipFileIO::write(const void* buffer, int64_t count) {
  if (!stream_ || count < 0) return 0;
  stream_->write(static_cast<const char*>(buffer), count);
  return stream_->bad() ? 0 : count;
}

int64_t ZipFileIO::tell() {
  if (!stream_) return -1;
  const int64_t get = stream_->tellg();
  if (get != -1) return get;
  return stream_->tellp();
}

int ZipFileIO::seek(int64_t offset, int origin) {
  if (origin != SeekFromStart && origin != SeekFromCurrent && origin != SeekFromEnd) return -1;
  if (!stream_) return 0;
  // A stream in the fail state ignores seeks, so clear before as well as after.
  stream_->clear();
  stream_->seekg(offset, seekDirection(origin));
  stream_->clear();
  return 0;
}

int ZipFileIO::close() {
  if (stream_ && stream_->rdbuf()->close() == nullptr) stream_->setstate(std::ios::failbit);
  return 0;
}

bool ZipFileIO::removeFile(const char* path) {
  if (stream_) close();
  return path != nullptr && std::remove(path) == 0;
}

bool ZipFileIO::hasError() { return !stream_ || !stream_->good(); }

int readByte(ZipFileIO& io, uint64_t& value) {
  unsigned char byte = 0;
  if (io.read(&byte, 1) == 1) {
    value = byte;
    return 0;
  }
  value = 0;
  return io.hasError() ? -1 : 0;
}

namespace {

// `count` bytes, least significant first; 0 and the failing status on a short read.
int readLittleEndianValue(ZipFileIO& io, int count, uint64_t& value) {
  value = 0;
  uint64_t result = 0;
  for (int i = 0; i < count; ++i) {
    uint64_t byte = 0;
    if (int status = readByte(io, byte); status != 0) return status;
    result |= byte << (8 * i);
  }
  value = result;
  return 0;
}

}  // namespace

int readUInt16(ZipFileIO& io, uint64_t& value) { return readLittleEndianValue(io, 2, value); }

int readUInt32(ZipFileIO& io, uint64_t& value) { return readLittleEndianValue(io, 4, value); }

}  // namespace kxzef
