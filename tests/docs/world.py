"""Where a page's commands and programs run: Wine with the embedded platform, and a drive D: of the
page's own with what the page says is there."""

import os
import re
import subprocess
import tempfile

from driver_package import make_packages, minimal_hive
from kestro_case import HANG, HOST, RUN, run_windows, unmount_below

PREFIX = os.environ["WINEPREFIX"]
DRIVE = os.path.join(PREFIX, "dosdevices", "d:")
DISKS = os.path.join(PREFIX, "drive_c", "ProgramData", "Kestro", "disks.ini")

# What differs from run to run, and what stands for it in the pages.
CANONICAL = [
    (re.escape("Z:" + os.path.dirname(HOST).replace("/", "\\")), r"C:\\Kestro"),
    (r"\d\d-\d\d-\d{4} \d\d:\d\d:\d\d", "05-03-2021 14:07:09"),
    (r"\b20\d{12}\b", "20210305140709"),
    (r"(?m)^ *\d+\.\d s  ", "   0.1 s  "),
    (r"\\kestro-\d+-\d+\b", r"\\kestro-1-1"),
    (r'"elapsed_ms": \d+', '"elapsed_ms": 104'),
    # The last error after a failure was logged is whatever the thread held.
    (r"(?m)^(ErrorCode|D:\\unsigned\\\S+\.inf)=\d+$", r"\1=0"),
    (r"(failed   last error )\d+", r"\g<1>0"),
    (r"(?m) \(last error \d+\)$", ""),
    (r'("(?:last_error|error_code)": )\d+', r"\g<1>0"),
    (r"C:\\users\\[^\\]+\\(Local Settings\\|AppData\\Local\\)?Temp\\", r"C:\\Users\\you\\Temp\\"),
]


def canonical(text):
    for pattern, replacement in CANONICAL:
        text = re.sub(pattern, replacement, text)
    return "".join(line.rstrip() + "\n" for line in text.splitlines()).rstrip("\n") + "\n"


