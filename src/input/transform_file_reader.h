// The reader of a regular file passed through a host's content transform:
// the whole file is loaded and transformed once, then handed out in pieces.
#ifndef KXZEF_INPUT_TRANSFORM_FILE_READER_H
#define KXZEF_INPUT_TRANSFORM_FILE_READER_H

#include <cstdint>
#include <fstream>

#include "kxzefarchiver/ZEFFileReader.h"
#include "kxzefarchiver/ZEFTransform.h"

namespace kxzef {

class ZEFFileReaderWithTransform : public ZEFFileReader {
 public:
  // Both `input` and `transform` stay the caller's.
  ZEFFileReaderWithTransform(std::ifstream* input, ZEFTransform* transform);

  // The transform's name, which extends the entry's name; "" without one.
  const char* name() override;

  // The first call loads the file and runs the transform; every call then
  // hands out the next bytes of the output. Returns the count (0 once the
  // output is used up), or -1: status -1004 for an empty file the transform
  // does not accept (the transform is not called), -1003 when the transform
  // fails or gives an empty output it does not accept, -1000/-1001 when the
  // stream is missing or unusable, status 0 without a transform. A failed
  // run is retried by the next call; a successful one is never repeated.
  int read(char* buf, unsigned n) override;

  using ZEFFileReader::getContent;
  // The whole output, running the transform with `holder` if it has not run
  // yet. On failure the output returned is empty and the status says why.
  // The reading position is not moved.
  ZEFByteArray* getContent(ZEFResultHolder* holder) override;

 private:
  // Loads the file and runs the transform; true when the output is ready.
  bool runTransform(ZEFResultHolder* holder);

  ZEFTransform* transform_;
  uint64_t position_ = 0;  // next byte of output_ to hand out
  bool transformed_ = false;
  ZEFByteArray output_;
};

}  // namespace kxzef

#endif
