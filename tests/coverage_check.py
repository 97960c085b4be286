#!/usr/bin/env python3
"""Compares what gcovr found uncovered with the table that explains it.

    tests/coverage_check.py COVERAGE.JSON COVERAGE.MD

Prints the totals. Exit code 1 when a line or branch is neither covered nor explained, or when an
explained one has been covered or is gone.
"""

import json
import re
import sys
from pathlib import Path


def uncovered(report):
    """{(file, code): what} and the totals of lines and branches as [covered, all]."""
    missing, lines, branches = {}, [0, 0], [0, 0]
    for file in report["files"]:
        source = Path(file["file"]).read_text(encoding="utf-8").splitlines()
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            taken = [branch["count"] > 0 for branch in line.get("branches", [])]
            lines[0] += line["count"] > 0
            lines[1] += 1
            branches[0] += sum(taken)
            branches[1] += len(taken)
            if line["count"] == 0 or not all(taken):
                what = "line" if line["count"] == 0 else f"{taken.count(False)} of {len(taken)} branches"
                code = source[line["line_number"] - 1].strip()
                missing[file["file"].removeprefix("src/"), code] = f"{line['line_number']}: {what}"
    return missing, lines, branches


def explained(table):
    rows = re.findall(r"^\| (\S+) \| `(.+?)` \| .+ \|$", table, re.MULTILINE)
    return {(file, code.replace("\\|", "|")) for file, code in rows}


def main():
    report = json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))
    missing, lines, branches = uncovered(report)
    known = explained(Path(sys.argv[2]).read_text(encoding="utf-8"))
    if not lines[1]:
        sys.exit("coverage: no line of the library was counted")
    for name, (covered, total) in (("lines", lines), ("branches", branches)):
        print(f"{name:9} {covered:4} of {total:4} covered, {100 * covered / total:.1f} %")
    print(f"{len(missing)} places not covered in full, {len(missing.keys() & known)} of them explained")

    for file, code in sorted(missing.keys() - known):
        print(f"not explained: {file}:{missing[file, code]} of {code}")
    for file, code in sorted(known - missing.keys()):
        print(f"explained, but covered or gone: {file}: {code}")
    return 1 if missing.keys() != known else 0


if __name__ == "__main__":
    sys.exit(main())
