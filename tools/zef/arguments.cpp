// Messages and help shared by all commands.
#include <cstdio>
#include <string>
#include <vector>

#include "zef.h"

namespace zef {

int usageError(const std::string& command, const std::string& problem) {
  std::fprintf(stderr, "zef: %s\n", problem.c_str());
  std::fprintf(stderr, "Try 'zef %s--help' for more information.\n",
               command.empty() ? "" : (command + " ").c_str());
  return ExitUsage;
}

int failure(const std::string& text) {
  std::fprintf(stderr, "zef: %s\n", text.c_str());
  return ExitFailure;
}

bool wantsHelp(const std::vector<std::string>& args) {
  for (const std::string& arg : args) {
    if (arg == "-h" || arg == "--help") return true;
    if (arg == "--") break;
  }
  return false;
}

std::string helpText(const std::string& command) {
  if (command == "create") {
    return "Usage: zef create [-0 ... -9] [--keep] ARCHIVE INPUT...\n"
           "       zef create [-0 ... -9] [--keep] ARCHIVE --from MANIFEST\n"
           "\n"
           "Packs INPUTs into ARCHIVE. An INPUT is SOURCE or SOURCE=DEST: the file SOURCE is\n"
           "stored under the name DEST (without DEST, under SOURCE as written, less a\n"
           "leading \"/\"). A directory SOURCE is taken with everything below it, DEST\n"
           "naming its place in the archive.\n"
           "Symbolic links are stored as links; the files they point to are stored too.\n"
           "A MANIFEST holds one SOURCE<TAB>DEST pair a line (DEST may be empty).\n"
           "\n"
           "  -0 ... -9   compression level: 0 stores, 1-9 deflate (default 6)\n"
           "  --keep      refuse to replace an existing ARCHIVE\n"
           "  --from FILE read the inputs from FILE instead of the command line\n"
           "\n"
           "ARCHIVE gets \".zef\" appended when it holds no \".\" at all. Nothing is written\n"
           "when an input is missing, unreadable, empty, a FIFO, a socket or a device,\n"
           "when two inputs would take one name, when a link's target fails those checks\n"
           "or would take a name another input holds (a dangling link is stored alone),\n"
           "or when ARCHIVE is not a regular file or its name is too long; each problem\n"
           "gets a line of its own. Inside a directory, FIFOs, sockets and devices are\n"
           "skipped with a warning, and the archive itself is never stored.\n"
           "\n"
           "The archive is written to a temporary file beside it, .NAME.zef-tmp-XXXXXX,\n"
           "read back and checked, flushed to disk, and only then renamed to ARCHIVE, so\n"
           "an existing ARCHIVE stays as it was until the new one is complete. SIGINT,\n"
           "SIGTERM and SIGHUP remove the temporary file; a killed run may leave it behind.\n"
           "A replaced ARCHIVE keeps its permission bits.\n"
           "\n"
           "Examples:\n"
           "  zef create app.zef examples/app=app\n"
           "  zef create -9 --keep release.zef bin/run=app/bin/run etc/app.conf=app/etc/app.conf\n"
           "  zef create big.zef --from manifest.tsv\n";
  }
  if (command == "list") {
    return "Usage: zef list ARCHIVE\n"
           "\n"
           "Lists the entries of ARCHIVE (also tried with \".zef\" appended): length, method,\n"
           "stored size, the stored size as a percentage of the length, date, time, CRC-32\n"
           "and name. The heading goes to standard error, the rows to standard output.\n"
           "\n"
           "Example:\n"
           "  zef list app.zef\n";
  }
  if (command == "extract") {
    return "Usage: zef extract ARCHIVE [-d DIR] [--ask] [--flat] [ENTRY...]\n"
           "\n"
           "Extracts everything in ARCHIVE (also tried with \".zef\" appended), or only the\n"
           "named ENTRYs (names compared without regard to ASCII case), below DIR. Files get\n"
           "back their permission bits and modification times; links are recreated.\n"
           "\n"
           "  -d DIR   extract below DIR (default: the current directory)\n"
           "  --ask    ask before replacing an existing file: y(es), n(o) or A(ll);\n"
           "           the end of standard input counts as no\n"
           "  --flat   do not use the paths in the archive: only symbolic links are\n"
           "           created, under their bare names; files and directories are skipped\n"
           "\n"
           "Examples:\n"
           "  zef extract app.zef -d /opt/app\n"
           "  zef extract app.zef --ask app/etc/app.conf\n";
  }
  if (command == "canon") {
    return "Usage: zef canon PATH...\n"
           "\n"
           "Prints the canonical form of each PATH, one a line: a \".\" component restarts\n"
           "the path at the current directory, \"..\" removes the component before it; the\n"
           "last component and repeated \"/\" are kept as they are. The file system is not\n"
           "consulted and links are not resolved. A PATH that begins with \"..\" is refused.\n"
           "\n"
           "Example:\n"
           "  zef canon ./lib/../bin/run\n";
  }
  return "Usage: zef COMMAND [OPTIONS] ARGUMENTS\n"
         "\n"
         "Packs a deployed application into one ZEF archive (a ZIP file) and unpacks it.\n"
         "\n"
         "Commands:\n"
         "  create   pack files, directories and links into an archive\n"
         "  list     list the entries of an archive\n"
         "  extract  unpack an archive, or some of its entries\n"
         "  canon    print paths in canonical form\n"
         "\n"
         "  zef --version   the library's version and build date\n"
         "  zef COMMAND --help\n"
         "\n"
         "Exit status: 0 on success, 1 when zef refuses or the library reports a failure\n"
         "(the messages are on standard error), 2 for a mistake in the command line.\n";
}

}  // namespace zef
