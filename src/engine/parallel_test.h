// zef's integrity test on several threads: the entries are cut into ranges
// of about equal compressed size, each tested with a file and buffers of its
// own, and the failures come back in entry order, as one thread finds them.
#ifndef KXZEF_ENGINE_PARALLEL_TEST_H
#define KXZEF_ENGINE_PARALLEL_TEST_H

#include <vector>

#include "audit/archive_audit.h"

namespace kxzef {

// testArchive with up to `threads` threads, the calling one included; with
// 1, or when no thread can be started, it is testArchive itself. When a
// range cannot be read, its status is returned and failures of later ranges
// are left out, so the result never reports more than one thread would.
int testArchiveInParallel(const char* path, const AuditReport& report, unsigned threads,
                          std::vector<AuditFinding>& failures);

}  // namespace kxzef

#endif
