// The one export macro of the library. The shared library is built with
// hidden default visibility; only declarations marked here are visible.
#ifndef KXZEFARCHIVER_EXPORT_H
#define KXZEFARCHIVER_EXPORT_H

#define KXZEF_EXPORT __attribute__((visibility("default")))

#endif
