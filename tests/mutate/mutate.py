#!/usr/bin/env python3
"""Puts deliberate faults into copies of the library, one at a time, and shows which test catches each.

    tests/mutate/mutate.py [WORD...]    all faults, or those whose description or file holds a WORD

Wants the release preset built. Works below build/mutate and leaves the tree alone. Prints a
Markdown table; exit code 1 when a fault survives, 2 when a fault no longer fits the sources.
"""

import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

from mutations import MUTATIONS

ROOT = Path(__file__).resolve().parents[2]
TREE = ROOT / "build/mutate"
DLL = TREE / "build/release/bin/Kestro.dll"

# The suite that a fault in a file should meet comes first, then the others.
SUITES = ["report", "mount", "device", "disk", "exception", "session"]
OWN_SUITE = {
    "device/device_access.cpp": "device",
    "disk/disk_call.cpp": "disk",
    "disk/disk_clean.cpp": "disk",
    "disk/disk_online.cpp": "disk",
    "image/image_mount.cpp": "mount",
    "image/image_drivers.cpp": "session",
    "image/image_drivers.h": "session",
    "image/servicing_session.cpp": "session",
    "inventory/image_inventory.cpp": "session",
    "inventory/image_inventory.h": "session",
    "base/ansi_name.cpp": "exception",
}


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, errors="replace", **options)


def prepare():
    """The tree with links to everything but the sources, which are a copy."""
    TREE.mkdir(parents=True, exist_ok=True)
    for entry in ROOT.iterdir():
        link = TREE / entry.name
        if entry.name not in ("src", "build", ".git") and not link.exists():
            link.symlink_to(entry)
    for file in (ROOT / "src").rglob("*"):
        copy = TREE / "src" / file.relative_to(ROOT / "src")
        if file.is_file() and (not copy.exists() or copy.read_bytes() != file.read_bytes()):
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(file, copy)
    if not (TREE / "build/release/build.ninja").exists():
        run(["cmake", "--preset", "release"], cwd=TREE, check=True)


def build():
    return run(["cmake", "--build", "--preset", "release", "--target", "Kestro"], cwd=TREE)


def first_failure(suite):
    """The test that failed or crashed, or None."""
    program = ROOT / f"build/release/tests/bin/{suite}_contract_test.exe"
    environment = dict(os.environ, KESTRO_DLL=str(DLL), WINEDLLOVERRIDES="mscoree,mshtml=;dismapi=n")
    command = [ROOT / "cmake/run-in-wine", program, "--gtest_fail_fast"]
    try:
        result = run(command, env=environment, timeout=120)
    except subprocess.TimeoutExpired:
        return f"{suite}: no end"
    if result.returncode == 0:
        return None
    failed = re.search(r"^\[  FAILED  \] (\S+)", result.stdout, re.M)
    if failed:
        return failed[1]
    started = re.findall(r"^\[ RUN      \] (\S+)", result.stdout, re.M)
    return f"{started[-1]} (the process ends)" if started else f"{suite}: does not start"


def caught_by(name=None):
    own = OWN_SUITE.get(name, SUITES[0])
    for suite in sorted(SUITES, key=lambda suite: suite != own):
        failure = first_failure(suite)
        if failure:
            return failure
    return None


def main():
    prepare()
    if build().returncode != 0:
        sys.exit("the unchanged library does not build")
    failure = caught_by()
    if failure:
        sys.exit(f"the unchanged library fails {failure}")

    words = sys.argv[1:]
    chosen = [m for m in MUTATIONS if not words or any(word in m[0] + m[1] for word in words)]
    survivors = stale = 0
    print("| File | Fault | Caught by |\n|---|---|---|", flush=True)
    for number, (fault, name, text, replacement) in enumerate(chosen, 1):
        file = TREE / "src" / name
        original = file.read_text()
        start = time.monotonic()
        if original.count(text) != 1:
            stale += 1
            outcome = f"STALE: its text is there {original.count(text)} times"
        else:
            file.write_text(original.replace(text, replacement))
            try:
                built = build()
                if built.returncode != 0:
                    stale += 1
                    outcome = "STALE: does not build"
                    print(built.stdout[-2000:], file=sys.stderr)
                else:
                    outcome = caught_by(name)
            finally:
                file.write_text(original)
        if outcome is None:
            survivors += 1
            outcome = "**NOTHING**"
        print(f"| {name} | {fault} | {outcome} |", flush=True)
        print(f"{number}/{len(chosen)} in {time.monotonic() - start:.0f} s", file=sys.stderr)
    print(f"\n{len(chosen)} faults, {survivors} survivors, {stale} stale", file=sys.stderr)
    sys.exit(2 if stale else 1 if survivors else 0)


if __name__ == "__main__":
    main()
