// The archive listing and extraction of one entry by name. The listing's
// row format is fixed (hosts parse it): widths, the doubled percent sign and
// the channel split of heading and rows must not change.
#include "extract/unzip_driver.h"

#include <iomanip>
#include <ios>
#include <ostream>

#include "extract/driver_report.h"
#include "messages/channels.h"
#include "messages/message_catalogue.h"

namespace kxzef {

namespace {

constexpr int SizeWidth = 71;
constexpr int MethodWidth = 6;
constexpr int RatioWidth = 31;
// Kept: part of the row's fixed format, though it has no effect on integers (no
// zero padding); it stays set on the channel's stream, where hosts can see it.
constexpr std::streamsize DatePrecision = 21;
constexpr uint64_t LevelFlagsMask = 6;         // bits 1-2 of the flags: the deflate level hint

const char* methodLabel(const EntryInfo& info) {
  if (info.compressionMethod == MethodStored) return "Stored";
  if (info.compressionMethod != MethodDeflated) return "Unkn. ";
  switch ((info.flags & LevelFlagsMask) >> 1) {
    case 0:
      return "Defl:N";
    case 1:
      return "Defl:X";
    default:
      return "Defl:F";
  }
}

// The compressed size as a percentage of the uncompressed size.
uint64_t ratio(const EntryInfo& info) {
  return info.uncompressedSize == 0 ? 0 : info.compressedSize * 100 / info.uncompressedSize;
}

// One row on the output channel. The channel's format flags are shared with
// every other writer, so they are put back as they were; the precision is not.
void printListingRow(const EntryInfo& info, const char* name) {
  std::ostream& out = getOutputStream();
  const std::ios_base::fmtflags savedFlags = out.flags();
  const char savedFill = out.fill(' ');
  // Whatever another writer left set (a base, showbase, left alignment), the
  // row is printed in decimal, right-aligned, and only the CRC in hexadecimal.
  out.flags(std::ios_base::dec | std::ios_base::right);
  out << std::setw(SizeWidth) << info.uncompressedSize << "  " << std::setw(MethodWidth) << methodLabel(info)
      << " " << std::setw(SizeWidth) << info.compressedSize << " " << std::setw(RatioWidth) << ratio(info)
      << "%%" << "  ";
  out.precision(DatePrecision);
  const ZipTime& time = info.modified;
  out << time.month + 1 << "-" << time.dayOfMonth << "-" << time.year % 100 << "  " << time.hour << ":"
      << time.minute << "  ";
  out.setf(std::ios_base::hex, std::ios_base::basefield);
  out << info.crc << "  " << name << std::endl;
  out.flags(savedFlags);
  out.fill(savedFill);
}

}  // namespace

int UnzipDriver::listContents(bool closeAfter) {
  uint64_t count = 0;
  uint64_t commentLength = 0;
  if (int status = archive.getGlobalInfo(&count, &commentLength); status != StatusOk) {
    reportCoreFailure(status, UNZIPDRIVER_ZIPFILE);
    count = 0;  // what the core left there is not a count
  }
  reportError(UNZIPDRIVER_FILE_INFO_HEADER);
  for (uint64_t index = 0; index < count;) {
    EntryInfo info{};
    EntryName name{};
    if (readEntryName(info, name) != StatusOk) break;
    printListingRow(info, name.data());
    if (++index < count) {
      if (int status = archive.goToNextEntry(); status != StatusOk) {
        reportCoreFailure(status, UNZIPDRIVER_ZIPFILE_GOTONEXTFILE);
        break;
      }
    }
  }
  if (closeAfter) close();
  return StatusOk;
}

int UnzipDriver::extractEntry(const char* entryName, bool closeAfter) {
  const char* wanted = entryName == nullptr ? "" : entryName;
  if (archive.locateEntry(wanted, CaseInsensitive) != StatusOk) {
    // The archive stays open: the caller may go on looking for other names.
    reportError(UNZIPDRIVER_FILE_NOT_FOUND, wanted);
    return EntryNotFound;
  }
  const int result = extractCurrentEntry() == StatusOk ? EntryExtracted : EntryFailed;
  if (closeAfter) close();
  return result;
}

}  // namespace kxzef
