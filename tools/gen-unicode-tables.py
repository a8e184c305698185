#!/usr/bin/env python3
"""Generates the Unicode tables of basicutil/UnicodeCodepoint and libzero/codepoint-width.

usage: tools/gen-unicode-tables.py UCD_DIR [OUT_ROOT]

UCD_DIR holds UnicodeData.txt and EastAsianWidth.txt of Unicode 8.0.0 (tools/data/ucd/8.0.0 in
the project). OUT_ROOT (default: the
project root) receives src/basicutil/text/UnicodeCodepointTables.cpp and
src/libzero/codepoint-width-tables.cpp. The output depends on nothing but the two input files.

Rules
-----
UnicodeData.txt is read line by line: each line is one codepoint. The <..., First> and
<..., Last> lines of the big blocks stand only for their own two codepoints; everything between
them counts as unassigned. East_Asian_Width comes from EastAsianWidth.txt with its ranges
expanded; unlisted codepoints are N.

Width table, for every codepoint 0..0x10FFFF:
  0  category Mn, Me, Cf, Cc or Co, or a name starting "HANGUL JUNGSEONG " / "HANGUL JONGSEONG ";
  2  otherwise East_Asian_Width W or F (reserved codepoints the file lists as W included);
  1  otherwise.
Runs of equal width are merged; the table starts with the run that holds 0x80 (callers answer
below 0x80 themselves). Entry = (width << 21) | first codepoint; then a terminator 0x1FFFFF.

Property table, for every codepoint 0x80..0x10FFFF, a flags word:
  class bits  letters L* 0x82000000; N* and S* 0x02000000; P* 0x03000000; Z* and Cf 0x08000000;
              Cc and Cs 0x04000000; M*, Co and unassigned 0.
  case        Lu and Lt: upper (0x20000000), target the simple lowercase mapping (field 13);
              Ll: lower (0x40000000), target the simple uppercase mapping (field 12); other
              categories get no case class even when they have mappings. A cased letter without
              a mapping keeps its class with delta 0.
  delta       packed(cp) XOR packed(target), an ASCII target packed as its single byte. A delta
              of exactly 1 makes the word class | 0x60000000 (alternating pair block);
              otherwise class | case bit | delta.
A range starts wherever the word differs from the previous codepoint's; its key is the packed
UTF-8 value of its first codepoint. Then a terminating entry with key 0xFFFFFFFF.

Block indexes (codepoint_width_block_index, unicode_property_block_index):
  For each block of 256 codepoints k (0 .. 0x1100), the index of the last range that starts at or
  before codepoint k * 256 (0 when none does). A lookup of cp searches only the ranges from
  entry [cp >> 8] to entry [(cp >> 8) + 1].

Two-stage tables (codepoint_width_stage1/2, unicode_property_stage1/2):
  The same width and flags for every codepoint 0..0x10FFFF (width below 0x80: 1 from 0x20 on,
  DEL included, 0 below; flags below 0x80: 0), for lookups in constant time. Stage 1, indexed by
  cp >> 7, names a block of 128 codepoints (one byte); stage 2 holds each distinct block once, so
  a lookup is stage2[(stage1[cp >> 7] << 7) | (cp & 127)]. Blocks are numbered in order of first
  use, except that property blocks without a cased letter come before those with one: a block
  number below unicode_first_cased_block says "no case to change here" from stage 1 alone.

Combining-mark tables (utf8_combiners, utf8_combiner_marks):
  A rule composes base B followed by mark M into C whenever UnicodeData.txt gives C the
  canonical decomposition "B M" (exactly two codepoints, no <tag>) and M lies in the Combining
  Diacritical Marks block U+0300..U+036F. utf8_combiners has one entry per mark of that block
  (index = M - 0x300) naming its run of rules in utf8_combiner_marks, which are sorted by the
  packed value of B. Composition exclusions are not consulted: every such decomposition composes.
"""

import os
import sys

UNICODE_VERSION = "8.0.0"
GENERATOR = "tools/gen-unicode-tables.py"
MAX_CP = 0x10FFFF


def packed(cp):
    """UTF-8 bytes of cp packed big-endian into an int; ASCII is its single byte."""
    if cp < 0x80:
        return cp
    if cp < 0x800:
        return 0xC080 | ((cp << 2) & 0x1F00) | (cp & 0x3F)
    if cp < 0x10000:
        return 0xE08080 | ((cp << 4) & 0x0F0000) | ((cp << 2) & 0x3F00) | (cp & 0x3F)
    return 0xF0808080 | ((cp << 6) & 0x07000000) | ((cp << 4) & 0x3F0000) | ((cp << 2) & 0x3F00) | (cp & 0x3F)


def read_unicode_data(path):
    records = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            fields = line.rstrip("\n").split(";")
            if len(fields) < 15:
                continue
            records[int(fields[0], 16)] = fields
    return records


