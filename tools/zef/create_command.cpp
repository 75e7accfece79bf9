// zef create: builds the input map the way zefCreateZipFile does (ordered by
// source, the last destination of a source winning), with directories taken
// recursively, and hands it to a writer.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "kxzefarchiver/ZEFArchWriter.h"
#include "kxzefarchiver/ZEFFileReader.h"
#include "zef.h"

namespace zef {

namespace {

struct CreateOptions {
  int level = 6;
  bool keep = false;
  std::string archive;
  std::string manifest;
  std::vector<std::string> inputs;
};

void addInput(ZEFEntryMap& inputs, const std::string& source, const std::string& destination) {
  inputs[source] = ZEFEntryRecord(ZEFEntryKindFile, nullptr, false, destination);
}

// A directory brings everything below it; links below it are not followed.
void addTree(ZEFEntryMap& inputs, const std::string& source, const std::string& destination) {
  addInput(inputs, source, destination);
  struct stat status;
  if (lstat(source.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(source, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    // Lexical, so that a link below the directory keeps its own name.
    const std::string relative = it->path().lexically_relative(source).string();
    addInput(inputs, it->path().string(), destination + "/" + relative);
  }
}

// An input without a destination is stored under its source path, less any
// leading "/" so that extraction stays below its directory. Naming that path
// as the destination, rather than leaving it empty, lets links among the
// inputs find the entries they point to instead of storing those files twice.
void addNamedTree(ZEFEntryMap& inputs, const std::string& source, const std::string& destination) {
  if (!destination.empty()) return addTree(inputs, source, destination);
  const size_t start = source.find_first_not_of('/');
  addTree(inputs, source, start == std::string::npos ? "" : source.substr(start));
}

// "SOURCE" or "SOURCE=DEST".
void addArgument(ZEFEntryMap& inputs, const std::string& argument) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos) {
    addNamedTree(inputs, argument, "");
  } else {
    addNamedTree(inputs, argument.substr(0, equals), argument.substr(equals + 1));
  }
}

// One SOURCE<TAB>DEST pair a line; blank lines are skipped.
bool addManifest(ZEFEntryMap& inputs, const std::string& manifest) {
  std::ifstream in(manifest);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) {
      addNamedTree(inputs, line, "");
    } else {
      addNamedTree(inputs, line.substr(0, tab), line.substr(tab + 1));
    }
  }
  return true;
}

int parse(const std::vector<std::string>& args, CreateOptions& options) {
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!optionsEnded && arg == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && arg.size() == 2 && arg[0] == '-' && arg[1] >= '0' && arg[1] <= '9') {
      options.level = arg[1] - '0';
    } else if (!optionsEnded && arg == "--keep") {
      options.keep = true;
    } else if (!optionsEnded && arg == "--from") {
      if (i + 1 == args.size()) return usageError("create", "--from needs a FILE");
      options.manifest = args[++i];
    } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
      return usageError("create", "unknown option '" + arg + "'");
    } else if (options.archive.empty()) {
      options.archive = arg;
    } else {
      options.inputs.push_back(arg);
    }
  }
  if (options.archive.empty()) return usageError("create", "no ARCHIVE given");
  if (options.inputs.empty() && options.manifest.empty()) return usageError("create", "no INPUT given");
  return ExitOk;
}

// What a failed run leaves in the context is ours to release.
void release(CreationContext& context) {
  delete context.currentStream;
  delete context.currentReader;
  context = CreationContext();
}

}  // namespace

int createCommand(const std::vector<std::string>& args) {
  CreateOptions options;
  if (int status = parse(args, options); status != ExitOk) return status;
  ZEFEntryMap inputs;
  for (const std::string& input : options.inputs) addArgument(inputs, input);
  if (!options.manifest.empty() && !addManifest(inputs, options.manifest)) {
    return failure("cannot read the manifest '" + options.manifest + "'");
  }
  std::unique_ptr<ZEFArchWriter> writer(getZipWriter());
  if (!writer) return failure("cannot make a writer for '" + options.archive + "'");
  writer->setCompressionLevel(options.level);
  writer->setOverwrite(!options.keep);
  CreationContext context;
  const int status = writer->createArchive(options.archive.c_str(), inputs, &context);
  release(context);
  if (status != 0) return failure("could not create '" + options.archive + "'");
  return ExitOk;
}

}  // namespace zef
