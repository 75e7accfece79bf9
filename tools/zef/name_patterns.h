// Shell patterns over entry names, for the ENTRY arguments of zef extract and
// for --exclude. A pattern that matches a directory takes everything below
// it, so "app/etc" and "app/etc/" both select the whole tree.
#ifndef KXZEF_TOOLS_ZEF_NAME_PATTERNS_H
#define KXZEF_TOOLS_ZEF_NAME_PATTERNS_H

#include <string>
#include <vector>

namespace zef {

class NamePatterns {
 public:
  // `anchored` patterns match from the start of a name, as ENTRY arguments
  // do; the others also from the start of any of its components, as
  // --exclude does ("__pycache__/" anywhere). `foldCase` ignores ASCII case.
  NamePatterns(bool anchored, bool foldCase) : anchored_(anchored), foldCase_(foldCase) {}

  // fnmatch(3) patterns: "*" and "?" match "/" too. A pattern ending in "/"
  // matches directories only. Leading "./" is dropped.
  void add(const std::string& pattern);

  bool empty() const { return patterns_.empty(); }

  // True when a pattern matches `name` (a stored name; directories end in
  // "/") or a directory above it. Marks the patterns that matched.
  bool matches(const std::string& name);

  // The patterns that have not matched any name so far, as given.
  std::vector<std::string> unmatched() const;

 private:
  struct Pattern {
    std::string given;
    std::string glob;       // without the trailing "/"
    bool directoryOnly;
    bool matched = false;
  };

  bool matchesPart(const Pattern& pattern, const std::string& name, size_t start, size_t end);

  bool anchored_;
  bool foldCase_;
  std::vector<Pattern> patterns_;
  std::string part_;  // reused for each piece of a name handed to fnmatch
};

}  // namespace zef

#endif
