// Finds where the file name starts in an output path, stepping over
// multibyte characters so that a trailing byte equal to "/" or "\" inside
// one is never taken for a separator.
#ifndef KXZEF_EXTRACT_FILE_NAME_PART_H
#define KXZEF_EXTRACT_FILE_NAME_PART_H

#include <cstddef>

namespace kxzef {

// The offset of the byte after the last "/" or "\" of `path` (0 when there
// is none; the length of `path` when it ends in a separator).
size_t findFileNamePart(const char* path);

}  // namespace kxzef

#endif
