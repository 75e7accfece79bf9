// Transform lookup by extension. The search covers directory names too, so a
// dotted directory hides the file's own lack of an extension.
#include "input/find_transform.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

namespace kxzef {

ZEFTransform* findTransform(const TransformRule* first, const char* fileName) {
  if (fileName == nullptr) return nullptr;
  const char* dot = std::strrchr(fileName, '.');
  if (dot == nullptr) return nullptr;
  std::string extension(dot);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const TransformRule* rule = first; rule != nullptr; rule = rule->next) {
    if (rule->extensions == nullptr) continue;
    const std::vector<std::string>& list = *rule->extensions;
    if (std::find(list.begin(), list.end(), extension) != list.end()) return rule->transform;
  }
  return nullptr;
}

}  // namespace kxzef
