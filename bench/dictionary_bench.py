#!/usr/bin/env python3
"""Times a defining command on dictionaries of growing size, side by side.

    bench/dictionary_bench.py [--build DIR] [--sizes 2000,20000,...] [--runs N]

For each size it makes a codebook (make_dictionary.py: VARIABLES fields and a
tenth as many sets) and its database (mrset-convert), then times, in turn
and on fresh copies, medians of N runs:
  codebook  mrset -d FILE.json defining $new over q1 TO q100 and showing it
  database  the same command on FILE.db (whose sets the command's DISPLAY
            puts in name order, so the rows of the sets out of that order move)
  db-sorted the same on a database whose sets are in name order already
            (each later command on a file: only the new set is written)
  python    load_append_dump.py FILE.json $new q1 q100 (what a user would write)
  copy      a synced copy of the codebook (cp, sync, rename): the floor for an
            all-or-nothing save of the whole file
after one run of each that is not counted (python: none, and half as many
runs at 1,000,000 variables, where one run takes tens of seconds)
with the peak memory of each (maxrss), the ratios and the growth per 10x.
Last, one command defining 40,000 sets on the smallest dictionary, less a
command that only opens it.
The helper scripts come from ../shared/bench when present, else from bench/.
"""
import argparse
import math
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
DEFINE = "MRSET /MDGROUP NAME=$new VARIABLES=q1 TO q100 VALUE=1 /DISPLAY NAME=[$new]."


def helper(name):
    shared = os.path.join(ROOT, "..", "shared", "bench", name)
    return shared if os.path.exists(shared) else os.path.join(HERE, name)


def synced_copy(source, target):
    """A fresh copy, on the disk before the timing starts: otherwise the first
    sync of whatever is timed next writes the copy out too."""
    shutil.copyfile(source, target)
    with open(target, "rb") as f:
        os.fsync(f.fileno())


def timed(argv):
    """Wall seconds, peak memory (MB) and processor seconds of one run of argv."""
    start = time.perf_counter()
    child = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.perf_counter() - start
    errors = child.stderr.read().decode(errors="replace")
    child.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"failed ({status}): {' '.join(argv)}\n{errors}")
    return seconds, usage.ru_maxrss / 1024, usage.ru_utime + usage.ru_stime


def median_of(runs, prepare, argv, warmups=1):
    """Median wall seconds, peak memory and median processor seconds, after
    `warmups` runs that are not counted (the first run after making a large
    file meets the memory its maker just gave back)."""
    for _ in range(warmups):
        prepare()
        timed(argv)
    samples = []
    for _ in range(runs):
        prepare()
        samples.append(timed(argv))
    return (statistics.median(s[0] for s in samples), max(s[1] for s in samples),
            statistics.median(s[2] for s in samples))


