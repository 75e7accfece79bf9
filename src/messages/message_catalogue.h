// The numbered message catalogue: every diagnostic, warning, prompt and
// heading the library prints. Numbers are facility 59 in the upper half and
// the index in the lower half; texts are printf formats with %s and %d only.
#ifndef KXZEF_MESSAGES_MESSAGE_CATALOGUE_H
#define KXZEF_MESSAGES_MESSAGE_CATALOGUE_H

#include <cstdint>

#include "host/host.h"

namespace kxzef {

constexpr uint32_t MessageFacility = 59;
constexpr uint32_t MessageCount = 53;

constexpr uint32_t messageNumber(uint32_t index) { return (MessageFacility << 16) | index; }

// clang-format off
constexpr uint32_t ZEFARCHIVER_FILE_EXISTS = messageNumber(1);
constexpr uint32_t ZEFARCHIVER_ERROR_OPENING_FILE = messageNumber(2);
constexpr uint32_t ZEFARCHIVER_MEM_ALLOC_ERROR = messageNumber(3);
constexpr uint32_t ZEFARCHIVER_ERROR_OPENING_IN_ZIP = messageNumber(4);
constexpr uint32_t ZEFARCHIVER_ERROR_READING_FILE = messageNumber(5);
constexpr uint32_t ZEFARCHIVER_BAD_ZERO_LENGTH_FILE = messageNumber(6);
constexpr uint32_t ZEFARCHIVER_ERROR_WRITING_FILE_IN_ZIP = messageNumber(7);
constexpr uint32_t ZEFARCHIVER_ERROR_WRITING_FILE = messageNumber(8);
constexpr uint32_t ZEFARCHIVER_ERROR_OPENING_FILE_FOR_READ = messageNumber(9);
constexpr uint32_t ZEFARCHIVER_ERROR_CREATING_READER = messageNumber(10);
constexpr uint32_t ZEFARCHIVER_ERROR_SYSTEM_ERROR_TEXT = messageNumber(11);
constexpr uint32_t ZEFARCHIVER_ERROR_CLOSING_FILE_IN_ZIP = messageNumber(12);
constexpr uint32_t ZEFARCHIVER_ERROR_CLOSING_FILE = messageNumber(13);
constexpr uint32_t ZEFARCHIVER_ERROR_COMPUTING_ZEF_LINK_TARGET = messageNumber(14);
constexpr uint32_t ZEFARCHIVER_ERROR_RELATIVE_PATH_LINK = messageNumber(15);
constexpr uint32_t ZEFARCHIVER_ERROR_ABSOLUTE_PATH_LINK = messageNumber(16);
constexpr uint32_t ZEFARCHIVER_ERROR_ABSOLUTE_PATH_FILE = messageNumber(17);
constexpr uint32_t ZEFARCHIVER_ERROR_DUPLICATE_SOURCE_FILE = messageNumber(18);
constexpr uint32_t ZEFARCHIVER_ERROR_DUPLICATE_DESTINATION_FILE = messageNumber(19);
constexpr uint32_t ZEFARCHIVER_ERROR_UNREADABLE_LINK = messageNumber(20);
constexpr uint32_t ZEFARCHIVER_CANNOT_CANONICALIZE_RELATIVE_PATH = messageNumber(21);
constexpr uint32_t ZEFARCHIVER_WARN_UNREADABLE_PERM = messageNumber(22);
constexpr uint32_t UNZIPDRIVER_ERROR = messageNumber(23);
constexpr uint32_t UNZIPDRIVER_ZIPFILE = messageNumber(24);
constexpr uint32_t UNZIPDRIVER_FILE_INFO_HEADER = messageNumber(25);
constexpr uint32_t UNZIPDRIVER_ZIPFILE_GETCURRENTFILEINFO = messageNumber(26);
constexpr uint32_t UNZIPDRIVER_ZIPFILE_GOTONEXTFILE = messageNumber(27);
constexpr uint32_t UNZIPDRIVER_MEMORY_ERROR = messageNumber(28);
constexpr uint32_t UNZIPDRIVER_ZIPFILE_OPENCURRENTFILE = messageNumber(29);
constexpr uint32_t UNZIPDRIVER_FILE_EXISTS = messageNumber(30);
constexpr uint32_t UNZIPDRIVER_ERROR_OPENING_FILE = messageNumber(31);
constexpr uint32_t UNZIPDRIVER_ZIPFILE_IN_UNZREADCURRENTFILE = messageNumber(32);
constexpr uint32_t UNZIPDRIVER_ERROR_WRITING_EXTRACTED_FILE = messageNumber(33);
constexpr uint32_t UNZIPDRIVER_ZIPFILE_IN_CLOSECURRENTFILE = messageNumber(34);
constexpr uint32_t UNZIPDRIVER_ZIPFILE_IN_UNZGETGLOBALINFO = messageNumber(35);
constexpr uint32_t UNZIPDRIVER_FILE_NOT_FOUND = messageNumber(36);
constexpr uint32_t UNZIPDRIVER_ZEF_FILE_DOES_NOT_EXIST = messageNumber(37);
constexpr uint32_t UNZIPDRIVER_CANNOT_OPEN_FILE = messageNumber(38);
constexpr uint32_t UNZIPDRIVER_ERROR_SETTING_PERMISSIONS = messageNumber(39);
constexpr uint32_t UNZIPDRIVER_ERROR_CANNOT_CREATE_SYMLINK = messageNumber(40);
constexpr uint32_t UNZIPDRIVER_ERROR_CANNOT_CREATE_PLACEHOLDER = messageNumber(41);
constexpr uint32_t UNZIPDRIVER_ERROR_CANNOT_CLOSE_PLACEHOLDER = messageNumber(42);
constexpr uint32_t UNZIPDRIVER_ERROR_CREATING_SYMLINK_DIRECTORY = messageNumber(43);
constexpr uint32_t UNZIPDRIVER_ERROR_CREATING_EXTRACTION_DIR = messageNumber(44);
constexpr uint32_t ZEFARCHIVER_ERROR_CANNOT_CREATE_DIRECTORY = messageNumber(45);
constexpr uint32_t ZEFARCHIVER_APPEND_OR_OVERWRITE = messageNumber(46);
constexpr uint32_t ZEFARCHIVER_FAILED_TO_STAT = messageNumber(47);
constexpr uint32_t ZEFARCHIVER_STAT_EACCESS = messageNumber(48);
constexpr uint32_t ZEFARCHIVER_STAT_ENAMETOOLONG = messageNumber(49);
constexpr uint32_t ZEFARCHIVER_STAT_ENOTDIR = messageNumber(50);
constexpr uint32_t UNZIPDRIVER_REMOVE_FAILED = messageNumber(51);
constexpr uint32_t UNZIPDRIVER_WRITE_ACCESS_DENIED = messageNumber(52);
constexpr uint32_t ZEFARCHIVER_TEMP_FILE_REMOVE_FAILED = messageNumber(53);
// clang-format on

// The catalogue as registered with the message service, whole.
extern const host::MessageTable MessageCatalogue;

}  // namespace kxzef

#endif
