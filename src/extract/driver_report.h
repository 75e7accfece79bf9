// The driver's own way of reporting on the error channel: the reading core's
// failures. Catalogue messages and system errors go through
// messages/message_report.h. Reporting never fails.
#ifndef KXZEF_EXTRACT_DRIVER_REPORT_H
#define KXZEF_EXTRACT_DRIVER_REPORT_H

#include <cstdint>

#include "messages/message_report.h"

namespace kxzef {

// "Error", then `where` the reading core failed (one of the "with zipfile
// in ..." messages).
void reportCoreFailure(uint32_t where);

// As reportCoreFailure, with a blank and the core's `status` written
// between the two messages.
void reportCoreFailure(int status, uint32_t where);

}  // namespace kxzef

#endif
