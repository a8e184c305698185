#!/usr/bin/env python3
"""Fails when an include crosses a layer upward, or when units include each other in a cycle.

    python3 scripts/check-layers.py [ROOT]

The layers are cmake/layers.txt: rank, name, folder. Every source file under a layer's folder may
include (with #include "basicutil/..." or "libzero/...") headers of its own layer and of lower
ranks; layers of equal rank may not include each other. A unit is a topic: a header and the files of
its folder that share its name as a prefix (Timeval.h, TimevalText.cpp; Thread_details.h belongs
to Thread).
Unit A depends on unit B when a file of A includes a header of B; a cycle of such dependencies is
refused too, since a cycle makes the units one in all but name, unless layers.txt names them
"together". Exit status 0 when clean, 1 with one line per problem.
"""
import re
import sys
from pathlib import Path

INCLUDE = re.compile(r'^\s*#\s*include\s+"((?:basicutil|libzero)/[^"]+)"', re.M)
SOURCES = (".h", ".cpp", ".c")


def read_layers(root):
    layers, groups = [], []  # (rank, name, folder); sets of units that may include each other
    for line in (root / "cmake/layers.txt").read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        words = line.split()
        if words[0] == "together":
            groups.append(set(words[1:]))
        else:
            rank, name, folder = words
            layers.append((int(rank), name, folder))
    return layers, groups


def topic(path, header_stems):
    """The unit of a file: the longest name of a header in its own folder that its name starts
    with, "_details" aside; a file that matches none (TimevalClock.cpp, in a layer above
    Timeval.h) is a unit of its own."""
    stem = path.stem.removesuffix("_details")
    candidates = [h for h in header_stems.get(path.parent, []) if stem.startswith(h)]
    return max(candidates, key=len) if candidates else stem


def unit_id(path, header_stems):
    """A unit's name: its layer folder and its topic (log/Logger and logging/Logger are two)."""
    return f"{path.parent.name}/{topic(path, header_stems)}"


def cycles(graph):
    """Strongly connected components of more than one unit (Tarjan)."""
    index, low, on_stack, stack, found, counter = {}, {}, set(), [], [], [0]

    def visit(v):
        index[v] = low[v] = counter[0]
        counter[0] += 1
        stack.append(v)
        on_stack.add(v)
        for w in sorted(graph.get(v, ())):
            if w not in index:
                visit(w)
                low[v] = min(low[v], low[w])
            elif w in on_stack:
                low[v] = min(low[v], index[w])
        if low[v] == index[v]:
            component = []
            while True:
                w = stack.pop()
                on_stack.discard(w)
                component.append(w)
                if w == v:
                    break
            if len(component) > 1:
                found.append(sorted(component))

    for v in sorted(graph):
        if v not in index:
            visit(v)
    return found


def check(root):
    layers, groups = read_layers(root)
    problems = []
    layer_of = {}  # file -> (rank, name)
    for rank, name, folder in layers:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in SOURCES:
                layer_of[path.relative_to(root)] = (rank, name)
    header_stems = {}
    for path in layer_of:
        if path.suffix == ".h" and not path.stem.endswith("_details"):
            header_stems.setdefault(path.parent, []).append(path.stem)
    graph = {}
    for path, (rank, name) in sorted(layer_of.items()):
        unit = unit_id(path, header_stems)
        graph.setdefault(unit, set())
        for number, text in enumerate((root / path).read_text(errors="replace").splitlines(), 1):
            match = INCLUDE.match(text)
            if not match:
                continue
            target = Path("src") / match.group(1)
            if target not in layer_of:
                problems.append(f"{path}:{number}: includes {match.group(1)}, which no layer holds")
                continue
            target_rank, target_name = layer_of[target]
            if target_name != name and target_rank >= rank:
                how = "a layer above" if target_rank > rank else "a layer beside"
                problems.append(f"{path}:{number}: includes {match.group(1)} from {how} "
                                f"({name} may include only lower layers than rank {rank}, {target_name} is {target_rank})")
            target_unit = unit_id(target, header_stems)
            if target_unit != unit:
                graph[unit].add(target_unit)
    for component in cycles(graph):
        topics = {unit.split("/", 1)[1] for unit in component}
        if not any(topics <= group for group in groups):
            problems.append("units include each other in a cycle: " + " -> ".join(component))
    return problems, len(layer_of), len(graph)


def main():
    root = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent
    problems, files, units = check(root)
    for p in problems:
        print(p)
    if problems:
        print(f"check-layers: {len(problems)} problem(s)", file=sys.stderr)
        return 1
    print(f"check-layers: {files} files in {units} units, every include goes down, no cycle")
    return 0


if __name__ == "__main__":
    sys.exit(main())
