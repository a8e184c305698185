"""Running Google Benchmark programs and comparing ours with the peers, shared by bench-ratios.py
(one program, printed) and bench-report.py (every program, a table and a chart).

Benchmarks are named BM_<Family>_<Contender>[/<arguments>]; contenders whose name starts with
"Ours" are ours. Repetitions are interleaved at random, so a burst of load on a shared machine
spreads over every contender instead of landing on one, and ratios are taken between medians
(peer / ours: above 1 means ours is faster).
"""

import json
import os
import re
import statistics
import subprocess
import tempfile
from collections import defaultdict


def run(program, repetitions, name_filter=".", min_time="0.05"):
    """The program's iteration runs, as Google Benchmark's JSON report lists them."""
    with tempfile.TemporaryDirectory() as scratch:
        report = os.path.join(scratch, "report.json")
        subprocess.run(
            [program, f"--benchmark_filter={name_filter}", f"--benchmark_repetitions={repetitions}",
             "--benchmark_enable_random_interleaving=true", f"--benchmark_min_time={min_time}",
             "--benchmark_format=json", f"--benchmark_out={report}"],
            check=True, stdout=subprocess.DEVNULL)
        with open(report, encoding="utf-8") as f:
            return json.load(f)["benchmarks"]


def comparisons(runs):
    """[(family, arguments, unit, {contender: median})], families in name order and arguments by
    their numbers (64 before 4096). Only runs with the same arguments are compared: in
    "BM_Count_Ours/bytes:64/mixed:0" the family is Count, the contender Ours and the arguments
    "bytes:64/mixed:0"."""
    times = defaultdict(lambda: defaultdict(list))
    units = {}
    for r in runs:
        if r.get("run_type") != "iteration" or r.get("error_occurred"):
            continue
        name, _, arguments = r["run_name"].partition("/")
        family, _, contender = name.removeprefix("BM_").partition("_")
        times[(family, arguments)][contender or family].append(r["real_time"])
        units[family] = r.get("time_unit", "ns")

    def in_order(item):
        (family, arguments), _ = item
        return family, [int(part) if part.isdigit() else part for part in re.split(r"[/:]", arguments)]

    result = []
    for (family, arguments), contenders in sorted(times.items(), key=in_order):
        medians = {name: statistics.median(samples) for name, samples in sorted(contenders.items())}
        result.append((family, arguments, units.get(family, "ns"), medians))
    return result


def split(medians):
    """Ours and the peers, each {contender: median}."""
    ours = {name: t for name, t in medians.items() if name.startswith("Ours")}
    peers = {name: t for name, t in medians.items() if not name.startswith("Ours")}
    return ours, peers