def measure(size, runs, build, work):
    base = os.path.join(work, f"dict{size}.json")
    subprocess.run([sys.executable, helper("make_dictionary.py"), str(size), base], check=True)
    database = os.path.join(work, f"dict{size}.db")
    if os.path.exists(database):
        os.remove(database)
    subprocess.run([os.path.join(build, "bin", "mrset-convert"), base, database], check=True)
    target = os.path.join(work, "work.json")
    target_db = os.path.join(work, "work.db")

    def fresh():
        synced_copy(base, target)

    def fresh_db():
        synced_copy(database, target_db)

    sorted_db = os.path.join(work, f"dict{size}-sorted.db")
    shutil.copyfile(database, sorted_db)
    subprocess.run([os.path.join(build, "bin", "mrset"), "-d", sorted_db, "-e",
                    "MRSET /DISPLAY NAME=[$set0]."], check=True, stdout=subprocess.DEVNULL)

    def fresh_sorted_db():
        synced_copy(sorted_db, target_db)

    mrset = os.path.join(build, "bin", "mrset")
    copy_cmd = f'cp "{base}" "{target}.tmp" && sync "{target}.tmp" && mv "{target}.tmp" "{target}"'
    # Each command's runs one after another, as a user meets them. Taken in
    # turn with the others, each would follow python's gigabyte: on a
    # virtual machine, memory another process just gave back is slow to
    # touch again.
    slow = max(1, runs // 2) if size >= 1000000 else runs
    return {
        "megabytes": os.path.getsize(base) / 1e6,
        "codebook": median_of(runs, fresh, [mrset, "-d", target, "-e", DEFINE]),
        "database": median_of(runs, fresh_db, [mrset, "-d", target_db, "-e", DEFINE]),
        "db-sorted": median_of(runs, fresh_sorted_db, [mrset, "-d", target_db, "-e", DEFINE]),
        "copy": median_of(runs, fresh, ["sh", "-c", copy_cmd]),
        "python": median_of(slow, fresh, [sys.executable, helper("load_append_dump.py"), target,
                                          "$new", "q1", "q100"], warmups=0),
    }


def many_sets(size, runs, build, work):
    """Seconds of one command defining 40,000 sets, beyond opening."""
    base = os.path.join(work, f"dict{size}.json")
    target = os.path.join(work, "many.json")
    syntax = os.path.join(work, "many.mrs")
    with open(syntax, "w", encoding="utf-8") as f:
        f.write("MRSET\n")
        numeric = size - size // 10 - 1  # the last tenth are strings
        for s in range(40000):
            f.write(f" /MCGROUP NAME=$m{s} VARIABLES=q{s % numeric} q{s % numeric + 1}\n")
        f.write(".\n")
    mrset = os.path.join(build, "bin", "mrset")

    def fresh():
        synced_copy(base, target)

    define = median_of(runs, fresh, [mrset, "-d", target, syntax])[0]
    opening = median_of(runs, fresh,
                        [mrset, "-d", target, "-e", "MRSET /DISPLAY NAME=[$set0]."])[0]
    return define - opening


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    parser.add_argument("--sizes", default="2000,20000,200000,1000000")
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()
    sizes = [int(s) for s in args.sizes.split(",")]
    work = tempfile.mkdtemp(prefix="dictionary-bench-", dir=os.environ.get("BENCH_DIR"))
    try:
        results = {}
        for size in sizes:
            results[size] = measure(size, args.runs, args.build, work)
            print(f"measured {size} variables", file=sys.stderr)
        extra = many_sets(sizes[0], args.runs, args.build, work)
    finally:
        shutil.rmtree(work, ignore_errors=True)

    kinds = ["codebook", "database", "db-sorted", "python", "copy"]
    print("Wall seconds (processor seconds, peak MB); medians. On a busy machine the")
    print("wall time grows with the load; the processor time does not.\n")
    print("| variables | file MB | " + " | ".join(kinds) + " | codebook/python | codebook/copy |")
    print("|---" * (len(kinds) + 4) + "|")
    for size, row in results.items():
        cells = [f"{row[k][0]:.3f} ({row[k][2]:.3f}, {row[k][1]:.0f})" for k in kinds]
        print(f"| {size:,} | {row['megabytes']:.1f} | " + " | ".join(cells) +
              f" | {row['codebook'][0] / row['python'][0]:.2f}x"
              f" ({row['codebook'][2] / row['python'][2]:.2f}x)"
              f" | {row['codebook'][0] / row['copy'][0]:.2f}x |")
    print("\ngrowth per 10x size (time, scaled to a tenfold step):")
    for small, large in zip(sizes, sizes[1:]):
        power = math.log(10) / math.log(large / small)
        growth = ", ".join(f"{k} {(results[large][k][0] / results[small][k][0]) ** power:.1f}x"
                           for k in kinds)
        print(f"  {small:,} -> {large:,}: {growth}")
    print(f"\n40,000 sets in one command ({sizes[0]:,} variables): {extra:.3f} s beyond opening")


if __name__ == "__main__":
    main()
