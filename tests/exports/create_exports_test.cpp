// zefCreateZipFile end to end: a realistic application tree goes in; our own
// extraction and a byte-level reading check what comes out (the peers judge
// the writer's fields in the writing core's tests).
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kxzefarchiver/zefarchiver.h"
#include "support/channel_capture.h"
#include "support/temp_dir.h"
#include "support/zip_records.h"

namespace kxzef {
namespace {

using testing::parseArchive;

constexpr time_t Modified = 1200000000;  // even, so the DOS time holds it exactly

struct Input {
  std::string name;     // below app/; stored as "app/<name>"
  std::string content;  // file content, or the link's target on disk
  mode_t mode;          // 0 for a link
  std::string stored;   // a link's stored target
};

class CreateEntryPoint : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    const std::string binary = testing::sampleText(100000);
    inputs_ = {
        {"bin/launch", "#!/bin/sh\nexec ../lib/app \"$@\"\n", 0755, ""},
        {"bin/setuid-tool", binary.substr(0, 3000), 04755, ""},
        {"lib/libcore.so.1.2", binary, 0644, ""},
        {"etc/app.conf", "mode = fast\n", 0600, ""},
        {"data/deep/nested/table.bin", binary.substr(5000, 5000), 0640, ""},
        {"lib/libcore.so", "libcore.so.1.2", 0, "libcore.so.1.2"},                    // relative, same directory
        {"bin/core", "../lib/libcore.so.1.2", 0, "../lib/libcore.so.1.2"},            // relative with "../"
        {"etc/abs-conf", src("etc/app.conf"), 0, "app.conf"},                         // absolute, into the tree
        {"bin/ext-link", path("src/outside/ext.txt"), 0, "../.." + path("src/outside/ext.txt")},  // out of the tree
        {"bin/dangling", "../nowhere/missing", 0, "../nowhere/missing"},              // points at nothing
        {"bin/extra-link", "../share/notlisted.txt", 0, "../share/notlisted.txt"},    // target not an input
    };
    writeFile("src/app/share/notlisted.txt", "found through a link\n");
    writeFile("src/outside/ext.txt", "outside the tree\n");
    for (const Input& input : inputs_) {
      if (input.mode == 0) std::filesystem::create_symlink(input.content, src(input.name));
      else writeFile("src/app/" + input.name, input.content, input.mode);
    }
    ASSERT_EQ(testing::runCommand("find src -exec touch -h -d @" + std::to_string(Modified) + " {} +"), 0);
  }

  std::string src(const std::string& name) const { return path("src/app/" + name); }

  // Archives `pairs` (source, destination, source, ...) into app.zef.
  static bool create(const std::vector<std::string>& pairs) {
    std::vector<const char*> s, d;
    for (size_t i = 0; i < pairs.size(); i += 2) s.push_back(pairs[i].c_str()), d.push_back(pairs[i + 1].c_str());
    return zefCreateZipFile("app.zef", s.data(), d.data(), static_cast<int>(s.size()));
  }
  // The directory "data" and the inputs. The first destination of app.conf
  // is overridden by the later pair for the same source.
  std::vector<std::string> tree() const {
    std::vector<std::string> pairs{src("etc/app.conf"), "app/overridden", src("data"), "app/data"};
    for (const Input& input : inputs_) pairs.insert(pairs.end(), {src(input.name), "app/" + input.name});
    return pairs;
  }

  std::vector<Input> inputs_;
  testing::ChannelCapture capture;
};

TEST_F(CreateEntryPoint, WholeTreeRoundTripsThroughTheDesignedBytes) {
  ASSERT_TRUE(create(tree()));
  std::map<std::string, testing::HandEntry> byName;
  for (const auto& entry : parseArchive(readFile("app.zef")).entries) byName[entry.name] = entry;
  // Inputs in source-path order, then the files that links queued.
  EXPECT_EQ(testing::entryNames(readFile("app.zef")), (std::vector<std::string>{
                "app/bin/core", "app/bin/dangling", "app/bin/ext-link", "app/bin/extra-link", "app/bin/launch",
                "app/bin/setuid-tool", "app/data/", "app/data/deep/nested/table.bin", "app/etc/abs-conf",
                "app/etc/app.conf", "app/lib/libcore.so", "app/lib/libcore.so.1.2", "app/share/notlisted.txt",
                path("src/outside/ext.txt").substr(1)}));
  EXPECT_EQ(zefExtractZipFile("app.zef"), 1);  // here, beside src/
  EXPECT_EQ(capture.error(), "");
  for (const Input& input : inputs_) {
    const std::string extracted = path("app/" + input.name);
    const testing::HandEntry& entry = byName["app/" + input.name];
    if (input.mode == 0) {
      EXPECT_EQ(entry.externalAttributes, 0xA1FFu << 16);
      EXPECT_EQ(entry.centralExtra, testing::linkBlock(input.stored));
      EXPECT_EQ(entry.localExtra, testing::linkBlock(input.stored));
      EXPECT_EQ(testing::entryContent(entry), input.stored);
      EXPECT_EQ(std::filesystem::read_symlink(extracted).string(), input.stored);
      continue;
    }
    EXPECT_EQ(readFile(extracted), input.content) << input.name;
    struct stat status;
    ASSERT_EQ(stat(extracted.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, input.mode & 0777);  // set-user-ID dropped
    EXPECT_EQ(status.st_mtime, Modified);
  }
  // Files reached only through links came along, under the names the links resolve to.
  EXPECT_EQ(readFile("app/bin/extra-link"), "found through a link\n");
  EXPECT_EQ(readFile("app/bin/ext-link"), "outside the tree\n");
}

TEST_F(CreateEntryPoint, RefusedCreationLeavesNoArchive) {
  writeFile("src/app/impostor", "not the library");
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      // The link's target would be stored under a name another input holds.
      {{src("bin/core"), "app/bin/core", src("impostor"), "app/lib/libcore.so.1.2"},
       "File \n '" + src("impostor") + "' \n and file '" + src("lib/libcore.so.1.2") +
           "' \n both have the same ZIP file destination: \n 'app/lib/libcore.so.1.2'\n This will cause"},
      {{}, ""},  // no input at all
  };
  for (const auto& [pairs, message] : rows) {
    capture.clear();
    EXPECT_FALSE(create(pairs));
    EXPECT_EQ(capture.error().rfind(message, 0), 0u) << capture.error();
    EXPECT_NE(access("app.zef", F_OK), 0);
  }
}

TEST_F(CreateEntryPoint, NullSourceRefusesTheCallSilently) {
  const std::string conf = src("etc/app.conf");
  const char* sources[] = {conf.c_str(), nullptr};
  const char* destinations[] = {"app/etc/app.conf", "app/lost"};
  EXPECT_FALSE(zefCreateZipFile("app.zef", sources, destinations, 2));
  EXPECT_EQ(capture.error(), "");
  EXPECT_NE(access("app.zef", F_OK), 0);
}

TEST_F(CreateEntryPoint, NullDestinationNamesTheEntryAfterItsSource) {
  const std::string conf = src("etc/app.conf");
  const char* sources[] = {conf.c_str()};
  const char* destinations[] = {nullptr};
  ASSERT_TRUE(zefCreateZipFile("app.zef", sources, destinations, 1));
  EXPECT_EQ(testing::entryNames(readFile("app.zef")), std::vector<std::string>{conf});
}

}  // namespace
}  // namespace kxzef
