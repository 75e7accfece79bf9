// Status values of the source-file readers, beside the ZIP cores' codes.
#ifndef KXZEF_INPUT_READER_STATUS_H
#define KXZEF_INPUT_READER_STATUS_H

namespace kxzef {

constexpr int ReaderOk = 0;
constexpr int ReaderReadFailed = -1;          // result of a read that failed
constexpr int ReaderNoStream = -1000;         // no input stream, or its file is not open
constexpr int ReaderStreamError = -1001;      // the input stream is in an error state
constexpr int ReaderTransformFailed = -1003;  // failed, or an empty output it does not accept
constexpr int ReaderEmptyInput = -1004;       // the input has no bytes and that is refused

}  // namespace kxzef

#endif
