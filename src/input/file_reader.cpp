// The operations every source-file reader shares, above all the whole-file
// load, which must leave the stream where the next read expects it.
#include "kxzefarchiver/ZEFFileReader.h"

#include "input/reader_status.h"

using kxzef::ReaderStatus;
using kxzef::statusNumber;

ZEFFileReader::ZEFFileReader(std::ifstream* input, bool hasMore) : input_(input), hasMore_(hasMore) {}

ZEFFileReader::~ZEFFileReader() = default;

int ZEFFileReader::readFresh(char* buf, unsigned n) {
  status_ = statusNumber(ReaderStatus::Ok);
  return read(buf, n);
}

ZEFByteArray* ZEFFileReader::getContent() {
  ZEFResultHolder holder;
  return getContent(&holder);
}

ZEFByteArray* ZEFFileReader::getContent(ZEFResultHolder*) { return loadWholeFile(); }

bool ZEFFileReader::hasMore() { return hasMore_; }

int ZEFFileReader::getStatus() { return status_; }

bool ZEFFileReader::isOk() { return status_ == statusNumber(ReaderStatus::Ok); }

int ZEFFileReader::checkInput() {
  if (input_ == nullptr || !input_->is_open()) return statusNumber(ReaderStatus::NoStream);
  if (!input_->good()) return statusNumber(ReaderStatus::StreamError);
  return statusNumber(ReaderStatus::Ok);
}

ZEFByteArray* ZEFFileReader::loadWholeFile() {
  status_ = statusNumber(ReaderStatus::Ok);
  content_.clear();
  if (checkInput() != statusNumber(ReaderStatus::Ok)) return &content_;
  std::ifstream& input = *input_;
  const std::streampos resume = input.tellg();
  input.seekg(0, std::ios::end);
  const std::streamoff size = input.tellg();
  input.seekg(0, std::ios::beg);
  if (resume < 0 || size < 0 || !input.good() || !content_.allocate(static_cast<uint64_t>(size))) {
    // Whatever went wrong, the next read must still start where it would have.
    content_.clear();
    input.clear();
    input.seekg(resume < 0 ? std::streampos(0) : resume);
    return &content_;
  }
  if (size > 0) {
    input.read(reinterpret_cast<char*>(content_.data), size);
    // A file that shrank meanwhile yields what could be read; an array whose
    // size dropped to 0 would no longer free its block, so clear it instead.
    const uint64_t obtained = static_cast<uint64_t>(input.gcount());
    if (obtained == 0) content_.clear();
    else content_.size = obtained;
  }
  input.clear();
  input.seekg(resume);
  return &content_;
}
