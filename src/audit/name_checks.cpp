// Name findings: what a name is in itself, which names end up at one path,
// and which pass through a link. The paths compared are those an extraction
// would write, cut as the reader cuts them, so a hostile name costs at most
// MaxEntryNameLength bytes a comparison however long it is stored.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "audit/audit_steps.h"
#include "zip/unzip_archive.h"

namespace kxzef {

namespace {

constexpr char Separator = '/';

bool hasParentComponent(std::string_view name) {
  for (size_t start = 0; start <= name.size();) {
    size_t end = name.find(Separator, start);
    if (end == std::string_view::npos) end = name.size();
    if (name.substr(start, end - start) == "..") return true;
    start = end + 1;
  }
  return false;
}

// Reports what is wrong with the stored name itself; true when it stays
// below the directory it is extracted into.
bool reportNameItself(const std::string& name, int64_t index, AuditReport& report) {
  if (name.empty()) {
    addFinding(report, FindingKind::EmptyName, index, "has an empty name");
    return false;
  }
  bool contained = true;
  if (name[0] == Separator) {
    addFinding(report, FindingKind::AbsoluteName, index, "is an absolute path");
    contained = false;
  }
  if (hasParentComponent(name)) {
    addFinding(report, FindingKind::ParentComponent, index, "contains a '..' component");
    contained = false;
  }
  if (name.find('\\') != std::string::npos) addFinding(report, FindingKind::Backslash, index, "contains a backslash");
  if (std::memchr(name.data(), '\0', name.size()) != nullptr) {
    addFinding(report, FindingKind::NulInName, index, "has a NUL byte inside its name");
  }
  if (name.size() > MaxEntryNameLength) {
    addFinding(report, FindingKind::NameTooLong, index,
               "has a name of " + std::to_string(name.size()) + " bytes, more than the " +
                   std::to_string(MaxEntryNameLength) + " the reader keeps");
  }
  return contained;
}

// Every entry's path as an extraction would write it: the name as the
// reader keeps it (up to a NUL, at most MaxEntryNameLength bytes), without
// empty and "." components. All held in one buffer.
class PathKeys {
 public:
  void add(const std::string& name) {
    std::string_view kept(name.data(), std::min(std::strlen(name.c_str()), MaxEntryNameLength));
    const size_t start = text_.size();
    for (size_t from = 0; from <= kept.size();) {
      size_t end = kept.find(Separator, from);
      if (end == std::string_view::npos) end = kept.size();
      const std::string_view component = kept.substr(from, end - from);
      if (!component.empty() && component != ".") {
        if (text_.size() > start) text_ += Separator;
        text_.append(component);
      }
      from = end + 1;
    }
    spans_.emplace_back(start, text_.size() - start);
  }
  // Valid once every name is added.
  std::string_view key(size_t index) const {
    return std::string_view(text_).substr(spans_[index].first, spans_[index].second);
  }

 private:
  std::string text_;
  std::vector<std::pair<size_t, size_t>> spans_;
};

// Entries in path order, the first of each path first: sorting once costs
// one allocation, where a hash table would make one for every entry.
std::vector<size_t> pathOrder(const PathKeys& keys, size_t count) {
  std::vector<size_t> order(count);
  for (size_t i = 0; i < count; ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    const int compared = keys.key(a).compare(keys.key(b));
    return compared != 0 ? compared < 0 : a < b;
  });
  return order;
}

void reportCollisions(const PathKeys& keys, const std::vector<size_t>& order, AuditReport& report) {
  if (order.empty()) return;
  size_t leader = order[0];  // the earliest entry of the current path
  for (size_t at = 1; at < order.size(); ++at) {
    const size_t i = order[at];
    if (keys.key(i) != keys.key(leader)) {
      leader = i;
      continue;
    }
    if (keys.key(i).empty()) continue;
    const std::string& other = report.entries[leader].name;
    addFinding(report, FindingKind::NameCollision, static_cast<int64_t>(i),
               other == report.entries[i].name ? "appears more than once" : "has the same path as " + quotedName(other));
  }
}

// Calls `visit(parent)` for each parent path of `key`, shortest first, until it returns true.
template <typename Visit>
void forEachParent(std::string_view key, Visit visit) {
  for (size_t end = key.find(Separator); end != std::string_view::npos; end = key.find(Separator, end + 1)) {
    if (visit(key.substr(0, end))) return;
  }
}

// Links are looked up among the entries in path order, by binary search.
void reportArchiveLinks(const PathKeys& keys, const std::vector<size_t>& order, AuditReport& report) {
  std::vector<size_t> links;
  for (size_t i : order) {
    if (report.entries[i].isLink && !keys.key(i).empty()) links.push_back(i);
  }
  if (links.empty()) return;
  const auto before = [&](size_t link, std::string_view parent) { return keys.key(link) < parent; };
  for (size_t i = 0; i < report.entries.size(); ++i) {
    forEachParent(keys.key(i), [&](std::string_view parent) {
      const auto link = std::lower_bound(links.begin(), links.end(), parent, before);
      if (link == links.end() || keys.key(*link) != parent) return false;
      addFinding(report, FindingKind::ThroughArchiveLink, static_cast<int64_t>(i),
                 "passes through the link entry " + quotedName(report.entries[*link].name));
      return true;
    });
  }
}

// lstat is asked once per parent path however many entries share it.
void reportExistingLinks(const std::string& destination, const PathKeys& keys, const std::vector<bool>& contained,
                         AuditReport& report) {
  enum class OnDisk : char { Missing, Link, Other };
  std::unordered_map<std::string_view, OnDisk> seen;
  std::string path = destination;
  if (path.back() != Separator) path += Separator;
  const size_t base = path.size();
  for (size_t i = 0; i < report.entries.size(); ++i) {
    if (!contained[i]) continue;
    forEachParent(keys.key(i), [&](std::string_view parent) {
      const auto [it, fresh] = seen.try_emplace(parent, OnDisk::Missing);
      if (fresh) {
        path.resize(base);
        path.append(parent);
        struct stat status;
        if (lstat(path.c_str(), &status) == 0) it->second = S_ISLNK(status.st_mode) ? OnDisk::Link : OnDisk::Other;
      }
      if (it->second == OnDisk::Link) {
        addFinding(report, FindingKind::ThroughExistingLink, static_cast<int64_t>(i),
                   "passes through " + quotedName(std::string(parent)) + ", a link already in the destination");
      }
      // Below a missing parent nothing exists yet; below a link the first finding says enough.
      return it->second != OnDisk::Other;
    });
  }
}

}  // namespace

void checkNames(const std::string& destination, AuditReport& report) {
  PathKeys keys;
  std::vector<bool> contained(report.entries.size());
  for (size_t i = 0; i < report.entries.size(); ++i) {
    contained[i] = reportNameItself(report.entries[i].name, static_cast<int64_t>(i), report);
    keys.add(report.entries[i].name);
  }
  const std::vector<size_t> order = pathOrder(keys, report.entries.size());
  reportCollisions(keys, order, report);
  reportArchiveLinks(keys, order, report);
  if (!destination.empty()) reportExistingLinks(destination, keys, contained, report);
}

}  // namespace kxzef
