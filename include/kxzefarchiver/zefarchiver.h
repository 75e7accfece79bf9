// The exported entry points of libkxzefarchiver: handler setters, the
// host-console switch, the reader factory and one-call extraction, the
// directory maker, the path canonicaliser, the date parser and the version
// globals. Nothing here needs an initialisation call: the two text channels
// exist from load time and the message catalogue registers itself on first use.
//
// A C (C99 or later) translation unit sees only the plain exports of the
// extern "C" block below; everything else needs C++.
#ifndef KXZEFARCHIVER_ZEFARCHIVER_H
#define KXZEFARCHIVER_ZEFARCHIVER_H

#ifdef __cplusplus
#include <ctime>
#include <string>

#include "kxzefarchiver/ZEFArchReader.h"
#else
#include <stdbool.h>
#endif

#include "kxzefarchiver/export.h"

#ifdef __cplusplus

// Receives every piece of text the library prints on one channel, as a
// NUL-terminated string. The result matters only for single characters: a
// handler must return 1 for them, anything else silences the channel (its
// stream enters the bad state and stays there).
typedef int (*TextHandler)(const char* text);

// Routes the error channel (catalogue messages, prompts, error codes) to
// `handler`. Takes effect with the next write; a null handler is not checked.
// Returns 0.
KXZEF_EXPORT int set_zefarchiver_error_handler(TextHandler handler);

// Routes the output channel (listing rows, directory-failure codes) to
// `handler`. Returns 0.
KXZEF_EXPORT int set_zefarchiver_output_handler(TextHandler handler);

// A new reader with overwrite and usePaths on, an empty root and no archive
// open (see kxzefarchiver/ZEFArchReader.h). The caller owns it and deletes it
// through the interface. Null only when memory is exhausted.
KXZEF_EXPORT ZEFArchReader* getZipReader();

// Creates `path` and every missing directory above it (mode 0775 less the
// umask; "\" counts as "/"). Returns non-zero on success, including when the
// directory already exists or the full path names an existing file; 0 on
// failure or for an empty path.
KXZEF_EXPORT int zefMakeDir(const char* path);

// Rewrites `path` textually ("/" is the only separator; nothing but the
// working directory is looked up, links are not resolved):
//  - a component that is exactly "." discards everything before it and
//    restarts the path at the current working directory ("a/./b" becomes
//    "<cwd>/b"); a path without such a component stays relative;
//  - a component that is exactly ".." removes the component before it, and
//    is dropped when there is none ("a/../../b" becomes "b", "/../x" "/x");
//  - repeated "/" are kept as empty components ("a//../b" becomes "a/b");
//  - the last component is kept as it stands, even "." or ".." ("a/b/..").
// A path beginning with ".." (including "..x") is refused: the message
// "Cannot canonicalize ..." goes to the error channel and "" is returned.
// When the working directory cannot be read it counts as "".
KXZEF_EXPORT std::string zefMakePathCanonical(std::string path);

// Parses a date in the C library's asctime form, "Wed Jun 30 21:49:08 1993\n",
// as local time. The trailing newline is required: a text shorter than 25
// characters, or null, yields 0. An unknown month name counts as December of
// the year before; the weekday is not checked. Returns -1 for a time mktime
// cannot represent.
KXZEF_EXPORT time_t DateStringToSeconds(const char* text);

extern "C" {
#endif

// Creates the archive `archiveName` from `count` inputs: `sources[i]` is
// stored under the name `destinations[i]` (an empty or null text keeps the
// source path). Inputs are added in source-path order; a source given twice
// keeps its last destination. Symbolic links are stored as links, and the
// files they point to are added too. An existing archive is replaced; ".zef"
// is appended to a name holding no ".". Returns true on success; on failure
// the reasons are on the error channel and the file called exactly
// `archiveName` is removed. A null source refuses the whole call: false,
// nothing reported and no file touched. Neither array may itself be null
// when `count` is positive.
KXZEF_EXPORT bool zefCreateZipFile(const char* archiveName, const char** sources, const char** destinations,
                                   int count);

// Sends both channels to the host application's console function. Returns 1.
KXZEF_EXPORT int zefUseVexaOutputFcns(void);

// Extracts the whole archive `archiveName` (or `archiveName` with ".zef"
// appended) into the current directory, keeping entry paths and replacing
// existing files without asking. Returns 1 when every entry was extracted,
// 0 otherwise; the reasons are reported on the error channel.
KXZEF_EXPORT int zefExtractZipFile(const char* archiveName);

// Four dot-separated decimal numbers, such as "1.0.0.0".
KXZEF_EXPORT extern const char* libkxzefarchiver_version;

// The build date as the C compiler's __DATE__ gives it, such as "Nov  2 2026".
KXZEF_EXPORT extern const char* libkxzefarchiver_build_date;

#ifdef __cplusplus
}  // extern "C"
#endif

#endif
