// Status names for test failure messages; only statuses the ZIP cores and
// zlib define are named, anything else prints as a number.
#include "support/status_names.h"

#include <zlib.h>

#include "zip/status.h"

namespace kxzef::testing {

std::string describeStatus(int status) {
  const char* name = nullptr;
  switch (status) {
    case StatusOk: name = "StatusOk"; break;
    case StatusIoError: name = "StatusIoError"; break;
    case StatusEndOfList: name = "StatusEndOfList"; break;
    case StatusBadParameter: name = "StatusBadParameter"; break;
    case StatusBadArchive: name = "StatusBadArchive"; break;
    case StatusInternalError: name = "StatusInternalError"; break;
    case StatusCrcError: name = "StatusCrcError"; break;
    case Z_STREAM_ERROR: name = "Z_STREAM_ERROR"; break;
    case Z_DATA_ERROR: name = "Z_DATA_ERROR"; break;
    case Z_MEM_ERROR: name = "Z_MEM_ERROR"; break;
    case Z_BUF_ERROR: name = "Z_BUF_ERROR"; break;
    default: name = status > 0 ? "count" : "unknown status"; break;
  }
  return std::string(name) + " (" + std::to_string(status) + ")";
}

}  // namespace kxzef::testing
