// The driver's ways of reporting on the error channel: catalogue messages,
// the reading core's failures and system errors. Reporting never fails.
#ifndef KXZEF_EXTRACT_DRIVER_REPORT_H
#define KXZEF_EXTRACT_DRIVER_REPORT_H

#include <cstdint>

namespace kxzef {

// Catalogue message `message` with up to two text arguments.
void reportError(uint32_t message);
void reportError(uint32_t message, const char* text);
void reportError(uint32_t message, const char* first, const char* second);

// "Error", then `where` the reading core failed (one of the "with zipfile
// in ..." messages).
void reportCoreFailure(uint32_t where);

// As reportCoreFailure, with a blank and the core's `status` written
// between the two messages.
void reportCoreFailure(int status, uint32_t where);

// The system's text for `error`, unless it is 0.
void reportSystemError(int error);

}  // namespace kxzef

#endif
