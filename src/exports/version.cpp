// The version globals; KXZEF_VERSION comes from the build.
#include "kxzefarchiver/zefarchiver.h"

const char* libkxzefarchiver_version = KXZEF_VERSION;
const char* libkxzefarchiver_build_date = __DATE__;
