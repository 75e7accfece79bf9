// The zlib stream owners. zlib documents a reset as equivalent to ending and
// setting up again, so a reused stream gives the same bytes as a fresh one.
#include "zip/zlib_stream.h"

#include <zlib.h>

namespace kxzef {

int DeflateStream::start(int level) {
  if (started_ && level == level_) return deflateReset(&stream_);
  end();
  stream_ = z_stream{};  // default allocator, no leftovers of an earlier stream
  const int status = deflateInit2_(&stream_, level, Z_DEFLATED, RawWindowBits, DeflateMemoryLevel,
                                   Z_DEFAULT_STRATEGY, ZlibVersionPassed, static_cast<int>(sizeof(z_stream)));
  started_ = status == Z_OK;
  level_ = level;
  return status;
}

int InflateStream::start() {
  if (started_) return inflateReset(&stream_);
  stream_ = z_stream{};
  const int status = inflateInit2_(&stream_, RawWindowBits, ZlibVersionPassed, static_cast<int>(sizeof(z_stream)));
  started_ = status == Z_OK;
  return status;
}

}  // namespace kxzef
