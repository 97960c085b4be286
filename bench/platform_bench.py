#!/usr/bin/env python3
# platform_bench.py - the embedded platform against wimlib-imagex doing the same job by hand. Both sides
# take turns within one run; what counts are the ratios. Run by ./dev bench, with the Wine prefix running.
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

import sample_image
from sample_image import CATALOGS, COMPRESSIONS, HOST, REPOSITORY, SOURCE

OUT = os.path.join(SOURCE, "build", "bench")
RUN = os.path.join(SOURCE, "platform", "kestro-wine")
os.environ.setdefault("WINEPREFIX", os.path.join(SOURCE, "build", "wine"))


# --- one command -----------------------------------------------------------------------------------

class Cost:
    def __init__(self, seconds, peak=0):
        self.seconds, self.peak = seconds, peak

    def __add__(self, other):
        return Cost(self.seconds + other.seconds, max(self.peak, other.peak))


def peak_of(pid):
    """The largest resident set so far, in KiB; 0 when the process is gone."""
    try:
        with open("/proc/%d/status" % pid) as status:
            for line in status:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except (FileNotFoundError, ProcessLookupError):
        pass
    return 0


def run(*command, text=""):
    """Runs a command with nothing left to write for the disk. kestro-wine becomes kestro.exe itself and
    the others start no children, so the process is all that works."""
    os.sync()
    peak, done = 0, threading.Event()

    def watch(pid):
        nonlocal peak
        while not done.wait(0.01):
            peak = max(peak, peak_of(pid))

    start = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
    watcher = threading.Thread(target=watch, args=(process.pid,))
    watcher.start()
    errors = process.communicate(text.encode())[1]
    elapsed = time.monotonic() - start
    done.set()
    watcher.join()
    if process.returncode != 0:
        sys.exit("platform_bench: %s\n%s" % (" ".join(command), errors.decode(errors="replace")))
    return Cost(elapsed, peak)


def kestro(*arguments):
    return run(RUN, HOST, *arguments)


def wimlib(*arguments, text=""):
    return run("wimlib-imagex", *arguments, text=text)


# --- one compression -------------------------------------------------------------------------------

class Bench:
    """Runs rounds with one image and keeps what each step of each round cost."""

    def __init__(self, compression, base, work, package):
        self.compression, self.base, self.work, self.package = compression, base, work, package
        self.costs = {}

    def path(self, name):
        return os.path.join(self.work, name)

    def step(self, name, cost):
        self.costs.setdefault(name, []).append(cost)
        return cost

    def in_turn(self, number, ours, by_hand):
        for side in (ours, by_hand) if number % 2 == 0 else (by_hand, ours):
            side()

    def round(self, number):
        for name in ("kestro", "capture", "append", "whole", "files"):
            shutil.copyfile(self.base, self.path(name + ".wim"))
        self.in_turn(number, self.mount, self.apply)
        self.in_turn(number, self.add_and_commit, self.add_by_hand)
        self.check()
        self.in_turn(number, self.mount, self.apply)
        self.in_turn(number, self.discard, self.remove_tree)

    def mount(self):
        os.makedirs(self.path("mount"), exist_ok=True)
        self.step("mount", kestro("mount", self.path("kestro.wim"), self.path("mount")))

    def apply(self):
        self.step("apply", wimlib("apply", self.base, "1", self.path("tree")))

    def add_and_commit(self):
        add = self.step("add", kestro("driver", "add", self.path("mount"),
                                      os.path.join(self.package, sample_image.INF)))
        commit = self.step("commit", kestro("unmount", self.path("mount"), "--commit"))
        self.step("add_and_commit", add + commit)

    def add_by_hand(self):
        copy = self.step("copy", self.copy_files())
        for name, update in (("capture", self.capture), ("append", self.append),
                             ("whole", self.update_whole), ("files", self.update_files)):
            cost = self.step(name, update())
            self.step("copy_and_" + name, copy + cost)
        self.remove_tree()

    def copy_files(self):
        os.sync()
        start = time.monotonic()
        for source, target in sample_image.package_files(self.package):
            target = os.path.join(self.path("tree"), target)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copyfile(os.path.join(self.package, source), target)
        return Cost(time.monotonic() - start)

    def capture(self):
        old, new = self.path("capture.wim"), self.path("new.wim")
        cost = wimlib("capture", self.path("tree"), new, "Bench", "--update-of=%s:1" % old,
                      "--compress=" + self.compression)
        os.rename(new, old)
        return cost

    def append(self):
        image = self.path("append.wim")
        cost = wimlib("append", self.path("tree"), image, "Bench 2", "--update-of=1")
        return cost + wimlib("delete", image, "1", "--soft")

    def update_whole(self):
        return wimlib("update", self.path("whole.wim"), "1",
                      text='add "%s" "/"\n' % self.path("tree"))

    def update_files(self):
        added = ("Windows/INF/oem0.inf", CATALOGS + "/oem0.cat", REPOSITORY)
        return wimlib("update", self.path("files.wim"), "1",
                      text="".join('add "%s" "/%s"\n' % (os.path.join(self.path("tree"), path), path)
                                   for path in added))

    def check(self):
        """Every side has put the package into its image."""
        for name in ("kestro", "capture", "append", "whole", "files"):
            listing = subprocess.run(["wimlib-imagex", "dir", self.path(name + ".wim"), "1"],
                                     check=True, stdout=subprocess.PIPE).stdout.decode()
            if "/Windows/INF/oem0.inf" not in listing.splitlines():
                sys.exit("platform_bench: %s.wim lacks the driver package" % name)

    def discard(self):
        self.step("discard", kestro("unmount", self.path("mount"), "--discard"))

    def remove_tree(self):
        self.step("remove_tree", run("rm", "-rf", self.path("tree")))


