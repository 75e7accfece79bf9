// The reader interface a host uses to list and extract a ZEF archive. It is
// pure abstract and header-only: the host needs no symbol of the library to
// call it, and must never derive its own objects from it for the library.
#ifndef KXZEFARCHIVER_ZEFARCHREADER_H
#define KXZEFARCHIVER_ZEFARCHREADER_H

#include <string>
#include <vector>

// One reader holds at most one open archive, two behaviour flags and an
// extraction root:
//  - overwrite (initially on): existing files are replaced without asking.
//    When off, each existing file raises the question "The file '<path>'
//    exists. Overwrite ? [y]es, [n]o, [A]ll:" on the error channel and the
//    answer is read from standard input; "A" turns overwrite on for good, and
//    the end of standard input counts as "n".
//  - usePaths (initially on): entries keep their directories below the root.
//    When off, directory entries and regular files are skipped and symbolic
//    links are made under their bare file name in the current directory.
//  - root (initially empty): put in front of every entry name to form the
//    output path. The "open with derived root" operations set it to the
//    archive name less ".zef" plus "_qrt/".
//
// Objects come from getZipReader() (kxzefarchiver/zefarchiver.h); they belong
// to the caller, who deletes them through this interface. Deleting a reader
// releases its archive file even when it was not closed. A reader must be
// used from one thread at a time.
//
// Every operation returning int reports its failures as catalogue messages on
// the error channel and returns 0 for success. Names are byte strings with "/"
// as separator; null text arguments count as empty. The operations that take
// `closeAfter` close the archive when they end if it is true.
//
// The operations are declared in their virtual-table order, which hosts call
// by: never insert, remove or reorder one.
class ZEFArchReader {
 public:
  virtual ~ZEFArchReader() = default;

  // Opens `name` with the current flags and a root derived from `name`
  // ("dir/app.zef" and "dir/app" both give "dir/app_qrt/"). Results as open().
  virtual int openDefault(const char* name) = 0;

  // The same as openDefault(name); `directory` has no effect.
  virtual int openDefaultIn(const char* name, const char* directory) = 0;

  // Stores both flags, then opens the archive `name` (its first 255
  // characters), or `name` with ".zef" appended when no file `name` exists.
  // The root is left as it is. Returns 0 with the first entry current; -102
  // when neither file exists; -104 when the file is no readable ZIP archive.
  // An archive already open is closed first.
  virtual int open(const char* name, bool overwrite, bool usePaths) = 0;

  // Sets the root derived from `name` (even when opening then fails) and
  // opens as open() does. `unused` has no effect.
  virtual int openWithDerivedRoot(const char* name, const char* unused, bool overwrite,
                                  bool usePaths) = 0;

  // Sets the root to `root` exactly as given (no "/" is added) and opens as
  // open() does.
  virtual int openWithRoot(const char* name, const char* root, bool overwrite, bool usePaths) = 0;

  // Extracts every entry from the current one to the last: directories,
  // regular files with their modification time and permission bits, and
  // symbolic links. Stops at the first failure and returns its status (a
  // negative value); a file being written when it failed stays on disk.
  virtual int extractAll(bool closeAfter) = 0;

  // Extracts the one entry named `entryName`, matched without regard to
  // ASCII case. Returns 0 when it was extracted, 1 when its extraction
  // failed, 2 when no entry has that name (the archive then stays open
  // whatever `closeAfter` says). The found entry stays current.
  virtual int extractEntry(const char* entryName, bool closeAfter) = 0;

  // Prints a heading on the error channel and one row per entry, from the
  // current one to the last, on the output channel: sizes, method, ratio,
  // date, time, CRC-32 and name. Always returns 0; the current entry is left
  // on the last one listed.
  virtual int listContents(bool closeAfter) = 0;

  // Closes the archive and its file. Returns 0, or -102 when nothing is open.
  virtual int close() = 0;

  // openDefault(name), extractAll, close. Returns the first failure, else 0.
  virtual int unzipAll(const char* name) = 0;

  // As unzipAll, but extracts below `directory`: the root becomes
  // `directory`, with a "/" added when it does not end in one (so an empty
  // text means the file-system root). A null `directory` keeps the derived root.
  virtual int unzipAllTo(const char* name, const char* directory) = 0;

  // openDefault(name), then extractEntry for each name in order; stops at
  // the first that returns non-zero and returns that value (1 or 2) after
  // closing. Otherwise returns the result of close.
  virtual int unzipFiles(const char* name, const std::vector<std::string>& entryNames) = 0;

  // openDefault(name), listContents, close. Returns the open failure or the
  // result of close.
  virtual int listArchive(const char* name) = 0;

  virtual bool getOverwrite() const = 0;
  virtual bool getUsePaths() const = 0;

  // Each sets its flag for the following operations; the opening operations
  // that take flags replace both. Return 0.
  virtual int setOverwrite(bool overwrite) = 0;
  virtual int setUsePaths(bool usePaths) = 0;
};

#endif
