// What the source-file readers return and store. The numbers are the ones the
// public ZEFFileReader header documents; the statuses are a type of their own
// so that they cannot be compared with another layer's codes by accident
// (extraction's -1000 means an output file, not a missing input stream).
#ifndef KXZEF_INPUT_READER_STATUS_H
#define KXZEF_INPUT_READER_STATUS_H

#include "kxzefarchiver/ZEFFileReader.h"

namespace kxzef {

// What read() returns instead of a byte count when it fails.
constexpr int ReaderReadFailed = -1;

// A reader's status, as getStatus() and checkInput() give it.
enum class ReaderStatus : int {
  Ok = 0,
  NoStream = -1000,         // no input stream, or its file is not open
  StreamError = -1001,      // the input stream is in an error state
  TransformFailed = -1003,  // failed, or an empty output it does not accept
  EmptyInput = -1004,       // the input has no bytes and that is refused
};

// The number a reader stores and hands out for `status`.
constexpr int statusNumber(ReaderStatus status) { return static_cast<int>(status); }

// `reader`'s current status.
inline ReaderStatus statusOf(ZEFFileReader& reader) { return static_cast<ReaderStatus>(reader.getStatus()); }

}  // namespace kxzef

#endif
