// Canonicalises a path in two textual passes: "." components first, then
// "..". Every position used is checked against its string's length.
#include "input/path_canonical.h"

#include "input/working_directory.h"
#include "messages/message_catalogue.h"
#include "messages/message_report.h"

namespace kxzef {

namespace {

// A "." component throws away what came before it and restarts at the
// working directory; other components are copied with their "/".
std::string resolveDotComponents(std::string work) {
  std::string result;
  for (size_t slash = work.find('/'); slash != std::string::npos; slash = work.find('/')) {
    if (slash == 1 && work[0] == '.') {
      result = currentWorkingDirectory() + "/";
    } else {
      result.append(work, 0, slash + 1);
    }
    work.erase(0, slash + 1);
  }
  return result + work;
}

// Keeps `result` up to and including the "/" that starts its last
// component, or nothing when there is no such "/". The component's own
// trailing "/" is skipped by starting the search two characters from the end.
void dropLastComponent(std::string& result) {
  const size_t from = result.size() >= 2 ? result.size() - 2 : std::string::npos;
  const size_t slash = result.rfind('/', from);
  result.erase(slash == std::string::npos ? 0 : slash + 1);
}

}  // namespace

std::string makePathCanonical(const std::string& path) {
  if (path.compare(0, 2, "..") == 0) {
    reportError(ZEFARCHIVER_CANNOT_CANONICALIZE_RELATIVE_PATH, path.c_str());
    return std::string();
  }
  std::string work = resolveDotComponents(path);
  std::string result;
  for (size_t slash = work.find('/'); slash != std::string::npos; slash = work.find('/')) {
    if (slash == 2 && work.compare(0, 2, "..") == 0) {
      dropLastComponent(result);
    } else {
      result.append(work, 0, slash + 1);
    }
    work.erase(0, slash + 1);
  }
  if (result.empty()) return work;
  // The last component of the original path is never examined.
  const size_t lastSlash = path.rfind('/');
  return result + (lastSlash == std::string::npos ? path : path.substr(lastSlash + 1));
}

}  // namespace kxzef
