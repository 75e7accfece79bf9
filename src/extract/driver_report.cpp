// Reporting helpers of the extraction driver; all text goes to the error
// channel through the catalogue.
#include "extract/driver_report.h"

#include <cstring>
#include <ostream>

#include "messages/channels.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {

void reportError(uint32_t message) { reportMessage(getMessageContext(), getErrorStream(), message); }

void reportError(uint32_t message, const char* text) {
  reportMessage(getMessageContext(), getErrorStream(), message, text);
}

void reportError(uint32_t message, const char* first, const char* second) {
  reportMessage(getMessageContext(), getErrorStream(), message, first, second);
}

void reportCoreFailure(uint32_t where) {
  reportError(UNZIPDRIVER_ERROR);
  reportError(where);
}

void reportCoreFailure(int status, uint32_t where) {
  reportError(UNZIPDRIVER_ERROR);
  getErrorStream() << ' ' << status;
  reportError(where);
}

void reportSystemError(int error) {
  if (error != 0) reportError(ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT, std::strerror(error));
}

}  // namespace kxzef
