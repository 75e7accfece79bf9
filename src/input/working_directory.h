// The process's working directory as text, for the path rewrites that are
// relative to it. Never fails: an unreadable directory reads as "".
#ifndef KXZEF_INPUT_WORKING_DIRECTORY_H
#define KXZEF_INPUT_WORKING_DIRECTORY_H

#include <cstddef>
#include <string>

namespace kxzef {

constexpr size_t WorkingDirectoryBufferSize = 8194;

// The working directory as getcwd gives it, or "" when getcwd fails (the
// directory was removed, or its path needs more than 8194 bytes).
std::string currentWorkingDirectory();

}  // namespace kxzef

#endif
