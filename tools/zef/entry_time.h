// Entry times as people write and read them. A ZIP entry keeps its time as
// a DOS word: a wall-clock date and time without a zone, from 1980 to 2107,
// in steps of two seconds.
#ifndef KXZEF_TOOLS_ZEF_ENTRY_TIME_H
#define KXZEF_TOOLS_ZEF_ENTRY_TIME_H

#include <cstdint>
#include <string>

namespace zef {

// Reads --mtime's TIME: "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS]" (a "T" may
// stand for the blank), taken as the wall-clock time to store, or
// "@SECONDS" since 1970 in UTC. Odd seconds round down. Returns "" and sets
// `dosDate`, or says what is wrong.
std::string parseEntryTime(const std::string& text, uint32_t& dosDate);

// SOURCE_DATE_EPOCH's SECONDS (digits only) as a DOS word in UTC, clamped
// to the range a DOS word holds. Returns "" or what is wrong.
std::string parseSourceDateEpoch(const std::string& text, uint32_t& dosDate);

// "YYYY-MM-DD HH:MM" for listings; `iso` adds ":SS" and puts a "T" between
// date and time (ISO 8601 without a zone, as the archive has none).
std::string formatDosDate(uint32_t dosDate, bool iso);

}  // namespace zef

#endif
