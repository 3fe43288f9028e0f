#!/usr/bin/env python3
"""Writes a C++ include file of names from a name table (value<TAB>name rows
after one comment line), so that no name is typed by hand.

  gen-name-table.py --dense TABLE.tsv OUT.inc    "name",  one per value 0..N-1
  gen-name-table.py --sparse TABLE.tsv OUT.inc   {value, "name"},  in value order
"""
import sys


def rows(path):
    with open(path, encoding="utf-8") as table:
        for line in table:
            line = line.rstrip("\n")
            if not line or line.startswith("#"):
                continue
            value, name = line.split("\t", 1)
            yield int(value), name


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in ("--dense", "--sparse"):
        sys.exit(__doc__)
    mode, source, target = sys.argv[1:]
    entries = sorted(rows(source))
    values = [value for value, _ in entries]
    if len(set(values)) != len(values):
        sys.exit(f"{source}: a value appears twice")
    if mode == "--dense" and values != list(range(len(values))):
        sys.exit(f"{source}: values are not 0..{len(values) - 1} without gaps")
    name = source.rsplit("/", 1)[-1]
    with open(target, "w", encoding="utf-8") as out:
        out.write(f"// Generated from {name} by tools/gen-name-table.py {mode}; do not edit.\n")
        for value, text in entries:
            out.write(f'"{text}",\n' if mode == "--dense" else f'{{{value}, "{text}"}},\n')


if __name__ == "__main__":
    main()
