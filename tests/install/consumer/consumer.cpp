// A host that knows the library only through its installed headers.
#include <kxzefarchiver/zefarchiver.h>

#include <cstdio>
#include <cstring>

namespace {

int lines = 0;
int countingHandler(const char* text) {
  lines += std::strchr(text, '\n') != nullptr;
  return static_cast<int>(std::strlen(text));
}

}  // namespace

int main() {
  if (set_zefarchiver_error_handler(countingHandler) != 0) return 1;
  if (set_zefarchiver_output_handler(countingHandler) != 0) return 1;
  if (zefMakeDir("") != 0) return 1;
  if (DateStringToSeconds("short") != 0) return 1;
  ZEFArchReader* reader = getZipReader();
  if (reader == nullptr || !reader->getOverwrite() || reader->close() == 0) return 1;
  delete reader;
  if (zefExtractZipFile("no-such-archive") != 0) return 1;
  std::printf("kxzefarchiver %s built %s\n", libkxzefarchiver_version, libkxzefarchiver_build_date);
  return zefUseVexaOutputFcns() == 1 ? 0 : 1;
}
