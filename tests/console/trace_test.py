"""The console trace as bytes: on a pipe, in a file and on a terminal. The probe is ended by force when
its call returns, so whatever is found had left the runtime by then."""

import os
import pty
import subprocess
import tempfile
import unittest

RUN = os.path.join(os.environ["KESTRO_SOURCE"], "platform", "kestro-wine")
PROBE = os.environ["KESTRO_PROBE"]
LIBRARY = "Z:" + os.environ["KESTRO_DLL"].replace("/", "\\")
HANG = 60

LISTING = (
    "\n\nThese are the third party drivers from the image:\n\n"
    "Driver Package 0: oem0.inf\n"
    "Original file name: C:\\store\\first.inf\n\n"
    "Driver Package 1: oem1.inf\n"
    "Original file name: C:\\store\\100% %s %x.inf\n\n")


class TraceCase(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="kestro-")
        self.addCleanup(self.folder.cleanup)
        self.result = os.path.join(self.folder.name, "result.ini")

    def command(self, call, image="C:\\image"):
        return [RUN, PROBE, LIBRARY, call, image, "Z:" + self.result.replace("/", "\\")]

    def on_pipe(self, call, image="C:\\image"):
        done = subprocess.run(self.command(call, image), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, timeout=HANG)
        return done.stdout, done.returncode

    def in_file(self, call, image="C:\\image"):
        path = os.path.join(self.folder.name, "stdout")
        with open(path, "wb") as file:
            subprocess.run(self.command(call, image), stdin=subprocess.DEVNULL, stdout=file,
                           timeout=HANG)
        with open(path, "rb") as file:
            return file.read()

    def on_terminal(self, call, image="C:\\image"):
        ours, theirs = pty.openpty()
        process = subprocess.Popen(self.command(call, image), stdin=theirs, stdout=theirs,
                                   stderr=subprocess.DEVNULL)
        os.close(theirs)
        shown = b""
        while True:
            try:
                block = os.read(ours, 4096)
            except OSError:  # the terminal's last user has gone
                break
            if not block:
                break
            shown += block
        process.wait(HANG)
        os.close(ours)
        return shown

    @staticmethod
    def bytes_of(text):
        """The runtime's text mode ends lines with CR LF."""
        return text.replace("\n", "\r\n").encode()


class Trace(TraceCase):
    def test_the_listing_on_a_pipe(self):
        self.assertEqual(self.on_pipe("list"), (self.bytes_of(LISTING), 0))
        self.assertEqual(self.on_pipe("listw"), (self.bytes_of(LISTING), 1))

    def test_the_listing_in_a_file(self):
        self.assertEqual(self.in_file("list"), self.bytes_of(LISTING))
        self.assertEqual(self.in_file("listw"), self.bytes_of(LISTING))

    def test_the_listing_on_a_terminal(self):
        shown = self.on_terminal("list")
        for line in LISTING.split("\n"):
            self.assertIn(line.encode(), shown)

    def test_a_failure_prints_its_code_in_hex(self):
        for code, text in (("80070002", "80070002"), ("C0040001", "c0040001"),
                           ("80000000", "80000000"), ("FFFFFFFF", "ffffffff")):
            expected = self.bytes_of("Return code is: %s\n" % text)
            self.assertEqual(self.on_pipe("list", "fail " + code), (expected, 1))
            self.assertEqual(self.on_pipe("listw", "fail " + code), (expected, 0))

    def test_a_failed_query_prints_twice(self):
        expected = "DismGetDriverInfo Failed: 80070002\nReturn code is: 80070002\n"
        self.assertEqual(self.on_pipe("info"), (self.bytes_of(expected), 1))
        self.assertEqual(self.in_file("info"), self.bytes_of(expected))


class DiskTrace(TraceCase):
    """The narrow formats: CleanDisk counts the packs and disks that it goes through."""

    SEARCH = ("Pack #: 1\nDisk #: 1\nDisk #: 2\n"
              "Pack #: 2\nDisk #: 1\n")
    NOT_THERE = "\\\\?\\PhysicalDrive77"
    DISKS = os.path.join(os.environ["WINEPREFIX"], "drive_c", "ProgramData", "Kestro", "disks.ini")

    def setUp(self):
        super().setUp()
        os.makedirs(os.path.dirname(self.DISKS), exist_ok=True)
        self.addCleanup(lambda: os.remove(self.DISKS))
        with open(self.DISKS, "w", encoding="utf-8") as file:
            for number, pack in enumerate(("one", "one", "two"), 1):
                image = os.path.join(self.folder.name, "disk%d.img" % number)
                with open(image, "wb") as disk:
                    disk.truncate(1 << 20)
                file.write("[Disk %d]\nName=\\\\?\\PhysicalDrive%d\nFile=Z:%s\nPack=%s\n" % (
                    number, number, image.replace("/", "\\"), pack))

    def test_the_search_on_a_pipe(self):
        self.assertEqual(self.on_pipe("clean", self.NOT_THERE)[0], self.bytes_of(self.SEARCH))

    def test_the_search_in_a_file(self):
        self.assertEqual(self.in_file("clean", self.NOT_THERE), self.bytes_of(self.SEARCH))

    def test_the_search_on_a_terminal(self):
        shown = self.on_terminal("clean", self.NOT_THERE)
        for line in self.SEARCH.split("\n"):
            self.assertIn(line.encode(), shown)


if __name__ == "__main__":
    unittest.main()
