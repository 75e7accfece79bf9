// Messages, help and options shared by all commands.
#include <unistd.h>

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

unsigned defaultJobs() {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  if (online < 1) return 1;
  return online > static_cast<long>(MaxJobs) ? MaxJobs : static_cast<unsigned>(online);
}

bool takeJobsOption(const std::vector<std::string>& args, size_t& i, unsigned& jobs, std::string& problem) {
  const std::string& arg = args[i];
  std::string text;
  if (arg == "-j" || arg == "--jobs") {
    if (i + 1 == args.size()) {
      problem = arg + " needs a number of threads";
      return true;
    }
    text = args[++i];
  } else if (arg.rfind("--jobs=", 0) == 0) {
    text = arg.substr(7);
  } else if (arg.size() > 2 && arg.rfind("-j", 0) == 0) {
    text = arg.substr(2);
  } else {
    return false;
  }
  unsigned long value = 0;
  bool digits = !text.empty() && text.size() <= 3;
  for (char c : text) {
    digits = digits && c >= '0' && c <= '9';
    if (digits) value = value * 10 + static_cast<unsigned long>(c - '0');
  }
  if (!digits || value < 1 || value > MaxJobs) {
    problem = "-j needs a number of threads from 1 to " + std::to_string(MaxJobs) + ", not '" + text + "'";
  } else {
    jobs = static_cast<unsigned>(value);
    problem.clear();
  }
  return true;
}

