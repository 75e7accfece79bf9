// zefCreateZipFile end to end: a realistic application tree goes in; our own
// extraction, a byte-level reading and independent ZIP tools check what comes out.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kxzefarchiver/zefarchiver.h"
#include "support/archive_bytes.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"

namespace kxzef {
namespace {

using testing::parseArchive;

constexpr time_t Modified = 1200000000;  // even, so the DOS time holds it exactly

struct Input {
  std::string name;     // below app/; stored as "app/<name>"
  std::string content;  // file content, or the link's target on disk ("@" = the source area)
  mode_t mode;          // 0 for a link
  std::string stored;   // a link's stored target ("@" without its leading "/")
};

class CreateEntryPoint : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    std::string binary(100000, '\0');
    for (size_t i = 0; i < binary.size(); ++i) binary[i] = static_cast<char>((i * 2654435761u) >> 11);
    inputs_ = {
        {"bin/launch", "#!/bin/sh\nexec ../lib/app \"$@\"\n", 0755, ""},
        {"bin/setuid-tool", binary.substr(0, 3000), 04755, ""},
        {"lib/libcore.so.1.2", binary, 0644, ""},
        {"etc/app.conf", "mode = fast\n", 0600, ""},
        {"data/deep/nested/table.bin", binary.substr(5000, 5000), 0640, ""},
        {"lib/libcore.so", "libcore.so.1.2", 0, "libcore.so.1.2"},                    // relative, same directory
        {"bin/core", "../lib/libcore.so.1.2", 0, "../lib/libcore.so.1.2"},            // relative with "../"
        {"etc/abs-conf", "@/app/etc/app.conf", 0, "app.conf"},                        // absolute, into the tree
        {"bin/ext-link", "@/outside/ext.txt", 0, "../../@/outside/ext.txt"},          // absolute, out of the tree
        {"bin/dangling", "../nowhere/missing", 0, "../nowhere/missing"},              // points at nothing
        {"bin/extra-link", "../share/notlisted.txt", 0, "../share/notlisted.txt"},    // target not an input
    };
    writeFile("src/app/share/notlisted.txt", "found through a link\n");
    writeFile("src/outside/ext.txt", "outside the tree\n");
    struct timespec times[2] = {{Modified, 0}, {Modified, 0}};
    for (const Input& input : inputs_) {
      if (input.mode == 0) {
        ASSERT_EQ(symlink(expand(input.content).c_str(), src(input.name).c_str()), 0);
        continue;
      }
      writeFile("src/app/" + input.name, input.content);
      ASSERT_EQ(chmod(src(input.name).c_str(), input.mode), 0);
      utimensat(AT_FDCWD, src(input.name).c_str(), times, 0);
    }
  }

  std::string expand(const std::string& text) const {
    const size_t at = text.find('@');
    if (at == std::string::npos) return text;
    return text.substr(0, at) + path("src").substr(at == 0 ? 0 : 1) + text.substr(at + 1);
  }
  std::string src(const std::string& name) const { return path("src/app/" + name); }

  // Archives the inputs (links too when asked) and the directory "data".
  bool create(bool withLinks, const std::string& archive = "app.zef") {
    std::vector<std::string> sources{src("data")}, destinations{"app/data"};
    for (const Input& input : inputs_) {
      if (input.mode == 0 && !withLinks) continue;
      sources.push_back(src(input.name));
      destinations.push_back("app/" + input.name);
    }
    std::vector<const char*> s, d;
    for (size_t i = 0; i < sources.size(); ++i) {
      s.push_back(sources[i].c_str());
      d.push_back(destinations[i].c_str());
    }
    return zefCreateZipFile(archive.c_str(), s.data(), d.data(), static_cast<int>(s.size()));
  }

  std::vector<Input> inputs_;
};

TEST_F(CreateEntryPoint, WholeTreeRoundTripsAndItsBytesAreAsDesigned) {
  testing::ChannelCapture capture;
  ASSERT_TRUE(create(true));
  const auto archive = parseArchive(readFile("app.zef"));
  ASSERT_TRUE(archive.valid);
  std::vector<std::string> names;
  for (const auto& entry : archive.entries) names.push_back(entry.name);
  // Inputs in source-path order, then the files that links queued.
  EXPECT_EQ(names, (std::vector<std::string>{
                       "app/bin/core", "app/bin/dangling", "app/bin/ext-link", "app/bin/extra-link",
                       "app/bin/launch", "app/bin/setuid-tool", "app/data/", "app/data/deep/nested/table.bin",
                       "app/etc/abs-conf", "app/etc/app.conf", "app/lib/libcore.so", "app/lib/libcore.so.1.2",
                       "app/share/notlisted.txt", expand("@/outside/ext.txt").substr(1)}));

  ASSERT_EQ(mkdir("out", 0755), 0);
  ASSERT_EQ(chdir("out"), 0);
  EXPECT_EQ(zefExtractZipFile("../app.zef"), 1);
  EXPECT_EQ(capture.error(), "");
  for (const Input& input : inputs_) {
    const std::string extracted = path("out/app/" + input.name);
    const auto entry = *std::find_if(archive.entries.begin(), archive.entries.end(),
                                     [&](const auto& e) { return e.name == "app/" + input.name; });
    EXPECT_EQ(entry.versionMadeBy, 0x0314u);
    EXPECT_EQ(entry.method, 8u);
    EXPECT_EQ(entry.flags, 0u);  // level 6
    if (input.mode == 0) {
      const std::string stored = expand(input.stored);
      EXPECT_EQ(entry.externalAttributes, 0xA1FFu << 16) << input.name;
      EXPECT_EQ(entry.extra, testing::linkBlock(stored)) << input.name;
      EXPECT_EQ(entry.localExtra, testing::linkBlock(stored)) << input.name;
      EXPECT_EQ(testing::entryContent(entry), stored) << input.name;
      char target[4096];
      const ssize_t length = readlink(extracted.c_str(), target, sizeof target);
      EXPECT_EQ(std::string(target, length > 0 ? static_cast<size_t>(length) : 0), stored) << input.name;
      continue;
    }
    EXPECT_EQ(entry.externalAttributes, (0x8000u | (input.mode & 0777)) << 16) << input.name;
    EXPECT_EQ(readFile(extracted), input.content) << input.name;
    struct stat status;
    ASSERT_EQ(stat(extracted.c_str(), &status), 0) << input.name;
    EXPECT_EQ(status.st_mode & 07777, input.mode & 0777) << input.name;  // set-user-ID dropped
    EXPECT_EQ(status.st_mtime, Modified) << input.name;
  }
  // Files reached only through links came along, under the names the links resolve to.
  EXPECT_EQ(readFile(path("out/app/bin/extra-link")), "found through a link\n");
  EXPECT_EQ(readFile(path("out/app/bin/ext-link")), "outside the tree\n");
}

