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
MEMORY = "/dev/shm"
RUN = os.path.join(SOURCE, "platform", "kestro-wine")
os.environ.setdefault("WINEPREFIX", os.path.join(SOURCE, "build", "wine"))


# --- one command -----------------------------------------------------------------------------------

class Cost:
    def __init__(self, seconds, cpu, peak=0):
        self.seconds, self.cpu, self.peak = seconds, cpu, peak

    def __add__(self, other):
        return Cost(self.seconds + other.seconds, self.cpu + other.cpu, max(self.peak, other.peak))


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
    """Runs a command. kestro-wine becomes kestro.exe itself and wimlib-imagex starts no children, so
    the process is all that works, but for Wine's server."""
    peak, done = 0, threading.Event()

    def watch(pid):
        nonlocal peak
        while not done.wait(0.02):
            peak = max(peak, peak_of(pid))

    with tempfile.TemporaryFile() as errors:
        start = time.monotonic()
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                   stderr=errors)
        watcher = threading.Thread(target=watch, args=(process.pid,))
        watcher.start()
        process.stdin.write(text.encode())
        process.stdin.close()
        _, status, usage = os.wait4(process.pid, 0)
        elapsed = time.monotonic() - start
        done.set()
        watcher.join()
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            errors.seek(0)
            sys.exit("platform_bench: %s\n%s" % (" ".join(command),
                                                 errors.read().decode(errors="replace")))
    return Cost(elapsed, usage.ru_utime + usage.ru_stime, peak)


def kestro(*arguments):
    return run(RUN, HOST, *arguments)


def wimlib(*arguments, text=""):
    return run("wimlib-imagex", *arguments, text=text)


# --- one image -------------------------------------------------------------------------------------

SIDES = ("kestro", "capture", "append", "whole", "files")
# The host saves the package that it adds; this is what the commit then has to save.
CHANGED = "Windows/System32/changed.bin"