std::string helpText(const std::string& command) {
  if (command == "create") {
    return "Usage: zef create [-0 ... -9] [-j N] [--keep] ARCHIVE INPUT...\n"
           "       zef create [-0 ... -9] [-j N] [--keep] ARCHIVE --from MANIFEST\n"
           "\n"
           "Packs INPUTs into ARCHIVE. An INPUT is SOURCE or SOURCE=DEST: the file SOURCE is\n"
           "stored under the name DEST (without DEST, under SOURCE as written, less a\n"
           "leading \"/\"). A directory SOURCE is taken with everything below it, DEST\n"
           "naming its place in the archive.\n"
           "Symbolic links are stored as links; the files they point to are stored too.\n"
           "A MANIFEST holds one SOURCE<TAB>DEST pair a line (DEST may be empty).\n"
           "\n"
           "  -0 ... -9   compression level: 0 stores, 1-9 deflate (default 6)\n"
           "  -j N        compress on N threads (also --jobs N; default: the online CPUs).\n"
           "              The archive and the messages are the same whatever N is, and\n"
           "              -j 1 starts no thread. Files over 8 MiB are compressed in\n"
           "              turn, as with -j 1; at most 64 MiB of output waits to be written\n"
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
           "The exit status is 1 when the listing is incomplete: a damaged central\n"
           "directory, or an end record counting fewer entries than the directory holds.\n"
           "\n"
           "Example:\n"
           "  zef list app.zef\n";
  }
  if (command == "extract") {
    return "Usage: zef extract ARCHIVE [-d DIR] [-j N] [--ask] [--flat] [--trust]\n"
           "                   [--replace] [--max-size=N] [ENTRY...]\n"
           "\n"
           "Extracts everything in ARCHIVE (also tried with \".zef\" appended), or only the\n"
           "named ENTRYs (names compared without regard to ASCII case), below DIR.\n"
           "\n"
           "The whole archive is audited first, as 'zef check' does: any finding refuses it\n"
           "and nothing is written. The entries are extracted into a staging directory\n"
           "(DIR/.zef-stage-XXXXXX, or beside DIR when DIR is new or replaced), checked\n"
           "against the archive's sizes and CRC-32 values, and moved into place only when\n"
           "all are complete: a failed extraction leaves DIR as it was. Files and links\n"
           "already in DIR are replaced, never written through; directories are merged.\n"
           "Files get back their modification times and permission bits, never the\n"
           "set-user-ID, set-group-ID or sticky bit; entries made without Unix modes get\n"
           "0666 and directories 0777 less the umask (0644 and 0755 under umask 022), and\n"
           "directories keep read, write and search for their owner. Links are recreated.\n"
           "\n"
           "  -d DIR        extract below DIR (default: the current directory)\n"
           "  -j N          inflate and write files on N threads (also --jobs N; default:\n"
           "                the online CPUs; -j 1 starts no thread). Directories and links\n"
           "                are made in archive order, and the first entry to fail in\n"
           "                archive order is the one reported; files after it may already\n"
           "                have been written to the staging directory, which goes as after\n"
           "                any failure. Used when the whole archive is extracted with paths\n"
           "  --ask         ask before replacing anything in DIR: y(es), n(o) or A(ll);\n"
           "                the end of standard input counts as no\n"
           "  --flat        do not use the paths in the archive: only symbolic links are\n"
           "                created, in DIR under their bare names; files and directories\n"
           "                are skipped\n"
           "  --trust       extract despite the audit's findings, except the size limit.\n"
           "                A name that could lead out of DIR is refused even so: one with\n"
           "                a \"..\" component, one below another entry that is no directory\n"
           "                (a link, say), and one path given to a link or file twice\n"
           "  --replace     put the extracted tree in place of DIR as a whole, in one\n"
           "                atomic swap, and remove the old tree (not with --ask)\n"
           "  --max-size=N  refuse an archive declaring more than N bytes in all (K, M,\n"
           "                G and T multiply by powers of 1024; 0 lifts the limit); the\n"
           "                default is 1100 times the archive's size, at least 1 GiB\n"
           "\n"
           "On failure the last line names the entry and the cause, for example\n"
           "  zef: app.zef: 'b.bin' failed its CRC check; nothing was installed\n"
           "\n"
           "Examples:\n"
           "  zef extract app.zef -d /opt/app\n"
           "  zef extract app.zef -d /opt/app --replace\n"
           "  zef extract app.zef --ask app/etc/app.conf\n";
  }
  if (command == "check" || command == "test") {
    const std::string more = command == "check" ? "" : "\n"
           "Then reads and inflates every entry without writing anything, checks its size\n"
           "and CRC-32, and names each entry that fails.\n";
    return "Usage: zef " + command + " [--max-size=N] ARCHIVE\n"
           "\n"
           "Audits ARCHIVE (also tried with \".zef\" appended) as 'zef extract' does before\n"
           "it writes anything, and prints one line per finding on standard output: the\n"
           "entry's name, quoted and escaped, and what makes it unsafe or unreadable. The\n"
           "audit finds names that are absolute, climb with \"..\", hold a backslash or a\n"
           "NUL byte, are too long or given twice, or lead through a link; records that\n"
           "share or overlap data; counts that disagree; encryption, data descriptors,\n"
           "ZIP64, several disks and methods other than stored and deflated; set-user-ID,\n"
           "set-group-ID and sticky bits; declared sizes past the limit; and a directory\n"
           "that the library would walk otherwise than the audit did.\n" +
           more +
           "\n"
           "  --max-size=N  the limit on the declared sizes, as for 'zef extract'\n"
           "\n"
           "Exit status: 0 when nothing was found, 1 otherwise.\n"
           "\n"
           "Example:\n"
           "  zef " + command + " download.zip\n";
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
         "  extract  unpack an archive, or some of its entries, after auditing it\n"
         "  check    audit an archive: everything that makes it unsafe to extract\n"
         "  test     audit an archive and test every entry's size and CRC-32\n"
         "  canon    print paths in canonical form\n"
         "\n"
         "  zef --version   the library's version and build date\n"
         "  zef COMMAND --help\n"
         "\n"
         "Exit status: 0 on success, 1 when the library reports a failure or zef refuses\n"
         "the work (the reasons are on standard error), 2 for a mistake in the command\n"
         "line.\n";
}

}  // namespace zef