# --- results ---------------------------------------------------------------------------------------

# (our step, the step by hand, what the ratio may be at most)
COMPARISONS = (("mount", "apply", 1.0),
               ("commit", "capture", 0.5),
               ("add_and_commit", "copy_and_capture", None),
               ("add_and_commit", "copy_and_append", None),
               ("add_and_commit", "copy_and_whole", None),
               ("add_and_commit", "copy_and_files", None),
               ("discard", "remove_tree", None))


def spread(values):
    return {"low": min(values), "median": statistics.median(values), "high": max(values)}


def compare(costs, ours, by_hand, goal):
    left, right = costs[ours], costs[by_hand]
    return {"step": ours, "by_hand": by_hand, "goal": goal,
            "ratio": spread([a.seconds / b.seconds for a, b in zip(left, right)]),
            "seconds": spread([cost.seconds for cost in left]),
            "by_hand_seconds": spread([cost.seconds for cost in right]),
            "peak_mib": max(cost.peak for cost in left) / 1024,
            "by_hand_peak_mib": max(cost.peak for cost in right) / 1024}


def print_comparison(row):
    goal = "" if row["goal"] is None else "%.1f %s" % (
        row["goal"], "met" if row["ratio"]["median"] <= row["goal"] else "MISSED")
    print("%-15s %-17s %6.3f  (%.3f to %.3f)  %-11s %8.2f %8.2f %9.0f %8.0f" % (
        row["step"], row["by_hand"], row["ratio"]["median"], row["ratio"]["low"],
        row["ratio"]["high"], goal, row["seconds"]["median"], row["by_hand_seconds"]["median"],
        row["peak_mib"], row["by_hand_peak_mib"]))


def measure_wine(rounds):
    """What Wine costs before any work: a call with the prefix running, and the prefix's own start."""
    call = [kestro("--version").seconds for _ in range(rounds)]
    run(RUN, "--stop")
    start = run(RUN, "--start").seconds
    return {"call_seconds": spread(call), "prefix_start_seconds": start}


def measure(compression, folder, work, package, rounds):
    bench = Bench(compression, os.path.join(folder, compression + ".wim"), work, package)
    for number in range(rounds):
        print("%s: round %d of %d" % (compression, number + 1, rounds), file=sys.stderr)
        bench.round(number)
    rows = [compare(bench.costs, *comparison) for comparison in COMPARISONS]
    print("\n%s: Kestro against wimlib-imagex, %d rounds\n\n"
          "                                                               "
          "       -- seconds --     -- peak MiB --\n"
          "step            by hand            ratio  (low to high)     goal        "
          "  Kestro  by hand    Kestro  by hand" % (compression, rounds))
    for row in rows:
        print_comparison(row)
    sys.stdout.flush()
    return rows


def main():
    parser = argparse.ArgumentParser(description="Measures the embedded platform.")
    parser.add_argument("--quick", action="store_true", help="one round with a small image")
    parser.add_argument("--json", default=os.path.join(OUT, "platform.json"))
    arguments = parser.parse_args()
    rounds = 1 if arguments.quick else 5

    os.makedirs(OUT, exist_ok=True)
    folder, image = sample_image.prepare(OUT, 1_500 if arguments.quick else 12_000)
    result = {"rounds": rounds, "image": image}
    with tempfile.TemporaryDirectory(prefix="platform-", dir=OUT) as work:
        package = os.path.join(work, "package")
        sample_image.make_package(package)
        result["wine"] = measure_wine(rounds)
        print("\nImage: %d files, %d MiB. Before any work Wine costs %.2f s a call in a running prefix; "
              "starting the prefix takes %.1f s." % (
                  image["files"], image["bytes"] >> 20, result["wine"]["call_seconds"]["median"],
                  result["wine"]["prefix_start_seconds"]))
        for compression in COMPRESSIONS:
            result[compression] = measure(compression, folder, work, package, rounds)
    with open(arguments.json, "w") as file:
        json.dump(result, file, indent=2)
        file.write("\n")


if __name__ == "__main__":
    main()
