// The textual path canonicaliser behind zefMakePathCanonical. It looks at the
// file system for nothing but the working directory.
#ifndef KXZEF_INPUT_PATH_CANONICAL_H
#define KXZEF_INPUT_PATH_CANONICAL_H

#include <string>

namespace kxzef {

// See zefMakePathCanonical in kxzefarchiver/zefarchiver.h for the rules.
// Reports ZEFARCHIVER_CANNOT_CANONICALIZE_RELATIVE_PATH and returns "" for a
// path that begins with "..".
std::string makePathCanonical(const std::string& path);

}  // namespace kxzef

#endif
