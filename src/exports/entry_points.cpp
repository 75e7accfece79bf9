// The thin exported entry points: handler setters, the host-console switch,
// the directory maker and the path canonicaliser. Each forwards to the layer
// that does the work.
#include "host/host.h"
#include "input/path_canonical.h"
#include "kxzefarchiver/zefarchiver.h"
#include "messages/channels.h"
#include "zip/file_system.h"

namespace {

// The host console as a channel handler.
int hostConsoleHandler(const char* text) { return kxzef::host::utPuts(text); }

}  // namespace

int set_zefarchiver_error_handler(TextHandler handler) {
  kxzef::getErrorBuffer().setHandler(handler);
  return 0;
}

int set_zefarchiver_output_handler(TextHandler handler) {
  kxzef::getOutputBuffer().setHandler(handler);
  return 0;
}

int zefUseVexaOutputFcns(void) {
  if (set_zefarchiver_output_handler(hostConsoleHandler) != 0) return 0;
  return set_zefarchiver_error_handler(hostConsoleHandler) == 0 ? 1 : 0;
}

int zefMakeDir(const char* path) { return kxzef::makeDirPath(path); }

std::string zefMakePathCanonical(std::string path) { return kxzef::makePathCanonical(path); }
