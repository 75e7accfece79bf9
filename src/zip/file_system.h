// File-system helpers shared by extraction and creation. They keep no state
// and print nothing; results are as documented per function.
#ifndef KXZEF_ZIP_FILE_SYSTEM_H
#define KXZEF_ZIP_FILE_SYSTEM_H

#include <cstdint>

#include "zip/zip_time.h"

namespace kxzef {

// 1 when `path` can be opened for binary reading, else 0. A directory or an
// unreadable file counts as absent.
int fileExists(const char* path);

// The modification time of `path` (links followed) as local broken-down time,
// year counted from 1900. Returns 1 when the path could be examined, else 0
// with the time of second 0 of 1970; "-" (standard input) gives 0 the same
// way. A trailing "/" is ignored; only the first 255 characters are used.
int getFileTime(const char* path, ZipTime& time);

// True when getFileTime(path) would look at `path` itself, so that a stat
// the caller made of it already gives the same time through localFileTime.
bool fileTimeExaminesWholePath(const char* path);

// `seconds` as local broken-down time, as getFileTime gives it.
ZipTime localFileTime(int64_t seconds);

// Sets access and modification time of `path` to `time`, read as local time.
// Errors are ignored. Kept: callers pass the DOS word as well, though the
// time comes from `time` alone.
void setFileTime(const char* path, uint32_t dosDate, ZipTime time);

// The seconds since the epoch that setFileTime gives a file for `time`.
int64_t localTimeSeconds(ZipTime time);

// Creates one directory (mode 0775 less the umask) unless something of that
// name exists already. 0 on success or when it exists, -1 with errno set.
int makeOneDir(const char* path);

// Creates `path` with all its missing parents; "\" counts as "/". 1 on
// success (also when present, even as a plain file), 0 on failure or for an
// empty path. Parents that cannot be examined for lack of permission are
// passed over; the full path must be creatable or present.
int makeDirPath(const char* path);

}  // namespace kxzef

#endif
