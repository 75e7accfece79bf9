// zefCreateZipFile end to end: a realistic application tree goes in, our own
// extraction and independent ZIP tools check what comes out.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kxzefarchiver/zefarchiver.h"
#include "support/archive_bytes.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "zip/zip_time.h"

namespace kxzef {
namespace {

using testing::ArchiveBytes;
using testing::ChannelCapture;
using testing::parseArchive;

struct FileSpec {
  std::string name;  // below app/
  std::string content;
  mode_t mode;
};

struct LinkSpec {
  std::string name;       // below app/
  std::string onDisk;     // the target as the link holds it ("@" stands for the test directory)
  std::string stored;     // the target the archive must carry ("@" likewise, without its leading "/")
};

std::string binary(size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 2654435761u + seed) >> 11);
  return bytes;
}

class CreateEntryPoint : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    root_ = path();
    files_ = {
        {"bin/launch", "#!/bin/sh\nexec \"$(dirname \"$0\")/../lib/app\" \"$@\"\n", 0755},
        {"bin/setuid-tool", binary(3000, 7), 04755},
        {"lib/libcore.so.1.2", binary(100000, 1), 0644},
        {"etc/app.conf", "# settings\nmode = fast\nthreads = 4\n", 0600},
        {"data/deep/nested/table.bin", binary(5000, 3), 0640},
    };
    links_ = {
        {"lib/libcore.so", "libcore.so.1.2", "libcore.so.1.2"},                    // relative, same directory
        {"bin/core", "../lib/libcore.so.1.2", "../lib/libcore.so.1.2"},            // relative with "../"
        {"etc/abs-conf", "@/app/etc/app.conf", "app.conf"},                        // absolute, into the tree
        {"bin/ext-link", "@/outside/ext.txt", "../../@/outside/ext.txt"},          // absolute, out of the tree
        {"bin/dangling", "../nowhere/missing", "../nowhere/missing"},              // points at nothing
        {"bin/extra-link", "../share/notlisted.txt", "../share/notlisted.txt"},    // target not among the inputs
    };
    for (const FileSpec& file : files_) {
      writeFile("src/app/" + file.name, file.content, 0644);
      ASSERT_EQ(chmod(path("src/app/" + file.name).c_str(), file.mode), 0);
    }
    writeFile("src/app/share/notlisted.txt", "found through a link\n");
    writeFile("src/outside/ext.txt", "outside the tree\n");
    for (const LinkSpec& link : links_) ASSERT_EQ(symlink(expand(link.onDisk).c_str(), src(link.name).c_str()), 0);
    // Even seconds, so that the DOS time holds them exactly.
    struct timespec times[2] = {{1200000000, 0}, {1200000000, 0}};
    for (const FileSpec& file : files_) utimensat(AT_FDCWD, src(file.name).c_str(), times, 0);
  }

  // "@" stands for the test directory's source area (with or without its leading "/").
  std::string expand(const std::string& text) const {
    const size_t at = text.find('@');
    if (at == std::string::npos) return text;
    const std::string base = path("src");
    return text.substr(0, at) + (at == 0 ? base : base.substr(1)) + text.substr(at + 1);
  }
  std::string src(const std::string& name) const { return path("src/app/" + name); }

  // Archives the given names (files, links, directories) with destinations "app/<name>".
  bool createFrom(const std::vector<std::string>& names, const std::string& archive = "app.zef") {
    std::vector<std::string> sources, destinations;
    for (const std::string& name : names) {
      sources.push_back(src(name));
      destinations.push_back("app/" + name);
    }
    std::vector<const char*> sourcePointers, destinationPointers;
    for (size_t i = 0; i < names.size(); ++i) {
      sourcePointers.push_back(sources[i].c_str());
      destinationPointers.push_back(destinations[i].c_str());
    }
    return zefCreateZipFile(archive.c_str(), sourcePointers.data(), destinationPointers.data(),
                            static_cast<int>(names.size()));
  }

  std::vector<std::string> allNames(bool withLinks) const {
    std::vector<std::string> names;
    for (const FileSpec& file : files_) names.push_back(file.name);
    names.push_back("data");  // a directory input
    if (withLinks) {
      for (const LinkSpec& link : links_) names.push_back(link.name);
    }
    return names;
  }

  std::string root_;
  std::vector<FileSpec> files_;
  std::vector<LinkSpec> links_;
};

std::string readLink(const std::string& path) {
  char buffer[4096];
  const ssize_t length = readlink(path.c_str(), buffer, sizeof buffer);
  return length < 0 ? "<not a link>" : std::string(buffer, static_cast<size_t>(length));
}

