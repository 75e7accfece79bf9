// Streams a regular file through unchanged. An empty file is an error here
// because an entry without content breaks the unpacked application.
#include "input/plain_file_reader.h"

#include <algorithm>
#include <climits>

#include "input/reader_status.h"

namespace kxzef {

ZEFFileReaderWithoutTransform::ZEFFileReaderWithoutTransform(std::ifstream* input)
    : ZEFFileReader(input, input != nullptr && input->is_open() && input->good()) {}

const char* ZEFFileReaderWithoutTransform::name() { return ""; }

int ZEFFileReaderWithoutTransform::read(char* buf, unsigned n) {
  if (input_ == nullptr) {
    status_ = statusNumber(ReaderStatus::NoStream);
    return ReaderReadFailed;
  }
  std::ifstream& input = *input_;
  const std::streamsize wanted = buf == nullptr ? 0 : std::min<std::streamsize>(n, INT_MAX);
  std::streamsize count = 0;
  if (input.good()) {
    input.read(buf, wanted);
    count = input.gcount();
  }
  if (input.eof()) hasMore_ = false;
  if (!input.good() && !input.eof()) return ReaderReadFailed;
  if (count == 0 && wanted > 0 && input.eof() && delivered_ == 0) {
    status_ = statusNumber(ReaderStatus::EmptyInput);
    return ReaderReadFailed;
  }
  delivered_ += static_cast<uint64_t>(count);
  return static_cast<int>(count);
}

}  // namespace kxzef
