// The duplicate check on destination names, run for the file each archived
// symbolic link points to. It records files to archive later and refuses a
// destination that another file already holds.
#ifndef KXZEF_INPUT_DUPLICATE_ENTRY_H
#define KXZEF_INPUT_DUPLICATE_ENTRY_H

#include <cstddef>
#include <string>

#include "kxzefarchiver/ZEFEntryMap.h"

namespace kxzef {

constexpr size_t LinkCompareBufferSize = 257;  // 256 bytes of target text and a NUL

// The source recorded for `destination` in `map`: the key of the first
// record, in key order, whose destination equals it; "" when none does.
std::string findSourceOfDestination(const ZEFEntryMap& map, const char* destination);

// Decides whether `source`, to be stored as `destination`, may join the
// archive. `linkSource` and `linkDestination` name the link that led here and
// are only tested for presence: when either is null the result is 0 and
// nothing happens. `baseDirectory` completes relative names for comparison.
// `recorded` is the run's own map, searched and filled; `inputs` is the
// caller's input map, only searched.
// Returns 1 to accept: the source is known already, or its destination is
// free (it is then recorded with the destination less a leading "/", unless
// it does not exist or cannot be examined, the latter reported as an
// unreadable link), or the destination's owner is the same file named
// differently or the source is a link whose text names that owner.
// Returns 0 to refuse, after reporting the clash
// (ZEFARCHIVER_ERROR_DUPLICATE_DESTINATION_FILE) or a source that cannot be
// examined (ZEFARCHIVER_ERROR_UNREADABLE_LINK and the system error text).
// A null `source`, `destination` or `baseDirectory` is refused silently.
int checkDuplicateEntry(const char* linkSource, const char* linkDestination, const char* source,
                        const char* destination, const char* baseDirectory, ZEFEntryMap& recorded,
                        const ZEFEntryMap& inputs);

}  // namespace kxzef

#endif
