#!/usr/bin/env python3
"""Runs a benchmark program and prints, per family, how many times faster ours is than each peer.

Benchmarks are named BM_<Family>_<Contender>; contenders whose name starts with "Ours" are ours.
Repetitions are interleaved at random, so a burst of load on a shared machine spreads over every
contender instead of landing on one, and the ratios are taken between medians.

    scripts/bench-ratios.py build/release/bin/PrintfBench [--repetitions 15] [--filter REGEX]
"""

import argparse
import json
import os
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

    times = defaultdict(lambda: defaultdict(list))  # family -> contender -> ns per repetition
    for run in runs:
        if run.get("run_type") != "iteration" or run.get("error_occurred"):
            continue
        family, _, contender = run["run_name"].removeprefix("BM_").partition("_")
        times[family][contender].append(run["real_time"])

    for family, contenders in sorted(times.items()):
        medians = {name: statistics.median(samples) for name, samples in sorted(contenders.items())}
        ours = {name: t for name, t in medians.items() if name.startswith("Ours")}
        peers = {name: t for name, t in medians.items() if not name.startswith("Ours")}
        print(f"{family}: " + ", ".join(f"{name} {t:.1f} ns" for name, t in medians.items()))
        for mine, mine_time in ours.items():
            ratios = ", ".join(f"{peer_time / mine_time:.2f}x {peer}" for peer, peer_time in peers.items())
            print(f"    {mine}: {ratios}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