TEST_F(CreateEntryPoint, WholeTreeRoundTripsThroughOurExtraction) {
  ChannelCapture capture;
  ASSERT_TRUE(createFrom(allNames(true)));
  ASSERT_EQ(mkdir("out", 0755), 0);
  ASSERT_EQ(chdir("out"), 0);
  EXPECT_EQ(zefExtractZipFile("../app.zef"), 1);
  EXPECT_EQ(capture.error(), "");
  for (const FileSpec& file : files_) {
    const std::string extracted = path("out/app/" + file.name);
    EXPECT_EQ(readFile(extracted), file.content) << file.name;
    struct stat status;
    ASSERT_EQ(stat(extracted.c_str(), &status), 0) << file.name;
    EXPECT_EQ(status.st_mode & 07777, file.mode & 0777) << file.name;  // set-user-ID dropped
    EXPECT_EQ(status.st_mtime, 1200000000) << file.name;
  }
  for (const LinkSpec& link : links_) {
    EXPECT_EQ(readLink(path("out/app/" + link.name)), expand(link.stored)) << link.name;
  }
  struct stat directory;
  EXPECT_EQ(stat(path("out/app/data/deep/nested").c_str(), &directory), 0);
  // Files reached only through links came along, under the names the links use.
  EXPECT_EQ(readFile(path("out/app/share/notlisted.txt")), "found through a link\n");
  EXPECT_EQ(readFile(path("out/app/bin/ext-link")), "outside the tree\n");
  EXPECT_EQ(readFile(path("out/app/bin/core")), files_[2].content);
}

TEST_F(CreateEntryPoint, ArchiveBytesCarryNamesOrderModesTimesAndLinkBlocks) {
  ASSERT_TRUE(createFrom(allNames(true)));
  const ArchiveBytes archive = parseArchive(readFile("app.zef"));
  ASSERT_TRUE(archive.valid);
  // Inputs in source-path order, then the files that links queued.
  std::vector<std::string> expected = {
      "app/bin/core",         "app/bin/dangling",       "app/bin/ext-link",     "app/bin/extra-link",
      "app/bin/launch",       "app/bin/setuid-tool",    "app/data/",            "app/data/deep/nested/table.bin",
      "app/etc/abs-conf",     "app/etc/app.conf",       "app/lib/libcore.so",   "app/lib/libcore.so.1.2",
  };
  std::vector<std::string> names;
  for (const auto& entry : archive.entries) names.push_back(entry.name);
  ASSERT_GE(names.size(), expected.size() + 2);
  EXPECT_EQ(std::vector<std::string>(names.begin(), names.begin() + expected.size()), expected);
  EXPECT_EQ(names[expected.size()], "app/share/notlisted.txt");
  EXPECT_EQ(names[expected.size() + 1], expand("@/outside/ext.txt").substr(1));

  const uint32_t dosTime = dosDateFromTime([] {
    std::tm local{};
    const time_t when = 1200000000;
    localtime_r(&when, &local);
    return ZipTime{static_cast<uint32_t>(local.tm_sec), static_cast<uint32_t>(local.tm_min),
                   static_cast<uint32_t>(local.tm_hour), static_cast<uint32_t>(local.tm_mday),
                   static_cast<uint32_t>(local.tm_mon), static_cast<uint32_t>(local.tm_year)};
  }());
  for (const auto& entry : archive.entries) {
    EXPECT_EQ(entry.versionMadeBy, 0x0314u) << entry.name;
    EXPECT_EQ(entry.versionNeeded, 20u) << entry.name;
    EXPECT_EQ(entry.flags, 0u) << entry.name;  // level 6
    EXPECT_EQ(entry.method, 8u) << entry.name;
  }
  for (const FileSpec& file : files_) {
    for (const auto& entry : archive.entries) {
      if (entry.name != "app/" + file.name) continue;
      EXPECT_EQ(entry.externalAttributes, (0x8000u | (file.mode & 0777)) << 16) << file.name;
      EXPECT_EQ(entry.dosDate, dosTime) << file.name;
      EXPECT_EQ(entry.extra, "") << file.name;
      EXPECT_EQ(testing::entryContent(entry), file.content) << file.name;
    }
  }
  for (const LinkSpec& link : links_) {
    for (const auto& entry : archive.entries) {
      if (entry.name != "app/" + link.name) continue;
      const std::string stored = expand(link.stored);
      EXPECT_EQ(entry.externalAttributes, 0xA1FFu << 16) << link.name;
      EXPECT_EQ(entry.extra, testing::linkBlock(stored)) << link.name;
      EXPECT_EQ(entry.localExtra, testing::linkBlock(stored)) << link.name;
      EXPECT_EQ(testing::entryContent(entry), stored) << link.name;
    }
  }
}

