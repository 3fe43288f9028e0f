#!/usr/bin/env python3
"""Mutation testing of the library against its unit tests.

Every mutation site in src/ is listed in a fixed order: relational, arithmetic
and boolean operators, integer constants and whole-line calls. A seeded random
sample of them is applied one at a time to the working tree; each mutant is
rebuilt and `ctest -L unit` run. A mutant that fails to build is stillborn and
left out of the kill rate; a failing or timed-out run kills it. The same seed
over the same src/ gives the same sample, so a test suite can be compared with
an earlier one by running this in a checkout of each.

  tools/mutate.py [--sample N] [--seed S] [--build DIR] [--list] [--only I...]

The tree is restored after each mutant, and on interrupt.
"""

import argparse
import json
import pathlib
import random
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent

# (kind, pattern, replacement). Binary operators are matched with the spaces
# the formatter puts around them, which tells `<` from a template bracket and
# `*` from a pointer declaration.
SWAPS = {
    "relational": {" < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ",
                   " == ": " != ", " != ": " == "},
    "arithmetic": {" + ": " - ", " - ": " + ", " * ": " / ", " / ": " * ",
                   " % ": " * ", " << ": " >> ", " >> ": " << ", " & ": " | ",
                   " | ": " & ", " += ": " -= ", " -= ": " += ", "++": "--",
                   "--": "++"},
    "boolean": {" && ": " || ", " || ": " && "},
}
NUMBER = re.compile(r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)(?![\w.])")
NEGATION = re.compile(r"(?<![\w)\]])!(?!=)")
BOOL_WORD = re.compile(r"\b(true|false)\b")
# One statement on one line that is only a call: `f(x);`, `a.b(x);`, `a->b();`.
CALL_LINE = re.compile(
    r"^(\s*)(?!return\b|static_assert\b|assert\b|delete\b|throw\b)"
    r"([A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*\(.*\));\s*$")


STREAM_LINE = re.compile(r"^\s*(<<|[\w.]+ << )")


def line_of(code, offset):
    return code[code.rfind("\n", 0, offset) + 1:code.find("\n", offset)]


def masked(text):
    """The text with comments, literals and preprocessor lines blanked out,
    offsets kept, so patterns match only code."""
    out = list(text)
    i, n = 0, len(text)
    line_start = True

    def blank(a, b):
        for k in range(a, b):
            if out[k] != "\n":
                out[k] = " "

    while i < n:
        c = text[i]
        if line_start and c == "#":
            j = i
            while j < n and (text[j] != "\n" or text[j - 1] == "\\"):
                j += 1
            blank(i, j)
            i = j
            continue
        if c == "\n":
            line_start = True
            i += 1
            continue
        if not c.isspace():
            line_start = False
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            blank(i, j)
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            blank(i, j)
            i = j
        elif text.startswith('R"', i) and (i == 0 or not text[i - 1].isalnum()):
            d = text[i + 2:text.find("(", i)]
            j = text.find(")" + d + '"', i) + len(d) + 2
            blank(i, j)
            i = j
        elif c in "\"'" and not (c == "'" and i > 0 and text[i - 1].isalnum()):
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            blank(i + 1, j)
            i = j + 1
        else:
            i += 1
    return "".join(out)


def sites_in(path):
    """(offset, length, replacement, kind) of every mutation in one file."""
    text = path.read_text()
    code = masked(text)
    found = []
    for kind, swaps in SWAPS.items():
        for old, new in swaps.items():
            for m in re.finditer(re.escape(old), code):
                # `a++`/`--b` only, never the `--` of `->` or comment residue.
                if old in ("++", "--") and (code[m.start() - 1:m.start()] in "+-"
                                             or code[m.end():m.end() + 1] in "+-="):
                    continue
                if old in (" < ", " > ") and code[m.end():m.end() + 1] == "=":
                    continue
                # `out << x` writes to a stream: `>>` would not build.
                if old in (" << ", " >> ") and STREAM_LINE.match(line_of(code, m.start())):
                    continue
                found.append((m.start(), len(old), new, kind))
    for m in NEGATION.finditer(code):
        found.append((m.start(), 1, "", "boolean"))
    for m in BOOL_WORD.finditer(code):
        found.append((m.start(), len(m.group(1)),
                      "false" if m.group(1) == "true" else "true", "boolean"))
    for m in NUMBER.finditer(code):
        value = int(m.group(1), 0)
        new = 0 if value == 1 else value + 1
        new_text = hex(new) if m.group(1).lower().startswith("0x") else str(new)
        found.append((m.start(1), len(m.group(1)), new_text, "constant"))
    offset, before = 0, ";"
    for line in code.splitlines(keepends=True):
        m = CALL_LINE.match(line.rstrip("\n"))
        # A statement of its own: the code before it ended one, opened or
        # closed a block, or was a label.
        if m and line.count("(") == line.count(")") and before in ";{}:":
            start = offset + len(m.group(1))
            found.append((start, len(m.group(2)), "(void)0", "removed call"))
        offset += len(line)
        before = line.strip()[-1:] or before
    return text, found