// A link block counts its own header in its length, which common ZIP readers
// refuse (unzip reports a bad extra field, Python's zipfile will not open the
// archive). That is the format by design, so the peers judge the tree without links.
TEST_F(CreateEntryPoint, TreeWithoutLinksSatisfiesIndependentTools) {
  if (!testing::haveProgram("unzip") || !testing::haveProgram("python3")) GTEST_SKIP() << "unzip or python3 missing";
  ASSERT_TRUE(create(false));
  EXPECT_EQ(testing::runCommand("unzip -tq app.zef >/dev/null"), 0);
  writeFile("check.py",
            "import zipfile\n"
            "for i in zipfile.ZipFile('app.zef').infolist():\n"
            "    print(i.filename, i.create_system, i.create_version, oct(i.external_attr >> 16), "
            "len(zipfile.ZipFile('app.zef').read(i)))\n");
  ASSERT_EQ(testing::runCommand("python3 check.py > listing.txt"), 0);
  ASSERT_EQ(testing::runCommand("mkdir theirs ours && cd theirs && unzip -q ../app.zef"), 0);
  ASSERT_EQ(chdir("ours"), 0);
  ASSERT_EQ(zefExtractZipFile("../app.zef"), 1);
  for (const Input& input : inputs_) {
    if (input.mode == 0) continue;
    char line[512];
    std::snprintf(line, sizeof line, "app/%s 3 20 0o%o %zu\n", input.name.c_str(), 0100000 | (input.mode & 0777),
                  input.content.size());
    EXPECT_NE(readFile(path("listing.txt")).find(line), std::string::npos) << line;
    struct stat theirs, ours;
    ASSERT_EQ(stat(path("theirs/app/" + input.name).c_str(), &theirs), 0);
    ASSERT_EQ(stat(path("ours/app/" + input.name).c_str(), &ours), 0);
    EXPECT_EQ(readFile(path("theirs/app/" + input.name)), readFile(path("ours/app/" + input.name)));
    EXPECT_EQ(theirs.st_mode & 0777, ours.st_mode & 0777) << input.name;
  }
}

TEST_F(CreateEntryPoint, RefusalsReturnFalseAndRemoveTheArchive) {
  writeFile("src/app/empty.cfg", "");
  writeFile("src/app/impostor", "not the library");
  const std::string core = src("bin/core"), impostor = src("impostor"), empty = src("empty.cfg");
  struct {
    std::vector<const char*> sources, destinations;
    std::string message;
  } rows[] = {
      {{empty.c_str()}, {"app/empty.cfg"}, "The file \n '" + empty + "' \n is empty (zero bytes long)."},
      // The link's target would be stored under a name another input holds.
      {{core.c_str(), impostor.c_str()}, {"app/bin/core", "app/lib/libcore.so.1.2"},
       "File \n '" + impostor + "' \n and file '" + src("lib/libcore.so.1.2") +
           "' \n both have the same ZIP file destination: \n 'app/lib/libcore.so.1.2'\n This will cause"},
  };
  for (auto& row : rows) {
    testing::ChannelCapture capture;
    EXPECT_FALSE(zefCreateZipFile("bad.zef", row.sources.data(), row.destinations.data(),
                                  static_cast<int>(row.sources.size())));
    EXPECT_EQ(capture.error().rfind(row.message, 0), 0u) << capture.error();
    EXPECT_NE(access("bad.zef", F_OK), 0);
  }
  EXPECT_FALSE(zefCreateZipFile("none.zef", nullptr, nullptr, 0));
  EXPECT_NE(access("none.zef", F_OK), 0);
}

TEST_F(CreateEntryPoint, SourcesAreOrderedAndTheLastDestinationWins) {
  // Only link targets go through the duplicate check: plain inputs sharing a
  // destination are both stored, as the caller asked.
  const std::string b = src("bin/launch"), a = src("etc/app.conf");
  const char* sources[] = {b.c_str(), a.c_str(), b.c_str(), a.c_str()};
  const char* destinations[] = {"first", "conf", "second", "second"};
  ASSERT_TRUE(zefCreateZipFile("order", sources, destinations, 4));
  const auto archive = parseArchive(readFile("order.zef"));
  ASSERT_EQ(archive.entries.size(), 2u);
  EXPECT_EQ(archive.entries[0].name, "second");  // .../bin/launch sorts before .../etc/app.conf
  EXPECT_EQ(archive.entries[1].name, "second");
}

}  // namespace
}  // namespace kxzef
