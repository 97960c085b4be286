"""What the end-to-end tests have in common: a folder of their own, kestro.exe under Wine, and
wimlib-imagex as the judge. ctest says where things are through the environment."""

import configparser
import hashlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = os.environ["KESTRO_SOURCE"]
HOST = os.environ["KESTRO_HOST"]
RUN = os.path.join(SOURCE, "platform", "kestro-wine")

# A call under Wine takes a second; this only ends a test that hangs.
HANG = 120


def sha256(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def run_windows(command, **options):
    """Runs a program under Wine, which now and then ends one before it has begun: with 1, and not a word. The
    programs of the tests always say one, so this is none of their failures; a second silence is one."""
    for last in (False, True):
        done = subprocess.run(command, stdin=subprocess.DEVNULL, timeout=HANG, text=True, errors="replace",
                              **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options})
        if last or done.returncode != 1 or done.stdout or done.stderr:
            return done
        print("a program ended before it began and is run again", file=sys.stderr)


def unmount_below(folder):
    """What is still mounted there goes away before the folder does."""
    with open("/proc/self/mounts", encoding="utf-8", errors="surrogateescape") as mounts:
        directories = [line.split(" ")[1] for line in mounts]
    for directory in reversed(directories):
        if directory.startswith(folder + "/"):
            subprocess.run(["umount", "-l", directory], check=False)


class ResultFile:
    """The ResultFile as a host finds it: names compare without case, the text is ANSI."""

    def __init__(self, path):
        self.parser = configparser.ConfigParser(
            strict=False, interpolation=None, delimiters=("=",), comment_prefixes=(";",))
        self.parser.read(path, encoding="cp1252")

    def __getitem__(self, section):
        for name in self.parser.sections():
            if name.lower() == section.lower():
                return dict(self.parser[name])
        return {}

    def log(self):
        keys = [key for key in self["Log"] if key != "righe"]
        keys.sort(key=lambda key: int(key.split(" ")[0]))
        return [self["Log"][key] for key in keys]


class KestroCase(unittest.TestCase):
    """Each test works in a folder of its own, which its end removes."""

    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kestro-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(unmount_below, self.folder)
        self.result_number = 0

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def write(self, name, content):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def read(self, *parts):
        with open(self.path(*parts), "rb") as file:
            return file.read()

    # --- kestro.exe ---------------------------------------------------------------------------

    def command(self, *arguments):
        return [RUN, HOST, *arguments]

    def exit_code(self, *arguments):
        return self.finished(run_windows(self.command(*arguments)))

    def finished(self, done):
        """Keeps what a Windows program printed and returns its exit code."""
        self.output, self.errors = done.stdout, done.stderr
        # What Wine's heap checks have found, when they are on.
        self.assertNotRegex(self.errors, "(err|warn):heap:")
        return done.returncode

    def kestro(self, *arguments, exit_code=0):
        """Runs a command with a ResultFile of its own and returns that file."""
        self.result_number += 1
        result = self.path("result-%d.ini" % self.result_number)
        code = self.exit_code(*arguments, "--result", result)
        self.assertEqual(code, exit_code,
                         "kestro %s\n%s%s" % (" ".join(arguments), self.output, self.errors))
        return ResultFile(result)

    def start(self, *arguments):
        return subprocess.Popen(self.command(*arguments), stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def start_watched(self, *arguments, **environment):
        """A command whose output is looked at while it runs."""
        process = subprocess.Popen(self.command(*arguments), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env={**os.environ, **environment})
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        return process

    def interrupt(self, process, request=signal.SIGINT):
        """Asks it to end; returns its exit code and what it said."""
        process.send_signal(request)
        output, errors = process.communicate(timeout=HANG)
        return process.returncode, output + errors

    def wait_until(self, condition):
        end = time.monotonic() + HANG
        while not condition():
            self.assertLess(time.monotonic(), end, "it did not happen")
            time.sleep(0.02)

    @staticmethod
    def kill(process):
        """kestro-wine becomes the Windows program itself, so this kills kestro.exe."""
        process.send_signal(signal.SIGKILL)
        process.wait(HANG)

    # --- wimlib-imagex ------------------------------------------------------------------------

    def wimlib(self, *arguments):
        done = subprocess.run(["wimlib-imagex", *arguments], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=HANG)
        self.assertEqual(done.returncode, 0, "wimlib-imagex %s\n%s" % (
            " ".join(arguments), done.stderr.decode(errors="replace")))
        return done.stdout

    def capture(self, tree, image, *options):
        self.wimlib("capture", self.path(tree), self.path(image), "Test", *options)
        return self.path(image)

    def verify(self, image):
        self.wimlib("verify", image, "--quiet")

    def paths_in(self, image, index=1):
        listing = self.wimlib("dir", image, str(index)).decode()
        return sorted(line for line in listing.splitlines() if line != "/")

    def file_in(self, image, path, index=1):
        return self.wimlib("extract", image, str(index), path, "--to-stdout")
