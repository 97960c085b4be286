"""Servicing an image's drivers through kestro.exe, Kestro.dll and the embedded platform, with the
sample packages; wimlib-imagex and hivexsh look at what came of it."""

import json
import os
import subprocess
import unittest

from driver_package import INFS, make_packages, minimal_hive, payload
from kestro_case import HANG, KestroCase, sha256

CATALOGS = "/Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}/"
REPOSITORY = "/Windows/System32/DriverStore/FileRepository/"
HIVE = "/Windows/System32/config/DRIVERS"


class DriverCase(KestroCase):
    """Each test has a mounted image, and the sample packages beside it."""

    def setUp(self):
        super().setUp()
        self.write("tree/Windows/System32/config/DRIVERS", minimal_hive())
        self.write("tree/Windows/INF/usb.inf", '[Version]\r\nSignature="$Windows NT$"\r\n')
        self.image = self.capture("tree", "image.wim")
        self.packages = make_packages(self.path("packages"))
        os.makedirs(self.path("mount"))
        self.mounted = self.path("mount")
        self.kestro("mount", self.image, self.mounted)

    def driver(self, command, *arguments, **options):
        return self.kestro("driver", command, self.mounted, *arguments, **options)

    def listed(self):
        self.driver("list", "--json")
        return {package["published_name"]: package["original_file"]
                for package in json.loads(self.output)["packages"]}

    def hive(self, *commands):
        """What hivexsh prints of the hive in the image file, below its driver database."""
        hive = self.write("hive", self.file_in(self.image, HIVE))
        script = "cd \\DriverDatabase\n" + "\n".join(commands) + "\n"
        done = subprocess.run(["hivexsh", hive], input=script, text=True, timeout=HANG,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout.splitlines()

    def repository_folder(self, inf):
        folders = {path.split("/")[5] for path in self.paths_in(self.image)
                   if path.startswith(REPOSITORY + inf + "_amd64_")}
        self.assertEqual(len(folders), 1, folders)
        return REPOSITORY + folders.pop()

    def check_in_image(self, published, inf):
        """Every file of a package is in the image, and the registry knows the package."""
        source = self.path("packages", inf)
        folder = self.repository_folder(inf)
        original = self.read("packages", inf)
        self.assertEqual(self.file_in(self.image, "/Windows/INF/" + published), original)
        self.assertEqual(self.file_in(self.image, folder + "/" + inf), original)
        for path in payload(source):
            self.assertEqual(self.file_in(self.image, folder + "/" + path),
                             self.read("packages", path))
        self.assertIn(CATALOGS + published.replace(".inf", ".cat"), self.paths_in(self.image))
        self.assertIn(published, self.hive("cd DriverInfFiles", "ls"))
        self.assertIn('"Active"="%s"' % os.path.basename(folder),
                      self.hive("cd DriverInfFiles\\" + published, "lsval"))
        self.assertIn('"@"="%s"' % published,
                      self.hive("cd DriverPackages\\" + os.path.basename(folder), "lsval"))


class RealPackages(DriverCase):
    def test_every_package_is_added_listed_described_and_saved(self):
        report = self.driver("add", self.path("packages"))
        self.assertEqual(report["DISM_ADDDRIVER_ERRORS"], {})
        listed = self.listed()
        self.assertEqual(list(listed), ["oem%d.inf" % i for i in range(len(INFS))])
        for inf, original in zip(INFS, listed.values()):
            self.assertTrue(original.lower().endswith("\\" + inf), original)
        for published in listed:
            self.driver("info", published)
        for inf in self.packages:
            self.driver("info", inf)

        self.driver("remove", "oem1.inf")
        self.driver("remove", "OEM4.INF")
        self.assertEqual(list(self.listed()), ["oem0.inf", "oem2.inf", "oem3.inf", "oem5.inf"])
        self.kestro("unmount", self.mounted, "--commit")

        self.verify(self.image)
        for index in (0, 2, 3, 5):
            self.check_in_image("oem%d.inf" % index, INFS[index])
        inside = "\n".join(self.paths_in(self.image)).lower()
        for gone in ("kestrodisplay", "kestroport", "oem1.inf", "oem4.inf", "oem1.cat", "oem4.cat",
                     "kestro-change"):
            self.assertNotIn(gone, inside)
        self.assertEqual(self.hive("cd DriverInfFiles", "ls"),
                         ["oem0.inf", "oem2.inf", "oem3.inf", "oem5.inf"])
        self.assertEqual(len(self.hive("cd DriverPackages", "ls")), 4)

    def test_the_session_saves_without_unmounting(self):
        self.driver("add", self.packages[0])
        self.check_in_image("oem0.inf", INFS[0])
        self.kestro("unmount", self.mounted, "--discard")
        self.check_in_image("oem0.inf", INFS[0])

    def test_the_wide_form_does_the_same(self):
        self.driver("add", *self.packages, "--wide")
        self.driver("list", "--wide")
        self.assertEqual(len(self.listed()), len(INFS))
        self.driver("info", "oem0.inf", "--wide")
        self.driver("remove", "oem0.inf", "--wide")
        self.assertEqual(len(self.listed()), len(INFS) - 1)

    def test_the_same_package_again_is_no_duplicate(self):
        self.driver("add", self.packages[0])
        before = sha256(self.image)
        self.driver("add", self.packages[0])
        self.assertEqual(list(self.listed()), ["oem0.inf"])
        self.assertEqual(sha256(self.image), before)

    def test_an_image_that_is_only_a_directory(self):
        self.write("offline/Windows/System32/config/DRIVERS", minimal_hive())
        os.makedirs(self.path("offline/Windows/INF"))
        self.kestro("driver", "add", self.path("offline"), self.packages[0])
        self.assertEqual(self.read("offline/Windows/INF/oem0.inf"), self.read("packages", INFS[0]))

    def test_more_packages_than_a_list_holds(self):
        infs = [self.path("many", "%02d" % i, INFS[3]) for i in range(19)]
        for index, inf in enumerate(infs):
            os.makedirs(os.path.dirname(inf))
            content = self.read("packages", INFS[3]) + b"; number %d\r\n" % index
            self.write(os.path.relpath(inf, self.folder), content)
        self.driver("add", self.path("many"), "--json", exit_code=1)
        # A changed INF does not fit its catalog: every one of them is refused, and told once.
        packages = json.loads(self.output)["packages"]
        self.assertEqual(len(packages), 19)
        self.assertEqual([package["added"] for package in packages], [False] * 19)
        self.assertEqual(self.listed(), {})


class Details(DriverCase):
    """What the servicing API is asked itself for."""

    def document(self, *arguments, exit_code=0):
        self.assertEqual(self.exit_code("driver", *arguments, "--json"), exit_code, self.output + self.errors)
        return json.loads(self.output)

    def test_a_long_list_of_everything(self):
        self.driver("add", *self.packages)
        listed = self.document("list", self.mounted, "--all", "--long")["packages"]
        names = ["oem%d.inf" % i for i in range(len(INFS))]
        self.assertEqual([package["published_name"] for package in listed], [*names, "usb.inf"])
        self.assertEqual([package["in_box"] for package in listed], [False] * len(names) + [True])
        hid = next(package for package in listed if package["original_file"].endswith("\\kestrohid.inf"))
        for key, value in {"class": "HIDClass", "provider": "Kestro Samples", "date": "2016-04-21",
                           "version": "1.3.0.0", "signature": "signed", "boot_critical": True,
                           "class_guid": "{745a17a0-74d3-11d0-b6fe-00a0c90f57da}",
                           "catalog": "kestrohid.cat"}.items():
            self.assertEqual(hid[key], value, key)
        self.assertEqual(self.exit_code("driver", "list", self.mounted, "--long"), 0, self.errors)
        lines = self.output.splitlines()
        self.assertRegex(lines[0], "^NAME +CLASS +PROVIDER +DATE +VERSION +BOOT +SIGNATURE +FILE$")
        self.assertEqual(len(lines), len(names) + 2)
        column = lines[0].index("PROVIDER")
        for line in lines[1:-1]:
            self.assertEqual((line[column - 1], line[column] != " "), (" ", True), line)

    def test_numbers_are_sorted_by_value(self):
        for number in (10, 9, 2):
            self.write("mount/Windows/INF/oem%d.inf" % number, self.read("packages/kestrohid.inf"))
        listed = self.document("list", self.mounted, "--long")["packages"]
        self.assertEqual([package["published_name"] for package in listed],
                         ["oem2.inf", "oem9.inf", "oem10.inf"])

    def test_a_package_comes_out_as_it_went_in(self):
        self.driver("add", *self.packages)
        exported = self.document("export", self.mounted, "all", self.path("out"))["packages"]
        self.assertEqual([package["exported"] for package in exported], [True] * len(INFS))
        for inf in INFS:
            folder = os.path.join("out", inf[:-len(".inf")])
            self.assertEqual(self.read(folder, inf), self.read("packages", inf))
            for path in payload(self.path("packages", inf)):
                self.assertEqual(self.read(folder, path), self.read("packages", path))
            self.assertEqual([name for name in os.listdir(self.path("out")) if "unfinished" in name], [])
        # What came out goes in again.
        self.write("offline/Windows/System32/config/DRIVERS", minimal_hive())
        os.makedirs(self.path("offline/Windows/INF"))
        self.kestro("driver", "add", self.path("offline"), self.path("out"))
        self.assertEqual(len(self.document("list", self.path("offline"))["packages"]), len(INFS))

    def test_an_export_overwrites_nothing(self):
        self.driver("add", self.packages[0])
        self.write("out/%s/mine.txt" % INFS[0][:-len(".inf")], "mine")
        self.assertEqual(self.exit_code("driver", "export", self.mounted, "oem0.inf", self.path("out")), 2)
        self.assertIn("exists already", self.errors)
        self.assertEqual(os.listdir(self.path("out", INFS[0][:-len(".inf")])), ["mine.txt"])
        for name in ("oem7.inf", "usb.inf"):
            self.assertEqual(self.exit_code("driver", "export", self.mounted, name, self.path("other")), 2)
            self.assertFalse(os.path.exists(self.path("other")))
        self.assertEqual(self.document("export", self.path("none"), "all", self.path("other"), exit_code=1)
                         ["failure"]["function"], "DismOpenSession")


class Refusals(DriverCase):
    def refused(self, *arguments):
        before = sha256(self.image)
        log = self.driver("add", *arguments, exit_code=1).log()
        self.assertEqual(self.listed(), {})
        self.assertEqual(sha256(self.image), before)
        return [int(line) & 0xFFFFFFFF for line in log if line.lstrip("-").isdigit()]

    def test_another_architecture(self):
        infs = make_packages(self.path("arm"), "unsigned")
        for inf in infs:
            self.assertEqual(self.refused(inf), [0x80070032])
        self.assertEqual(set(self.refused(*infs)), {0x80070032})

    def test_unsigned(self):
        os.remove(self.path("packages/kestroserial.cat"))
        self.assertEqual(self.refused(self.packages[0]), [0x800F022F])

    def test_a_changed_inf(self):
        self.write("packages/kestrobus.inf", self.read("packages/kestrobus.inf") + b"; changed\r\n")
        self.assertEqual(self.refused(self.packages[0]), [0x800F024B])

    def test_a_changed_driver(self):
        driver = self.read("packages/amd64/kestrobus.sys")
        self.write("packages/amd64/kestrobus.sys", driver[:-1] + b"!")
        log = self.path("platform.log")
        self.assertEqual(self.refused(self.packages[0], "--log", log), [0x800F024B])
        self.assertIn(b"does not list amd64/kestrobus.sys as it is", self.read(log))

    def test_a_changed_catalog(self):
        catalog = self.read("packages/kestroserial.cat")
        self.write("packages/kestroserial.cat", catalog.replace(b"\xff", b"\xfe", 1))
        self.assertIn(self.refused(self.packages[0]), ([0x80096010], [0x800F0247]))

    def test_a_file_of_the_package_is_missing(self):
        os.remove(self.path("packages/amd64/kestrobus.sys"))
        self.assertEqual(self.refused(self.packages[0]), [0x80070002])

    def test_what_is_no_inf(self):
        self.write("packages/text.inf", "this is no INF\r\n")
        codes = self.refused(self.path("packages/text.inf"))
        self.assertEqual([code & 0xFFFF0000 for code in codes], [0x800F0000])

    def test_a_list_goes_on_after_a_package_that_fails(self):
        os.remove(self.path("packages/amd64/kestrobus.sys"))
        report = self.driver("add", *self.packages, exit_code=1)
        self.assertEqual(len(report["DISM_ADDDRIVER_ERRORS"]), 1)
        self.assertEqual(set(report["DISM_ADDDRIVER"].values()), {"OK"})
        self.assertEqual(len(self.listed()), len(INFS) - 1)

    def test_removing_what_is_not_there(self):
        for name, code in (("oem0.inf", 0x80070002), ("usb.inf", 0x80070032)):
            log = self.driver("remove", name, exit_code=1).log()
            self.assertEqual(int(log[-1]) & 0xFFFFFFFF, code)
        self.assertEqual(self.read("mount/Windows/INF/usb.inf")[:9], b"[Version]")

    def test_describing_what_is_not_there(self):
        self.assertEqual(self.exit_code("driver", "info", self.mounted, "oem0.inf"), 1)
        self.assertIn("0x80070002", self.errors)

    def test_an_image_without_windows(self):
        os.makedirs(self.path("empty"))
        log = self.kestro("driver", "add", self.path("empty"), self.packages[0], exit_code=1).log()
        self.assertIn(0x80070003, [int(line) & 0xFFFFFFFF for line in log
                                   if line.lstrip("-").isdigit()])


class Interruptions(DriverCase):
    def test_packages_are_added_as_a_whole_and_the_rest_is_not_tried(self):
        for number in range(2, 5):
            make_packages(self.path("packages%d" % number))
        # Four times the same packages: three calls of the library.
        folders = [self.path("packages"), *[self.path("packages%d" % number) for number in range(2, 5)]]
        process = self.start_watched("driver", "add", self.mounted, *folders)
        self.assertIn("Adding 8 packages", process.stderr.readline())
        code, said = self.interrupt(process)
        self.assertEqual(code, 5, said)
        self.assertRegex(said, "interrupted; (8|16) packages were not tried")
        self.assertEqual(len(self.listed()), len(INFS))
        self.kestro("unmount", self.mounted, "--discard")
        for index, inf in enumerate(INFS):
            self.check_in_image("oem%d.inf" % index, inf)


if __name__ == "__main__":
    unittest.main()
