#!/usr/bin/python3
"""Puts deliberate faults into copies of the library's sources, one at a time, and shows which test catches each.

    tests/mutate/mutate.py [--count N] [--seed S] [--list] [WORD...]

The faults are made by operators from what the compiler has parsed: a condition turned round, a call left out,
another number, text or constant. All of them, or N chosen by the seed; of the files whose name holds a WORD, if
any is given. Run as ./dev mutate, which builds what it wants. Works below build/mutate and leaves the tree alone.
Prints a Markdown table; exit code 1 when a fault survives.
"""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

from faults import Finder

ROOT = Path(__file__).resolve().parents[2]
TREE = ROOT / "build/mutate"
DLL = TREE / "build/release/bin/Kestro.dll"

# The suites that see a fault of a folder soonest, then the others.
SUITES = ["report", "mount", "device", "disk", "exception", "session"]
SOONEST = {"report": "report", "image": "session", "inventory": "session", "disk": "disk", "device": "device",
           "base": "exception", "exports": "mount"}


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, errors="replace", **options)


def prepare():
    """The tree with links to everything but the sources, which are a copy."""
    TREE.mkdir(parents=True, exist_ok=True)
    for entry in ROOT.iterdir():
        link = TREE / entry.name
        if entry.name not in ("src", "build", ".git") and not link.exists():
            link.symlink_to(entry)
    shutil.rmtree(TREE / "src", ignore_errors=True)
    shutil.copytree(ROOT / "src", TREE / "src")
    if not (TREE / "build/release/build.ninja").exists():
        run(["cmake", "--preset", "release"], cwd=TREE, check=True)


def parser_arguments():
    """What makes libclang read the sources as the cross compiler does."""
    own = run(["clang", "-print-resource-dir"]).stdout.strip()
    folders = run([ROOT / "cmake/cross-headers"], check=True).stdout.splitlines()
    return ["--target=x86_64-w64-mingw32", "-std=c++20", "-nostdinc++", "-resource-dir", own,
            "-D__USE_MINGW_ANSI_STDIO=0", "-DKESTRO_BUILDING", "-DWIN32_LEAN_AND_MEAN", "-I" + str(TREE / "src"), "-I" + str(ROOT / "include"),
            "-isystem" + str(TREE / "build/release/generated")] + ["-isystem" + f for f in folders]


def all_faults(words):
    arguments = parser_arguments()
    faults = set()
    for path in (TREE / "src").rglob("*.cpp"):
        faults |= Finder(path, TREE / "src", arguments).all()
    return sorted((fault for fault in faults if not words or any(word in fault.file for word in words)),
                  key=lambda fault: (fault.file, fault.start, fault.kind))


def build():
    return run(["cmake", "--build", "--preset", "release", "--target", "Kestro"], cwd=TREE)


def first_failure(suite):
    """The test that failed or crashed, or None."""
    program = ROOT / f"build/release/tests/bin/{suite}_contract_test.exe"
    environment = dict(os.environ, KESTRO_DLL=str(DLL), WINEDLLOVERRIDES="mscoree,mshtml=;dismapi=n")
    try:
        result = run([ROOT / "cmake/run-in-wine", program, "--gtest_fail_fast"], env=environment, timeout=120)
    except subprocess.TimeoutExpired:
        return f"{suite}: no end"
    if result.returncode == 0:
        return None
    failed = re.search(r"^\[  FAILED  \] (\S+)", result.stdout, re.M)
    if failed:
        return failed[1]
    started = re.findall(r"^\[ RUN      \] (\S+)", result.stdout, re.M)
    return f"{started[-1]} (the process ends)" if started else f"{suite}: does not start"


def caught_by(folder=None):
    for suite in sorted(SUITES, key=lambda suite: suite != SOONEST.get(folder)):
        failure = first_failure(suite)
        if failure:
            return failure
    return None


def outcome_of(fault):
    path = Path(fault.file)
    original = path.read_bytes()
    path.write_bytes(original[:fault.start] + fault.text + original[fault.end:])
    try:
        if build().returncode != 0:
            return "the compiler"
        return caught_by(path.relative_to(TREE / "src").parts[0])
    finally:
        path.write_bytes(original)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--count", type=int)
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    prepare()
    if build().returncode != 0:
        sys.exit("the unchanged library does not build")

    faults = all_faults(options.words)
    print(f"{len(faults)} faults can be made", file=sys.stderr)
    if options.count is not None and options.count < len(faults):
        chosen = set(random.Random(options.seed).sample(range(len(faults)), options.count))
        faults = [fault for number, fault in enumerate(faults) if number in chosen]
    if not options.list:
        failure = caught_by()
        if failure:
            sys.exit(f"the unchanged library fails {failure}")

    survivors = 0
    print("| File | Line | Fault | There | Caught by |\n|---|---|---|---|---|", flush=True)
    for number, fault in enumerate(faults, 1):
        start = time.monotonic()
        there = Path(fault.file).read_bytes()[fault.start:fault.end].decode().split("\n")[0]
        outcome = "" if options.list else outcome_of(fault)
        survivors += outcome is None
        print("| %s | %d | %s | `%s` | %s |" % (Path(fault.file).relative_to(TREE / "src"), fault.line,
                                             fault.kind.replace("|", "\\|"), there.replace("|", "\\|"),
                                             "**NOTHING**" if outcome is None else outcome), flush=True)
        if not options.list:
            print(f"{number}/{len(faults)} in {time.monotonic() - start:.0f} s", file=sys.stderr)
    print(f"\n{len(faults)} faults, {survivors} survivors", file=sys.stderr)
    sys.exit(1 if survivors else 0)


if __name__ == "__main__":
    main()
