// zef: the command-line front end of libkxzefarchiver. Library messages go
// to standard error, listings to standard output, the Unix way.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "feedback.h"
#include "kxzefarchiver/zefarchiver.h"
#include "zef.h"

namespace {

int toStandardOutput(const char* text) {
  if (text == nullptr || std::fputs(text, stdout) < 0) return 0;
  return static_cast<int>(std::strlen(text));
}

int toStandardError(const char* text) {
  if (text == nullptr) return 0;
  // A library message does not go after a progress line's text.
  if (zef::progressLineShown()) std::fputs("\r\033[K", stderr);
  if (std::fputs(text, stderr) < 0) return 0;
  return static_cast<int>(std::strlen(text));
}

// Without TZ, glibc looks at /etc/localtime again for every local-time
// conversion, one system call per extracted file. Naming the same zone once
// keeps every time as it was and leaves the file read once.
void settleTimeZone() {
  if (std::getenv("TZ") == nullptr) setenv("TZ", ":/etc/localtime", 0);
}

int printHelp(const std::string& command) {
  std::fputs(zef::helpText(command).c_str(), stdout);
  return zef::ExitOk;
}

}  // namespace

namespace zef {

int canonCommand(const std::vector<std::string>& args) {
  std::vector<std::string> paths;
  if (int status = walkArguments(
          args, [&args](size_t& i) { return usageError("canon", "unknown option '" + args[i] + "'"); },
          [&paths](const std::string& path) { paths.push_back(path); });
      status != ExitOk) {
    return status;
  }
  if (paths.empty()) return usageError("canon", "no PATH given");
  int status = ExitOk;
  for (const std::string& path : paths) {
    const std::string canonical = zefMakePathCanonical(path);
    // The library refuses some paths with a message and an empty result.
    if (canonical.empty() && !path.empty()) {
      status = failure("cannot canonicalize '" + path + "'");
      continue;
    }
    std::printf("%s\n", canonical.c_str());
  }
  return status;
}

}  // namespace zef

int main(int argc, char** argv) {
  set_zefarchiver_output_handler(toStandardOutput);
  set_zefarchiver_error_handler(toStandardError);
  settleTimeZone();

  const std::vector<std::string> all(argv + 1, argv + argc);
  if (all.empty()) return zef::usageError("", "no COMMAND given");
  const std::string& command = all[0];
  const std::vector<std::string> args(all.begin() + 1, all.end());

  if (command == "--help" || command == "-h" || command == "help") return printHelp("");
  if (command == "--version") {
    std::printf("zef (kxzefarchiver) %s, built %s\n", libkxzefarchiver_version, libkxzefarchiver_build_date);
    return zef::ExitOk;
  }
  using Command = int (*)(const std::vector<std::string>&);
  const struct {
    const char* name;
    Command run;
  } commands[] = {{"create", zef::createCommand},
                  {"list", zef::listCommand},
                  {"extract", zef::extractCommand},
                  {"check", zef::checkCommand},
                  {"test", zef::testCommand},
                  {"canon", zef::canonCommand}};
  for (const auto& entry : commands) {
    if (command != entry.name) continue;
    if (zef::wantsHelp(args)) return printHelp(command);
    return entry.run(args);
  }
  if (command.size() > 1 && command[0] == '-') return zef::usageError("", "unknown option '" + command + "'");
  return zef::usageError("", "unknown command '" + command + "'");
}
