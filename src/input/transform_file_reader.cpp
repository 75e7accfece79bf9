// Runs a host's transform over a whole file, at most once successfully, and
// serves the result. The host's output array is trusted only up to its size.
#include "input/transform_file_reader.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "input/reader_status.h"

// A host's transform is promised only its layout, not that its class
// derives from ZEFTransform; the sanitizer's dynamic-type check would refuse
// such an object, so the code that touches one is exempt from that check.
#define KXZEF_HOST_LAID_OUT __attribute__((no_sanitize("vptr")))

namespace kxzef {

ZEFFileReaderWithTransform::ZEFFileReaderWithTransform(std::ifstream* input, ZEFTransform* transform)
    : ZEFFileReader(input, false), transform_(transform) {}

KXZEF_HOST_LAID_OUT const char* ZEFFileReaderWithTransform::name() {
  return transform_ == nullptr ? "" : transform_->name.c_str();
}

KXZEF_HOST_LAID_OUT bool ZEFFileReaderWithTransform::runTransform(ZEFResultHolder* holder) {
  output_.clear();
  content_.clear();
  // An unusable stream would otherwise pass for an empty file.
  if (const int input = checkInput(); input != statusNumber(ReaderStatus::Ok)) {
    status_ = input;
    return false;
  }
  loadWholeFile();
  if (content_.size == 0) {
    if (!transform_->acceptEmptyInput) {
      status_ = statusNumber(ReaderStatus::EmptyInput);
      return false;
    }
    transformed_ = true;
    return true;
  }
  status_ = statusNumber(ReaderStatus::TransformFailed);
  if (!transform_->apply(content_, output_, holder)) return false;
  if (output_.size == 0 && !transform_->acceptEmptyOutput) return false;
  hasMore_ = output_.size != 0;
  status_ = statusNumber(ReaderStatus::Ok);
  transformed_ = true;
  return true;
}

int ZEFFileReaderWithTransform::read(char* buf, unsigned n) {
  status_ = statusNumber(ReaderStatus::Ok);
  if (!transformed_) {
    if (transform_ == nullptr) return ReaderReadFailed;
    ZEFResultHolder holder;
    if (!runTransform(&holder)) return ReaderReadFailed;
  }
  uint64_t count = 0;
  if (hasMore_ && buf != nullptr && position_ < output_.size) {
    count = std::min<uint64_t>({n, INT_MAX, output_.size - position_});
    std::memcpy(buf, output_.data + position_, count);
    position_ += count;
  }
  hasMore_ = position_ < output_.size;
  return static_cast<int>(count);
}

ZEFByteArray* ZEFFileReaderWithTransform::getContent(ZEFResultHolder* holder) {
  if (transformed_) return &output_;
  if (transform_ != nullptr && runTransform(holder)) return &output_;
  if (transform_ == nullptr) status_ = statusNumber(ReaderStatus::TransformFailed);
  output_.clear();
  return &output_;
}

}  // namespace kxzef
