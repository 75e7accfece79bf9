// The separator scan of extraction, in the host's multibyte stepping.
#include "extract/file_name_part.h"

#include "host/host.h"

namespace kxzef {

size_t findFileNamePart(const char* path) {
  const bool multiByte = host::utIsMultiByteCharSet();
  const char* fileName = path;
  for (const char* p = path; *p != '\0';) {
    if (multiByte && host::utIsMultiByteLeadEx(p)) {
      p = host::utMultiByteNextChar(p);
      continue;
    }
    if (*p == '/' || *p == '\\') fileName = p + 1;
    ++p;
  }
  return static_cast<size_t>(fileName - path);
}

}  // namespace kxzef
