// A host that knows the library only through its installed headers.
#include <kxzefarchiver/ZEFEntryMap.h>
#include <kxzefarchiver/ZEFFileReader.h>
#include <kxzefarchiver/ZEFTransform.h>
#include <kxzefarchiver/zefarchiver.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

int lines = 0;
int countingHandler(const char* text) {
  lines += std::strchr(text, '\n') != nullptr;
  return static_cast<int>(std::strlen(text));
}

// A host's own transform: copies its input unchanged.
class Copy : public ZEFTransform {
 public:
  Copy() : ZEFTransform(false, false, "") {}
  bool apply(const ZEFByteArray& input, ZEFByteArray& output, ZEFResultHolder*) override {
    if (!output.allocate(input.size)) return false;
    std::memcpy(output.data, input.data, input.size);
    return true;
  }
};

// The input map and transform chain a host builds before creating an archive.
bool buildInputs() {
  ZEFEntryMap inputs;
  inputs["bin/run"] = ZEFEntryRecord(ZEFEntryKindFile, "note", true, "app/bin/run");
  const ZEFEntryMap copy = inputs;
  std::vector<std::string> extensions{".txt"};
  Copy transform;
  TransformRule rule;
  rule.extensions = &extensions;
  rule.transform = &transform;
  return copy.at("bin/run").text != inputs.at("bin/run").text && rule.next == nullptr;
}

}  // namespace

int main() {
  if (!buildInputs()) return 1;
  if (zefMakePathCanonical("a/b/../c") != "a/c") return 1;
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
