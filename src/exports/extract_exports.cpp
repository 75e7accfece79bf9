// The exported entry points of extraction: the reader factory and the
// one-call extraction into the current directory.
#include <memory>
#include <new>

#include "extract/unzip_driver.h"
#include "kxzefarchiver/zefarchiver.h"

ZEFArchReader* getZipReader() { return new (std::nothrow) kxzef::UnzipDriver(); }

int zefExtractZipFile(const char* archiveName) {
  std::unique_ptr<kxzef::UnzipDriver> reader(new (std::nothrow) kxzef::UnzipDriver());
  if (!reader) return 0;
  try {
    // Paths kept, existing files replaced without asking, root empty: the
    // entries land relative to the current directory.
    if (reader->open(archiveName, true, true) != kxzef::StatusOk) return 0;
    return reader->extractAll(true) == kxzef::StatusOk ? 1 : 0;
  } catch (...) {
    // Kept: should the standard library throw (nothing here does by design), the
    // archive is closed and the host receives the exception as it was.
    reader->close();
    throw;
  }
}
