#!/usr/bin/env python3
"""Runs every benchmark program in a directory and writes one table and one chart of how ours
compares with each peer.

    scripts/bench-report.py BIN_DIR OUT_DIR [--repetitions 5]

OUT_DIR/results.md: the machine, the date, then per program and workload each contender of ours
beside each peer, with their medians and the ratio (peer / ours: above 1 means ours is faster).
OUT_DIR/ratios.svg: per program and peer, the geometric mean of those ratios, on a log scale.
"""

import argparse
import datetime
import math
import os
import platform
import subprocess
import sys
from pathlib import Path

import benchlib


def machine():
    model = ""
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as f:
            model = next((line.split(":", 1)[1].strip() for line in f if line.startswith("model name")), "")
    except OSError:
        model = subprocess.run(["sysctl", "-n", "hw.model"], capture_output=True, text=True).stdout.strip()
    return f"{model or platform.processor()}, {os.cpu_count()} logical processors, {platform.system()} {platform.release()}"


def svg(bars, path):
    """Horizontal bars, one per (label, ratio), on a log2 axis from 1/8 to 64 with 1x marked."""
    row, left, width = 18, 330, 520
    lo, hi = math.log2(1 / 8), math.log2(64)
    x = lambda ratio: left + (min(max(math.log2(ratio), lo), hi) - lo) / (hi - lo) * width
    height = row * len(bars) + 50
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 70}" height="{height}" '
           'font-family="sans-serif" font-size="11">']
    for tick in (0.125, 0.25, 0.5, 1, 2, 4, 8, 16, 32, 64):
        tx = x(tick)
        out.append(f'<line x1="{tx:.1f}" y1="20" x2="{tx:.1f}" y2="{height - 25}" '
                   f'stroke="{"#000" if tick == 1 else "#ddd"}"/>')
        out.append(f'<text x="{tx:.1f}" y="{height - 10}" text-anchor="middle">{tick:g}x</text>')
    out.append(f'<text x="{left}" y="13">peer time / ours (right of 1x: ours is faster)</text>')
    for i, (label, ratio) in enumerate(bars):
        y = 22 + i * row
        x0, x1 = sorted((x(1), x(ratio)))
        colour = "#3a7" if ratio >= 1 else "#c55"
        out.append(f'<text x="{left - 6}" y="{y + 12}" text-anchor="end">{label}</text>')
        out.append(f'<rect x="{x0:.1f}" y="{y + 2}" width="{max(x1 - x0, 1):.1f}" height="{row - 5}" fill="{colour}"/>')
        out.append(f'<text x="{x(ratio) + (4 if ratio >= 1 else -4):.1f}" y="{y + 12}" '
                   f'text-anchor="{"start" if ratio >= 1 else "end"}">{ratio:.2f}x</text>')
    out.append("</svg>")
    Path(path).write_text("\n".join(out) + "\n", encoding="utf-8")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bin_dir")
    parser.add_argument("out_dir")
    parser.add_argument("--repetitions", type=int, default=5)
    args = parser.parse_args()
    programs = sorted(p for p in Path(args.bin_dir).glob("*Bench") if os.access(p, os.X_OK))
    if not programs:
        print(f"bench-report: no *Bench programs in {args.bin_dir}", file=sys.stderr)
        return 1
    Path(args.out_dir).mkdir(parents=True, exist_ok=True)

    lines = ["# Benchmarks: ours beside the peers", "",
             f"Machine: {machine()}. Date: {datetime.date.today().isoformat()}. "
             f"Medians of {args.repetitions} interleaved repetitions; ratio = peer time / ours "
             "(above 1: ours is faster).", "",
             "| Program | Workload | Ours | Time | Peer | Time | Ratio |", "|---|---|---|---|---|---|---|"]
    bars = []
    for program in programs:
        print(f"bench-report: {program.name}", file=sys.stderr)
        per_peer = {}
        for family, arguments, unit, medians in benchlib.comparisons(benchlib.run(str(program), args.repetitions)):
            ours, peers = benchlib.split(medians)
            workload = f"{family} {arguments}".strip()
            for mine, mine_time in ours.items():
                for peer, peer_time in peers.items():
                    ratio = peer_time / mine_time
                    per_peer.setdefault(peer, []).append(ratio)
                    lines.append(f"| {program.name} | {workload} | {mine} | {mine_time:.1f} {unit} | {peer} | "
                                 f"{peer_time:.1f} {unit} | {ratio:.2f} |")
        for peer, ratios in sorted(per_peer.items()):
            mean = math.exp(sum(math.log(r) for r in ratios) / len(ratios))
            bars.append((f"{program.name.removesuffix('Bench')}: {peer} ({len(ratios)})", mean))
    lines += ["", "![Geometric mean of the ratios per program and peer](ratios.svg)", ""]
    Path(args.out_dir, "results.md").write_text("\n".join(lines), encoding="utf-8")
    svg(bars, Path(args.out_dir, "ratios.svg"))
    print(f"bench-report: {Path(args.out_dir, 'results.md')} and ratios.svg", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
