// Reporting helpers of the extraction driver; all text goes to the error
// channel through the catalogue.
#include "extract/driver_report.h"

#include <ostream>

#include "messages/channels.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {

void reportCoreFailure(uint32_t where) {
  reportError(UNZIPDRIVER_ERROR);
  reportError(where);
}

void reportCoreFailure(int status, uint32_t where) {
  reportError(UNZIPDRIVER_ERROR);
  getErrorStream() << ' ' << status;
  reportError(where);
}

}  // namespace kxzef
