// Recognises a symbolic link by the Unix extra block at the start of an
// entry's central extra field. The bytes come from the archive: untrusted.
#ifndef KXZEF_EXTRACT_LINK_EXTRA_H
#define KXZEF_EXTRACT_LINK_EXTRA_H

#include <cstddef>
#include <string>

namespace kxzef {

// True when `extra` (the whole central extra field, `size` bytes) begins
// with a Unix block (tag 13) whose size field exceeds 16 and whose byte 16
// is not NUL; `target` is then the text from byte 16 to the first NUL or the
// end of the field. Only the first block is examined, and the size field is
// not used to bound the text, so writers that count the block's 4-byte
// header in it and writers that do not are both read correctly.
bool readLinkTarget(const unsigned char* extra, size_t size, std::string& target);

}  // namespace kxzef

#endif
