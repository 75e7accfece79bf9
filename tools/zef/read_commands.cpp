// zef list and zef extract, over the reader interface.
#include <memory>
#include <string>
#include <vector>

#include "kxzefarchiver/ZEFArchReader.h"
#include "kxzefarchiver/zefarchiver.h"
#include "zef.h"

namespace zef {

namespace {

struct ExtractOptions {
  std::string archive;
  std::string directory;
  bool ask = false;
  bool flat = false;
  std::vector<std::string> entries;
};

int parse(const std::vector<std::string>& args, ExtractOptions& options) {
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!optionsEnded && arg == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && arg == "-d") {
      if (i + 1 == args.size()) return usageError("extract", "-d needs a DIR");
      options.directory = args[++i];
    } else if (!optionsEnded && arg == "--ask") {
      options.ask = true;
    } else if (!optionsEnded && arg == "--flat") {
      options.flat = true;
    } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
      return usageError("extract", "unknown option '" + arg + "'");
    } else if (options.archive.empty()) {
      options.archive = arg;
    } else {
      options.entries.push_back(arg);
    }
  }
  if (options.archive.empty()) return usageError("extract", "no ARCHIVE given");
  return ExitOk;
}

// The root the reader puts in front of every entry name: empty or ending in "/".
std::string rootOf(const std::string& directory) {
  if (directory.empty() || directory.back() == '/') return directory;
  return directory + "/";
}

int extractEntries(ZEFArchReader& reader, const ExtractOptions& options) {
  int status = ExitOk;
  for (const std::string& entry : options.entries) {
    // 2: no such entry, 1: its extraction failed; the library said which.
    if (reader.extractEntry(entry.c_str(), false) != 0) {
      status = failure("could not extract '" + entry + "' from '" + options.archive + "'");
    }
  }
  reader.close();
  return status;
}

}  // namespace

int listCommand(const std::vector<std::string>& args) {
  if (args.size() != 1) return usageError("list", args.empty() ? "no ARCHIVE given" : "too many arguments");
  if (args[0].size() > 1 && args[0][0] == '-') return usageError("list", "unknown option '" + args[0] + "'");
  std::unique_ptr<ZEFArchReader> reader(getZipReader());
  if (!reader || reader->listArchive(args[0].c_str()) != 0) return failure("could not list '" + args[0] + "'");
  return ExitOk;
}

int extractCommand(const std::vector<std::string>& args) {
  ExtractOptions options;
  if (int status = parse(args, options); status != ExitOk) return status;
  std::unique_ptr<ZEFArchReader> reader(getZipReader());
  if (!reader) return failure("cannot make a reader for '" + options.archive + "'");
  const std::string root = rootOf(options.directory);
  if (reader->openWithRoot(options.archive.c_str(), root.c_str(), !options.ask, !options.flat) != 0) {
    return failure("could not open '" + options.archive + "'");
  }
  if (!options.entries.empty()) return extractEntries(*reader, options);
  if (reader->extractAll(true) != 0) return failure("could not extract '" + options.archive + "'");
  return ExitOk;
}

}  // namespace zef
