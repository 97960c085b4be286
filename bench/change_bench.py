#!/usr/bin/env python3
# change_bench.py - what it costs to mount an image file, to add drivers to it and to save a small change,
# by the number of its entries and by its size. wimlib-imagex does the same by hand in the same run; what
# counts are the ratios. Run by hand after ./dev bench, which prepares Wine: bench/change_bench.py.
import argparse
import glob
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import sample_image
from platform_bench import OUT, RUN, Cost, kestro, peak_of, run, wimlib

# (entries, MiB): as many entries in files of different sizes, and more entries.
SHAPES = ((20_000, 400), (20_000, 1000), (20_000, 2000), (80_000, 2000))
PACKAGES = 60


def make_image(folder, entries, mebibytes):
    """Small files in as many entries, and few large ones that bring the file to its size."""
    image = os.path.join(folder, "%d-%d.wim" % (entries, mebibytes))
    if os.path.exists(image):
        return image
    print("making an image of %d entries and %d MiB" % (entries, mebibytes), file=sys.stderr)
    with tempfile.TemporaryDirectory(prefix="tree-", dir=folder) as tree:
        sample_image.make_tree(tree, 0)
        for number in range(entries):
            path = os.path.join(tree, "Windows/WinSxS/%04d" % (number // 100),
                                "file-%06d.dat" % number)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(os.urandom(1000))
        for number in range(mebibytes // 50):
            with open(os.path.join(tree, "large-%d.bin" % number), "wb") as file:
                file.write(os.urandom(50 << 20))
        subprocess.run(["wimlib-imagex", "capture", tree, image + ".part", "Bench",
                        "--compress=none"], check=True, stdout=subprocess.DEVNULL)
    os.rename(image + ".part", image)
    return image


def servers():
    """The largest memory of a process that serves a mount, ours and wimlib's, in KiB."""
    peaks = [0]
    for status in glob.glob("/proc/[0-9]*/comm"):
        try:
            with open(status) as file:
                name = file.read().strip()
        except OSError:
            continue
        if name in ("kestro-imagefs", "wimlib-imagex"):
            peaks.append(peak_of(int(status.split("/")[2])))
    return max(peaks)


class Bench:
    def __init__(self, work, base):
        self.work, self.base = work, base
        self.costs, self.bytes, self.server = {}, {}, {}
        self.mounted = False
        for name in ("mount", "hand", "packages"):
            os.makedirs(self.path(name))
        sample_image.make_package(self.path("packages/one"))

    def path(self, name):
        return os.path.join(self.work, name)

    def fresh(self, name):
        shutil.copyfile(self.base, self.path(name))
        subprocess.run(["sync", "-f", self.work], check=True)
        return self.path(name)

    def step(self, name, cost, image=None, before=0):
        self.costs.setdefault(name, []).append(cost)
        if image:
            self.bytes.setdefault(name, []).append(os.path.getsize(image) - before)

    def change(self, folder, name):
        with open(os.path.join(self.path(folder), "Windows", name), "wb") as file:
            file.write(os.urandom(3 << 20))

    def ours(self):
        image, mount = self.fresh("ours.wim"), self.path("mount")
        self.mounted = True
        self.step("mount", kestro("mount", image, mount))
        self.server.setdefault("ours", []).append(servers())
        size = os.path.getsize(image)
        inf = os.path.join(self.path("packages/one"), sample_image.INF)
        self.step("add a driver", kestro("driver", "add", mount, inf), image, size)
        self.change(mount, "changed.bin")
        size = os.path.getsize(image)
        self.step("save and unmount", kestro("unmount", mount, "--commit"), image, size)
        self.mounted = False

    def by_hand(self):
        image, mount = self.fresh("hand.wim"), self.path("hand")
        self.step("mountrw", wimlib("mountrw", image, "1", mount))
        self.server.setdefault("hand", []).append(servers())
        self.change(mount, "changed.bin")
        self.step("unmount --commit", wimlib("unmount", mount, "--commit"))
        source = self.path("small.bin")
        with open(source, "wb") as file:
            file.write(os.urandom(3 << 20))
        size = os.path.getsize(image)
        self.step("append, sync", self.append(image, source), image, size)

    def leave(self):
        """Leaves no mount behind, also when a step has failed."""
        if self.mounted:
            subprocess.run([RUN, sample_image.HOST, "unmount", self.path("mount"), "--discard"],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def append(self, image, source):
        cost = wimlib("update", image, "1", text="add '%s' /Windows/small.bin\n" % source)
        return cost + run("sync", image) + run("sync", image)


def make_packages(folder):
    """Packages that differ in the size of their files, and so in their catalogs."""
    infs = []
    for size in range(100_000, 100_000 + 1000 * PACKAGES, 1000):
        made = os.path.join(folder, str(size))
        subprocess.run([sample_image.MAKE_SAMPLES, made, str(size)], check=True)
        infs += sorted(glob.glob(os.path.join(made, "signed", "*.inf")))
        if len(infs) >= PACKAGES:
            return infs[:PACKAGES]
    sys.exit("change_bench: not enough packages")


def many_packages(bench):
    """Sixty packages in lists of eight, and one by one."""
    infs = make_packages(bench.path("packages/many"))
    for name, lists in (("in lists of eight", [infs[i:i + 8] for i in range(0, PACKAGES, 8)]),
                        ("one by one", [[inf] for inf in infs])):
        image, mount = bench.fresh("many.wim"), bench.path("mount")
        bench.mounted = True
        kestro("mount", image, mount)
        size, cost = os.path.getsize(image), Cost(0, 0)
        for one in lists:
            cost = cost + kestro("driver", "add", mount, *one)
        bench.step(name, cost, image, size)
        kestro("unmount", mount, "--discard")
        bench.mounted = False


def median(costs):
    return statistics.median(cost.seconds for cost in costs)


# (ours, by hand, the ratio that is wanted, what is allowed beside it: starts of a Windows program)
GOALS = (("mount", "mountrw", 1.5), ("add a driver", "append, sync", 1.5),
         ("save and unmount", "append, sync", 1.5), ("save and unmount", "unmount --commit", None))


def report(shape, bench, start):
    rows = []
    for ours, hand, goal in GOALS:
        left, right = median(bench.costs[ours]), median(bench.costs[hand])
        met = "" if goal is None else "met" if left <= goal * right + start else "MISSED"
        written = statistics.median(bench.bytes.get(ours, [0])) / 2**20
        print("%-17s %-17s %7.2f %7.2f  %5.2f  %7.1f MiB  %s" %
              (ours, hand, left, right, left / right, written, met))
        rows.append({"step": ours, "by_hand": hand, "seconds": left, "by_hand_seconds": right,
                     "written_mib": written, "met": met})
    peaks = {name: max(cost.peak for cost in bench.costs[name]) / 1024 for name in bench.costs}
    serving = {name: max(values) / 1024 for name, values in bench.server.items()}
    print("peak MiB: mount %.0f, add %.0f, save %.0f; mountrw %.0f, append %.0f; serving %.0f, "
          "by hand %.0f" % (peaks["mount"], peaks["add a driver"], peaks["save and unmount"],
                            peaks["mountrw"], peaks["append, sync"], serving["ours"],
                            serving["hand"]), flush=True)
    return {"entries": shape[0], "mebibytes": shape[1], "rows": rows, "peak_mib": peaks,
            "serving_mib": serving}


def measure(shape, folder, rounds, start):
    base = make_image(folder, *shape)
    print("\n%d entries, %d MiB, rounds: %d\nstep              by hand           "
          "seconds by hand  ratio    written" % (*shape, rounds))
    with tempfile.TemporaryDirectory(prefix="change-", dir=OUT) as work:
        bench = Bench(work, base)
        try:
            for number in range(rounds):
                for side in (bench.ours, bench.by_hand)[::1 if number % 2 == 0 else -1]:
                    side()
            table = report(shape, bench, start)
            if shape == SHAPES[0]:
                many_packages(bench)
        finally:
            bench.leave()
        if shape == SHAPES[0]:
            for name in ("in lists of eight", "one by one"):
                print("%d packages %-18s %7.2f s  %7.1f MiB" % (
                    PACKAGES, name, median(bench.costs[name]), bench.bytes[name][0] / 2**20))
            table["packages"] = {name: [median(bench.costs[name]), bench.bytes[name][0]]
                                 for name in ("in lists of eight", "one by one")}
    return table


def main():
    parser = argparse.ArgumentParser(description="Measures what mounts and saves cost.")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--shapes", type=int, default=len(SHAPES), help="how many of the images")
    arguments = parser.parse_args()
    folder = os.path.join(OUT, "change")
    os.makedirs(folder, exist_ok=True)
    start = statistics.median(kestro("--version").seconds for _ in range(5))
    print("A start of a Windows program takes %.2f s." % start)
    tables = [measure(shape, folder, arguments.rounds, start)
              for shape in SHAPES[:arguments.shapes]]
    with open(os.path.join(OUT, "change.json"), "w") as file:
        json.dump({"start_seconds": start, "tables": tables}, file, indent=2)
        file.write("\n")


if __name__ == "__main__":
    main()
