// The exported entry points of creation: the writer factory and the one-call
// creation. Neither prints anything itself; the writer reports every refusal.
#include <memory>
#include <new>

#include "create/creation_run.h"
#include "create/zip_driver.h"
#include "kxzefarchiver/ZEFArchWriter.h"
#include "kxzefarchiver/zefarchiver.h"

ZEFArchWriter* getZipWriter() { return new (std::nothrow) kxzef::ZipDriver(); }

bool zefCreateZipFile(const char* archiveName, const char** sources, const char** destinations, int count) {
  if (count < 1) return false;
  // Ordered by source path; a source given twice keeps its last destination.
  ZEFEntryMap inputs;
  for (int i = 0; i < count; ++i) {
    // A null text would make std::string throw into the host: a null source
    // refuses the call before any file is touched, a null destination is empty.
    if (sources[i] == nullptr) return false;
    const char* destination = destinations[i] != nullptr ? destinations[i] : "";
    inputs[sources[i]] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, destination);
  }
  std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
  if (!writer) return false;
  CreationContext context;
  const int status = writer->createArchive(archiveName, inputs, &context);
  writer.reset();
  kxzef::releaseContextObjects(context);
  return status == 0;
}
