"""Runs qz_bench, one process for each case, and prints a row for each baseline: our median, the baseline's, their
ratio, the goal, the ratio of processor time, and our peak memory."""

import argparse
import collections
import contextlib
import json
import os
import re
import signal
import statistics
import subprocess
import sys
import tempfile

LOOP_FILE_SIZE = 4 << 30

SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


@contextlib.contextmanager
def reflink_folder(folder):
    """Mounts an XFS in a file, if the user may do that; otherwise the cases that need one are left out."""
    image, mounted = os.path.join(folder, "xfs.img"), os.path.join(folder, "xfs")
    os.mkdir(mounted)
    with open(image, "wb") as file:
        file.truncate(LOOP_FILE_SIZE)
    made = (subprocess.run(["/sbin/mkfs.xfs", "-q", "-m", "reflink=1", image], check=False,
                           stderr=subprocess.DEVNULL).returncode == 0
            and subprocess.run(["mount", "-o", "loop", image, mounted], check=False,
                               stderr=subprocess.DEVNULL).returncode == 0)
    if made:
        os.environ["QZ_BENCH_REFLINK_DIR"] = mounted
    else:
        print("cannot mount an XFS here; the cases that need one are left out", file=sys.stderr)
    try:
        yield
    finally:
        if made:
            subprocess.run(["umount", mounted], check=True)


def cases(program, pattern):
    """The names of the cases, in the order in which they are registered."""
    names = subprocess.run([program, "--benchmark_list_tests"], check=True,
                           stdout=subprocess.PIPE, text=True).stdout.splitlines()
    found = dict.fromkeys(name.split("/", 1)[0] for name in names)
    return [case for case in found if re.search(pattern, case)]


def measure(program, case, repetitions):
    """The runs of every variant of a case, which the program interleaves at random."""
    # Not re.escape(), which escapes blanks too: the program uses the C library's regular expressions.
    name = re.sub(r"([.*+?()\[\]{}|^$])", r"\\\1", case)
    command = [program, "--benchmark_format=json", f"--benchmark_filter=^{name}/",
               f"--benchmark_repetitions={repetitions}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"]
    result = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True)
    runs = collections.defaultdict(list)
    for row in json.loads(result.stdout)["benchmarks"]:
        if row.get("error_occurred"):
            sys.exit(f"{row['name']}: {row['error_message']}")
        if row["run_type"] == "iteration":
            variant = row["run_name"].removesuffix("/real_time").split("/", 1)[1]
            runs[variant].append(row)
    return runs


def result_of(rows):
    """The median of the time in seconds, or of the amount in bytes where one is reported."""
    if "amount" in rows[0]:
        return statistics.median(row["amount"] for row in rows)
    if "seconds" in rows[0]:  # only a part of the run counts, or a child process measured itself
        return statistics.median(row["seconds"] for row in rows)
    return statistics.median(row["real_time"] * SECONDS[row["time_unit"]] for row in rows)


def compare(case, runs):
    ours = runs.pop("qz")
    for variant, theirs in runs.items():
        yield {
            "case": case,
            "baseline": variant,
            "unit": "bytes" if "amount" in ours[0] else "seconds",
            "ours": result_of(ours),
            "theirs": result_of(theirs),
            "ratio": result_of(ours) / result_of(theirs),
            "goal": theirs[0].get("goal", 0),
            "processorRatio": processor(ours) / processor(theirs) if processor(theirs) else 0,
            "peakMiB": max(row.get("peakMiB", 0) for row in ours),
        }


def processor(rows):
    return statistics.median(row.get("processorSeconds", 0) for row in rows)


def human(value, unit):
    scales = ((("MiB", 2**20), ("KiB", 2**10), ("B", 1)) if unit == "bytes" else
              (("s", 1), ("ms", 1e-3), ("us", 1e-6), ("ns", 1e-9)))
    for name, scale in scales:
        if value >= scale:
            break
    return f"{value / scale:.4g} {name}"


def show(row):
    goal = f"{row['goal']:.3g}" if row["goal"] else "-"
    cpu = f"{row['processorRatio']:.3g}" if row["processorRatio"] else "-"
    missed = " !" if row["goal"] and row["ratio"] > row["goal"] else ""
    print(f"| {row['case']:38} | {human(row['ours'], row['unit']):>9} "
          f"| {human(row['theirs'], row['unit']):>9} | {row['baseline']:24} "
          f"| {row['ratio']:6.3g}{missed:2} | {goal:>6} | {cpu:>6} | {row['peakMiB']:8.1f} |",
          flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--filter", default=".", help="regular expression for names of cases")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--json", action="store_true")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that the XFS is unmounted and the files removed
    if not options.json:
        print(f"| {'case':38} | {'ours':>9} | {'baseline':>9} | {'of':24} | {'ratio':8} |   goal "
              f"|    CPU | peak MiB |\n|{'-' * 40}|{'-' * 10}:|{'-' * 10}:|{'-' * 26}"
              f"|{'-' * 9}:|{'-' * 7}:|{'-' * 7}:|{'-' * 9}:|")
    rows = []
    with contextlib.ExitStack() as stack:
        kept = stack.enter_context(tempfile.TemporaryDirectory(
            prefix="qz-bench-", dir=os.environ.get("QZ_BENCH_DIR")))
        os.environ["QZ_BENCH_DIR"] = kept
        stack.enter_context(reflink_folder(kept))
        for case in cases(options.program, options.filter):
            for row in compare(case, measure(options.program, case, options.repetitions)):
                rows.append(row)
                if not options.json:
                    show(row)
    if options.json:
        print(json.dumps(rows, indent=2))


main()