class World:
    """Use it in a with statement: its end takes everything away again."""

    def __init__(self, prepared):
        self.folder = tempfile.TemporaryDirectory(prefix="kestro-docs-")
        self.prepared = prepared
        self.output = ""
        self.exit_code = 0

    def __enter__(self):
        # As Wine is running, a drive that comes and goes is seen at once.
        if os.path.islink(DRIVE):
            os.remove(DRIVE)
        os.symlink(self.folder.name, DRIVE)
        try:
            for word in self.prepared:
                getattr(self, "prepare_" + word)()
        except Exception:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        # What a page leaves mounted holds on to its directory.
        for name in os.listdir(self.folder.name):
            if os.path.ismount(os.path.join(self.folder.name, name)):
                self.run([HOST, "unmount", "D:\\" + name, "--discard"])
        os.remove(DRIVE)
        if os.path.exists(DISKS):
            os.remove(DISKS)
        unmount_below(self.folder.name)
        self.folder.cleanup()

    def path(self, windows):
        """The file behind a path on D: or C:."""
        drive, rest = windows[:2].upper(), windows[2:].replace("\\", "/").lstrip("/")
        return os.path.join({"D:": self.folder.name, "C:": os.path.join(PREFIX, "drive_c")}[drive],
                            rest)

    def write(self, windows, content):
        path = self.path(windows)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)

    # --- what a page may find -----------------------------------------------------------------

    def prepare_library(self):
        """D:\\Kestro\\Kestro.dll."""
        os.makedirs(self.path(r"D:\Kestro"))
        os.symlink(os.path.join(os.path.dirname(HOST), "Kestro.dll"), self.path(r"D:\Kestro\Kestro.dll"))

    def prepare_image(self):
        """D:\\install.wim, an image with a driver database, and the empty D:\\mount."""
        self.write(r"D:\tree\Windows\System32\config\DRIVERS", minimal_hive())
        self.write(r"D:\tree\Windows\System32\drivers\etc\hosts", b"127.0.0.1 localhost\r\n")
        os.makedirs(self.path(r"D:\tree\Windows\INF"))
        subprocess.run(["wimlib-imagex", "capture", self.path(r"D:\tree"), self.path(r"D:\install.wim"),
                        "Windows"], check=True, timeout=HANG, stdout=subprocess.DEVNULL)
        os.makedirs(self.path(r"D:\mount"))

    def prepare_boot(self):
        """D:\\boot.wim as installation media have it: the second image is the one that they boot."""
        self.must_run("mounts", "--clean")  # what other pages have left
        self.write(r"D:\boot\Windows\System32\config\DRIVERS", minimal_hive())
        os.makedirs(self.path(r"D:\boot\Windows\INF"))
        for number, name in enumerate(("Windows PE", "Windows Setup"), 1):
            subprocess.run(
                ["wimlib-imagex", "capture" if number == 1 else "append", self.path(r"D:\boot"),
                 self.path(r"D:\boot.wim"), name, "Boots the machine" if number == 2 else "Recovery",
                 *["--image-property=WINDOWS/" + value for value in
                   ("ARCH=9", "EDITIONID=WindowsPE", "VERSION/MAJOR=10", "VERSION/BUILD=19041")]],
                check=True, timeout=HANG, stdout=subprocess.DEVNULL)

    def prepare_drivers(self):
        """D:\\drivers with six packages, and D:\\unsigned with one."""
        make_packages(self.path(r"D:\drivers"))
        make_packages(self.path(r"D:\unsigned"))
        for name in os.listdir(self.path(r"D:\unsigned")):
            if name.endswith(".cat"):
                os.remove(self.path("D:\\unsigned\\" + name))

    def prepare_mounted(self):
        self.must_run("mount", r"D:\install.wim", r"D:\mount")

    def prepare_added(self):
        """The mounted image has one driver package, oem0.inf."""
        self.must_run("driver", "add", r"D:\mount", r"D:\drivers\kestrohid.inf")

    def prepare_disks(self):
        """One partitioned disk, \\\\?\\PhysicalDrive1; D:\\disks\\one.img and two.img behind it."""
        for name in ("one", "two"):
            file = self.path("D:\\disks\\%s.img" % name)
            self.write("D:\\disks\\%s.img" % name, b"")
            os.truncate(file, 16 << 20)
            subprocess.run(["sfdisk", "-q", file], input="label: gpt\n2048,8192\n", text=True,
                           check=True, timeout=HANG, stdout=subprocess.DEVNULL)
        os.makedirs(os.path.dirname(DISKS), exist_ok=True)
        with open(DISKS, "w", encoding="ascii") as file:
            file.write("[Disk 1]\nName=\\\\?\\PhysicalDrive1\nFile=D:\\disks\\one.img\n")

    def must_run(self, *arguments):
        self.run([HOST, *arguments])
        if self.exit_code != 0:
            raise RuntimeError("kestro %s\n%s" % (" ".join(arguments), self.output))

    # --- what a page shows --------------------------------------------------------------------

    def run(self, command):
        done = run_windows([RUN, *command], stderr=subprocess.STDOUT, cwd=self.folder.name)
        self.output = done.stdout.replace("\r", "")
        self.exit_code = done.returncode

    def kestro(self, line):
        """Runs a command line that begins with "kestro" and returns what it shows."""
        words = [word.strip('"') for word in re.findall(r'"[^"]*"|\S+', line)]
        self.run([HOST, *words[1:]])
        return self.output

    def program(self, command):
        """Runs a program of the pages, which has to end well."""
        self.run(command)
        if self.exit_code != 0:
            raise RuntimeError("exit code %d of %s\n%s" % (self.exit_code, command, self.output))

    def read(self, windows):
        with open(self.path(windows), "rb") as file:
            return file.read().decode("cp1252").replace("\r", "")
