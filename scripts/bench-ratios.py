#!/usr/bin/env python3
"""Runs a benchmark program and prints, per family and arguments, how many times faster ours is than each peer.

One line per family, arguments and contender of ours: its time, then each peer's time with the
same arguments and the ratio (peer / ours: above 1 means ours is faster), from medians of
interleaved repetitions (benchlib.py).

    scripts/bench-ratios.py build/bench/bin/PrintfBench [--repetitions 15] [--filter REGEX]
"""

import argparse
import sys

import benchlib


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("--repetitions", type=int, default=15)
    parser.add_argument("--filter", default=".")
    args = parser.parse_args()

    for family, arguments, unit, medians in benchlib.comparisons(
            benchlib.run(args.program, args.repetitions, args.filter)):
        title = f"{family} {arguments}".strip()
        ours, peers = benchlib.split(medians)
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
