// What a listing shows of one entry: its name made safe for a terminal or a
// JSON string, its method in words, and a link's target read from its data.
// Names and data come from the archive and are untrusted.
#ifndef KXZEF_TOOLS_ZEF_ENTRY_TEXT_H
#define KXZEF_TOOLS_ZEF_ENTRY_TEXT_H

#include <cstdint>
#include <string>

#include "audit/archive_audit.h"

namespace zef {

// `name` with control characters (and DEL) as "\xNN"; other bytes, UTF-8
// included, as they are.
std::string terminalText(const std::string& name);

// `text` as a JSON string, quotes included. Valid UTF-8 passes; a byte that
// is not part of it becomes "\udcXX" (Python's surrogateescape), so the
// exact bytes can be had back.
std::string jsonString(const std::string& text);

// "stored", "deflate", "lzma", ..., "method N" for the rest.
std::string methodWord(uint16_t method);

// How a -v listing shows the method: "Stored", "Defl:N" (N, X, F or S from
// the level bits of `flags`), or the method's word.
std::string methodColumn(uint16_t method, uint16_t flags);

// Reads the target of the link entry `entry` from its data in the archive
// open as `fd`: at most 4096 bytes, the compressed side bounded too. False
// when its data cannot be read (no local header, a method other than stored
// or deflate, damaged data).
bool readLinkTarget(int fd, const kxzef::AuditEntry& entry, std::string& target);

}  // namespace zef

#endif
