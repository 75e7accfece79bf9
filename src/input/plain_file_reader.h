// The reader of a regular file taken as it is: bytes straight from the
// caller's stream, which it never opens, closes or owns.
#ifndef KXZEF_INPUT_PLAIN_FILE_READER_H
#define KXZEF_INPUT_PLAIN_FILE_READER_H

#include <cstdint>
#include <fstream>

#include "kxzefarchiver/ZEFFileReader.h"

namespace kxzef {

class ZEFFileReaderWithoutTransform : public ZEFFileReader {
 public:
  // `input` stays the caller's. More data is expected only when its file is
  // open and the stream is good.
  explicit ZEFFileReaderWithoutTransform(std::ifstream* input);

  const char* name() override;

  // Reads up to `n` bytes. Returns the count (0 at the end of the file or
  // when the stream had already stopped at its end), or -1 when the stream
  // fails. A file with no bytes at all is refused: the read that finds its
  // end before any byte was delivered sets status -1004 and returns -1.
  // Without a stream: status -1000 and -1.
  int read(char* buf, unsigned n) override;

 private:
  uint64_t delivered_ = 0;  // bytes handed out so far
};

}  // namespace kxzef

#endif
