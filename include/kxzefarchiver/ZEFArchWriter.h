// The writer interface: creates a ZEF archive from an ordered map of inputs.
// Obtain one from getZipWriter(); the caller owns it and deletes it through
// the virtual destructor.
#ifndef KXZEFARCHIVER_ZEFARCHWRITER_H
#define KXZEFARCHIVER_ZEFARCHWRITER_H

#include <iosfwd>

#include "kxzefarchiver/ZEFEntryMap.h"
#include "kxzefarchiver/export.h"

class ZEFFileReader;
struct TransformRule;

// The caller-owned state of one creation run. Create it with every field
// null or false. The run keeps the current input's reader and stream here
// between steps; when a run fails early they stay set, and the caller must
// then close and delete `currentStream` and delete `currentReader`.
struct CreationContext {
  const char* currentSource = nullptr;     // the input being processed (borrowed)
  ZEFFileReader* currentReader = nullptr;  // owned by the context while set
  std::ifstream* currentStream = nullptr;  // owned by the context while set
  TransformRule* transformRules = nullptr; // the caller's chain; never freed by the run
  bool isLink = false;
  bool isDirectory = false;
};

class ZEFArchWriter {
 public:
  virtual ~ZEFArchWriter() = default;

  // Opens a new archive for writing, created or truncated. At most 255 bytes
  // of `name` are used; ".zef" is appended when the name is empty or holds no
  // "." anywhere (directories included). Returns 0, -102 when the file exists
  // and overwriting is off, -1 when it cannot be opened. Messages go to the
  // error channel.
  virtual int open(const char* name) = 0;

  // Stores `overwrite` and `level` (kept even when the open then fails), then
  // calls open(name).
  virtual int openWithOptions(const char* name, bool overwrite, int level) = 0;

  // Adds one entry per input, in key order, and the files that symbolic
  // links among them point to; closes the archive when `closeWhenDone` is
  // set. Returns 0, or the first failure's code (already reported).
  virtual int addInputs(ZEFEntryMap& inputs, CreationContext* context, bool closeWhenDone) = 0;

  // Writes the central directory and closes the archive; 0 on success.
  virtual int close() = 0;

  // open(name), then addInputs(inputs, context, true). When adding fails, the
  // file called exactly `name` is removed (not the name with ".zef" added)
  // and the failure is returned.
  virtual int createArchive(const char* name, ZEFEntryMap& inputs, CreationContext* context) = 0;

  virtual bool getOverwrite() = 0;
  virtual int getCompressionLevel() = 0;
  virtual void setOverwrite(bool overwrite) = 0;

  // 0 stores entries uncompressed; 1-9 deflate at that level. Default 6.
  virtual void setCompressionLevel(int level) = 0;
};

// A new writer with overwrite on and compression level 6. The caller owns it.
KXZEF_EXPORT ZEFArchWriter* getZipWriter();

#endif
