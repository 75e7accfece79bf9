// The steps auditArchive takes, one file each, and what they hand on. Inside
// the audit layer only; callers use archive_audit.h.
#ifndef KXZEF_AUDIT_AUDIT_STEPS_H
#define KXZEF_AUDIT_AUDIT_STEPS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "audit/archive_audit.h"
#include "audit/audit_file.h"

namespace kxzef {

// Where the end records place the central directory in the file.
struct DirectoryPlace {
  uint64_t directoryStart = 0;  // the file position of the first central header
  uint64_t directoryEnd = 0;    // the first byte after the directory: a ZIP64 end record or the end record
  uint64_t bytesBefore = 0;     // bytes ahead of the archive proper (a self-extractor's stub), added to every offset
  uint64_t countedEntries = 0;  // the entry count the end records claim
};

// Appends one finding; auditArchive puts them in entry order at the end.
void addFinding(AuditReport& report, FindingKind kind, int64_t entryIndex, std::string detail);

// Replaces the values marked 0xFFFFFFFF (0xFFFF for the disk) with those of
// the extra field's ZIP64 block, in the order the format gives; a null
// pointer is a field the header has not got. True when the block is there.
bool applyZip64Extra(const unsigned char* extra, size_t size, uint64_t& uncompressedSize,
                     uint64_t& compressedSize, uint64_t* localHeaderOffset, uint64_t* disk);

// Finds the end record in the file's last 64 KiB and 22 bytes, follows a
// ZIP64 locator when there is one, and reports ZIP64 and multi-disk
// archive-wide. AuditNotAnArchive when there is no end record or its
// directory cannot lie where it claims; AuditCannotOpen when a read failed.
int placeDirectory(AuditFile& file, AuditReport& report, DirectoryPlace& place);

// Reads the central headers that lie inside the directory's bytes, one entry
// each, with the findings a header alone shows (encryption, method, mode
// bits, ZIP64 fields, disks). The walk stops at the first record that is not
// a whole central header inside the directory; the entries grow only as
// records are actually read. AuditNotAnArchive when the end record counts
// entries and not one could be read.
int walkDirectory(AuditFile& file, const DirectoryPlace& place, AuditReport& report);

// Reads each entry's local header, sets its data offset, and reports headers
// that are missing, damaged or disagree with the central record.
int checkLocalHeaders(AuditFile& file, const DirectoryPlace& place, AuditReport& report);

// Reports local headers shared by several records, data ranges that overlap
// each other, and data that reaches into the central directory.
void checkDataLayout(const DirectoryPlace& place, AuditReport& report);

// Reports names that are unsafe in themselves, that collide, or that pass
// through a link (an entry of the archive, or one on disk below
// `destination` when it is not empty).
void checkNames(const std::string& destination, AuditReport& report);

}  // namespace kxzef

#endif
