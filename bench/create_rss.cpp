// Peak memory of one creation run: writes an input file of the size asked
// for, archives it with zefCreateZipFile and prints the process's peak
// resident set before and after the run. It removes both files it made.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench_data.h"
#include "kxzefarchiver/zefarchiver.h"

namespace {

constexpr char Usage[] = "usage: kxzef_create_rss SIZE_MIB [DIRECTORY]\n";
constexpr unsigned long MaximumMiB = 4095;  // an entry of 4 GiB or more is refused

// The high-water mark of the resident set so far, in KiB.
long peakResidentKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

long long fileSize(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fputs(Usage, stderr);
    return 2;
  }
  char* end = nullptr;
  const unsigned long mebibytes = std::strtoul(argv[1], &end, 10);
  if (*end != '\0' || mebibytes == 0 || mebibytes > MaximumMiB) {
    std::fputs(Usage, stderr);
    return 2;
  }
  const std::string directory = argc == 3 ? argv[2] : "/tmp";
  const std::string input = directory + "/kxzef-rss-input.dat";
  const std::string archive = directory + "/kxzef-rss.zip";
  if (!kxzef::bench::writeInputFile(input.c_str(), mebibytes * kxzef::bench::MiB)) {
    std::fprintf(stderr, "cannot write %s\n", input.c_str());
    return 1;
  }

  const long before = peakResidentKiB();
  const char* sources[] = {input.c_str()};
  const char* destinations[] = {"input.dat"};
  const auto start = std::chrono::steady_clock::now();
  const bool created = zefCreateZipFile(archive.c_str(), sources, destinations, 1);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  const long after = peakResidentKiB();

  std::printf("input %lu MiB, archive %lld bytes, %.2f s, peak RSS %ld KiB before the run, %ld KiB after\n",
              mebibytes, fileSize(archive), seconds.count(), before, after);
  std::remove(input.c_str());
  std::remove(archive.c_str());
  if (!created) std::fputs("the creation run failed\n", stderr);
  return created ? 0 : 1;
}
