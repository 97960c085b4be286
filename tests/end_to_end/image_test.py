"""Image files with several images: listing them, mounting one by number or name, and what is mounted."""

import json
import os
import pty
import re
import shutil
import unittest

from kestro_case import RUN, KestroCase, sha256

ERROR_FILE_NOT_FOUND = "0x80070002"
RECORDS = os.path.join(os.environ["WINEPREFIX"], "drive_c/ProgramData/Kestro/Mounts")


class ImageCase(KestroCase):
    """boot.wim as installation media have it: Windows PE, and Setup, from which the machine boots."""

    def setUp(self):
        super().setUp()
        for number, name in ((1, "Microsoft Windows PE (x64)"), (2, "Microsoft Windows Setup (x64)")):
            self.write("tree%d/Windows/only%d.txt" % (number, number), "image %d\r\n" % number)
            os.makedirs(self.path("tree%d/Windows/INF" % number))
            self.add_image("tree%d" % number, name, "Description %d" % number,
                           *(["--boot"] if number == 2 else []))
        self.image = self.path("boot.wim")
        self.mounted = self.path("mount")
        os.makedirs(self.mounted)
        self.addCleanup(self.unmount_what_is_left)

    def add_image(self, tree, name, description, *options):
        verb = "append" if os.path.exists(self.path("boot.wim")) else "capture"
        properties = {"WINDOWS/ARCH": "9", "WINDOWS/EDITIONID": "WindowsPE", "WINDOWS/PRODUCTNAME": "Windows",
                      "WINDOWS/INSTALLATIONTYPE": "WindowsPE", "WINDOWS/PRODUCTTYPE": "WinNT",
                      "WINDOWS/SYSTEMROOT": "WINDOWS", "WINDOWS/LANGUAGES/LANGUAGE[1]": "de-DE",
                      "WINDOWS/LANGUAGES/LANGUAGE[2]": "en-US", "WINDOWS/LANGUAGES/DEFAULT": "en-US",
                      "WINDOWS/VERSION/MAJOR": "10", "WINDOWS/VERSION/MINOR": "0",
                      "WINDOWS/VERSION/BUILD": "19041", "WINDOWS/VERSION/SPBUILD": "1288",
                      "WINDOWS/VERSION/SPLEVEL": "0"}
        self.wimlib(verb, self.path(tree), self.path("boot.wim"), name, description,
                    *["--image-property=%s=%s" % item for item in properties.items()], *options)

    def unmount_what_is_left(self):
        """No test leaves a mount behind, whatever became of it."""
        self.exit_code("unmount", self.mounted, "--discard")

    def document(self, *arguments, exit_code=0):
        self.assertEqual(self.exit_code(*arguments, "--json"), exit_code, self.output + self.errors)
        return json.loads(self.output)


class Lists(ImageCase):
    def test_everything_that_the_file_tells(self):
        images = self.document("image", "list", self.image)["images"]
        self.assertEqual([image["index"] for image in images], [1, 2])
        setup = images[1]
        self.assertEqual(setup["size"], len("image 2\r\n"))
        for key, value in {"name": "Microsoft Windows Setup (x64)", "description": "Description 2",
                           "architecture": "x64", "version": "10.0.19041.1288", "edition": "WindowsPE",
                           "product_name": "Windows", "installation_type": "WindowsPE",
                           "product_type": "WinNT", "system_root": "WINDOWS", "service_pack": 0,
                           "languages": ["de-DE", "en-US"], "default_language": "en-US",
                           "bootable": "yes", "files": 1, "directories": 3}.items():
            self.assertEqual(setup[key], value, key)
        self.assertEqual(images[0]["bootable"], "no")
        self.assertRegex(setup["created"], r"^20\d\d-\d\d-\d\d \d\d:\d\d:\d\d$")

    def test_for_people(self):
        self.assertEqual(self.exit_code("image", "list", self.image), 0, self.errors)
        self.assertRegex(self.output, r"(?m)^INDEX +FOR +VERSION +EDITION +SIZE +NAME +DESCRIPTION\r?$")
        self.assertRegex(self.output, r"(?m)^2 +x64 +10\.0\.19041\.1288 +WindowsPE +9 B +Microsoft Windows Setup")

    def test_an_image_that_tells_nothing(self):
        self.capture("tree1", "plain.wim")
        image = self.document("image", "list", self.path("plain.wim"))["images"][0]
        self.assertEqual((image["name"], image["architecture"], image["version"], image["languages"]),
                         ("Test", "-", "0.0.0.0", []))

    def test_what_is_no_image_file(self):
        for path, code in ((self.path("none.wim"), ERROR_FILE_NOT_FOUND),
                           (self.write("text.wim", b"no image" * 100), "0x8007000B")):
            failure = self.document("image", "list", path, exit_code=1)["failure"]
            self.assertEqual((failure["function"], failure["hresult"]), ("DismGetImageInfo", code))


