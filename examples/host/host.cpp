// A complete host of libkxzefarchiver: packs a directory into an archive,
// lists the archive and extracts it again, with the library's two text
// channels routed through the host's own handlers.
//
//   zef-host DIRECTORY ARCHIVE OUTPUT_DIRECTORY
//
// Every regular file and symbolic link below DIRECTORY is stored under the
// directory's own name ("examples/app/bin/greeter" as "app/bin/greeter"), then
// the archive is extracted below OUTPUT_DIRECTORY. Exit status 0 when all
// three steps succeeded, 1 otherwise.
#include <kxzefarchiver/zefarchiver.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

// The library prints through these two handlers. Each returns the length it
// was given: a handler must return 1 for a single character, or the library
// silences that channel.
std::string listing;                // what the output channel printed: the listing rows
std::string* heldErrors = nullptr;  // while set, the error channel's text is kept here

int keepOutput(const char* text) {
  listing += text;
  return static_cast<int>(std::strlen(text));
}

int showError(const char* text) {
  if (heldErrors != nullptr)
    *heldErrors += text;
  else
    std::fputs(text, stderr);
  return static_cast<int>(std::strlen(text));
}

// The inputs of one archive: source paths and the names they are stored under.
struct Inputs {
  std::vector<std::string> sources;
  std::vector<std::string> destinations;
};

// Regular files and symbolic links below `directory`, in no particular order
// (the library sorts them). Empty files are left out with a note: the library
// refuses them, and the whole archive with them.
bool gatherInputs(const fs::path& directory, Inputs& inputs) {
  std::error_code error;
  fs::path top = fs::absolute(directory, error).lexically_normal();
  if (!top.has_filename()) top = top.parent_path();  // "app/" names "app" too
  const fs::path base = top.parent_path();
  for (fs::recursive_directory_iterator it(top, error), end; !error && it != end; it.increment(error)) {
    const fs::path& path = it->path();
    const fs::file_status status = it->symlink_status(error);
    if (error) break;
    if (!fs::is_regular_file(status) && !fs::is_symlink(status)) continue;
    if (fs::is_regular_file(status) && it->file_size(error) == 0 && !error) {
      std::fprintf(stderr, "zef-host: %s: empty, left out\n", path.c_str());
      continue;
    }
    inputs.sources.push_back(path.string());
    inputs.destinations.push_back(path.lexically_relative(base).string());
  }
  if (error) std::fprintf(stderr, "zef-host: %s: %s\n", directory.c_str(), error.message().c_str());
  return !error && !inputs.sources.empty();
}

bool createArchive(const char* archive, const Inputs& inputs) {
  std::vector<const char*> sources;
  std::vector<const char*> destinations;
  for (size_t i = 0; i < inputs.sources.size(); ++i) {
    sources.push_back(inputs.sources[i].c_str());
    destinations.push_back(inputs.destinations[i].c_str());
  }
  return zefCreateZipFile(archive, sources.data(), destinations.data(), static_cast<int>(sources.size()));
}

// Lists `archive` into `listing`. The library prints the listing's heading
// on the error channel: it is held back, and shown with the reasons only
// when the listing fails.
bool listArchive(ZEFArchReader& reader, const char* archive) {
  std::string heading;
  heldErrors = &heading;
  const bool listed = reader.listArchive(archive) == 0;
  heldErrors = nullptr;
  if (!listed) std::fputs(heading.c_str(), stderr);
  return listed;
}

// Prints the name of each listing row: the text after the row's seven
// columns of length, method, stored size, ratio, date, time and CRC-32.
size_t printNames(const std::string& rows) {
  constexpr int columnsBeforeName = 7;
  size_t count = 0;
  for (size_t start = 0, end; start < rows.size(); start = end + 1) {
    end = rows.find('\n', start);
    if (end == std::string::npos) end = rows.size();
    size_t at = start;
    for (int column = 0; column < columnsBeforeName; ++column) {
      at = rows.find_first_not_of(' ', at);
      at = rows.find(' ', at);
    }
    if (at == std::string::npos || at + 2 > end) continue;
    std::printf("  %.*s\n", static_cast<int>(end - at - 2), rows.c_str() + at + 2);
    ++count;
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: zef-host DIRECTORY ARCHIVE OUTPUT_DIRECTORY\n");
    return 1;
  }
  const char* archive = argv[2];
  set_zefarchiver_output_handler(keepOutput);
  set_zefarchiver_error_handler(showError);
  std::printf("kxzefarchiver %s\n", libkxzefarchiver_version);

  Inputs inputs;
  if (!gatherInputs(argv[1], inputs)) return 1;
  if (!createArchive(archive, inputs)) {
    std::fprintf(stderr, "zef-host: %s was not created\n", archive);
    return 1;
  }
  std::printf("packed %zu files and links from %s into %s\n", inputs.sources.size(), argv[1], archive);

  // The reader belongs to the host, which deletes it through the interface.
  std::unique_ptr<ZEFArchReader> reader(getZipReader());
  if (!reader) return 1;
  if (!listArchive(*reader, archive)) return 1;
  std::printf("%s holds:\n", archive);
  const size_t entries = printNames(listing);
  // The library stops at the first entry it cannot extract; the reasons are
  // already on the error channel.
  if (reader->unzipAllTo(archive, argv[3]) != 0) {
    std::fprintf(stderr, "zef-host: %s was not extracted completely\n", archive);
    return 1;
  }
  std::printf("extracted %zu entries below %s\n", entries, argv[3]);
  return 0;
}
