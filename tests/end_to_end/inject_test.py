"""kestro inject: driver packages into the images of a file in one command; wimlib-imagex looks at what came
of it."""

import glob
import json
import os
import signal
import subprocess
import unittest

from driver_package import make_packages, minimal_hive
from kestro_case import HANG, KestroCase, sha256

PUBLISHED = "/Windows/INF/oem0.inf"
# What the platform knows of each mount.
RECORDS = os.path.join(os.environ["WINEPREFIX"], "drive_c/ProgramData/Kestro/Mounts/*/record.json")


class InjectCase(KestroCase):
    """boot.wim as installation media have it. What boots is the second image."""

    def setUp(self):
        super().setUp()
        self.packages = make_packages(self.path("packages"))
        self.image = self.make_image(2)
        self.scratch = self.path("scratch")
        os.makedirs(self.scratch)

    def make_image(self, count):
        image = self.path("boot.wim")
        for number in range(1, count + 1):
            tree = "tree%d" % number
            self.write(tree + "/Windows/System32/config/DRIVERS", minimal_hive())
            self.write(tree + "/Windows/only%d.txt" % number, "image %d\r\n" % number)
            os.makedirs(self.path(tree, "Windows/INF"))
            self.wimlib("append" if os.path.exists(image) else "capture", self.path(tree), image,
                        "Image %d" % number, "--image-property=WINDOWS/ARCH=9")
        return image

    def inject(self, *arguments, exit_code=0):
        code = self.exit_code("inject", self.image, *arguments, "--scratch", self.scratch, "--json")
        self.assertEqual(code, exit_code, self.output + self.errors)
        self.check_nothing_is_mounted()
        return json.loads(self.output)

    def check_nothing_is_mounted(self):
        self.assertEqual(os.listdir(self.scratch), [])
        for record in glob.glob(RECORDS):
            with open(record, encoding="utf-8") as stream:
                self.assertNotIn(self.folder, stream.read())
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("boot.wim")], ["boot.wim"])

    @staticmethod
    def states(document, image=0):
        return [package["state"] for package in document["images"][image]["packages"]]

    def infs_in(self, index):
        return [path for path in self.paths_in(self.image, index) if path.lower().startswith("/windows/inf/oem")]


class Injects(InjectCase):
    def test_the_second_image_of_installation_media(self):
        document = self.inject(self.packages[0], "--index", "2")
        self.assertEqual(document["images"][0]["index"], 2)
        self.assertEqual(self.states(document), ["added"])
        self.assertEqual(document["images"][0]["packages"][0]["published_name"], "oem0.inf")
        self.assertTrue(document["images"][0]["saved"])
        self.verify(self.image)
        self.assertEqual(self.infs_in(1), [])
        self.assertEqual(self.file_in(self.image, PUBLISHED, 2), self.read(
            "packages", os.path.basename(self.packages[0])))


    def test_every_image_and_every_package_of_a_folder(self):
        document = self.inject(self.path("packages"), "--index", "all")
        count = len(self.packages)
        self.assertEqual([image["name"] for image in document["images"]], ["Image 1", "Image 2"])
        for image in (0, 1):
            self.assertEqual(self.states(document, image), ["added"] * count)
        self.assertEqual(document["summary"]["added"], 2 * count)
        self.verify(self.image)
        for index in (1, 2):
            self.assertEqual(len(self.infs_in(index)), count)

    def test_the_first_image_without_a_choice_and_by_name(self):
        self.inject(self.packages[0])
        self.assertEqual((len(self.infs_in(1)), len(self.infs_in(2))), (1, 0))
        self.inject(self.packages[0], "--index", "image 2")
        self.assertEqual(len(self.infs_in(2)), 1)

    def test_what_is_there_already_is_not_added_again(self):
        self.inject(self.packages[0], "--index", "2")
        before = sha256(self.image)
        document = self.inject(self.packages[0], "--index", "2")
        self.assertEqual(self.states(document), ["already there"])
        self.assertFalse(document["images"][0]["saved"])
        self.assertEqual(sha256(self.image), before)

    def test_a_dry_run_says_the_same_and_changes_nothing(self):
        os.remove(self.path("packages/kestrohid.cat"))
        before = sha256(self.image)
        tried = self.inject(self.path("packages"), "--index", "all", "--dry-run")
        self.assertEqual(sha256(self.image), before)
        self.assertFalse(tried["images"][0]["saved"])
        done = self.inject(self.path("packages"), "--index", "all")
        self.assertEqual([self.states(tried, i) for i in (0, 1)], [self.states(done, i) for i in (0, 1)])

    def test_the_wide_form_does_the_same(self):
        self.inject(self.path("packages"), "--wide")
        self.assertEqual(len(self.infs_in(1)), len(self.packages))

    def test_for_people(self):
        code = self.exit_code("inject", self.image, self.packages[0], "--index", "2", "--scratch", self.scratch)
        self.assertEqual(code, 0, self.errors)
        self.assertIn("image 2, Image 2", self.output)
        self.assertRegex(self.output, r"(?m)^  added +\S+%s as oem0\.inf\r?$" % os.path.basename(self.packages[0]))
        self.assertIn("1 image: 1 added, 0 already there, 0 skipped, 0 failed", self.output)


