// Feedback lines. The progress line costs one clock read per update and one
// write ten times a second at most; nothing is drawn off a terminal.
#include "feedback.h"

#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>

#include "entry_text.h"

namespace zef {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds RedrawInterval{100};
constexpr char EraseLine[] = "\r\033[K";
constexpr double KibiByte = 1024.0;

bool warningsSilenced = false;
// Read by signal handlers and by the library's message handler on another
// thread than the one drawing: a lock-free atomic serves both.
std::atomic<bool> progressShown{false};
static_assert(std::atomic<bool>::is_always_lock_free, "safe to read in a signal handler");

// "12.3 MiB" for counts of 1 KiB and more.
std::string scaled(double value, const char* const* units) {
  int unit = 0;
  while (value >= KibiByte && units[unit + 1] != nullptr) {
    value /= KibiByte;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
  return text;
}

}  // namespace

bool takeVerbosity(const std::string& arg, Verbosity& verbosity) {
  if (arg == "-v" || arg == "--verbose") {
    verbosity.verbose = true;
  } else if (arg == "-q" || arg == "--quiet") {
    verbosity.quiet = true;
  } else {
    return false;
  }
  if (verbosity.quiet) silenceWarnings();
  return true;
}

std::string humanSize(uint64_t bytes) {
  static const char* const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", nullptr};
  if (bytes < KibiByte) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  return scaled(static_cast<double>(bytes), units);
}

std::string entryCount(uint64_t count) { return std::to_string(count) + (count == 1 ? " entry" : " entries"); }

void warning(const std::string& text) {
  if (!warningsSilenced) std::fprintf(stderr, "zef: warning: %s\n", text.c_str());
}

void silenceWarnings() { warningsSilenced = true; }

bool progressLineShown() { return progressShown.load(std::memory_order_relaxed); }

void printSummary(const std::string& archive, uint64_t entries, uint64_t bytesIn, uint64_t bytesOut,
                  const std::string& note) {
  std::printf("%s: %s, %s in, %s out%s%s\n", archive.c_str(), entryCount(entries).c_str(), humanSize(bytesIn).c_str(),
              humanSize(bytesOut).c_str(), note.empty() ? "" : ", ", note.c_str());
  std::fflush(stdout);
}

Feedback::Feedback(const Verbosity& verbosity, uint64_t totalEntries, uint64_t totalBytes)
    : verbose_(verbosity.verbose),
      progress_(!verbosity.quiet && isatty(STDERR_FILENO) == 1),
      totalEntries_(totalEntries),
      totalBytes_(totalBytes),
      start_(Clock::now()),
      lastDrawn_(start_ - RedrawInterval) {}

Feedback::~Feedback() { erase(); }

void Feedback::entry(const std::string& name) {
  if (verbose_) {
    erase();
    std::printf("%s\n", terminalText(name).c_str());
    std::fflush(stdout);
  }
  advance(entries_ + 1, bytes_);
}

void Feedback::advance(uint64_t entries, uint64_t bytes) {
  entries_ = entries;
  bytes_ = bytes;
  if (!progress_) return;
  const Clock::time_point now = Clock::now();
  if (now - lastDrawn_ < RedrawInterval) return;
  lastDrawn_ = now;
  draw();
}

// "  12/40 entries, 3.1 MiB of 9.8 MiB (31%), 25.0 MiB/s": well under 80 columns.
void Feedback::draw() {
  const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  const uint64_t percent = totalBytes_ == 0 ? (totalEntries_ == 0 ? 100 : entries_ * 100 / totalEntries_)
                                            : (bytes_ >= totalBytes_ ? 100 : bytes_ * 100 / totalBytes_);
  std::string rate;
  if (seconds > 0) {
    static const char* const units[] = {"B/s", "KiB/s", "MiB/s", "GiB/s", nullptr};
    rate = ", " + scaled(static_cast<double>(bytes_) / seconds, units);
  }
  std::fprintf(stderr, "%s  %" PRIu64 "/%" PRIu64 " entries, %s of %s (%" PRIu64 "%%)%s", EraseLine, entries_,
               totalEntries_, humanSize(bytes_).c_str(), humanSize(totalBytes_).c_str(), percent, rate.c_str());
  std::fflush(stderr);
  shown_ = true;
  progressShown.store(true, std::memory_order_relaxed);
}

void Feedback::erase() {
  if (!shown_) return;
  std::fputs(EraseLine, stderr);
  std::fflush(stderr);
  shown_ = false;
  progressShown.store(false, std::memory_order_relaxed);
}

}  // namespace zef
