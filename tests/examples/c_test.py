"""The C host, run as its user would."""

import os
import re
import subprocess
import unittest

from host_case import HostCase, windows
from kestro_case import HANG, SOURCE, sha256

MOUNT_HOST = os.environ["KESTRO_MOUNT_HOST"]


class MountHost(HostCase):
    def setUp(self):
        super().setUp()
        self.inf = next(path for path in self.infs if "hid" in path)

    def service(self, inf):
        return self.run_host(MOUNT_HOST, *map(windows, (
            self.image, self.path("mount"), inf, self.path("results"))))

    def test_a_driver_goes_into_the_image(self):
        self.assertEqual(self.service(self.inf), 0, self.output + self.errors)
        self.assertEqual(self.output.splitlines(), [
            "mount: OK", "  Mounting image...", "  Image mounted successfully.",
            "add driver: OK",
            "unmount: OK", "  Unmounting image...", "  Image unmounted successfully."])
        self.verify(self.image)
        self.assertEqual(self.file_in(self.image, "/Windows/INF/oem0.inf"),
                         self.read("packages", os.path.basename(self.inf)))
        self.assertEqual(self.result("unmount.ini")["DISM_UNMOUNT"], {"flags": "0", "result": "OK"})

    def test_a_driver_that_fails_leaves_the_image_alone(self):
        before = sha256(self.image)
        self.assertEqual(self.service(self.path("packages/missing.inf")), 1)
        self.assertIn("add driver: failed\n  failed step DISM_ADDDRIVER, last error ", self.output)
        self.assertIn("  DismAddDriver Failed. Following error code.\n", self.output)
        self.assertIn("unmount: OK", self.output)
        self.assertEqual(sha256(self.image), before)
        self.assertEqual(self.result("unmount.ini")["DISM_UNMOUNT"]["flags"], "1")
        self.assertEqual(os.listdir(self.path("mount")), [])

    def test_an_image_that_is_not_there(self):
        os.remove(self.image)
        self.assertEqual(self.service(self.inf), 1)
        self.assertIn("mount: failed\n  failed step DISM_MOUNT", self.output)
        self.assertIn("  -2147024894\n", self.output)
        self.assertEqual(os.listdir(self.path("mount")), [])

    def test_an_earlier_run_s_files_are_not_read(self):
        self.write("results/mount.ini", "[DISM_MOUNT]\r\nResult=ERR\r\n")
        self.assertEqual(self.service(self.inf), 0, self.output + self.errors)
        self.assertNotIn("failed", self.output)

    def test_without_arguments(self):
        self.assertEqual(self.run_host(MOUNT_HOST), 2)
        self.assertTrue(self.errors.startswith("usage: mount_host"))

    def test_the_commands_that_build_by_hand(self):
        with open(os.path.join(SOURCE, "examples", "README.md"), encoding="utf-8") as file:
            commands = re.search(r"```sh\n(.*?)```", file.read(), re.S)[1].splitlines()
        self.assertEqual(len(commands), 3)
        built = os.path.dirname(os.path.dirname(MOUNT_HOST))
        for command in commands:
            words = command.replace("build/release", built).split()
            words = [re.sub("(^|:)build/", r"\1" + self.folder + "/", word) for word in words]
            with self.subTest(command=command):
                done = subprocess.run(words, cwd=SOURCE, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, text=True, timeout=HANG)
                self.assertEqual((done.returncode, done.stdout), (0, ""))


if __name__ == "__main__":
    unittest.main()
