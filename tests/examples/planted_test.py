"""A DismApi.dll planted beside a host and in its current folder: kestro.exe and the C++ host leave it alone.
The C host, which the loader starts with the system's own order of search, shows that it would be found."""

import os
import shutil

import unittest

from host_case import HostCase, windows
from kestro_case import HOST

BUILT = os.path.dirname(HOST)
PLANTED = "the planted DismApi.dll is loaded"
# Wine takes its own DLLs before a program's unless told otherwise; Windows does not.
AS_ON_WINDOWS = {"WINEDLLOVERRIDES": "mscoree,mshtml=;dismapi=n,b"}


class Planted(HostCase):
    def setUp(self):
        super().setUp()
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)
        for name in ("Kestro.dll", "kestro.exe", "mount_host.exe", "service_image.exe"):
            shutil.copy(os.path.join(BUILT, name), self.path(name))
        shutil.copy(os.environ["KESTRO_PLANTED_DISMAPI"], self.path("DismApi.dll"))

    def run_here(self, name, *arguments):
        return self.run_host(self.path(name), *arguments, **AS_ON_WINDOWS)

    def test_a_host_that_is_linked_with_the_library_loads_it(self):
        self.run_here("mount_host.exe")
        self.assertIn(PLANTED, self.errors)

    def test_kestro_exe_does_not(self):
        self.assertEqual(self.run_here("kestro.exe", "selftest"), 0, self.errors)
        self.assertNotIn(PLANTED, self.errors)
        self.assertRegex(self.output, r"(?im)^DismApi\.dll   C:\\windows\\system32\\DismApi\.dll$")

    def test_kestro_exe_does_not_when_it_services_an_image(self):
        other = self.path("other")
        os.makedirs(other)
        for name in ("Kestro.dll", "DismApi.dll"):
            shutil.copy(self.path(name), other)
        for more in ((), ("--library", windows(os.path.join(other, "Kestro.dll")))):
            with self.subTest(more=more):
                self.assertEqual(self.run_here("kestro.exe", "mount", r"Z:\missing.wim",
                                               windows(self.path("mount")), *more), 1)
                self.assertNotIn(PLANTED, self.errors)
                self.assertIn("0x80070002", self.output + self.errors)

    def test_the_cpp_host_does_not(self):
        self.assertEqual(self.run_here("service_image.exe", r"Z:\missing.wim", r"Z:\missing",
                                       windows(self.path("results")), r"Z:\missing.inf"), 1)
        self.assertNotIn(PLANTED, self.errors)
        # What answered is the embedded platform.
        self.assertIn("DismMountImage failed in step DISM_MOUNT: 0x80070002", self.output)


if __name__ == "__main__":
    unittest.main()