class SkipsAndFailures(InjectCase):
    def reasons(self, document):
        return {os.path.basename(package["inf"].replace("\\", "/")): (package["state"], package["reason"])
                for package in document["images"][0]["packages"]}

    def test_skips_say_why_and_are_no_failure(self):
        others = make_packages(self.path("others"), "unsigned")
        os.remove(self.path("packages/kestrohid.cat"))
        os.remove(self.path("packages/amd64/kestrobus.sys"))
        document = self.inject(self.path("packages"), self.path("others"))
        reasons = self.reasons(document)
        self.assertEqual(reasons["kestrohid.inf"], ("skipped", "unsigned"))
        self.assertEqual(reasons["kestrobus.inf"], ("skipped", "a file of it is missing"))
        for inf in others:
            state, reason = reasons[os.path.basename(inf)]
            self.assertEqual(state, "skipped")
            self.assertRegex(reason, r"^for another architecture \(.*arm.*\)$")
        self.assertEqual(document["summary"]["failed"], 0)
        self.assertEqual(document["summary"]["added"], len(self.packages) - 2)

    def test_packages_for_a_later_windows(self):
        software = self.write("tree1/Windows/System32/config/SOFTWARE", minimal_hive())
        text = self.write("version.reg", "\n".join((
            "Windows Registry Editor Version 5.00", "", "[HKEY\\Microsoft]", "",
            "[HKEY\\Microsoft\\Windows NT]", "", "[HKEY\\Microsoft\\Windows NT\\CurrentVersion]",
            '"CurrentMajorVersionNumber"=dword:0000000a', '"CurrentMinorVersionNumber"=dword:00000000',
            '"CurrentBuildNumber"="15063"', "")))
        subprocess.run(["hivexregedit", "--merge", "--prefix", "HKEY", software, text], check=True, timeout=HANG)
        os.remove(self.image)
        self.capture("tree1", "boot.wim")
        # Its models are for build 16299 and later. An image need not say which architecture it has.
        tried = self.inject(self.path("packages"), "--dry-run")
        self.assertEqual(self.reasons(tried)["kestrodisplay.inf"],
                         ("skipped", "for another architecture or Windows version"))
        self.wimlib("info", self.image, "1", "--image-property=WINDOWS/ARCH=9")
        for document in (self.inject(self.path("packages"), "--dry-run"), self.inject(self.path("packages"))):
            self.assertEqual(self.reasons(document)["kestrodisplay.inf"],
                             ("skipped", "for another Windows version"))
            self.assertEqual(self.states(document).count("added"), len(self.packages) - 1)

    def test_a_broken_package_is_a_failure_and_the_others_go_in(self):
        self.write("packages/broken.inf", "this is no INF\r\n")
        document = self.inject(self.path("packages"), exit_code=1)
        self.assertEqual(self.reasons(document)["broken.inf"][0], "failed")
        self.assertEqual(document["summary"]["added"], len(self.packages))
        self.assertEqual(len(self.infs_in(1)), len(self.packages))

    def test_nothing_that_fits_is_no_success(self):
        make_packages(self.path("arm"), "unsigned")
        before = sha256(self.image)
        document = self.inject(self.path("arm"), exit_code=1)
        self.assertFalse(document["succeeded"])
        self.assertIn("no package fits", self.errors)
        self.assertEqual(sha256(self.image), before)

    def test_an_image_without_windows(self):
        os.makedirs(self.path("empty"))
        self.wimlib("append", self.path("empty"), self.image, "Empty")
        document = self.inject(self.packages[0], "--index", "all", exit_code=1)
        self.assertEqual([bool(image["error"]) for image in document["images"]], [False, False, True])
        self.assertEqual(self.states(document, 2), ["not tried"])
        self.assertEqual(len(self.infs_in(2)), 1)

    def test_a_code_with_many_reasons_is_no_skip(self):
        self.write("packages/kestrohid.cat", b"this is no catalog")
        document = self.inject(self.path("packages"), exit_code=1)
        state, reason = self.reasons(document)["kestrohid.inf"]
        self.assertEqual(state, "failed")
        self.assertIn("0x800F0247", reason)
        self.assertEqual(document["summary"]["added"], len(self.packages) - 1)

    def test_a_result_file_in_the_way_leaves_nothing_mounted(self):
        for number, state in ((2, "not tried"), (3, "added")):  # where the packages and the unmount report to
            with self.subTest(number=number):
                self.write("result%d-%d.ini" % (number, number), "[mine]\r\nkey=value\r\n")
                document = self.inject(self.packages[0], "--result", self.path("result%d.ini" % number), exit_code=1)
                self.assertIn("exists already", document["images"][0]["error"])
                self.assertEqual(self.states(document), [state])

    def test_bad_arguments(self):
        before = sha256(self.image)
        for arguments, named in (([self.path("none.inf")], "none.inf"), ([self.scratch], "no INF file"),
                                 ([self.packages[0], "--index", "3"], "no image 3")):
            self.assertEqual(self.exit_code("inject", self.image, *arguments), 2, self.output + self.errors)
            self.assertIn(named, self.errors)
        self.assertEqual(self.exit_code("inject", self.image, self.packages[0], "--scratch", self.path("none")), 2)
        self.assertEqual(self.exit_code("inject", self.path("none.wim"), self.packages[0]), 1)
        self.assertIn("0x80070002", self.errors)
        self.assertEqual(sha256(self.image), before)


class Interruptions(InjectCase):
    """The request to end comes at a moment that the program itself announces."""

    def start_inject(self):
        return self.start_watched("inject", self.image, self.path("packages"), "--index", "all",
                                  "--scratch", self.scratch)

    def test_interrupted_while_an_image_is_mounted(self):
        for request in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(request=request):
                process = self.start_inject()
                self.wait_until(lambda: any(os.listdir(os.path.join(self.scratch, name))
                                            for name in os.listdir(self.scratch)) or process.poll() is not None)
                code, said = self.interrupt(process, request)
                self.assertEqual(code, 5, said)
                self.assertIn("interrupted", said)
                self.check_nothing_is_mounted()
                self.verify(self.image)

    def test_interrupted_as_soon_as_it_runs(self):
        process = self.start_inject()
        self.assertIn("image 1", process.stdout.readline())
        code, said = self.interrupt(process)
        self.assertEqual(code, 5, said)
        self.check_nothing_is_mounted()
        self.assertEqual(self.infs_in(2), [])
        # Afterwards everything works.
        self.inject(self.path("packages"), "--index", "all")


if __name__ == "__main__":
    unittest.main()
