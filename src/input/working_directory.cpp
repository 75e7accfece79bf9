// Reads the working directory once per call; a failure is an empty answer,
// never an unterminated buffer.
#include "input/working_directory.h"

#include <unistd.h>

namespace kxzef {

std::string currentWorkingDirectory() {
  char buffer[WorkingDirectoryBufferSize];
  if (getcwd(buffer, sizeof buffer) == nullptr) return std::string();
  return std::string(buffer);
}

}  // namespace kxzef
