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

OptionValue takeValue(const std::vector<std::string>& args, size_t& i, const std::string& name, std::string& value) {
  const std::string& arg = args[i];
  if (name.rfind("--", 0) == 0 && arg.size() > name.size() && arg.compare(0, name.size(), name) == 0 &&
      arg[name.size()] == '=') {
    value = arg.substr(name.size() + 1);
    return OptionValue::Taken;
  }
  if (arg != name) return OptionValue::Absent;
  if (i + 1 == args.size()) return OptionValue::Missing;
  value = args[++i];
  return OptionValue::Taken;
}

int walkArguments(const std::vector<std::string>& args, const std::function<int(size_t&)>& option,
                  const std::function<void(const std::string&)>& operand) {
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!optionsEnded && arg == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
      if (int status = option(i); status != ExitOk) return status;
    } else {
      operand(arg);
    }
  }
  return ExitOk;
}

int takeValued(const std::string& command, const std::vector<std::string>& args, size_t& i,
               const std::vector<ValuedOption>& options,
               const std::function<int(const std::string& name, const std::string& value)>& apply, bool& taken) {
  std::string value;
  for (const ValuedOption& option : options) {
    const OptionValue found = takeValue(args, i, option.name, value);
    if (found == OptionValue::Absent) continue;
    taken = true;
    if (found == OptionValue::Missing) return usageError(command, std::string(option.name) + " needs " + option.needs);
    return apply(option.name, value);
  }
  return ExitOk;
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
    return "Usage: zef create [OPTIONS] ARCHIVE INPUT...\n"
           "       zef create [OPTIONS] ARCHIVE --from MANIFEST\n"
           "\n"
           "Packs INPUTs into ARCHIVE. An INPUT is SOURCE or SOURCE=DEST: the file SOURCE\n"
           "is stored under the name DEST (without DEST, under SOURCE). A directory SOURCE\n"
           "is taken with everything below it, DEST naming its place in the archive. Names\n"
           "are stored clean: \"./\", doubled and trailing \"/\" and a leading \"/\" go, \"..\"\n"
           "takes back the name before it, so 'zef create x.zef .' stores 'bin/run'.\n"
           "Symbolic links are stored as links; the files they point to are stored too.\n"
           "A MANIFEST holds one SOURCE<TAB>DEST pair a line (DEST may be empty).\n"
           "\n"
           "  -0 ... -9          compression level: 0 stores, 1-9 deflate (default 6)\n"
           "  -j N               compress on N threads (also --jobs N; default: the online\n"
           "                     CPUs). The archive and the messages are the same whatever\n"
           "                     N is, and -j 1 starts no thread. Files over 32 MiB are\n"
           "                     compressed by the calling thread; at most 64 MiB of\n"
           "                     output waits to be written\n"
           "  --zlib             compress with zlib, as the library does, for the archive a\n"
           "                     host writes byte for byte; without it files up to 8 MiB\n"
           "                     are deflated in one piece by libdeflate, about two to\n"
           "                     three times as fast (only the compressed bytes differ: a\n"
           "                     few percent smaller, or larger for small text files),\n"
           "                     and larger ones by zlib\n"
           "  --keep             refuse to replace an existing ARCHIVE\n"
           "  --from FILE        read the inputs from FILE instead of the command line\n"
           "  --exclude PATTERN  leave out what PATTERN matches (repeatable): a shell\n"
           "                     pattern on the stored name, tried from the start of each\n"
           "                     of its components (\"*\" matches \"/\" too); a match on a\n"
           "                     directory leaves out everything below it, and a PATTERN\n"
           "                     ending in \"/\" matches directories only\n"
           "  --mtime TIME       store every entry with the time TIME: YYYY-MM-DD,\n"
           "                     YYYY-MM-DD HH:MM[:SS] as written, or @SECONDS since 1970\n"
           "                     in UTC; without it SOURCE_DATE_EPOCH, when set, gives the\n"
           "                     time in UTC (before 1980 as 1980-01-01 00:00)\n"
           "  -v, --verbose      print each entry's name as it is stored, and a summary\n"
           "  -q, --quiet        no warnings and no progress line\n"
           "\n"
           "ARCHIVE gets \".zef\" appended when it holds no \".\" at all. Nothing is written\n"
           "when an input is missing, unreadable, empty, a FIFO, a socket or a device,\n"
           "when two inputs would take one name, when a link's target fails those checks\n"
           "or would take a name another input holds (a dangling link is stored alone),\n"
           "or when ARCHIVE is not a regular file or its name is too long; each problem\n"
           "gets a line of its own. Inside a directory, FIFOs, sockets and devices are\n"
           "skipped with a warning, and the archive itself is never stored.\n"
           "On a terminal a progress line on standard error shows entries and bytes\n"
           "done, the share done and the rate; it is erased when the work ends.\n"
           "\n"
           "The archive is written to a temporary file beside it, .NAME.zef-tmp-XXXXXX,\n"
           "read back and checked, flushed to disk, and only then renamed to ARCHIVE, so\n"
           "an existing ARCHIVE stays as it was until the new one is complete. SIGINT,\n"
           "SIGTERM and SIGHUP remove the temporary file; a killed run may leave it behind.\n"
           "A replaced ARCHIVE keeps its permission bits. When the writer fails, the last\n"
           "line names the entry and the cause.\n"
           "\n"
           "Examples:\n"
           "  zef create app.zef examples/app=app\n"
           "  zef create -9 --keep app.zef bin/run=app/bin/run etc/app.conf=app/etc/app.conf\n"
           "  zef create -v --exclude '__pycache__/' --exclude '*.pyc' app.zef src=app\n"
           "  zef create --mtime 2024-01-01 big.zef --from manifest.tsv\n";
  }
  if (command == "list") {
    return "Usage: zef list [-v | -1 | --json | --raw] ARCHIVE\n"
           "\n"
           "Lists the entries of ARCHIVE (also tried with \".zef\" appended) on standard\n"
           "output: size, date and time (YYYY-MM-DD HH:MM) and name, \"-> TARGET\" after a\n"
           "link, and a line of totals. Control characters in names show as \\xNN.\n"
           "\n"
           "  -v, --verbose  add the method, the stored size, the share saved and the\n"
           "                 CRC-32 (8 hex digits)\n"
           "  -1             the names alone, one a line, as stored\n"
           "  --json         one JSON object a line per entry: name, type (file,\n"
           "                 directory or link), mode (\"0644\", or null when the archive\n"
           "                 keeps none), size, stored_size, method (\"stored\",\n"
           "                 \"deflate\", ...), crc (8 hex digits), time (ISO 8601, without\n"
           "                 a zone, as the archive keeps none) and target (a link's, else\n"
           "                 null); bytes that are not UTF-8 come as \\udcXX\n"
           "  --raw          the library's own listing: a heading on standard error, its\n"
           "                 fixed rows on standard output\n"
           "  -q, --quiet    accepted, as by every command; a listing gives no warnings\n"
           "\n"
           "The exit status is 1 when a record is damaged: a central directory that ends\n"
           "early or counts otherwise than its end record, or a missing or damaged local\n"
           "header. The entries read are listed all the same, and a line on standard\n"
           "error names each damaged one.\n"
           "\n"
           "Examples:\n"
           "  zef list app.zef\n"
           "  zef list --json app.zef | jq -r 'select(.type == \"link\") | .name'\n";
  }
  if (command == "extract") {
    return "Usage: zef extract [OPTIONS] ARCHIVE [ENTRY...]\n"
           "\n"
           "Extracts everything in ARCHIVE (also tried with \".zef\" appended), or only the\n"
           "entries the ENTRY patterns match, below DIR. An ENTRY is a name or a shell\n"
           "pattern (\"*\" and \"?\" match \"/\" too; quote it from the shell) matched from\n"
           "the start of the name without regard to ASCII case; one that matches a\n"
           "directory brings everything below it ('zef extract app.zef app/etc').\n"
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
           "  -d DIR             extract below DIR (default: the current directory)\n"
           "  -j N               inflate and write files on N threads (also --jobs N;\n"
           "                     default: the online CPUs; -j 1 starts no thread).\n"
           "                     Directories and links are made in archive order, and the\n"
           "                     first entry to fail in archive order is the one reported;\n"
           "                     files after it may already have been written to the\n"
           "                     staging directory, which goes as after any failure. Used\n"
           "                     when the archive is extracted with paths, unless a few\n"
           "                     entries are asked for (those are extracted one by one)\n"
           "  --exclude PATTERN  leave out the entries PATTERN matches (repeatable), tried\n"
           "                     from the start of each component of the name, without\n"
           "                     regard to ASCII case; a match on a directory leaves out\n"
           "                     everything below it, a PATTERN ending in \"/\" matches\n"
           "                     directories only\n"
           "  --overwrite=WHEN   what to do with a file or link already in DIR: always\n"
           "                     replace it (the default), never replace it, or ask: one\n"
           "                     line read from standard input answers, y or yes, n or no,\n"
           "                     a or all (this and every later one), N or none (neither\n"
           "                     this nor any later one); the end of input counts as none\n"
           "  --ask              the same as --overwrite=ask\n"
           "  --flat             do not use the paths in the archive: only symbolic links\n"
           "                     are created, in DIR under their bare names; files and\n"
           "                     directories are skipped\n"
           "  --trust            extract despite the audit's findings, except the size\n"
           "                     limit. A name that could lead out of DIR is refused even\n"
           "                     so: one with a \"..\" component, one below another entry\n"
           "                     that is no directory (a link, say), and one path given to\n"
           "                     a link or file twice\n"
           "  --replace          put the extracted tree in place of DIR as a whole, in one\n"
           "                     atomic swap, and remove the old tree (not with ask)\n"
           "  --max-size=N       refuse an archive declaring more than N bytes in all (K,\n"
           "                     M, G and T multiply by powers of 1024; 0 lifts the\n"
           "                     limit); the default is 1100 times the archive's size, at\n"
           "                     least 1 GiB\n"
           "  -v, --verbose      print each entry's name as it is extracted, and a summary\n"
           "                     that counts the files in DIR left as they were\n"
           "  -q, --quiet        no warnings and no progress line\n"
           "\n"
           "On a terminal a progress line on standard error shows entries and bytes done,\n"
           "the share done and the rate; it is erased when the work ends. On failure the\n"
           "last line names the entry and the cause, for example\n"
           "  zef: app.zef: 'b.bin' failed its CRC check; nothing was installed\n"
           "\n"
           "Examples:\n"
           "  zef extract app.zef -d /opt/app\n"
           "  zef extract app.zef -d /opt/app --replace\n"
           "  zef extract app.zef --overwrite=ask app/etc/app.conf\n"
           "  zef extract app.zef -d /opt/app 'app/etc/*' --exclude '*.bak'\n";
  }
  if (command == "check" || command == "test") {
    const std::string more = command == "check" ? "" : "\n"
           "Then reads and inflates every entry without writing anything, checks its size\n"
           "and CRC-32, and names each entry that fails.\n";
    const std::string jobs = command == "check" ? "" :
           "  -j N           test on N threads (also --jobs N; default: the online CPUs)\n";
    return "Usage: zef " + command + (command == "check" ? "" : " [-j N]") + " [-v] [--max-size=N] ARCHIVE\n"
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
           + jobs +
           "  --max-size=N   the limit on the declared sizes, as for 'zef extract'\n"
           "  -v, --verbose  add a summary: entries, bytes packed in the archive and\n"
           "                 unpacked, before the verdict\n"
           "  -q, --quiet    no warnings\n"
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
           "consulted and links are not resolved. A PATH that begins with \"..\" is refused;\n"
           "one that begins with \"-\" goes after \"--\".\n"
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
         "Every command but canon takes -v (create and extract print a line per entry;\n"
         "all end with a summary) and -q (no warnings, and no progress line, which a\n"
         "long create or extract shows on standard error when that is a terminal).\n"
         "\n"
         "Exit status: 0 on success, 1 when the library reports a failure or zef refuses\n"
         "the work (the reasons are on standard error), 2 for a mistake in the command\n"
         "line.\n";
}

}  // namespace zef