class Bench:
    """Runs rounds with one image in one folder and keeps what each step of each round cost."""

    def __init__(self, compression, base, work, package):
        self.compression, self.work, self.package = compression, work, package
        self.base = self.path("base.wim")
        shutil.copyfile(base, self.base)
        self.mounted = False
        self.costs = {}

    def path(self, name):
        return os.path.join(self.work, name)

    def step(self, name, cost):
        self.costs.setdefault(name, []).append(cost)
        return cost

    def settle(self):
        """Leaves nothing of the steps before to be written during the next one."""
        subprocess.run(["sync", "-f", self.work], check=True)

    def in_turn(self, number, ours, by_hand):
        for side in (ours, by_hand) if number % 2 == 0 else (by_hand, ours):
            self.settle()
            side()

    def round(self, number):
        for name in SIDES:
            shutil.copyfile(self.base, self.path(name + ".wim"))
        self.in_turn(number, self.mount, self.apply)
        self.in_turn(number, self.add_and_commit, self.add_by_hand)
        self.check()
        self.in_turn(number, self.mount, self.apply)
        self.in_turn(number, self.discard, self.remove_tree)

    def mount(self):
        os.makedirs(self.path("mount"), exist_ok=True)
        self.step("mount", kestro("mount", self.path("kestro.wim"), self.path("mount")))
        self.mounted = True

    def unmount(self, how):
        cost = kestro("unmount", self.path("mount"), how)
        self.mounted = False
        return cost

    def apply(self):
        cost = self.step("apply", wimlib("apply", self.base, "1", self.path("tree")))
        self.step("apply, sync", cost + run("sync", "-f", self.path("tree")))

    def change(self, folder):
        with open(os.path.join(self.path(folder), CHANGED), "wb") as file:
            file.write(os.urandom(20_000))

    def add_and_commit(self):
        add = self.step("add", kestro("driver", "add", self.path("mount"),
                                      os.path.join(self.package, sample_image.INF)))
        self.change("mount")
        self.settle()
        commit = self.step("commit", self.unmount("--commit"))
        self.step("add, commit", add + commit)

    def add_by_hand(self):
        copy = self.copy_files()
        self.change("tree")
        updates = {}
        for name, update in (("capture", self.capture), ("append", self.append),
                             ("whole", self.update_whole), ("files", self.update_files)):
            self.settle()
            updates[name] = self.step(name, update())
        self.settle()
        remove = run("rm", "-rf", self.path("tree"))
        self.step("capture, remove", updates["capture"] + remove)
        for name, cost in updates.items():
            self.step("copy, %s, remove" % name, copy + cost + remove)

    def copy_files(self):
        start, cpu = time.monotonic(), time.process_time()
        for source, target in sample_image.package_files(self.package):
            target = os.path.join(self.path("tree"), target)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copyfile(os.path.join(self.package, source), target)
        return Cost(time.monotonic() - start, time.process_time() - cpu)

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
        added = ("Windows/INF/oem0.inf", CATALOGS + "/oem0.cat", REPOSITORY, CHANGED)
        return wimlib("update", self.path("files.wim"), "1",
                      text="".join('add "%s" "/%s"\n' % (os.path.join(self.path("tree"), path), path)
                                   for path in added))

    def check(self):
        """Every side has put the package and the changed file into its image."""
        for name in SIDES:
            listing = subprocess.run(["wimlib-imagex", "dir", self.path(name + ".wim"), "1"],
                                     check=True, stdout=subprocess.PIPE).stdout.decode()
            missing = {"/Windows/INF/oem0.inf", "/" + CHANGED} - set(listing.splitlines())
            if missing:
                sys.exit("platform_bench: %s.wim lacks %s" % (name, ", ".join(sorted(missing))))

    def discard(self):
        self.step("discard", self.unmount("--discard"))

    def remove_tree(self):
        self.step("remove", run("rm", "-rf", self.path("tree")))

    def leave(self):
        """Leaves no mount behind, also when a step has failed."""
        if self.mounted:
            subprocess.run([RUN, HOST, "unmount", self.path("mount"), "--discard"],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


# --- results ---------------------------------------------------------------------------------------

# (our step, the step by hand, what the ratio may be at most)
COMPARISONS = (("mount", "apply", 1.0),
               ("mount", "apply, sync", None),
               ("commit", "capture", 0.5),
               ("commit", "capture, remove", None),  # a commit of the host's unmounts too
               ("add, commit", "copy, capture, remove", None),
               ("add, commit", "copy, append, remove", None),
               ("add, commit", "copy, whole, remove", None),
               ("add, commit", "copy, files, remove", None),
               ("discard", "remove", None))


def spread(values):
    return {"low": min(values), "median": statistics.median(values), "high": max(values)}


def compare(costs, ours, by_hand, goal):
    left, right = costs[ours], costs[by_hand]
    pairs = list(zip(left, right))
    return {"step": ours, "by_hand": by_hand, "goal": goal,
            "ratio": spread([a.seconds / b.seconds for a, b in pairs]),
            "cpu_ratio": spread([a.cpu / max(b.cpu, 0.01) for a, b in pairs]),
            "seconds": spread([cost.seconds for cost in left]),
            "by_hand_seconds": spread([cost.seconds for cost in right]),
            "peak_mib": max(cost.peak for cost in left) / 1024,
            "by_hand_peak_mib": max(cost.peak for cost in right) / 1024}


def print_comparison(row):
    goal = "" if row["goal"] is None else "%.1f %s" % (
        row["goal"], "met" if row["ratio"]["median"] <= row["goal"] else "MISSED")
    print("%-12s %-22s %6.2f  (%5.2f to %5.2f) %6.2f  %-11s %7.2f %7.2f %8.0f %7.0f" % (
        row["step"], row["by_hand"], row["ratio"]["median"], row["ratio"]["low"],
        row["ratio"]["high"], row["cpu_ratio"]["median"], goal, row["seconds"]["median"],
        row["by_hand_seconds"]["median"], row["peak_mib"], row["by_hand_peak_mib"]))


def print_table(title, rows, rounds):
    print("\n%s: Kestro against wimlib-imagex, rounds: %d\n\n"
          "                                    ---- ratio of time ---  of CPU              "
          "---- seconds --  --- peak MiB --\n"
          "step         by hand                median  (low to high)    time  goal         "
          "Kestro by hand   Kestro by hand" % (title, rounds))
    for row in rows:
        print_comparison(row)
    sys.stdout.flush()


def measure_wine(rounds):
    """What Wine costs before any work: a call with the prefix running, and the prefix's own start."""
    call = [kestro("--version").seconds for _ in range(2 * rounds)]
    run(RUN, "--stop")
    start = run(RUN, "--start").seconds
    return {"call_seconds": spread(call), "prefix_start_seconds": start}


def measure(title, compression, base, folder, rounds):
    with tempfile.TemporaryDirectory(prefix="kestro-bench-", dir=folder) as work:
        package = os.path.join(work, "package")
        sample_image.make_package(package)
        bench = Bench(compression, base, work, package)
        try:
            for number in range(rounds):
                print("%s: round %d of %d" % (title, number + 1, rounds), file=sys.stderr)
                bench.round(number)
        finally:
            bench.leave()
    # The goals are meant for images of the full size.
    rows = [compare(bench.costs, ours, by_hand, goal if rounds > 1 else None)
            for ours, by_hand, goal in COMPARISONS]
    print_table(title, rows, rounds)
    return {"title": title, "compression": compression, "rows": rows}


def cases(image):
    """(title, compression, folder): in memory, where the work itself shows, and once on the disk."""
    needed = 3 * image["bytes"] + 8 * max(image[name + "_bytes"] for name in COMPRESSIONS)
    if os.path.isdir(MEMORY) and shutil.disk_usage(MEMORY).free > needed:
        for compression in COMPRESSIONS:
            yield compression + " in memory", compression, MEMORY
        yield "XPRESS on disk", "XPRESS", OUT
    else:
        print("%s holds less than %d MiB: measuring on the disk only" % (MEMORY, needed >> 20),
              file=sys.stderr)
        for compression in COMPRESSIONS:
            yield compression + " on disk", compression, OUT


def main():
    parser = argparse.ArgumentParser(description="Measures the embedded platform.")
    parser.add_argument("--quick", action="store_true", help="one round with a small image")
    parser.add_argument("--only", metavar="TEXT", default="",
                        help="only the tables with this in their title, as in LZX or 'on disk'")
    parser.add_argument("--json", default=os.path.join(OUT, "platform.json"))
    arguments = parser.parse_args()
    rounds = 1 if arguments.quick else 3
    os.environ["KESTRO_MOUNT"] = "extract"  # what apply and capture do by hand

    os.makedirs(OUT, exist_ok=True)
    folder, image = sample_image.prepare(OUT, 1_500 if arguments.quick else 12_000)
    wine = measure_wine(rounds)
    print("\nImage: %d files, %d MiB. Before any work Wine costs %.2f s a call in a running prefix; "
          "starting the prefix takes %.1f s." % (
              image["files"], image["bytes"] >> 20, wine["call_seconds"]["median"],
              wine["prefix_start_seconds"]))
    tables = [measure(title, compression, os.path.join(folder, compression + ".wim"), place, rounds)
              for title, compression, place in cases(image) if arguments.only in title]
    with open(arguments.json, "w") as file:
        json.dump({"rounds": rounds, "image": image, "wine": wine, "tables": tables}, file, indent=2)
        file.write("\n")


if __name__ == "__main__":
    main()
