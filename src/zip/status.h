// Status codes of the ZIP cores. zlib's own negative codes pass through
// unchanged beside these. The layers above return the same numbers under these
// same names: -1 there is any failed file operation, and where -102 means a
// refusal rather than a bad parameter, the use site says so.
#ifndef KXZEF_ZIP_STATUS_H
#define KXZEF_ZIP_STATUS_H

namespace kxzef {

constexpr int StatusOk = 0;               // success; also the end of data from a read
constexpr int StatusIoError = -1;         // a seek, read or write failed, or the file ended early
constexpr int StatusEndOfList = -100;     // no current entry, or none after the last
constexpr int StatusBadParameter = -102;  // not open, null argument, name too long, no entry open
constexpr int StatusBadArchive = -103;    // a signature or consistency check failed
constexpr int StatusInternalError = -104; // memory could not be allocated
constexpr int StatusCrcError = -105;      // a fully read entry's CRC-32 differs from the recorded one

}  // namespace kxzef

#endif
