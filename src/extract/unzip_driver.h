// The reader behind ZEFArchReader: opens one archive with the reading core,
// lists it and extracts it. It turns the core's statuses into catalogue
// messages; it never throws and never writes outside its output paths.
#ifndef KXZEF_EXTRACT_UNZIP_DRIVER_H
#define KXZEF_EXTRACT_UNZIP_DRIVER_H

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "extract/file_dispatch.h"
#include "kxzefarchiver/ZEFArchReader.h"
#include "zip/unzip_archive.h"

namespace kxzef {

// Extraction's one result of its own; every other result is a core status.
// The readers' -1000 ("no input stream") is another code that shares the
// number: it is a ReaderStatus and never meets this one.
constexpr int StatusOutputFileError = -1000;  // an output file could not be opened

// Results of extractEntry.
constexpr int EntryExtracted = 0;
constexpr int EntryFailed = 1;
constexpr int EntryNotFound = 2;

constexpr size_t ArchiveNameLimit = 255;  // characters of an archive name that open() uses
constexpr size_t EntryNameBufferSize = 256;
// Large enough that most files are written in one call, small enough to stay
// out of the way: one buffer per driver, reused for every entry.
constexpr size_t TransferBufferSize = size_t{64} << 10;

class UnzipDriver : public ZEFArchReader {
 public:
  UnzipDriver() = default;
  // Releases the archive state, and with it the file, without closing
  // through the reading core.
  ~UnzipDriver() override = default;
  UnzipDriver(const UnzipDriver&) = delete;
  UnzipDriver& operator=(const UnzipDriver&) = delete;

  int openDefault(const char* name) override;
  int openDefaultIn(const char* name, const char* directory) override;
  int open(const char* name, bool overwrite, bool usePaths) override;
  int openWithDerivedRoot(const char* name, const char* unused, bool overwrite, bool usePaths) override;
  int openWithRoot(const char* name, const char* root, bool overwrite, bool usePaths) override;
  int extractAll(bool closeAfter) override;
  int extractEntry(const char* entryName, bool closeAfter) override;
  int listContents(bool closeAfter) override;
  int close() override;
  int unzipAll(const char* name) override;
  int unzipAllTo(const char* name, const char* directory) override;
  int unzipFiles(const char* name, const std::vector<std::string>& entryNames) override;
  int listArchive(const char* name) override;
  bool getOverwrite() const override { return overwrite; }
  bool getUsePaths() const override { return usePaths; }
  int setOverwrite(bool value) override;
  int setUsePaths(bool value) override;

  // Extracts the entry current in the reading core, which stays current.
  // 0 on success (skipped entries included), else a negative status.
  int extractCurrentEntry();

  const std::string& getRoot() const { return root; }

  // Takes regular files off extractAll when set (zef's engine; never set
  // through the exports). Borrowed.
  FileDispatch* dispatch = nullptr;

 private:
  // The current entry's header with its name cut to EntryNameBufferSize
  // bytes and always terminated; reports a failure of the core.
  using EntryName = std::array<char, EntryNameBufferSize + 1>;
  int readEntryName(EntryInfo& info, EntryName& name);

  // Steps of extractCurrentEntry, each reporting its own failures.
  int readLinkEntry(const EntryInfo& info, bool& isLink, std::string& linkTarget);
  int writeTarget(const std::string& target, size_t fileNameStart, const EntryInfo& info, bool isLink,
                  const std::string& linkTarget, unsigned char* buffer);
  int writeRegularFile(const std::string& target, size_t fileNameStart, const EntryInfo& info,
                       unsigned char* buffer);
  int copyEntryData(std::FILE* file, unsigned char* buffer);

  int extractAllAndClose();

  // extractAll's steps with a dispatch (dispatched_extraction.cpp).
  enum class EntryRoute { Hand, HereAtOnce, HereAfterHanded, Done };
  int extractOrHand();
  EntryRoute routeEntry();
  bool isLinkEntry(uint64_t extraLength);
  bool linkMadeAtOnce(const char* name);
  int settleHanded(bool resume);
  int endHanding(int status);

  // Paths of the files handed over since the last settle, as hashes; a file
  // whose path meets one of them is not handed over.
  class HandedPaths {
   public:
    void reserve(uint64_t entries);
    bool meets(const std::string& path) const;  // the same path, or one of its directories
    void add(const std::string& path);
    void clear();

   private:
    bool contains(uint64_t hash) const;
    std::vector<uint64_t> table_;
    std::vector<size_t> used_;
  };

  bool overwrite = true;
  bool usePaths = true;
  std::string root;
  UnzipArchive archive;
  FileJob job_;                        // the entry being handed over
  std::string directory_;              // the directory made for the last file handed over
  std::vector<unsigned char> extra_;   // an entry's extra field, to tell a link
  std::string linkText_;
  HandedPaths handed_;
  std::unique_ptr<unsigned char[]> transfer_;  // TransferBufferSize bytes, made at the first file
};

}  // namespace kxzef

#endif
