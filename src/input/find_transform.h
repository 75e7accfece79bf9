// Chooses the content transform for a file by the extension of its path.
#ifndef KXZEF_INPUT_FIND_TRANSFORM_H
#define KXZEF_INPUT_FIND_TRANSFORM_H

#include "kxzefarchiver/ZEFTransform.h"

namespace kxzef {

// The extension is everything from the last "." of the whole path on, made
// lower case ("/a.m/f" has ".m/f", "archive.tar.gz" has ".gz"). Returns the
// transform of the first rule from `first` on whose list holds exactly that
// extension; null when the path has no "." or no rule matches. The chain is
// only read.
ZEFTransform* findTransform(const TransformRule* first, const char* fileName);

}  // namespace kxzef

#endif
