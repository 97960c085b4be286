"""The check for real Windows: its questions, asked to the embedded platform. ./dev package runs it whole."""

import json
import os
import subprocess
import tempfile
import unittest

SOURCE, BUILD = os.environ["KESTRO_SOURCE"], os.environ["KESTRO_BUILD"]
RUN = os.path.join(SOURCE, "platform", "kestro-wine")


class WindowsCheck(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="kestro-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        subprocess.run(["cmake", "--install", BUILD, "--component", "check", "--prefix", self.folder],
                       check=True, stdout=subprocess.DEVNULL)

    def path(self, name):
        return os.path.join(self.folder, name)

    def check(self):
        done = subprocess.run([RUN, self.path("kestro-check.exe"), "--questions", "report"], cwd=self.folder,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=300)
        with open(self.path("report.json"), encoding="utf-8") as file:
            report = json.load(file)
        with open(self.path("report.txt"), encoding="utf-8") as file:
            return done.returncode, report, file.read()

    def test_the_embedded_platform_answers_as_expected(self):
        code, report, text = self.check()
        self.assertEqual((code, report["differences"], report["remarks"]), (0, 0, []), text)
        self.assertNotIn(self.folder, json.dumps(report))

    def test_a_difference_is_shown(self):
        with open(self.path("expected.json"), encoding="utf-8") as file:
            expected = json.load(file)
        expected["MountWimImage-missing"]["returns"] = "0"
        with open(self.path("expected.json"), "w", encoding="utf-8") as file:
            json.dump(expected, file)
        code, report, text = self.check()
        self.assertEqual((code, report["differences"]), (1, 1), text)
        self.assertIn("  DIFFERENT  MountWimImage-missing\n", text)
        self.assertIn("        - 0\n        + 1\n", text)


if __name__ == "__main__":
    unittest.main()
