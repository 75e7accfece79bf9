// The archive audit: reads an archive's end record and central directory on
// its own, bounded terms, and says entry by entry what would make extracting
// it unsafe or impossible. It never writes, never prints, and trusts no
// offset, size or count it reads. Only zef uses it; nothing here is exported.
#ifndef KXZEF_AUDIT_ARCHIVE_AUDIT_H
#define KXZEF_AUDIT_ARCHIVE_AUDIT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kxzef {

// Results of auditArchive and testArchive.
constexpr int AuditOk = 0;             // the walk finished; the report may still hold findings
constexpr int AuditCannotOpen = -1;    // the file could not be opened or read (errno says why)
constexpr int AuditNotAnArchive = -2;  // no end record, or a central directory that cannot be walked

// What a finding is about. Each has one plain-words description (findingText).
enum class FindingKind {
  AbsoluteName,         // the name starts with "/"
  ParentComponent,      // a ".." component
  Backslash,            // a "\" anywhere (a Windows separator to other tools)
  EmptyName,            // no name at all
  NulInName,            // a NUL byte inside the stored name
  NameTooLong,          // longer than the reading core's name buffer
  NameCollision,        // two entries that write one path (cut as the reader cuts, "." and empty components dropped)
  ThroughArchiveLink,   // a parent of the name is a link entry of the same archive
  ThroughExistingLink,  // a parent of the name is a link already on disk below the destination
  SharedLocalHeader,    // several central records point at one local header
  OverlappingData,      // the entry's data overlaps another entry's or the directory
  CountMismatch,        // the end record counts more or fewer records than the directory holds
  Encrypted,            // the encryption flag is set
  DataDescriptor,       // sizes and CRC follow the data instead of the header
  UnsupportedMethod,    // neither stored nor deflated; the detail names the method
  SpecialModeBits,      // set-user-ID, set-group-ID or sticky
  Zip64,                // ZIP64 records or 0xFFFFFFFF markers
  MultiDisk,            // split over several disks
  TotalSizeTooLarge,    // the declared sizes add up past the limit
  LocalHeaderMismatch,  // the local header is missing, damaged or disagrees with the central one
  BadData,              // testArchive only: the data does not give the declared size and CRC-32
};

struct AuditFinding {
  FindingKind kind;
  int64_t entryIndex;      // index into AuditReport::entries, -1 for the archive as a whole
  std::string detail;      // plain words, without the entry name ("uses LZMA, which is not supported")
};

// One central record as the audit read it. Every field is the archive's
// claim, not a fact about the data.
struct AuditEntry {
  std::string name;            // the stored bytes, NULs included
  uint16_t versionMadeBy = 0;  // the high byte is the system: 3 is Unix
  uint16_t flags = 0;
  uint16_t method = 0;
  uint32_t dosDateTime = 0;    // time in the low 16 bits, date in the high
  uint32_t crc = 0;
  uint64_t compressedSize = 0;
  uint64_t uncompressedSize = 0;
  uint32_t externalAttributes = 0;
  uint64_t localHeaderOffset = 0;  // as recorded; ZIP64 values where the record marks them
  // The file position where the data starts (bytes ahead of the archive, a
  // self-extractor's stub, counted), from the local header; 0 when the local
  // header is missing or cut short.
  uint64_t dataOffset = 0;
  bool hasUnixMode = false;    // made on Unix with a nonzero high half of the external attributes, as unzip reads it
  bool isDirectory = false;    // a name ending in "/" or a directory mode
  // A link mode, or the Unix extra block with a target that the library's
  // extraction makes links from; never for a name ending in "/". The target
  // is the entry's data (and the block's text).
  bool isLink = false;
  uint32_t mode = 0;           // the high 16 bits as stored (permission bits, file type when given); 0 without a Unix mode
};

struct AuditOptions {
  // Declared uncompressed bytes allowed in all; 0 lifts the limit.
  uint64_t maxTotalSize = 0;
  // When not empty, the directory extraction will write below: names that
  // pass through a link already there are findings.
  std::string destination;
};

struct AuditReport {
  std::vector<AuditEntry> entries;     // in central directory order
  std::vector<AuditFinding> findings;  // in entry order, archive-wide ones first
  uint64_t archiveSize = 0;
  uint64_t totalUncompressed = 0;      // the sum the size limit is checked against
  bool safe() const { return findings.empty(); }
};

// The default size limit for an archive of `archiveSize` bytes: a multiple
// of it generous enough for any real deflate stream, never below 1 GiB.
uint64_t defaultMaxTotalSize(uint64_t archiveSize);

// Audits the archive at `path` into `report` (cleared first). AuditOk when
// the directory could be walked, whatever was found; otherwise the status
// says why and `report` holds what was read before the walk stopped. Memory
// grows with the records actually read, never with a claimed count; with a
// destination, each distinct parent path below it costs one lstat.
int auditArchive(const char* path, const AuditOptions& options, AuditReport& report);

// Reads and inflates every entry of an audited archive without writing
// anything, checking each one's size and CRC-32; each failure is appended
// to `failures` as a BadData finding with the entry's index and a plain
// cause ("failed its CRC check", "ends before its declared size", "inflates
// past its declared size", "has damaged compressed data"). Inflation stops
// one byte past the declared size, so the time spent is bounded by the sizes
// the report declares. Returns AuditOk, or AuditCannotOpen when the file
// could not be opened or read (errno says why; failures found before stay).
// Entries the audit refused for encryption or method, and entries without a
// whole local header, are skipped: their findings already say why.
int testArchive(const char* path, const AuditReport& report, std::vector<AuditFinding>& failures);

// testArchive for the entries from `first` up to (not including) `last`
// only, with a file and buffers of its own, so that several ranges can be
// tested at once.
int testEntries(const char* path, const AuditReport& report, size_t first, size_t last,
                std::vector<AuditFinding>& failures);

// The kind as plain words for a listing of findings ("absolute name").
const char* findingText(FindingKind kind);

// `name` quoted for a terminal: printable ASCII as is, everything else and
// the quote itself escaped ("\x00", "\\", "\n", "\'", "\t", "\r").
std::string quotedName(const std::string& name);

}  // namespace kxzef

#endif
