# sample_image.py - what the platform bench works on: a tree with the same content in every run, captured
# with wimlib-imagex, and a driver package.
import hashlib
import json
import os
import random
import shutil
import subprocess
import sys

SOURCE = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
HOST = os.path.join(SOURCE, "build", "release", "bin", "kestro.exe")
MAKE_SAMPLES = os.path.join(SOURCE, "build", "platform", "tests", "samples", "make_samples")

# The end-to-end tests' own hive and driver packages.
os.environ.setdefault("KESTRO_SOURCE", SOURCE)
os.environ.setdefault("KESTRO_HOST", HOST)
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(SOURCE, "tests", "end_to_end"))
from driver_package import minimal_hive, payload  # noqa: E402

INF = "kestroport.inf"
CATALOG = "kestroserial.cat"
CATALOGS = "Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}"
REPOSITORY = "Windows/System32/DriverStore/FileRepository/kestroport.inf_amd64_0123456789abcdef"
COMPRESSIONS = ("LZX", "XPRESS")

# (share of the files, smallest, largest size in bytes)
SIZES = ((0.76, 200, 12_000), (0.20, 12_000, 90_000), (0.04, 90_000, 700_000))
FOLDERS = ("Windows/System32", "Windows/System32/drivers", "Windows/WinSxS/amd64_component_%03d",
           "Windows/System32/DriverStore/FileRepository/device_%03d.inf_amd64_%03d",
           "Program Files/Vendor %03d", "Windows/Fonts", "Users/Default/AppData/Local/Cache_%03d")


class Content:
    """File contents, the same ones in every run: text, records as in programs, and noise."""

    def __init__(self):
        self.random = random.Random(20260711)
        words = [self.random.randbytes(self.random.randint(2, 7)).hex() for _ in range(4000)]
        self.text = " ".join(self.random.choices(words, k=600_000)).encode()
        self.records = b"".join(
            self.random.randbytes(10) + bytes(14) + b"\x48\x8b\x05\xff" * 2
            for _ in range(150_000))

    def make(self, size):
        kind = self.random.random()
        if kind < 0.25:
            return self.random.randbytes(size)
        pool = self.text if kind < 0.6 else self.records
        start = self.random.randrange(len(pool) - size)
        return pool[start:start + size]


def make_tree(tree, files):
    content = Content()
    for number in range(files):
        folder = content.random.choice(FOLDERS)
        if "%" in folder:
            group = content.random.randrange(max(1, files // 60))
            folder %= (group,) * folder.count("%")
        share, low, high = content.random.choices(SIZES, [size[0] for size in SIZES])[0]
        size = content.random.randint(low, high)
        path = os.path.join(tree, folder, "file-%05d.bin" % number)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content.make(size))
    for folder in (CATALOGS, "Windows/INF", "Windows/System32/config"):
        os.makedirs(os.path.join(tree, folder), exist_ok=True)
    with open(os.path.join(tree, "Windows/System32/config/DRIVERS"), "wb") as file:
        file.write(minimal_hive())


def measure_tree(tree):
    sizes = [os.path.getsize(os.path.join(folder, name))
             for folder, _, names in os.walk(tree) for name in names]
    return {"files": len(sizes), "bytes": sum(sizes)}


def prepare(cache, files):
    """The captured images, made once: the name of their folder says what they were made by."""
    with open(__file__, "rb") as script:
        made_by = hashlib.sha256(script.read()).hexdigest()[:12]
    folder = os.path.join(cache, "images-%d-%s" % (files, made_by))
    if not os.path.isdir(folder):
        for old in os.listdir(cache):
            if old.startswith("images-%d-" % files):
                shutil.rmtree(os.path.join(cache, old))
        capture_images(folder, files)
    with open(os.path.join(folder, "description.json")) as file:
        return folder, json.load(file)


def capture_images(folder, files):
    print("making a tree of %d files and capturing it" % files, file=sys.stderr)
    unfinished = folder + ".unfinished"
    tree = os.path.join(unfinished, "tree")
    os.makedirs(tree)
    make_tree(tree, files)
    description = measure_tree(tree)
    for compression in COMPRESSIONS:
        image = os.path.join(unfinished, compression + ".wim")
        subprocess.run(["wimlib-imagex", "capture", tree, image, "Bench",
                        "--compress=" + compression], check=True, stdout=subprocess.DEVNULL)
        description[compression + "_bytes"] = os.path.getsize(image)
    with open(os.path.join(unfinished, "description.json"), "w") as file:
        json.dump(description, file)
    shutil.rmtree(tree)
    os.rename(unfinished, folder)


def make_package(folder):
    """Driver packages whose files have a usual size."""
    made = folder + ".made"
    subprocess.run([MAKE_SAMPLES, made, "120000"], check=True)
    os.rename(os.path.join(made, "signed"), folder)
    shutil.rmtree(made)


def package_files(package):
    """(file in the package, where it belongs in the tree), as one would copy them by hand."""
    files = [(INF, "Windows/INF/oem0.inf"), (CATALOG, CATALOGS + "/oem0.cat")]
    return files + [(path, REPOSITORY + "/" + path)
                    for path in (INF, CATALOG, *payload(os.path.join(package, INF)))]
