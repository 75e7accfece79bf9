// A byte buffer that only grows, so that one kept per thread serves every
// entry without allocating again once the largest has been seen. Its size is
// always checked against a budget by its user before it is asked to grow.
#ifndef KXZEF_WHOLE_WHOLE_BUFFER_H
#define KXZEF_WHOLE_WHOLE_BUFFER_H

#include <cstddef>
#include <memory>
#include <new>

namespace kxzef {

// The largest entry deflated or inflated in one call: its input and its
// output are held in memory whole, once per thread. Larger entries stream
// through zlib. bench/README.md says how it was chosen.
constexpr size_t WholeEntryBudget = size_t{8} << 20;

class WholeBuffer {
 public:
  // Makes room for at least `size` bytes; what the buffer held is lost when
  // it grows. False when the memory cannot be had (the buffer is then empty).
  bool reserve(size_t size) {
    if (size <= capacity_) return true;
    bytes_.reset(new (std::nothrow) unsigned char[size]);
    capacity_ = bytes_ ? size : 0;
    return bytes_ != nullptr;
  }
  unsigned char* data() { return bytes_.get(); }
  size_t capacity() const { return capacity_; }

 private:
  std::unique_ptr<unsigned char[]> bytes_;
  size_t capacity_ = 0;
};

}  // namespace kxzef

#endif
