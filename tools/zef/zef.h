// The commands of the zef tool and what they share. Exit statuses follow the
// Unix habit: 0 success, 1 the library reported a failure, 2 a usage error.
#ifndef KXZEF_TOOLS_ZEF_H
#define KXZEF_TOOLS_ZEF_H

#include <cstdint>
#include <string>
#include <vector>

namespace zef {

constexpr int ExitOk = 0;
constexpr int ExitFailure = 1;
constexpr int ExitUsage = 2;

// Prints "zef: <problem>" and a hint to the command's help on standard
// error; returns ExitUsage.
int usageError(const std::string& command, const std::string& problem);

// Prints "zef: <text>" on standard error; returns ExitFailure.
int failure(const std::string& text);

// True when `args` asks for help (-h or --help anywhere).
bool wantsHelp(const std::vector<std::string>& args);

int createCommand(const std::vector<std::string>& args);
int listCommand(const std::vector<std::string>& args);
int extractCommand(const std::vector<std::string>& args);
int canonCommand(const std::vector<std::string>& args);
int checkCommand(const std::vector<std::string>& args);
int testCommand(const std::vector<std::string>& args);

// Reads a byte count: digits with an optional K, M, G or T (powers of 1024).
// False for anything else or a count past 64 bits.
bool parseSize(const std::string& text, uint64_t& size);

// The worker threads of -j when none is given: the online CPUs, at least 1.
unsigned defaultJobs();

// When args[i] is -j N, -jN, --jobs N or --jobs=N, stores N (1 to MaxJobs)
// in `jobs`, moves `i` onto the argument that held N and returns true;
// `problem` is then "" or what is wrong with N. False for any other argument.
constexpr unsigned MaxJobs = 256;
bool takeJobsOption(const std::vector<std::string>& args, size_t& i, unsigned& jobs, std::string& problem);

// The help text of one command, or of the tool when `command` is empty.
std::string helpText(const std::string& command);

}  // namespace zef

#endif