class Mounts(ImageCase):
    def mount(self, *options, exit_code=0):
        return self.document("mount", self.image, self.mounted, *options, exit_code=exit_code)

    def unmount(self, how):
        self.assertEqual(self.exit_code("unmount", self.mounted, how), 0, self.errors)
        self.assertEqual(os.listdir(self.mounted), [])

    def test_by_number_and_by_name(self):
        for choice, number in (("1", 1), ("2", 2), ("microsoft windows setup (X64)", 2),
                               ("Microsoft Windows PE (x64)", 1)):
            with self.subTest(choice=choice):
                mounted = self.mount("--index", choice)
                self.assertEqual((mounted["index"], mounted["read_only"]), (number, False))
                self.assertEqual(os.listdir(self.path("mount/Windows")).count("only%d.txt" % number), 1)
                self.unmount("--discard")

    def test_changes_of_the_second_image_are_saved(self):
        self.mount("--index", "2")
        self.write("mount/Windows/new.txt", "new")
        self.unmount("--commit")
        self.assertEqual(self.file_in(self.image, "/Windows/new.txt", 2), b"new")
        self.assertEqual(self.paths_in(self.image, 1),
                         ["/Windows", "/Windows/INF", "/Windows/only1.txt"])

    def test_read_only(self):
        before = sha256(self.image)
        self.assertTrue(self.mount("--read-only")["read_only"])
        self.assertEqual(self.exit_code("unmount", self.mounted, "--commit"), 1)
        self.assertIn("0xC142010C", self.errors)
        self.unmount("--discard")
        self.assertEqual(sha256(self.image), before)

    def test_what_the_file_does_not_hold(self):
        for choice in ("0", "3", "99999999999999", "Home"):
            self.assertEqual(self.exit_code("mount", self.image, self.mounted, "--index", choice), 2)
            self.assertIn("1 (Microsoft Windows PE (x64)), 2 (Microsoft Windows Setup (x64))", self.errors)
        self.add_image("tree2", "Home", "")
        self.add_image("tree2", "HOME", "")
        self.assertEqual(self.exit_code("mount", self.image, self.mounted, "--index", "home"), 2)
        self.assertIn("several", self.errors)
        self.assertEqual(self.exit_code("mount", self.image, self.mounted, "--index", "all"), 2)

    def test_a_failed_mount_names_its_code(self):
        self.write("mount/in the way.txt", "here first")
        failure = self.mount("--index", "2", exit_code=1)["failure"]
        self.assertEqual((failure["function"], failure["hresult"]), ("DismMountImage", "0xC1420114"))
        self.assertEqual(self.read("mount/in the way.txt"), b"here first")
        shutil.rmtree(self.mounted)
        os.makedirs(self.mounted)

    def test_what_is_mounted(self):
        self.mount("--index", "2", "--read-only")
        mine = [mount for mount in self.document("mounts")["mounts"]
                if self.folder.replace("/", "\\") in mount["directory"]]
        self.assertEqual([(mount["index"], mount["read_only"], mount["state"]) for mount in mine],
                         [(2, True, "ok")])
        self.assertTrue(mine[0]["image"].endswith("\\boot.wim"))
        # What is whole stays.
        self.assertIn(mine[0], self.document("mounts", "--clean")["mounts"])
        self.assertEqual(self.exit_code("mounts"), 0)
        self.assertRegex(self.output, r"(?m)^ok +read-only +2 +\S+")
        self.unmount("--discard")
        self.assertNotIn(mine[0], self.document("mounts")["mounts"])

    def test_a_mount_that_was_never_finished_is_cleared_away(self):
        self.mount("--index", "2")
        for folder in os.listdir(RECORDS):
            record = os.path.join(RECORDS, folder, "record.json")
            if not os.path.isfile(record):
                continue
            with open(record, encoding="utf-8") as stream:
                text = stream.read()
            if self.folder in text:
                with open(record, "w", encoding="utf-8") as stream:
                    stream.write(text.replace('"mounted"', '"mounting"'))
        states = {mount["directory"]: mount["state"] for mount in self.document("mounts")["mounts"]}
        self.assertIn("invalid", states.values())
        self.assertGreaterEqual(self.document("mounts", "--clean")["cleared"], 1)
        self.assertEqual(os.listdir(self.mounted), [])
        self.mount("--index", "2")


    def test_a_record_that_cannot_be_read_is_cleared_away(self):
        self.mount("--index", "2")
        damaged = os.path.join(RECORDS, "damaged-by-a-test")
        os.makedirs(damaged)
        self.addCleanup(shutil.rmtree, damaged, ignore_errors=True)
        with open(os.path.join(damaged, "record.json"), "w", encoding="utf-8") as stream:
            stream.write('{"directory": ')
        # Other mounts are not kept from anything.
        mounted = self.document("mounts")["mounts"]
        self.assertIn({"directory": "", "image": "", "index": 0, "read_only": False, "state": "invalid"},
                      mounted)
        self.unmount("--discard")
        self.mount("--index", "1")
        self.assertTrue(os.path.exists(damaged))
        after = self.document("mounts", "--clean")
        self.assertFalse(os.path.exists(damaged))
        self.assertEqual(after["cleared"], 1)
        self.assertEqual([mount["directory"] for mount in after["mounts"]],
                         [mount["directory"] for mount in mounted if mount["directory"]])
        self.unmount("--discard")


