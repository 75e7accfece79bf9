// What the extraction tests share: a fresh directory with the channels
// captured, a look at paths on disk, and archives made by peer tools.
#ifndef KXZEF_TESTS_EXTRACT_EXTRACT_FIXTURE_H
#define KXZEF_TESTS_EXTRACT_EXTRACT_FIXTURE_H

#include <cstdint>
#include <memory>
#include <string>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef::testing {

// What lstat says about a path.
struct PathStatus {
  bool exists = false;
  bool isDirectory = false;
  unsigned permissions = 0;  // the low 12 bits of the mode
  int64_t modified = 0;      // seconds since the epoch
};

PathStatus statusOf(const std::string& path);

// The text of the link at `path`, or "<no link>".
std::string linkTargetOf(const std::string& path);

// The DOS date/time word of a local time (month 1-12).
uint32_t dosDate(int year, int month, int day, int hour, int minute, int second);

// The seconds since the epoch of a local time (month 1-12), as mktime gives them.
int64_t localSeconds(int year, int month, int day, int hour, int minute, int second);

// Runs `program` with python3 from a script file in the current directory;
// returns its exit status.
int runPython(const std::string& program);

class ExtractTest : public TempDirTest {
 protected:
  // A reader from the exported factory, as a host gets it.
  static std::unique_ptr<ZEFArchReader> newReader() { return std::unique_ptr<ZEFArchReader>(getZipReader()); }

  ChannelCapture capture;
};

}  // namespace kxzef::testing

#endif
