// Watches every call by which the code under test could change the file
// system, and aborts when one would change anything outside one directory.
// The calls are redirected to these checks at link time (-Wl,--wrap), so
// the library and zef are tested exactly as they are built.
#ifndef KXZEF_FUZZ_WRITE_GUARD_H
#define KXZEF_FUZZ_WRITE_GUARD_H

#include <string>

namespace kxzef::fuzz {

// From now on, a change outside `root` (an absolute path without links)
// aborts the process; an empty text stops watching.
void guardWritesBelow(const std::string& root);

// The path an open descriptor refers to (the working directory for AT_FDCWD).
std::string pathOfDescriptor(int fd);

}  // namespace kxzef::fuzz

#endif
