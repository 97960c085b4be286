"""A mounted image outlives what its mounter may end: Wine, and the session of who has logged in. Its changes are
saved later."""

import contextlib
import os
import pty
import random
import signal
import subprocess
import unittest

# Not the prefix of the other tests, which these would end: that of the tests of disks, which end theirs, too.
os.environ["WINEPREFIX"] += "-disks"

from kestro_case import HANG, RUN, KestroCase


def tearDownModule():
    subprocess.run([RUN, "--stop"], check=True, timeout=HANG)


def processes_of(session):
    found = []
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/stat" % process, encoding="utf-8", errors="replace") as stream:
                state, _, _, of = stream.read().rpartition(") ")[2].split()[:4]
        except OSError:
            continue
        if state != "Z" and int(of) == session:
            found.append(int(process))
    return found


def wine_servers():
    """Of the tests' prefix."""
    mine = b"WINEPREFIX=" + os.environ["WINEPREFIX"].encode()
    found = []
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/comm" % process, "rb") as stream:
                name = stream.read()
            with open("/proc/%s/environ" % process, "rb") as stream:
                here = mine in stream.read().split(b"\0")
        except OSError:
            continue
        if here and name.startswith(b"wineserver"):
            found.append(process)
    return found


class Survival(KestroCase):
    def setUp(self):
        super().setUp()
        self.content = random.Random(1).randbytes(300_000)
        self.write("tree/Windows/kernel.bin", self.content)
        self.write("tree/Windows/notes.txt", "notes\r\n")
        self.image = self.capture("tree", "image.wim")
        self.mounted = self.path("mount")
        os.makedirs(self.mounted)
        self.addCleanup(self.exit_code, "unmount", self.mounted, "--discard")
        # Whatever of Wine there will be belongs to the test.
        self.stop_wine()

    def stop_wine(self):
        subprocess.run([RUN, "--stop"], check=True, timeout=HANG, stdout=subprocess.DEVNULL)
        self.wait_until(lambda: not wine_servers())

    def check_and_save(self):
        """The mount is there without Wine, is changed once more and saved by a call that starts Wine anew."""
        self.assertEqual(self.read("mount/Windows/kernel.bin"), self.content)
        self.assertEqual(self.read("mount/Windows/before.txt"), b"before")
        self.write("mount/Windows/after.txt", "after")
        os.remove(self.path("mount/Windows/notes.txt"))
        self.kestro("unmount", self.mounted, "--commit")
        self.verify(self.image)
        self.assertEqual(self.paths_in(self.image), [
            "/Windows", "/Windows/after.txt", "/Windows/before.txt", "/Windows/kernel.bin"])
        self.assertEqual(self.file_in(self.image, "/Windows/before.txt"), b"before")
        self.assertEqual(self.file_in(self.image, "/Windows/kernel.bin"), self.content)
        self.assertEqual(os.listdir(self.mounted), [])

    def test_wine_is_stopped(self):
        subprocess.run([RUN, "--start"], check=True, timeout=HANG)
        self.kestro("mount", self.image, self.mounted)
        self.write("mount/Windows/before.txt", "before")
        self.assertTrue(wine_servers())
        self.stop_wine()
        self.check_and_save()

    def test_the_user_logs_out(self):
        leader, terminal = pty.fork()
        if leader == 0:
            os.execv("/bin/sh", ["sh", "-c", '"$@" && echo "all is mounted" && exec cat', "sh",
                                 *self.command("mount", self.image, self.mounted)])
        said = b""
        while b"all is mounted" not in said:
            try:
                piece = os.read(terminal, 4096)
            except OSError:
                piece = b""
            self.assertNotEqual(piece, b"", said)
            said += piece
        self.write("mount/Windows/before.txt", "before")
        # The terminal hangs up, and what then is left of the session is ended.
        os.close(terminal)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(leader, 0)[1]), -signal.SIGHUP)
        for request in (signal.SIGHUP, signal.SIGTERM, signal.SIGKILL):
            for process in processes_of(leader):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, request)
        self.wait_until(lambda: not processes_of(leader))
        self.check_and_save()


if __name__ == "__main__":
    unittest.main()
