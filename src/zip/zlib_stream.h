// Owners of one raw zlib stream each (no zlib header or trailer). A stream is
// set up on first use and can then be kept for a whole archive, reset between
// entries, so that its state is allocated once; destruction frees it.
#ifndef KXZEF_ZIP_ZLIB_STREAM_H
#define KXZEF_ZIP_ZLIB_STREAM_H

#include <zlib.h>

namespace kxzef {

// Both cores ask zlib for raw streams and tell it this version.
constexpr int RawWindowBits = -15;
constexpr char ZlibVersionPassed[] = "1.2.3";
constexpr int DeflateMemoryLevel = 8;

class DeflateStream {
 public:
  DeflateStream() = default;
  ~DeflateStream() { end(); }
  DeflateStream(const DeflateStream&) = delete;
  DeflateStream& operator=(const DeflateStream&) = delete;

  // Readies the stream for new data at `level` (method 8, memory level 8,
  // default strategy): set up on first use or when the level changed, reset
  // otherwise. zlib's status; after a failure the stream is not started.
  int start(int level);

  // Frees the state: deflateEnd's status (Z_DATA_ERROR for a stream cut
  // short), Z_OK when nothing was started.
  int end();

  bool started() const { return started_; }
  z_stream& get() { return stream_; }

 private:
  z_stream stream_{};
  bool started_ = false;
  int level_ = 0;
};

class InflateStream {
 public:
  InflateStream() = default;
  ~InflateStream() { end(); }
  InflateStream(const InflateStream&) = delete;
  InflateStream& operator=(const InflateStream&) = delete;

  // Readies the stream for a new entry: set up on first use, reset after.
  // zlib's status; after a failure the stream is not started, and inflating
  // on it fails with Z_STREAM_ERROR.
  int start();

  // Frees the state; Z_OK when nothing was started.
  int end();

  bool started() const { return started_; }
  z_stream& get() { return stream_; }

 private:
  z_stream stream_{};
  bool started_ = false;
};

}  // namespace kxzef

#endif
