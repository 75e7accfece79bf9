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

// What both owners share: the stream, whether zlib set it up, and freeing it
// once. `End` is deflateEnd or inflateEnd.
template <int (*End)(z_streamp)>
class ZlibStream {
 public:
  ZlibStream() = default;
  ~ZlibStream() { end(); }
  ZlibStream(const ZlibStream&) = delete;
  ZlibStream& operator=(const ZlibStream&) = delete;

  // Frees the state: End's status (deflateEnd gives Z_DATA_ERROR for a
  // stream cut short), Z_OK when nothing was started.
  int end() {
    if (!started_) return Z_OK;
    started_ = false;
    return End(&stream_);
  }

  bool started() const { return started_; }
  z_stream& get() { return stream_; }

 protected:
  z_stream stream_{};
  bool started_ = false;
};

class DeflateStream : public ZlibStream<deflateEnd> {
 public:
  // Readies the stream for new data at `level` (method 8, memory level 8,
  // default strategy): set up on first use or when the level changed, reset
  // otherwise. zlib's status; after a failure the stream is not started.
  int start(int level);

 private:
  int level_ = 0;
};

class InflateStream : public ZlibStream<inflateEnd> {
 public:
  // Readies the stream for a new entry: set up on first use, reset after.
  // zlib's status; after a failure the stream is not started, and inflating
  // on it fails with Z_STREAM_ERROR.
  int start();
};

}  // namespace kxzef

#endif
