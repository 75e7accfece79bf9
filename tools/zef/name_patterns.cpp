// Pattern matching over entry names. A name of k components costs at most
// k * k fnmatch calls per pattern; names come from archives and may hold
// any byte but NUL.
#include "name_patterns.h"

#include <fnmatch.h>
#include <strings.h>

namespace zef {

void NamePatterns::add(const std::string& pattern) {
  Pattern added{pattern, pattern, false};
  while (added.glob.rfind("./", 0) == 0) added.glob.erase(0, 2);
  while (!added.glob.empty() && added.glob.back() == '/') {
    added.glob.pop_back();
    added.directoryOnly = true;
  }
  patterns_.push_back(std::move(added));
}

// Whether `pattern` matches name[start, end): as a glob, or literally, so
// that a name holding "[" can be named as it is.
bool NamePatterns::matchesPart(const Pattern& pattern, const std::string& name, size_t start, size_t end) {
  part_.assign(name, start, end - start);
  if (foldCase_ ? strcasecmp(part_.c_str(), pattern.glob.c_str()) == 0 : part_ == pattern.glob) return true;
  return fnmatch(pattern.glob.c_str(), part_.c_str(), foldCase_ ? FNM_CASEFOLD : 0) == 0;
}

bool NamePatterns::matches(const std::string& name) {
  bool any = false;
  const size_t length = name.size() - (!name.empty() && name.back() == '/' ? 1 : 0);
  for (Pattern& pattern : patterns_) {
    bool hit = false;
    // Each start of a component (only the first when anchored), each end of
    // a directory above the name, and the name's own end.
    for (size_t start = 0; start <= length && !hit; start = name.find('/', start) + 1) {
      for (size_t end = name.find('/', start); !hit; end = name.find('/', end + 1)) {
        const bool whole = end == std::string::npos || end >= length;
        const bool directory = !whole || length < name.size();
        if (directory || !pattern.directoryOnly) hit = matchesPart(pattern, name, start, whole ? length : end);
        if (whole) break;
      }
      if (anchored_ || name.find('/', start) == std::string::npos) break;
    }
    pattern.matched = pattern.matched || hit;
    any = any || hit;
  }
  return any;
}

std::vector<std::string> NamePatterns::unmatched() const {
  std::vector<std::string> names;
  for (const Pattern& pattern : patterns_) {
    if (!pattern.matched) names.push_back(pattern.given);
  }
  return names;
}

}  // namespace zef
