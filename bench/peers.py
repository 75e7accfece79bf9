#!/usr/bin/env python3
"""zef beside its peers: create, extract and list two generated trees with zef,
zip/unzip, bsdtar, Python's zipfile and 7z, and set each against raw zlib (and
raw libdeflate, zef's own compressor) on the same bytes; `zef test` shows
zef's inflation apart from writing files. Rounds interleave every tool, and
the report gives medians.

    python3 bench/peers.py --zef build/tools/zef --work /dev/shm/zef-peers

Use a tmpfs folder (/dev/shm) so that the disk does not set the pace, and an
optimised build. A missing peer is skipped with a note."""

import argparse
import os
import random
import shutil
import statistics
import subprocess
import sys
import time

MiB = 1024 * 1024
LEVEL = 6


# ---------------------------------------------------------------- the trees

class Content:
    """Deterministic file contents: text cut from a pool of pseudo-words, and
    binary data of mixed entropy, both from one seeded generator."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        syllables = ["ka", "zef", "lo", "mir", "ta", "un", "pre", "sto", "rig", "ven", "ol", "quo"]
        words = ["".join(self.random.choice(syllables) for _ in range(self.random.randint(1, 4)))
                 for _ in range(3000)]
        words += ["def", "return", "self", "import", "class", "if", "else", "None", "for", "in"]
        lines = []
        size = 0
        while size < 4 * MiB:
            line = " " * (4 * self.random.randint(0, 3)) + " ".join(
                self.random.choice(words) for _ in range(self.random.randint(2, 12)))
            lines.append(line)
            size += len(line) + 1
        self.text_pool = ("\n".join(lines) + "\n").encode()
        # A third of all byte values collapse to zero: machine code and tables
        # compress to about half, as real shared objects do.
        self.skew = bytes(0 if value % 3 == 0 else value for value in range(256))

    def text(self, size):
        start = self.random.randrange(0, len(self.text_pool) - size)
        return self.text_pool[start:start + size]

    def binary(self, size):
        pieces = []
        left = size
        while left > 0:
            run = min(left, self.random.randint(4096, 65536))
            kind = self.random.random()
            if kind < 0.6:
                pieces.append(self.random.randbytes(run).translate(self.skew))
            elif kind < 0.8:
                pieces.append(self.text(run))
            else:
                pieces.append(self.random.randbytes(run))
            left -= run
        return b"".join(pieces)


def write(path, data, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data)
    os.chmod(path, mode)


def make_app_tree(root, scale):
    """An application as it ships: executables, versioned libraries with their
    chains of links, a large package of source files, data and configuration."""
    content = Content(20261123)
    count = lambda n: max(1, int(n * scale))
    for i in range(count(24)):
        write(f"{root}/bin/tool{i}", content.binary(content.random.randint(64 * 1024, 2 * MiB)), 0o755)
    for i in range(count(60)):
        real = f"libpart{i}.so.1.{i % 7}.0"
        write(f"{root}/lib/{real}", content.binary(content.random.randint(128 * 1024, 3 * MiB)), 0o755)
        os.symlink(real, f"{root}/lib/libpart{i}.so.1")
        os.symlink(f"libpart{i}.so.1", f"{root}/lib/libpart{i}.so")
    for i in range(count(2300)):
        package = f"{root}/lib/python/pkg{i % 40}/sub{i % 7}"
        write(f"{package}/module{i}.py", content.text(content.random.randint(600, 48 * 1024)))
    for i in range(count(120)):
        write(f"{root}/share/data/table{i}.json", content.text(content.random.randint(2048, 256 * 1024)))
    for i in range(count(6)):
        write(f"{root}/share/blobs/blob{i}.bin", content.binary(content.random.randint(4 * MiB, 10 * MiB)))
    for i in range(count(30)):
        write(f"{root}/etc/conf{i}.ini", content.text(content.random.randint(200, 4096)), 0o600)
    os.symlink("../lib/libpart0.so", f"{root}/bin/libmain.so")


def make_small_tree(root, scale):
    """Many small text files, as a web root or a documentation tree is."""
    content = Content(4096)
    for i in range(max(1, int(20000 * scale))):
        write(f"{root}/dir{i % 200:03d}/file{i:05d}.txt", content.text(content.random.randint(1024, 4096)))


def regular_files(root):
    for directory, _, names in sorted(os.walk(root)):
        for name in sorted(names):
            path = os.path.join(directory, name)
            if os.path.isfile(path) and not os.path.islink(path):
                yield path


# ---------------------------------------------------------------- the tools

def have(program):
    return shutil.which(program) is not None


def peers(zef, jobs, zlib):
    """(label, create argv, extract argv, list argv, test argv or None) per
    tool. Each argv is a function of (archive, tree name, destination)."""
    tools = []
    variants = [(job, []) for job in jobs] + ([(None, ["--zlib"])] if zlib else [])
    for job, extra in variants:
        j = [] if job is None else ["-j", str(job)]
        label = " ".join(["zef", *extra] + ([] if job is None else [f"-j{job}"]))
        tools.append((label, ".zef",
                      lambda a, t, j=j, extra=extra: [zef, "create", *extra, *j, f"-{LEVEL}", a, t],
                      lambda a, d, j=j: [zef, "extract", *j, a, "-d", d],
                      lambda a: [zef, "list", a],
                      lambda a, j=j: [zef, "test", *j, a]))
    if have("zip") and have("unzip"):
        tools.append(("zip/unzip", ".zip",
                      lambda a, t: ["zip", "-q", "-r", "-y", f"-{LEVEL}", a, t],
                      lambda a, d: ["unzip", "-q", a, "-d", d],
                      lambda a: ["unzip", "-l", a],
                      lambda a: ["unzip", "-tq", a]))
    if have("bsdtar"):
        tools.append(("bsdtar", ".zip",
                      lambda a, t: ["bsdtar", "--format", "zip", "--options",
                                    f"zip:compression-level={LEVEL}", "-cf", a, t],
                      lambda a, d: ["bsdtar", "-xf", a, "-C", d],
                      lambda a: ["bsdtar", "-tvf", a],
                      None))
    python = sys.executable
    tools.append(("python zipfile", ".zip",
                  lambda a, t: [python, "-m", "zipfile", "-c", a, t],
                  lambda a, d: [python, "-m", "zipfile", "-e", a, d],
                  lambda a: [python, "-m", "zipfile", "-l", a],
                  lambda a: [python, "-m", "zipfile", "-t", a]))
    if have("7z"):
        tools.append(("7z", ".zip",
                      lambda a, t: ["7z", "a", "-bd", "-tzip", f"-mx={LEVEL}", a, t],
                      lambda a, d: ["7z", "x", "-bd", "-y", f"-o{d}", a],
                      lambda a: ["7z", "l", a],
                      lambda a: ["7z", "t", a]))
    return tools


WARNED = set()


def timed(argv, cwd):
    """Wall and CPU (user + system) seconds of one run. A peer that fails is
    still timed, with its complaint shown once (7z, for one, refuses links
    that climb with "..")."""
    start = time.perf_counter()
    process = subprocess.Popen(argv, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    errors = process.stderr.read().decode(errors="replace")
    process.stderr.close()
    if process.returncode != 0 and argv[0] not in WARNED:
        WARNED.add(argv[0])
        print(f"note: {' '.join(argv)} exited {process.returncode}: {errors.strip()[:300]}", file=sys.stderr)
    return wall, usage.ru_utime + usage.ru_stime


def raw_floors(program, files, list_path):
    """{label: (deflate CPU s, inflate CPU s, compressed bytes)} for raw zlib
    and raw libdeflate at the level zef maps LEVEL to."""
    with open(list_path, "w") as listing:
        listing.write("".join(f"{path}\n" for path in files))
    output = subprocess.run([program, str(LEVEL), list_path, "libdeflate"], check=True, capture_output=True,
                            text=True).stdout
    fields = output.split()
    values = dict(zip(fields[0::2], fields[1::2]))
    return {"raw zlib": (float(values["deflate_cpu"]), float(values["inflate_cpu"]), int(values["compressed"])),
            "raw libdeflate": (float(values["libdeflate_cpu"]), float(values["libinflate_cpu"]),
                               int(values["libdeflate_compressed"]))}


# ---------------------------------------------------------------- the rounds

def run_corpus(name, tree, work, tools, raw_program, rounds):
    files = list(regular_files(os.path.join(work, tree)))
    size = sum(os.path.getsize(path) for path in files)
    print(f"\n## {name}: {len(files)} files, {size / MiB:.1f} MiB, level {LEVEL}, {rounds} rounds\n", flush=True)
    times = {}  # (operation, label) -> [(wall, cpu)]
    archive_sizes = {}
    for round_number in range(rounds):
        for label, suffix, create, extract, listing, test in tools:
            archive = os.path.join(work, f"{tree}-{label.replace(' ', '_').replace('/', '_')}{suffix}")
            destination = os.path.join(work, "out")
            if os.path.exists(archive):
                os.remove(archive)
            times.setdefault(("create", label), []).append(timed(create(archive, tree), work))
            archive_sizes[label] = os.path.getsize(archive)
            shutil.rmtree(destination, ignore_errors=True)
            os.mkdir(destination)
            times.setdefault(("extract", label), []).append(timed(extract(archive, destination), work))
            shutil.rmtree(destination)
            times.setdefault(("list", label), []).append(timed(listing(archive), work))
            if test is not None:
                times.setdefault(("test", label), []).append(timed(test(archive), work))
        floors = raw_floors(raw_program, files, os.path.join(work, "files.txt"))
        for label, (deflate, inflate, compressed) in floors.items():
            times.setdefault(("create", label), []).append((deflate, deflate))
            for operation in ("extract", "test"):
                times.setdefault((operation, label), []).append((inflate, inflate))
            archive_sizes[label] = compressed
        print(f"round {round_number + 1} of {rounds} done", file=sys.stderr, flush=True)
    report(times, archive_sizes, size)


def report(times, archive_sizes, size):
    median = lambda samples, index: statistics.median(sample[index] for sample in samples)
    for operation in ("create", "extract", "test", "list"):
        print(f"| {operation} | wall s | CPU s | MB/s | vs raw zlib | CPU vs raw zlib | vs zef | archive MB |")
        print("|---|---|---|---|---|---|---|---|")
        rows = [(label, samples) for (op, label), samples in times.items() if op == operation]
        raw = times.get((operation, "raw zlib"))
        zef = times.get((operation, "zef"))
        for label, samples in rows:
            wall, cpu = median(samples, 0), median(samples, 1)
            versus_raw = f"{median(raw, 0) / wall:.2f}x" if raw else ""
            cpu_versus_raw = f"{median(raw, 1) / cpu:.2f}x" if raw and cpu > 0 else ""
            versus_zef = f"{median(zef, 0) / wall:.2f}x" if zef else ""
            mb = f"{archive_sizes[label] / 1e6:.2f}" if operation == "create" and label in archive_sizes else ""
            print(f"| {label} | {wall:.3f} | {cpu:.3f} | {size / 1e6 / wall:.1f} | {versus_raw} | {cpu_versus_raw} "
                  f"| {versus_zef} | {mb} |")
        print()
    print("MB/s is the tree's bytes over the median wall time; 'vs' columns are throughput ratios "
          "(above 1: faster than that row's reference), 'CPU vs' the same in CPU seconds (user + system, "
          "child processes included), steadier on a busy machine. Raw zlib and raw libdeflate run in memory: "
          "their figures are CPU time, and in the extract and test tables they are inflation with CRC-32 "
          "alone. The test table reads every entry without writing files (bsdtar has no such command).")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--zef", required=True, help="the zef program to measure")
    parser.add_argument("--raw-zlib", help="kxzef_raw_zlib (default: beside zef, in ../bench)")
    parser.add_argument("--work", required=True, help="a folder to work in; tmpfs recommended; emptied first")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--scale", type=float, default=1.0, help="fraction of the full trees to generate")
    parser.add_argument("--corpus", choices=["app", "small", "both"], default="both")
    parser.add_argument("--jobs", default="", help="zef -j values to run as well, e.g. 1,2 (needs zef -j)")
    parser.add_argument("--zlib", action="store_true", help="run zef create --zlib as well")
    arguments = parser.parse_args()

    zef = os.path.abspath(arguments.zef)
    raw_program = arguments.raw_zlib or os.path.join(os.path.dirname(zef), "..", "bench", "kxzef_raw_zlib")
    if not os.access(raw_program, os.X_OK):
        sys.exit(f"{raw_program} not found: build the kxzef_raw_zlib target or pass --raw-zlib")
    for program in ("zip", "unzip", "bsdtar", "7z"):
        if not have(program):
            print(f"note: {program} not found, skipped", file=sys.stderr)
    jobs = [None] + [int(job) for job in arguments.jobs.split(",") if job]
    tools = peers(zef, jobs, arguments.zlib)

    work = os.path.abspath(arguments.work)
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    corpora = {"app": ("application tree", "app", make_app_tree),
               "small": ("small files", "small", make_small_tree)}
    chosen = ["app", "small"] if arguments.corpus == "both" else [arguments.corpus]
    for key in chosen:
        title, tree, make = corpora[key]
        make(os.path.join(work, tree), arguments.scale)
        run_corpus(title, tree, work, tools, raw_program, arguments.rounds)
        shutil.rmtree(os.path.join(work, tree))
    shutil.rmtree(work)


if __name__ == "__main__":
    main()
