// What zef tells a person while it works: -v's line per entry and closing
// summary on standard output, and the progress line of a long job on
// standard error, drawn only when standard error is a terminal.
#ifndef KXZEF_TOOLS_ZEF_FEEDBACK_H
#define KXZEF_TOOLS_ZEF_FEEDBACK_H

#include <chrono>
#include <cstdint>
#include <string>

namespace zef {

// The -v and -q of one command line.
struct Verbosity {
  bool verbose = false;
  bool quiet = false;
};

// Takes `arg` when it is -v, --verbose, -q or --quiet; false otherwise.
bool takeVerbosity(const std::string& arg, Verbosity& verbosity);

// A byte count for people: "512 bytes", "1.5 KiB", "12.0 MiB".
std::string humanSize(uint64_t bytes);

// "3 entries", "1 entry".
std::string entryCount(uint64_t count);

// Prints "zef: warning: TEXT" on standard error, unless -q silenced warnings.
void warning(const std::string& text);
void silenceWarnings();

// True while a progress line stands on the terminal; the signal handlers
// erase it before they say why zef stops.
bool progressLineShown();

// Prints "ARCHIVE: N entries, X in, Y out" on standard output, and
// ", NOTE" before the end of the line when `note` is not empty.
void printSummary(const std::string& archive, uint64_t entries, uint64_t bytesIn, uint64_t bytesOut,
                  const std::string& note = "");

// Per-entry lines and the progress line of one job. The progress line is
// redrawn at most ten times a second and erased when the job ends or an
// entry line is printed, so the terminal never shows it half-overwritten.
class Feedback {
 public:
  // `totalEntries` and `totalBytes` are what 100% means. The progress line is
  // on when standard error is a terminal and -q was not given.
  Feedback(const Verbosity& verbosity, uint64_t totalEntries, uint64_t totalBytes);
  ~Feedback();
  Feedback(const Feedback&) = delete;
  Feedback& operator=(const Feedback&) = delete;

  // Sets what 100% means, for a job whose size is known only later.
  void setTotals(uint64_t entries, uint64_t bytes) {
    totalEntries_ = entries;
    totalBytes_ = bytes;
  }

  // True when anything is shown per entry or as progress.
  bool active() const { return verbose_ || progress_; }

  // One more entry is under way or done; -v prints `name` on its own line,
  // control characters escaped.
  void entry(const std::string& name);

  // Sets how far the job is; draws when the last drawing is old enough.
  void advance(uint64_t entries, uint64_t bytes);
  void addBytes(uint64_t bytes) { advance(entries_, bytes_ + bytes); }

  // Removes the progress line from the terminal, if it is there.
  void erase();

  uint64_t entries() const { return entries_; }
  uint64_t bytes() const { return bytes_; }

 private:
  void draw();

  using Clock = std::chrono::steady_clock;
  bool verbose_;
  bool progress_;
  bool shown_ = false;
  uint64_t totalEntries_;
  uint64_t totalBytes_;
  uint64_t entries_ = 0;
  uint64_t bytes_ = 0;
  Clock::time_point start_;
  Clock::time_point lastDrawn_;
};

}  // namespace zef

#endif
