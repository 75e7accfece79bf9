// A C host of libkxzefarchiver: the plain exports are all a C program sees.
//
//   c-host create ARCHIVE FILE...   stores each FILE under its own path
//   c-host extract ARCHIVE          unpacks ARCHIVE into the current directory
//
// Exit status 0 on success, 1 when the library reports a failure (its
// messages are on standard output, where both of its channels go unless a
// C++ host replaces their handlers), 2 for a mistake in the command line.
#include <kxzefarchiver/zefarchiver.h>

#include <stdio.h>
#include <string.h>

enum { ExitOk = 0, ExitFailed = 1, ExitUsage = 2 };

// Each FILE is its own destination, so it is stored under the path given.
static int create(const char* archive, int count, const char** files) {
  if (!zefCreateZipFile(archive, files, files, count)) {
    fprintf(stderr, "c-host: %s was not created\n", archive);
    return ExitFailed;
  }
  printf("c-host: stored %d input%s in %s\n", count, count == 1 ? "" : "s", archive);
  return ExitOk;
}

static int extract(const char* archive) {
  if (zefExtractZipFile(archive) != 1) {
    fprintf(stderr, "c-host: %s was not extracted completely\n", archive);
    return ExitFailed;
  }
  printf("c-host: extracted %s\n", archive);
  return ExitOk;
}

int main(int argc, char** argv) {
  printf("c-host: kxzefarchiver %s, built %s\n", libkxzefarchiver_version, libkxzefarchiver_build_date);
  if (argc > 3 && strcmp(argv[1], "create") == 0) return create(argv[2], argc - 3, (const char**)argv + 3);
  if (argc == 3 && strcmp(argv[1], "extract") == 0) return extract(argv[2]);
  fprintf(stderr, "usage: c-host create ARCHIVE FILE...\n       c-host extract ARCHIVE\n");
  return ExitUsage;
}
