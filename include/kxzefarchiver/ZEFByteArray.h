// An owned byte buffer handed between the library's readers and a host's
// content transform. It frees only what it owns, and only once.
#ifndef KXZEFARCHIVER_ZEFBYTEARRAY_H
#define KXZEFARCHIVER_ZEFBYTEARRAY_H

#include <cstdint>
#include <new>

class ZEFByteArray {
 public:
  // Bytes allocated with new[], or null.
  unsigned char* data = nullptr;
  // Number of valid bytes at `data`.
  uint64_t size = 0;
  // A spare count for a transform's own bookkeeping; the library only sets it
  // to 0 when it clears the array and never reads it.
  uint64_t auxiliaryCount = 0;
  // When set, the array deletes `data` on clear and destruction.
  bool owns = true;

  // A new array is empty and owns what it will hold.
  ZEFByteArray() = default;
  ZEFByteArray(const ZEFByteArray&) = delete;
  ZEFByteArray& operator=(const ZEFByteArray&) = delete;

  virtual ~ZEFByteArray() { release(); }

  // Releases the bytes when the array owns a non-empty block, then leaves it
  // empty and owning: data null, both counts 0.
  virtual void clear() {
    release();
    data = nullptr;
    size = 0;
    auxiliaryCount = 0;
    owns = true;
  }

  // Clears the array and gives it `count` fresh bytes (contents undefined),
  // owned by the array. Returns false, with the array empty, when the
  // allocation fails. Zero bytes leave the array empty and return true.
  bool allocate(uint64_t count) {
    clear();
    if (count == 0) return true;
    data = new (std::nothrow) unsigned char[count];
    if (data == nullptr) return false;
    size = count;
    return true;
  }

 private:
  void release() {
    if (size != 0 && data != nullptr && owns) delete[] data;
  }
};

#endif