def all_sites():
    sites = []
    for path in sorted(ROOT.glob("src/**/*")):
        if path.suffix not in (".cpp", ".h"):
            continue
        text, found = sites_in(path)
        for start, length, new, kind in sorted(found):
            line = text.count("\n", 0, start) + 1
            col = start - (text.rfind("\n", 0, start) + 1) + 1
            sites.append({"file": str(path.relative_to(ROOT)), "line": line,
                          "col": col, "start": start, "length": length,
                          "old": text[start:start + length], "new": new,
                          "kind": kind})
    return sites


def run(cmd, cwd, timeout=None):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True,
                              timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return "timeout"


def unit_targets(build):
    """The build targets of the unit tests: their executables' names."""
    listing = subprocess.run(["ctest", "-N", "-L", "unit", "--show-only=json-v1"],
                             cwd=build, check=True, capture_output=True, text=True)
    names = set()
    for test in json.loads(listing.stdout)["tests"]:
        if test.get("command"):
            names.add(pathlib.Path(test["command"][0]).name)
    return sorted(names)


def configure(build, jobs):
    if not (build / "CMakeCache.txt").exists():
        # Unoptimised and without debug information: each mutant rebuilds fast.
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build),
                        "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0",
                        "-DNY80211_BUILD_BENCH=OFF"], check=True,
                       stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(build), "-j", str(jobs)], check=True,
                   stdout=subprocess.DEVNULL)
    targets = unit_targets(build)
    if run(["ctest", "-L", "unit", "-j", str(jobs)], build) != 0:
        sys.exit("the unit tests fail without any mutation: nothing to measure")
    return targets


def try_mutant(site, build, targets, jobs):
    path = ROOT / site["file"]
    original = path.read_text()
    start, end = site["start"], site["start"] + site["length"]
    try:
        path.write_text(original[:start] + site["new"] + original[end:])
        if run(["cmake", "--build", str(build), "-j", str(jobs), "--target", *targets],
               ROOT) != 0:
            return "stillborn"
        result = run(["ctest", "-L", "unit", "-j", str(jobs), "--stop-on-failure",
                      "--timeout", "30"], build, timeout=600)
        return "survived" if result == 0 else "killed"
    finally:
        path.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--sample", type=int, default=180)
    parser.add_argument("--seed", type=int, default=16)
    parser.add_argument("--build", default="build-mutate")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--list", action="store_true", help="print the sample only")
    parser.add_argument("--only", type=int, nargs="*", help="run these sample indices")
    parser.add_argument("--report", default=None, help="TSV of every outcome")
    args = parser.parse_args()

    sites = all_sites()
    sample = random.Random(args.seed).sample(sites, min(args.sample, len(sites)))
    describe = lambda i, s: (f"{i:3} {s['file']}:{s['line']}:{s['col']} {s['kind']}: "
                             f"{s['old'].strip()!r} -> {s['new'].strip()!r}")
    if args.list:
        print(f"{len(sites)} sites, seed {args.seed}")
        for i, s in enumerate(sample):
            print(describe(i, s))
        return

    build = (ROOT / args.build).resolve()
    targets = configure(build, args.jobs)
    report = open(args.report or build / "mutants.tsv", "w")
    counts = {"killed": 0, "survived": 0, "stillborn": 0}
    began = time.monotonic()
    for i, site in enumerate(sample):
        if args.only and i not in args.only:
            continue
        outcome = try_mutant(site, build, targets, args.jobs)
        counts[outcome] += 1
        print(f"{describe(i, site)}: {outcome}", flush=True)
        report.write(f"{i}\t{site['file']}:{site['line']}:{site['col']}\t{site['kind']}\t"
                     f"{site['old']!r}\t{site['new']!r}\t{outcome}\n")
        report.flush()
    # Leave the build matching the restored tree.
    run(["cmake", "--build", str(build), "-j", str(args.jobs), "--target", *targets], ROOT)
    valid = counts["killed"] + counts["survived"]
    rate = 100.0 * counts["killed"] / valid if valid else 0.0
    print(f"{len(sites)} sites, seed {args.seed}, {sum(counts.values())} mutants: "
          f"{counts['killed']} killed, {counts['survived']} survived, "
          f"{counts['stillborn']} stillborn; kill rate {rate:.1f}% of {valid} "
          f"in {time.monotonic() - began:.0f} s")


if __name__ == "__main__":
    main()