// Link blocks count their own header in their length, which common ZIP
// readers refuse (unzip reports a bad extra field, Python's zipfile will not
// open the archive). That is the format by design, so the peers judge the
// same tree without its links.
TEST_F(CreateEntryPoint, TreeWithoutLinksSatisfiesIndependentTools) {
  if (!testing::haveProgram("unzip") || !testing::haveProgram("python3")) {
    GTEST_SKIP() << "unzip or python3 missing";
  }
  ASSERT_TRUE(createFrom(allNames(false)));
  EXPECT_EQ(testing::runCommand("unzip -tq app.zef >/dev/null"), 0);
  std::string script =
      "import zipfile, sys\n"
      "z = zipfile.ZipFile('app.zef')\n"
      "for i in z.infolist():\n"
      "    data = z.read(i)\n"
      "    print(i.filename, i.create_system, i.create_version, oct(i.external_attr >> 16), len(data), "
      "'%08x' % i.CRC, i.date_time)\n";
  writeFile("check.py", script);
  EXPECT_EQ(testing::runCommand("python3 check.py > listing.txt"), 0);
  const std::string listing = readFile("listing.txt");
  for (const FileSpec& file : files_) {
    char modeText[16];
    std::snprintf(modeText, sizeof modeText, "0o%o", 0100000 | (file.mode & 0777));
    EXPECT_NE(listing.find("app/" + file.name + " 3 20 " + modeText + " " + std::to_string(file.content.size())),
              std::string::npos)
        << listing;
  }
  // unzip extracts the same bytes and modes our extraction does.
  ASSERT_EQ(testing::runCommand("mkdir theirs ours && cd theirs && unzip -q ../app.zef"), 0);
  ASSERT_EQ(chdir("ours"), 0);
  ASSERT_EQ(zefExtractZipFile("../app.zef"), 1);
  ASSERT_EQ(chdir(".."), 0);
  for (const FileSpec& file : files_) {
    struct stat theirs, ours;
    ASSERT_EQ(stat(path("theirs/app/" + file.name).c_str(), &theirs), 0);
    ASSERT_EQ(stat(path("ours/app/" + file.name).c_str(), &ours), 0);
    EXPECT_EQ(readFile(path("theirs/app/" + file.name)), readFile(path("ours/app/" + file.name)));
    EXPECT_EQ(theirs.st_mode & 0777, ours.st_mode & 0777) << file.name;
  }
}

TEST_F(CreateEntryPoint, EmptyInputIsRefusedAndTheArchiveRemoved) {
  writeFile("src/app/empty.cfg", "");
  ChannelCapture capture;
  EXPECT_FALSE(createFrom({"bin/launch", "empty.cfg"}));
  EXPECT_NE(capture.error().find("The file \n '" + src("empty.cfg") + "' \n is empty (zero bytes long)."),
            std::string::npos)
      << capture.error();
  EXPECT_EQ(access("app.zef", F_OK), -1);
}

TEST_F(CreateEntryPoint, LinkTargetClashingWithATakenDestinationIsRefused) {
  // The link's target would be stored as app/lib/libcore.so.1.2, already the name of another input.
  writeFile("src/app/impostor", "not the library");
  const std::string core = src("bin/core"), impostor = src("impostor");
  const char* sources[] = {core.c_str(), impostor.c_str()};
  const char* destinations[] = {"app/bin/core", "app/lib/libcore.so.1.2"};
  ChannelCapture capture;
  EXPECT_FALSE(zefCreateZipFile("clash.zef", sources, destinations, 2));
  EXPECT_EQ(capture.error(), "File \n '" + impostor + "' \n and file '" + src("lib/libcore.so.1.2") +
                                 "' \n both have the same ZIP file destination: \n 'app/lib/libcore.so.1.2'\n "
                                 "This will cause the data in the second file to overwrite that in the\n first "
                                 "when archive is unpacked. This is not permitted.\n");
  EXPECT_EQ(access("clash.zef", F_OK), -1);
}

TEST_F(CreateEntryPoint, TwoPlainInputsWithOneDestinationAreBothStored) {
  // Only the targets of links go through the duplicate check; plain inputs
  // sharing a destination are the caller's responsibility.
  const std::string first = src("etc/app.conf"), second = src("bin/launch");
  const char* sources[] = {first.c_str(), second.c_str()};
  const char* destinations[] = {"same", "same"};
  EXPECT_TRUE(zefCreateZipFile("twice.zef", sources, destinations, 2));
  EXPECT_EQ(parseArchive(readFile("twice.zef")).entries.size(), 2u);
}

TEST_F(CreateEntryPoint, CountBelowOneTouchesNothingAndLastDestinationWins) {
  EXPECT_FALSE(zefCreateZipFile("none.zef", nullptr, nullptr, 0));
  EXPECT_EQ(access("none.zef", F_OK), -1);
  const std::string b = src("bin/launch"), a = src("etc/app.conf");
  const char* sources[] = {b.c_str(), a.c_str(), b.c_str()};
  const char* destinations[] = {"first", "conf", "second"};
  ASSERT_TRUE(zefCreateZipFile("order", sources, destinations, 3));
  const ArchiveBytes archive = parseArchive(readFile("order.zef"));
  ASSERT_EQ(archive.entries.size(), 2u);
  EXPECT_EQ(archive.entries[0].name, "second");  // .../bin/launch sorts before .../etc/app.conf
  EXPECT_EQ(archive.entries[1].name, "conf");
}

}  // namespace
}  // namespace kxzef