class LargeImages(ImageCase):
    """Those that keep the library busy for a while."""

    def setUp(self):
        super().setUp()
        self.write("large/Windows/large.bin", os.urandom(200 << 20))
        self.image = self.capture("large", "large.wim", "--compress=none")
        self.wimlib("append", self.path("large"), self.image, "Second")
        os.remove(self.path("large/Windows/large.bin"))

    def on_a_terminal(self, *arguments):
        process, terminal = pty.fork()
        if process == 0:
            os.environ["KESTRO_MOUNT"] = "extract"
            os.execv(RUN, self.command(*arguments))
        shown = b""
        with open(terminal, "rb", buffering=0) as stream:
            try:
                while piece := stream.read(4096):
                    shown += piece
            except OSError:
                pass  # the other side is closed
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), 0, shown)
        return shown.decode(errors="replace")

    def test_a_terminal_shows_time_and_percent(self):
        shown = self.on_a_terminal("mount", self.image, self.mounted, "--index", "2")
        percents = [int(number) for number in re.findall(r" \d+\.\d s +(\d+) %", shown)]
        self.assertGreater(len(percents), 0, shown)
        self.assertEqual(percents, sorted(percents))
        self.exit_code("unmount", self.mounted, "--discard")
        # The library's own mount tells nobody how far it is.
        shown = self.on_a_terminal("mount", self.image, self.mounted)
        self.assertRegex(shown, r" \d+\.\d s\x1b")
        self.assertNotIn("%", shown)

    def test_a_mount_is_taken_back(self):
        before = sha256(self.image)
        process = self.start_watched("mount", self.image, self.mounted, KESTRO_MOUNT="extract")
        self.assertIn("Mounting", process.stderr.readline())
        code, said = self.interrupt(process)
        self.assertEqual(code, 5, said)
        self.assertIn("interrupted; nothing is mounted", said)
        self.assertEqual(os.listdir(self.mounted), [])
        self.assertNotIn(self.folder, str(self.document("mounts")["mounts"]).replace("\\\\", "/"))
        self.assertEqual(sha256(self.image), before)

    def test_a_list_of_operations_ends_after_the_one_that_runs(self):
        operations = self.write("list.json", json.dumps({"operations": [
            ["mount", self.image, self.mounted], ["unmount", self.mounted, "--discard"]]}))
        process = self.start_watched("run", operations, "--json", KESTRO_MOUNT="extract")
        self.wait_until(lambda: os.listdir(self.mounted) or process.poll() is not None)
        code, said = self.interrupt(process)
        self.assertEqual(code, 5, said)
        document = json.loads(said[:said.rindex("}") + 1])
        self.assertEqual(([one["exit_code"] for one in document["operations"]], document["not_run"]), ([5], 1))
        self.assertEqual(os.listdir(self.mounted), [])


class Unwritable(ImageCase):
    def test_nothing_is_done_when_the_result_file_cannot_be_written(self):
        for command in (["mount", self.path("missing.wim"), self.mounted],
                        ["mount", self.image, self.mounted], ["mount", self.image, self.mounted, "--wide"]):
            # A folder in which not even root can write.
            code = self.exit_code(*command, "--result", "Z:\\proc\\sys\\result.ini")
            self.assertEqual(code, 2, self.output + self.errors)
            self.assertIn("cannot be written", self.errors)
            self.assertNotIn("Mounted", self.output)
            self.assertEqual(os.listdir(self.mounted), [])

    def test_a_path_that_the_code_page_cannot_hold(self):
        result = self.path("\u4e2d\u6587.ini")
        self.assertEqual(self.exit_code("mount", self.image, self.mounted, "--result", result), 2)
        self.assertIn("ANSI code page", self.errors)
        self.assertEqual(os.listdir(self.mounted), [])
        self.assertEqual(self.exit_code("mount", self.image, self.mounted, "--result", result, "--wide"), 0,
                         self.errors)


if __name__ == "__main__":
    unittest.main()
