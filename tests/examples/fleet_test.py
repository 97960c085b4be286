"""The fleet examples: many image files at once with GNU parallel, and the Kubernetes job."""

import json
import os
import re
import shutil
import subprocess
import unittest

from host_case import HostCase
from kestro_case import HANG, HOST, RUN, SOURCE

FLEET = os.path.join(SOURCE, "examples", "fleet")
CHECK = os.path.join(SOURCE, "tests", "examples", "fleet", "check-job.mjs")
# Where ./dev test has put Kubernetes' schemas.
SCHEMAS = os.path.join(SOURCE, "build", "kubernetes")


class Parallel(HostCase):
    def setUp(self):
        super().setUp()
        self.write("bin/kestro", '#!/bin/sh\nexec "%s" "%s" "$@"\n' % (RUN, HOST))
        os.chmod(self.path("bin/kestro"), 0o755)
        self.images = [self.path("image %d.wim" % number) for number in range(4)]
        for image in self.images:
            shutil.copy(self.image, image)

    def inject_all(self, *images):
        done = subprocess.run(
            [os.path.join(FLEET, "inject-all.sh"), self.path("packages"), self.path("outcomes.json"), *images],
            env={**os.environ, "PATH": self.path("bin") + ":" + os.environ["PATH"], "KESTRO_PATHS": "unix"},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=4 * HANG)
        outcomes = [json.loads(line) for line in self.read("outcomes.json").decode().splitlines()]
        return done, {outcome["V"][0]: outcome for outcome in outcomes}

    def test_four_images_at_once(self):
        done, outcomes = self.inject_all(*self.images)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertEqual(sorted(outcomes), self.images)
        for image, outcome in outcomes.items():
            document = json.loads(outcome["Stdout"])
            self.assertEqual((outcome["Exitval"], document["file"], document["summary"]["added"]),
                             (0, image, len(self.infs)))
            self.verify(image)
            self.assertEqual(len([path for path in self.paths_in(image) if path.startswith("/Windows/INF/oem")]),
                             len(self.infs))
        # They did work at the same time.
        starts = [outcome["Starttime"] for outcome in outcomes.values()]
        ends = [outcome["Starttime"] + outcome["JobRuntime"] for outcome in outcomes.values()]
        self.assertLess(max(starts), min(ends))

    def test_one_that_fails_is_told_and_the_others_are_done(self):
        broken = self.write("broken.wim", "no image")
        done, outcomes = self.inject_all(self.images[0], broken)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertEqual([outcomes[image]["Exitval"] for image in (self.images[0], broken)], [0, 1])
        self.assertFalse(json.loads(outcomes[broken]["Stdout"])["succeeded"])

    def test_bad_arguments(self):
        done = subprocess.run([os.path.join(FLEET, "inject-all.sh"), "drivers"], stdout=subprocess.PIPE, text=True,
                              timeout=HANG)
        self.assertEqual(done.returncode, 2)
        self.assertIn("inject-all.sh DRIVERS OUTCOMES.json IMAGE...", done.stdout)


class Kubernetes(HostCase):
    job = os.path.join(FLEET, "inject-job.yaml")

    def test_the_job_is_as_the_published_schema_says(self):
        if not os.path.exists(os.path.join(SCHEMAS, "package.json")):
            self.skipTest("Kubernetes' schemas are not installed")
        for wrong, right in (("", ""), ("many", "8"), ("completionMod:", "completionMode:"), ("7", "Never")):
            done = subprocess.run(["node", CHECK, SCHEMAS], input=self.job_text().replace(right, wrong) if wrong
                                  else self.job_text(), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                  timeout=HANG)
            self.assertEqual(done.returncode == 0, not wrong, done.stdout)

    def job_text(self):
        with open(self.job, encoding="utf-8") as stream:
            return stream.read()

    def test_what_its_container_runs(self):
        """The script of the manifest, with this machine's kestro, for the second of two images."""
        script = re.search(r"(?s)args:\n +- \|\n(.*?)\n +resources:", self.job_text())[1]
        self.write("bin/kestro", '#!/bin/sh\nexec "%s" "%s" "$@"\n' % (RUN, HOST))
        os.chmod(self.path("bin/kestro"), 0o755)
        os.rename(self.path("packages"), self.path("drivers"))
        os.makedirs(self.path("outcomes"))
        shutil.copy(self.image, self.path("other.wim"))
        self.write("images.txt", "other.wim\nimage.wim\n")
        done = subprocess.run(["/bin/sh", "-euc", script], cwd=self.folder, timeout=HANG, env={
            **os.environ, "PATH": self.path("bin") + ":" + os.environ["PATH"], "JOB_COMPLETION_INDEX": "1"})
        self.assertEqual(done.returncode, 0)
        self.assertEqual(json.loads(self.read("outcomes/1.json"))["summary"]["added"], len(self.infs))
        self.assertEqual(len(self.drivers_in_image()), len(self.infs))


if __name__ == "__main__":
    unittest.main()
