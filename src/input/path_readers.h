// Readers for inputs taken by path rather than by stream: a directory, which
// has no content, and a symbolic link, whose content is its target text.
#ifndef KXZEF_INPUT_PATH_READERS_H
#define KXZEF_INPUT_PATH_READERS_H

#include <string>

#include "kxzefarchiver/ZEFFileReader.h"

namespace kxzef {

// What both readers by path share: no stream, no name, nothing to check.
class ZEFPathReader : public ZEFFileReader {
 public:
  explicit ZEFPathReader(std::string path);

  const char* name() override;
  int checkInput() override;

 protected:
  std::string path_;
};

// Delivers nothing, always with status 0. The path is kept for the record;
// no operation needs it.
class ZEFDirectoryReader : public ZEFPathReader {
 public:
  using ZEFPathReader::ZEFPathReader;

  // Copies nothing and returns 0.
  int read(char* buf, unsigned n) override;
  using ZEFFileReader::getContent;
  // Clears the content and returns it (empty).
  ZEFByteArray* getContent(ZEFResultHolder* holder) override;
};

// Delivers the link's own target text, without following it and without a
// terminating NUL; a dangling link delivers its text all the same.
class ZEFSymbolicLinkReader : public ZEFPathReader {
 public:
  using ZEFPathReader::ZEFPathReader;

  // Reloads the target text and copies its first min(n, length) bytes.
  // Returns that count: 0 when the link cannot be read. Never -1.
  int read(char* buf, unsigned n) override;
  using ZEFFileReader::getContent;
  // The target text; empty when lstat or readlink fails.
  ZEFByteArray* getContent(ZEFResultHolder* holder) override;
};

}  // namespace kxzef

#endif
