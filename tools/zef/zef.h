// The commands of the zef tool and what they share. Exit statuses follow the
// Unix habit: 0 success, 1 the library reported a failure, 2 a usage error.
#ifndef KXZEF_TOOLS_ZEF_H
#define KXZEF_TOOLS_ZEF_H

#include <cstdint>
#include <functional>
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

// Whether args[i] is the option `name` with a value, given as "NAME VALUE"
// (which moves `i` on to the value) or, for a long option, "NAME=VALUE".
enum class OptionValue { Absent, Taken, Missing };
OptionValue takeValue(const std::vector<std::string>& args, size_t& i, const std::string& name, std::string& value);

// Splits a command line: each option before "--" goes to `option` with its
// index, which it may move on past a value; every other argument goes to
// `operand`. Returns the first status other than ExitOk that `option` gives.
int walkArguments(const std::vector<std::string>& args, const std::function<int(size_t&)>& option,
                  const std::function<void(const std::string&)>& operand);

// An option that takes a value, and what that value is ("a FILE").
struct ValuedOption {
  const char* name;
  const char* needs;
};

// When args[i] is one of `options` with its value, sets `taken` and returns
// what `apply` makes of the option's name and value; a missing value is a
// usage error of `command`.
int takeValued(const std::string& command, const std::vector<std::string>& args, size_t& i,
               const std::vector<ValuedOption>& options,
               const std::function<int(const std::string& name, const std::string& value)>& apply, bool& taken);

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