def read_east_asian_width(path):
    widths = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            span, value = (part.strip() for part in line.split(";"))
            first, _, last = span.partition("..")
            for cp in range(int(first, 16), int(last or first, 16) + 1):
                widths[cp] = value
    return widths


def width_of(cp, records, eaw):
    rec = records.get(cp)
    if rec is not None:
        if rec[2] in ("Mn", "Me", "Cf", "Cc", "Co"):
            return 0
        if rec[1].startswith("HANGUL JUNGSEONG ") or rec[1].startswith("HANGUL JONGSEONG "):
            return 0
    return 2 if eaw.get(cp, "N") in ("W", "F") else 1


def width_table(records, eaw):
    runs = []  # [start, width]
    for cp in range(0, MAX_CP + 1):
        w = width_of(cp, records, eaw)
        if not runs or runs[-1][1] != w:
            runs.append([cp, w])
    first = max(i for i, (start, _) in enumerate(runs) if start <= 0x80)
    return [(w << 21) | start for start, w in runs[first:]]


CLASS_BITS = [
    (("Lu", "Ll", "Lt", "Lm", "Lo"), 0x82000000),
    (("Nd", "Nl", "No", "Sm", "Sc", "Sk", "So"), 0x02000000),
    (("Pc", "Pd", "Ps", "Pe", "Pi", "Pf", "Po"), 0x03000000),
    (("Zs", "Zl", "Zp", "Cf"), 0x08000000),
    (("Cc", "Cs"), 0x04000000),
]


def flags_of(cp, records):
    rec = records.get(cp)
    if rec is None:
        return 0
    category = rec[2]
    bits = next((b for cats, b in CLASS_BITS if category in cats), 0)
    if category in ("Lu", "Lt"):
        case_bit, mapping = 0x20000000, rec[13]
    elif category == "Ll":
        case_bit, mapping = 0x40000000, rec[12]
    else:
        return bits
    delta = packed(cp) ^ packed(int(mapping, 16)) if mapping else 0
    if delta == 1:
        return bits | 0x60000000
    return bits | case_bit | delta


def property_table(records):
    ranges, starts = [], []  # (packed start, flags); the first codepoints
    previous = None
    for cp in range(0x80, MAX_CP + 1):
        f = flags_of(cp, records)
        if f != previous:
            ranges.append((packed(cp), f))
            starts.append(cp)
            previous = f
    return ranges, starts


def combiner_rules(records):
    rules = {mark: [] for mark in range(0x300, 0x370)}
    for cp, rec in records.items():
        decomposition = rec[5].split()
        if len(decomposition) != 2 or decomposition[0].startswith("<"):
            continue
        base, mark = (int(x, 16) for x in decomposition)
        if mark in rules:
            rules[mark].append((packed(base), packed(cp)))
    for mark in rules:
        rules[mark].sort()
    return rules


BLOCKS = (MAX_CP + 1) >> 8


def block_index(starts):
    """For each 256-codepoint block (and one past the end), the last range starting at or before it."""
    index, i = [], 0
    for k in range(BLOCKS + 1):
        while i + 1 < len(starts) and starts[i + 1] <= k << 8:
            i += 1
        index.append(i)
    return index


STAGE_SHIFT = 7
STAGE_BLOCK = 1 << STAGE_SHIFT


def two_stage(values, first_group=lambda block: True):
    """Stage 1 (a block number per 128 codepoints) and stage 2 (the distinct blocks). Blocks for
    which first_group holds are numbered before the others, each group in order of first use."""
    blocks = [tuple(values[i:i + STAGE_BLOCK]) for i in range(0, len(values), STAGE_BLOCK)]
    order, number = [], {}
    for group in (True, False):
        for block in blocks:
            if bool(first_group(block)) == group and block not in number:
                number[block] = len(order)
                order.append(block)
    assert len(order) <= 256, "stage 1 holds one byte"
    split = sum(1 for block in order if first_group(block))
    return [number[block] for block in blocks], [v for block in order for v in block], split


