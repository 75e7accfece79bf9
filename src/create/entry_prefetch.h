// A source of entries' data prepared ahead of the creation run, for example
// compressed on other threads. The run only ever asks it about a plain
// regular file without a transform, and takes any answer but finished data as
// "do it here": the inline path then gives the entry and its messages exactly
// as a run without a prefetch would. The exported entry points never set one.
#ifndef KXZEF_CREATE_ENTRY_PREFETCH_H
#define KXZEF_CREATE_ENTRY_PREFETCH_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kxzef {

// One input's finished data, as the writing core would have produced it
// from the same bytes at the run's level.
struct PrefetchedEntry {
  const unsigned char* data = nullptr;  // the entry's stored bytes: deflated, or as they are at level 0
  uint64_t size = 0;                    // bytes at `data`
  uint64_t uncompressedSize = 0;
  uint32_t crc = 0;   // CRC-32 of the uncompressed bytes
  bool text = false;  // deflate judged the bytes to be text
};

class EntryPrefetch {
 public:
  virtual ~EntryPrefetch() = default;

  // Called once on the calling thread before the first entry: the source
  // paths (as the run opens them) of the inputs in the order the run visits
  // them, and the compression level of the run.
  virtual void begin(std::vector<std::string> sources, int level) = 0;

  // The finished data of input `index` in that order, or null when there is
  // none: not eligible, failed, or not started yet (it is then never
  // started). Also null when the file prepared is not the one `seen`
  // describes (device, inode, size or modification time differ). Calls come
  // in increasing `index`; the data stays valid until the next call or end().
  virtual const PrefetchedEntry* take(size_t index, const struct stat& seen) = 0;

  // Called once on the calling thread when the run ends, however it ends;
  // nothing is prepared after it returns.
  virtual void end() = 0;
};

}  // namespace kxzef

#endif
