// The source-file reader: how the creation run obtains the bytes of one input
// (a file, with or without a content transform, a directory or a symbolic
// link). Readers are made by the library; they never own the input stream.
#ifndef KXZEFARCHIVER_ZEFFILEREADER_H
#define KXZEFARCHIVER_ZEFFILEREADER_H

#include <fstream>

#include "kxzefarchiver/ZEFByteArray.h"
#include "kxzefarchiver/ZEFTransform.h"

// Status values of a reader: 0 no error; -1000 no input stream or its file
// is not open; -1001 the input stream is in an error state; -1003 the
// transform failed or gave an empty output it does not accept; -1004 the
// input is empty (refused: an archive entry must have content). The virtual
// operations are declared in their table order, which hosts call by.
class ZEFFileReader {
 public:
  virtual ~ZEFFileReader();

  // Text appended to the entry's destination name: the transform's name for
  // a transforming reader, "" for every other reader. Owned by the reader or
  // its transform; valid while the reader lives.
  virtual const char* name() = 0;

  // Copies up to `n` next bytes of the input into `buf`. Returns the number
  // of bytes copied, 0 at the end of the input, or -1 on failure (getStatus
  // then tells why, except for a stream that failed mid-read).
  virtual int read(char* buf, unsigned n) = 0;

  // Clears the status, then reads as `read` does.
  virtual int readFresh(char* buf, unsigned n);

  // The whole input at once, as `getContent(holder)` with a holder of its own.
  virtual ZEFByteArray* getContent();

  // The whole input at once: the file's bytes, a link's target text, nothing
  // for a directory, or a transform's output. The array belongs to the reader
  // and stays valid until its next call or its destruction. Loading a file
  // does not move the position that `read` continues from.
  virtual ZEFByteArray* getContent(ZEFResultHolder* holder);

  // True while more bytes can be read.
  virtual bool hasMore();

  // The status of the last operation; see above.
  virtual int getStatus();

  // True while the status is 0.
  virtual bool isOk();

  // For stream readers: -1000 when there is no stream or its file is not
  // open, -1001 when the stream is not in the good state, else 0. Readers
  // that take their input by path return 0.
  virtual int checkInput();

  ZEFFileReader(const ZEFFileReader&) = delete;
  ZEFFileReader& operator=(const ZEFFileReader&) = delete;

 protected:
  ZEFFileReader(std::ifstream* input, bool hasMore);

  // Reads the whole file behind `input_` into `content_` and puts the read
  // position back; leaves `content_` empty when the stream is missing,
  // closed, not good or cannot be sized. Sets the status to 0.
  ZEFByteArray* loadWholeFile();

  std::ifstream* input_;  // borrowed; null for directories and links
  ZEFByteArray content_;
  bool hasMore_;
  int status_ = 0;
};

#endif
