"""What the tests of the example hosts have in common: an image, driver packages, and folders for the mount
and the ResultFiles."""

import os

from driver_package import make_packages, minimal_hive
from kestro_case import RUN, KestroCase, ResultFile, run_windows


def windows(path):
    return "Z:" + path.replace("/", "\\")


class HostCase(KestroCase):
    def setUp(self):
        super().setUp()
        self.write("tree/Windows/System32/config/DRIVERS", minimal_hive())
        os.makedirs(self.path("tree/Windows/INF"))
        self.image = self.capture("tree", "image.wim")
        self.infs = sorted(make_packages(self.path("packages")))
        for folder in ("mount", "results"):
            os.makedirs(self.path(folder))

    def run_host(self, program, *arguments, **environment):
        return self.finished(run_windows([RUN, program, *arguments], env={**os.environ, **environment}))

    def result(self, name):
        return ResultFile(self.path("results", name))

    def drivers_in_image(self):
        return [path for path in self.paths_in(self.image) if path.startswith("/Windows/INF/oem")]
