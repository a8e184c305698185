#!/usr/bin/env python3
"""Runs a benchmark program and prints, per family and arguments, how many times faster ours is than each peer.

Benchmarks are named BM_<Family>_<Contender>[/<arguments>]; contenders whose name starts with
"Ours" are ours. One line per family, arguments and contender of ours: its time, then each peer's
time with the same arguments and the ratio (peer / ours: above 1 means ours is faster).
Repetitions are interleaved at random, so a burst of load on a shared machine spreads over every
contender instead of landing on one, and the ratios are taken between medians.

    scripts/bench-ratios.py build/release/bin/PrintfBench [--repetitions 15] [--filter REGEX]
"""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
from collections import defaultdict


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("--repetitions", type=int, default=15)
    parser.add_argument("--filter", default=".")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory() as scratch:
        report = os.path.join(scratch, "report.json")
        subprocess.run(
            [args.program, f"--benchmark_filter={args.filter}",
             f"--benchmark_repetitions={args.repetitions}", "--benchmark_enable_random_interleaving=true",
             "--benchmark_min_time=0.05", "--benchmark_format=json", f"--benchmark_out={report}"],
            check=True, stdout=subprocess.DEVNULL)
        with open(report, encoding="utf-8") as f:
            runs = json.load(f)["benchmarks"]

    # (family, arguments) -> contender -> ns per repetition. "BM_Count_Ours/bytes:64/mixed:0" is
    # family Count, contender Ours, arguments "bytes:64/mixed:0": only runs with the same
    # arguments are compared.
    times = defaultdict(lambda: defaultdict(list))
    units = {}  # family -> the time unit its runs report in
    for run in runs:
        if run.get("run_type") != "iteration" or run.get("error_occurred"):
            continue
        name, _, arguments = run["run_name"].partition("/")
        family, _, contender = name.removeprefix("BM_").partition("_")
        times[(family, arguments)][contender or family].append(run["real_time"])
        units[family] = run.get("time_unit", "ns")

    def in_order(item):  # family, then the arguments by their numbers: 64 before 4096
        (family, arguments), _ = item
        return family, [int(part) if part.isdigit() else part for part in re.split(r"[/:]", arguments)]

    for (family, arguments), contenders in sorted(times.items(), key=in_order):
        medians = {name: statistics.median(samples) for name, samples in sorted(contenders.items())}
        ours = {name: t for name, t in medians.items() if name.startswith("Ours")}
        peers = {name: t for name, t in medians.items() if not name.startswith("Ours")}
        title = f"{family} {arguments}".strip()
        unit = units.get(family, "ns")
        if not ours or not peers:  # nothing to compare with
            print(f"{title}: " + ", ".join(f"{name} {t:.1f} {unit}" for name, t in medians.items()))
            continue
        for mine, mine_time in ours.items():
            columns = [f"{mine} {mine_time:.1f} {unit}"]
            columns += [f"{peer} {t:.1f} {unit} = {t / mine_time:.2f}x" for peer, t in peers.items()]
            print(f"{title}: " + " | ".join(columns))
    return 0


if __name__ == "__main__":
    sys.exit(main())
