"""The C++ host, run as its user would."""

import os
import shutil
import unittest

from host_case import HostCase, windows
from kestro_case import sha256

SERVICE_IMAGE = os.environ["KESTRO_SERVICE_IMAGE"]


class ServiceImage(HostCase):
    def service(self, *infs):
        return self.run_host(SERVICE_IMAGE, *map(windows, (
            self.image, self.path("mount"), self.path("results"), *infs)))

    def test_more_packages_than_one_call_takes(self):
        shutil.copytree(self.path("packages"), self.path("again"))
        infs = self.infs + [inf.replace("/packages/", "/again/") for inf in self.infs]
        self.assertGreater(len(infs), 8)
        self.write("results/drivers-0.ini", "[DISM_ADDDRIVER_ERRORS]\r\n%s=5\r\n" % windows(infs[0]))
        self.assertEqual(self.service(*infs), 0, self.output + self.errors)
        lines = self.output.splitlines()
        self.assertEqual(lines.count("add drivers: OK"), 2)
        self.assertEqual([line for line in lines if line.endswith(": added")],
                         ["  %s: added" % windows(inf) for inf in infs])
        published = [line.strip() for line in lines[lines.index("list: OK") + 1:-1]]
        self.assertEqual(lines[-1], "unmount: OK")
        self.verify(self.image)
        self.assertEqual(self.drivers_in_image(), sorted("/Windows/INF/" + name for name in published))
        self.assertEqual(len(published), len(self.infs))

    def test_a_package_that_is_refused_drops_the_changes(self):
        before = sha256(self.image)
        self.assertEqual(self.service(self.path("packages/missing.inf")), 1)
        self.assertIn("add drivers: OK\n  %s: refused\n" % windows(self.path("packages/missing.inf")),
                      self.output)
        self.assertIn("unmount: OK", self.output)
        self.assertEqual(self.result("unmount.ini")["DISM_UNMOUNT"], {"1": "1", "ok": "OK"})
        self.assertEqual(sha256(self.image), before)

    def test_an_image_that_is_not_there(self):
        os.remove(self.image)
        self.assertEqual(self.service(self.infs[0]), 1)
        # The first line is the library's own.
        self.assertEqual(self.output.splitlines(), [
            "Return code is: 80070002", "mount: failed",
            "  DismMountImage failed in step DISM_MOUNT: 0x80070002"])

    def test_without_its_library(self):
        alone = self.path("service_image.exe")
        shutil.copy(SERVICE_IMAGE, alone)
        self.assertEqual(self.run_host(alone, "a", "b", "c", "d"), 1)
        self.assertRegex(self.errors, r"^cannot load .*\\Kestro.dll \(last error 126\)$")

    def test_without_arguments(self):
        self.assertEqual(self.run_host(SERVICE_IMAGE), 2)
        self.assertTrue(self.errors.startswith("usage: service_image"))


if __name__ == "__main__":
    unittest.main()
