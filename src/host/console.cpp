// The host console: plain standard output.
#include "host/host.h"

#include <cstdio>
#include <cstring>

namespace kxzef::host {

int utPuts(const char* text) {
  if (text == nullptr) return -1;
  if (std::fputs(text, stdout) < 0) return -1;
  return static_cast<int>(std::strlen(text));
}

}  // namespace kxzef::host
