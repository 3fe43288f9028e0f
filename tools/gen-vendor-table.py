#!/usr/bin/env python3
"""Writes the C++ definition of a vendor parameter table from its listing, so
that no row is typed by hand.

  gen-vendor-table.py LISTING OUT.cpp ARRAY ROWS

LISTING holds one entry per line (blank lines and lines starting with # are
skipped):  name=0xID  a set row with one value,  name=0xID/get  a get row
without value,  #n  appended: n values (0 to 3) instead of the usual count,
+ before the =  a blank that ends the name. ARRAY is the C name of the table,
ROWS the number of rows it must have.
"""
import re
import sys

SET, GET = 74, 75
ENTRY = re.compile(r"(?P<name>[A-Za-z0-9_]+)(?P<blank>\+?)=0x(?P<id>[0-9a-f]+)"
                   r"(?P<get>/get)?(?:#(?P<count>[0-3]))?")


def parse(path):
    rows, seen, errors = [], {}, []
    with open(path, encoding="utf-8") as listing:
        for number, line in enumerate(listing, 1):
            line = line.rstrip("\n")
            if not line or line.startswith("#"):
                continue
            where = f"{path}:{number}"
            match = ENTRY.fullmatch(line)
            if match is None:
                errors.append(f"{where}: malformed entry {line!r}")
                continue
            name = match["name"] + (" " if match["blank"] else "")
            param_id = int(match["id"], 16)
            subcmd = GET if match["get"] else SET
            usual = 0 if match["get"] else 1
            count = usual if match["count"] is None else int(match["count"])
            # The count is only written when it differs, so that each row has
            # one spelling.
            if match["count"] is not None and count == usual:
                errors.append(f"{where}: {line!r} repeats the usual value count")
            if param_id > 0xFFFFFFFF:
                errors.append(f"{where}: {line!r} has an ID beyond 32 bits")
            if name in seen:
                errors.append(f"{where}: {name!r} already at line {seen[name]}")
            seen.setdefault(name, number)
            rows.append((name, param_id, subcmd, count))
    return rows, errors


def main():
    if len(sys.argv) != 5 or not sys.argv[4].isdigit():
        sys.exit(__doc__)
    source, target, array, expected = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])
    rows, errors = parse(source)
    if len(rows) != expected:
        errors.append(f"{source}: {len(rows)} rows, {expected} expected")
    if errors:
        sys.exit("\n".join(errors))
    name = source.rsplit("/", 1)[-1]
    with open(target, "w", encoding="utf-8") as out:
        out.write(f"// Generated from {name} by tools/gen-vendor-table.py; do not edit.\n"
                  '#include "ny80211/VendorCmd.h"\n\n'
                  "namespace {\n"
                  "using Ny80211::QcaCmd::VendorCmd;\n"
                  f"constexpr auto SET = Ny80211::QcaCmd::subCmdSetWifiConfiguration;  // {SET}\n"
                  f"constexpr auto GET = Ny80211::QcaCmd::subCmdGetWifiConfiguration;  // {GET}\n"
                  "}  // namespace\n\n"
                  # Without a bound of its own the array takes the size of the
                  # rows, which must then equal the header's declaration.
                  f'extern "C" NY80211_API VendorCmd const {array}[] = {{\n')
        for text, param_id, subcmd, count in rows:
            kind = "GET" if subcmd == GET else "SET"
            out.write(f'    {{"{text}", 0x{param_id:x}, {kind}, {count}}},\n')
        out.write("};\n")


if __name__ == "__main__":
    main()
