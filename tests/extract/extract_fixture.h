// What the extraction tests share: captured channels, a look at paths on
// disk, and one set of archives made by peer tools from the same files.
#ifndef KXZEF_TESTS_EXTRACT_EXTRACT_FIXTURE_H
#define KXZEF_TESTS_EXTRACT_EXTRACT_FIXTURE_H

#include <sys/stat.h>
#include <utime.h>

#include <memory>
#include <string>
#include <vector>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef::testing {

// A file packed by the peers; its time is an even second, as DOS times keep 2-second steps.
struct PeerFile { std::string name, content; unsigned mode; time_t modified; };
inline const std::vector<PeerFile> PeerFiles = {
    {"tree/plain.txt", "plain text\n", 0640, 1563111926},
    {"tree/nested/deeper/data.bin", std::string(30000, 'd') + "tail", 0751, 1041476646},  // several buffers
    {"tree/nested/empty.txt", "", 0400, 820454398},
};
// sfx.zip is deflated.zip behind a self-extractor's stub; adjusted.zip the same with its offsets counted from the
// file's start (zip -A).
inline const char* const PeerArchives[] = {"deflated.zip", "stored.zip", "python.zip", "sfx.zip", "adjusted.zip"};

class ExtractTest : public TempDirTest {
 protected:
  static std::unique_ptr<ZEFArchReader> newReader() { return std::unique_ptr<ZEFArchReader>(getZipReader()); }

  // A reader, as a host gets it, on `entries` written as "app.zef", extracting below the current directory.
  std::unique_ptr<ZEFArchReader> openArchive(const std::vector<HandEntry>& entries, bool overwrite = true,
                                             bool usePaths = true) const {
    writeFile("app.zef", buildArchive(entries));
    auto reader = newReader();
    EXPECT_EQ(reader->openWithRoot("app.zef", "", overwrite, usePaths), 0);
    return reader;
  }

  // Writes PeerFiles (and the empty directory "tree/hollow") and packs them
  // with Info-ZIP zip, deflated and stored, and with Python's zipfile, given
  // modes and times explicitly; then the two prefixed copies. False when a tool is missing.
  bool makePeerArchives() const {
    if (!haveProgram("zip") || !haveProgram("unzip") || !haveProgram("python3")) return false;
    for (const PeerFile& file : PeerFiles) {
      writeFile(file.name, file.content, file.mode);
      const utimbuf times{file.modified, file.modified};
      EXPECT_EQ(utime(file.name.c_str(), &times), 0);
    }
    EXPECT_EQ(mkdir("tree/hollow", 0700), 0);
    writeFile("python.py", R"(import os, time, zipfile
with zipfile.ZipFile('python.zip', 'w') as archive:
    for directory, _, files in sorted(os.walk('tree')):
        archive.writestr(zipfile.ZipInfo(directory + '/'), b'')
        for path in [os.path.join(directory, name) for name in files]:
            info = zipfile.ZipInfo(path, date_time=time.localtime(os.stat(path).st_mtime)[:6])
            info.external_attr = os.stat(path).st_mode << 16
            archive.writestr(info, open(path, 'rb').read(), 8 if 'data' in path else 0)  # deflated or stored
)");
    return runCommand("zip -qr deflated.zip tree && zip -qr0 stored.zip tree && python3 python.py && "
                      "printf MZ-stub | cat - deflated.zip >sfx.zip && cp sfx.zip adjusted.zip && "
                      "zip -qA adjusted.zip") == 0;
  }

  ChannelCapture capture;
};

}  // namespace kxzef::testing

#endif
