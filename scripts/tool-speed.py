#!/usr/bin/env python3
"""Times the vestra tool beside the programs it stands in for, on 200 MB of input.

    scripts/tool-speed.py build/release/bin/vestra [--megabytes 200] [--repetitions 7]

hexdump against xxd and hexdump -C; regex against grep -P (C locale) with a pattern that never
matches and one that prints every line. Every contender writes to a file, so none can stop early
on /dev/null, and each pair's outputs are compared first where they must agree. Runs are
interleaved at random and the medians of wall time compared: a ratio is peer time / ours, so above
1 means ours is faster.
"""

import argparse
import os
import random
import statistics
import subprocess
import sys
import tempfile
import time


def make_inputs(directory: str, megabytes: int) -> tuple[str, str]:
    size = megabytes * 1000 * 1000
    binary = os.path.join(directory, "random.bin")
    with open(binary, "wb") as f:
        f.write(random.Random(1).randbytes(size))
    # Log lines of mixed ASCII and UTF-8 words, as the tool meets them.
    words = ["alpha", "beta", "gamma", "user", "login", "failed", "from", "host", "port", "error",
             "warning", "session", "closed", "opened", "caf\u00e9", "na\u00efve", "\u00fcmlaut", "\u65e5\u672c"]
    rng = random.Random(2)
    text = os.path.join(directory, "log.txt")
    with open(text, "w", encoding="utf-8") as f:
        written, i = 0, 0
        while written < size:
            line = "2026-11-25 12:%02d:%02d,%03d INFO [worker-%d] %s\n" % (
                i % 60, i // 60 % 60, i % 1000, i % 8, " ".join(rng.choice(words) for _ in range(rng.randint(5, 15))))
            f.write(line)
            written += len(line.encode())
            i += 1
    return binary, text


def run(command: list[str], output: str) -> float:
    env = dict(os.environ, LC_ALL="C")
    with open(output, "wb") as out:
        start = time.perf_counter()
        status = subprocess.run(command, stdout=out, env=env).returncode
        elapsed = time.perf_counter() - start
    if status not in (0, 1):
        sys.exit(f"{command[0]} failed with status {status}")
    return elapsed


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("vestra")
    parser.add_argument("--megabytes", type=int, default=200)
    parser.add_argument("--repetitions", type=int, default=7)
    args = parser.parse_args()
    vestra = os.path.abspath(args.vestra)

    with tempfile.TemporaryDirectory() as scratch:
        binary, text = make_inputs(scratch, args.megabytes)
        never, every = r"zzqx\d{5}", "o"
        # (family, contender, command, must agree with ours)
        contenders = [
            ("hexdump", "ours", [vestra, "hexdump", binary], None),
            ("hexdump", "hexdump -C", ["hexdump", "-C", "-v", binary], True),
            ("hexdump", "xxd", ["xxd", binary], False),
            ("regex never", "ours", [vestra, "regex", never, text], None),
            ("regex never", "grep -P", ["grep", "-P", never, text], True),
            ("regex every", "ours", [vestra, "regex", every, text], None),
            ("regex every", "grep -P", ["grep", "-P", every, text], True),
        ]
        outputs = {}
        for family, name, command, _ in contenders:  # once, to compare and to warm the page cache
            outputs[(family, name)] = os.path.join(scratch, f"{family}-{name}.out".replace(" ", "_"))
            run(command, outputs[(family, name)])
        for family, name, _, agree in contenders:
            if agree and subprocess.run(["cmp", "-s", outputs[(family, "ours")], outputs[(family, name)]]).returncode:
                sys.exit(f"{family}: ours differs from {name}")
        times: dict[tuple[str, str], list[float]] = {(f, n): [] for f, n, _, _ in contenders}
        order = [c for c in contenders for _ in range(args.repetitions)]
        random.Random(3).shuffle(order)
        for family, name, command, _ in order:
            times[(family, name)].append(run(command, outputs[(family, name)]))
        for family in dict.fromkeys(f for f, _, _, _ in contenders):
            ours = statistics.median(times[(family, "ours")])
            peers = [(n, statistics.median(t)) for (f, n), t in times.items() if f == family and n != "ours"]
            print(f"{family}: ours {ours:.3f} s | " +
                  " | ".join(f"{n} {t:.3f} s = {t / ours:.2f}x" for n, t in peers))
    return 0


if __name__ == "__main__":
    sys.exit(main())
