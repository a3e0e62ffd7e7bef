"""Runs qz_bench and prints one row a case: our median, the baseline's, their ratio, our peak memory."""

import argparse
import collections
import json
import statistics
import subprocess
import sys


def measure(program, pattern, repetitions):
    """The runs of every benchmark by (case, variant), interleaved at random by the program."""
    command = [program, "--benchmark_format=json", f"--benchmark_filter={pattern}",
               f"--benchmark_repetitions={repetitions}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"]
    result = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True)
    runs = collections.defaultdict(list)
    for row in json.loads(result.stdout)["benchmarks"]:
        if row.get("error_occurred"):
            sys.exit(f"{row['name']}: {row['error_message']}")
        if row["run_type"] == "iteration":
            case, variant = row["run_name"].removesuffix("/real_time").split("/", 1)
            runs[case, variant].append(row)
    return runs


def seconds(rows):
    unit = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    return statistics.median(row["real_time"] * unit[row["time_unit"]] for row in rows)


def table(runs):
    for case, variant in runs:
        if variant == "qz":
            continue
        ours = runs[case, "qz"]
        row = {"case": case, "seconds": seconds(ours), "baseline": variant,
               "baselineSeconds": seconds(runs[case, variant])}
        row["ratio"] = row["seconds"] / row["baselineSeconds"]
        row["peakMiB"] = max((run.get("peakMiB", 0) for run in ours), default=0)
        yield row


def human(value):
    for unit, scale in (("s", 1), ("ms", 1e-3), ("us", 1e-6)):
        if value >= scale:
            return f"{value / scale:.3g} {unit}"
    return f"{value * 1e9:.3g} ns"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--filter", default=".")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--json", action="store_true")
    options = parser.parse_args()
    rows = list(table(measure(options.program, options.filter, options.repetitions)))
    if options.json:
        print(json.dumps(rows, indent=2))
        return
    print(f"{'case':36} {'ours':>9} {'baseline':>9}  {'ours/baseline':13} {'peak MiB':>8}")
    for row in rows:
        print(f"{row['case']:36} {human(row['seconds']):>9} {human(row['baselineSeconds']):>9}  "
              f"{row['ratio']:<13.3g} {row['peakMiB']:8.1f}  vs {row['baseline']}")


main()
