// Content transforms: the host's objects that rewrite a file's bytes on their
// way into an archive, and the chain that selects one by file extension. The
// library calls a transform but never creates, owns or frees one.
#ifndef KXZEFARCHIVER_ZEFTRANSFORM_H
#define KXZEFARCHIVER_ZEFTRANSFORM_H

#include <string>
#include <utility>
#include <vector>

#include "kxzefarchiver/ZEFByteArray.h"

// Passed by pointer to every transform run. Its meaning is the transform's
// own business; the library only creates one per run and, when `present` is
// set, deletes `pointer` with delete[] when the run is over.
struct ZEFResultHolder {
  bool owns = true;
  char* pointer = nullptr;
  bool present = false;

  ZEFResultHolder() = default;
  ZEFResultHolder(const ZEFResultHolder&) = delete;
  ZEFResultHolder& operator=(const ZEFResultHolder&) = delete;
  ~ZEFResultHolder() {
    if (present && pointer != nullptr) delete[] pointer;
  }
};

// A host's content transform. Derive from it and implement `apply`.
//
// The object's layout is fixed, because hosts that never saw this header
// build transforms too: the first slot of the virtual table is
// `description`, the second `apply`, and the data after the table pointer is
// `acceptEmptyInput`, `acceptEmptyOutput`, `name`. The library calls only
// `apply` and never deletes a transform, so the destructor takes no slot:
// it is protected and not virtual; delete a transform through its own class.
class ZEFTransform {
 public:
  ZEFTransform() = default;
  ZEFTransform(bool acceptEmptyInput, bool acceptEmptyOutput, std::string name)
      : acceptEmptyInput(acceptEmptyInput), acceptEmptyOutput(acceptEmptyOutput), name(std::move(name)) {}

  // For the host's own use (for instance in its diagnostics); the library
  // never calls it. Returns `name` unless overridden.
  virtual const char* description() const { return name.c_str(); }

  // Rewrites the whole of `input` into `output`, which arrives empty and
  // keeps whatever the transform puts in it (allocate with
  // ZEFByteArray::allocate or new[]; the array frees what it owns). `result`
  // is never null. Returns true on success. The library runs a transform at
  // most once per input file and never with an empty input.
  virtual bool apply(const ZEFByteArray& input, ZEFByteArray& output, ZEFResultHolder* result) = 0;

  // When set, an empty input file is stored empty without calling `apply`;
  // when clear, an empty input file is refused.
  bool acceptEmptyInput = false;
  // When set, `apply` may succeed with an empty output; when clear, an empty
  // output counts as a failed transform.
  bool acceptEmptyOutput = false;
  // Appended to the destination name of every entry the transform produced
  // (for example ".gz"); may be empty.
  std::string name;

 protected:
  ~ZEFTransform() = default;
};

// One link of a transform chain. The chain belongs to whoever built it; the
// library only walks it.
struct TransformRule {
  // Lower-case extensions, each with its leading "." (".txt"), compared
  // exactly; null matches nothing.
  std::vector<std::string>* extensions = nullptr;
  // Applied to files whose extension is listed.
  ZEFTransform* transform = nullptr;
  // The next rule, or null at the end of the chain.
  TransformRule* next = nullptr;
};

#endif