def write_two_stage(out, prefix, c_type, fmt, per_line, stage1, stage2):
    out.append("// Block number of each 128 codepoints.\n")
    out.append("const uint8_t %s_stage1[%d] = {\n" % (prefix, len(stage1)))
    out.append(rows(stage1, 16, lambda v: "%d," % v))
    out.append("\n};\n\n")
    out.append("// %d distinct blocks of %d codepoints.\n" % (len(stage2) // STAGE_BLOCK, STAGE_BLOCK))
    out.append("const %s %s_stage2[%d] = {\n" % (c_type, prefix, len(stage2)))
    out.append(rows(stage2, per_line, fmt))
    out.append("\n};\n")


def header(inputs):
    return ("// clang-format off\n"
            "// Generated by %s from Unicode %s (%s).\n"
            "// Do not edit: rerun `make unicode-tables`.\n"
            % (GENERATOR, UNICODE_VERSION, inputs))


def rows(items, per_line, fmt):
    lines = []
    for i in range(0, len(items), per_line):
        lines.append("    " + " ".join(fmt(x) for x in items[i:i + per_line]))
    return "\n".join(lines)


def write_block_index(out, name, index):
    out.append("// Per 256-codepoint block, the last range starting at or before the block.\n")
    out.append("const uint16_t %s[%d] = {\n" % (name, len(index)))
    out.append(rows(index, 12, lambda v: "%d," % v))
    out.append("\n};\n")


def write_property_source(path, ranges, rules, starts, flags):
    flat, index = [], []
    for mark in range(0x300, 0x370):
        index.append((len(flat), len(rules[mark])))
        flat.extend(rules[mark])
    out = [header("UnicodeData.txt"), "#include \"basicutil/text/UnicodeCodepointTables.h\"\n\nnamespace basicutil {\n\n"]
    out.append("// %d ranges, then the terminating entry.\n" % len(ranges))
    out.append("const UnicodePropertyRange unicode_property_ranges[%d] = {\n" % (len(ranges) + 1))
    out.append(rows(ranges + [(0xFFFFFFFF, 0)], 3, lambda r: "{0x%08X, 0x%08X}," % r))
    out.append("\n};\n\n")
    out.append("// %d rules: base and result packed, sorted by base within each mark.\n" % len(flat))
    out.append("const CombinerRule utf8_combiner_marks[%d] = {\n" % len(flat))
    out.append(rows(flat, 3, lambda r: "{0x%08X, 0x%08X}," % r))
    out.append("\n};\n\n")
    out.append("// One entry per mark U+0300..U+036F: its first rule and how many there are.\n")
    out.append("const CombinerRules utf8_combiners[%d] = {\n" % len(index))
    out.append(rows(index, 4, lambda r: "{utf8_combiner_marks + %d, %d}," % r))
    out.append("\n};\n\n")
    write_block_index(out, "unicode_property_block_index", block_index(starts))
    stage1, stage2, uncased = two_stage(flags, lambda block: all(f & 0x60000000 == 0 for f in block))
    out.append("\n// Blocks numbered below this one hold no cased letter.\n")
    out.append("const unsigned unicode_first_cased_block = %d;\n\n" % uncased)
    write_two_stage(out, "unicode_property", "uint32_t", lambda v: "0x%08X," % v, 6, stage1, stage2)
    out.append("\n}  // namespace basicutil\n")
    with open(path, "w", encoding="utf-8") as f:
        f.write("".join(out))


def write_width_source(path, table, widths):
    out = [header("UnicodeData.txt, EastAsianWidth.txt"), "#include \"libzero/codepoint-width-tables.h\"\n\n"]
    out.append("// %d ranges, (width << 21) | first codepoint, then the terminator.\n" % len(table))
    out.append("const uint32_t codepoint_width_table[%d] = {\n" % (len(table) + 1))
    out.append(rows(table + [0x1FFFFF], 6, lambda v: "0x%08X," % v))
    out.append("\n};\n\n")
    write_block_index(out, "codepoint_width_block_index", block_index([v & 0x1FFFFF for v in table]))
    out.append("\n")
    write_two_stage(out, "codepoint_width", "uint8_t", lambda v: "%d," % v, 32, *two_stage(widths)[:2])
    with open(path, "w", encoding="utf-8") as f:
        f.write("".join(out))


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.split("\n\n")[1])
    ucd = sys.argv[1]
    root = sys.argv[2] if len(sys.argv) == 3 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    records = read_unicode_data(os.path.join(ucd, "UnicodeData.txt"))
    eaw = read_east_asian_width(os.path.join(ucd, "EastAsianWidth.txt"))
    widths = width_table(records, eaw)
    ranges, starts = property_table(records)
    rules = combiner_rules(records)
    width_values = [(1 if cp >= 0x20 else 0) if cp < 0x80 else width_of(cp, records, eaw) for cp in range(MAX_CP + 1)]
    flag_values = [0 if cp < 0x80 else flags_of(cp, records) for cp in range(MAX_CP + 1)]
    write_width_source(os.path.join(root, "src/libzero/codepoint-width-tables.cpp"), widths, width_values)
    write_property_source(os.path.join(root, "src/basicutil/text/UnicodeCodepointTables.cpp"), ranges, rules, starts,
                          flag_values)
    by_width = [sum(1 for v in widths if v >> 21 == w) for w in range(3)]
    by_case = [sum(1 for _, f in ranges if f & 0x60000000 == c) for c in (0, 0x20000000, 0x40000000, 0x60000000)]
    print("width table: %d ranges (%d / %d / %d of width 0 / 1 / 2)" % (len(widths), *by_width))
    print("property table: %d ranges (%d none / %d upper / %d lower / %d alternating)" % (len(ranges), *by_case))
    print("combining rules: %d" % sum(len(r) for r in rules.values()))


if __name__ == "__main__":
    main()
