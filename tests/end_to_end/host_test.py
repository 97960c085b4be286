"""kestro.exe as people and scripts use it: help, errors and their hints, lists of operations, and the
ResultFiles of other hosts."""

import json
import os
import signal
import subprocess
import unittest

from kestro_case import HANG, KestroCase

NARROW = ("[DISM_INITIALIZE]\r\nResult=OK\r\n[Status]\r\nLastWrite=20210305140712\r\n"
          "[Log]\r\nRighe=3\r\n2 - 05-03-2021 14:07:09=Mounting image...\r\n"
          "3 - 05-03-2021 14:07:12=Image mounted successfully.\r\n[DISM_MOUNT]\r\nResult=OK\r\n")
FAILED_WIDE = ("[DISM_INITIALIZE]\r\nOK=OK\r\n[Log]\r\nRighe=3\r\n"
               "2 - 05-03-2021 14:07:09=DismOpenSession Failed. Following error code.\r\n"
               "3 - 05-03-2021 14:07:09=-2147024891\r\n"
               "[DISM_OPENSESSION]\r\nErrorCode=5\r\nERR=ERR\r\n")


class Usage(KestroCase):
    def test_help(self):
        self.assertEqual(self.exit_code("--help"), 0)
        for command in ("mount", "unmount", "driver", "disk", "inf", "selftest", "result", "run", "help"):
            self.assertRegex(self.output, r"(?m)^  %s  " % command)
        self.assertIn("Exit codes: 0 success", self.output)
        of_the_program = self.output
        self.assertEqual(self.exit_code("help"), 0)
        self.assertEqual(self.output, of_the_program)
        for words in (["mount"], ["driver", "add"], ["disk", "clean"], ["result"], ["run"]):
            self.assertEqual(self.exit_code("help", *words), 0)
            self.assertIn("Example: kestro " + " ".join(words), self.output)

    def test_version(self):
        self.assertEqual(self.exit_code("--version"), 0)
        self.assertRegex(self.output, r"^kestro \d+\.\d+\.\d+\n$")

    def test_bad_arguments_are_named_on_standard_error(self):
        for words, named in (([], "subcommand"), (["mont"], "no command mont"), (["driver", "ad"], "no command ad"),
                             (["mount", "a.wim"], "DIR"),
                             (["unmount", "dir"], "discard"), (["mount", "", "dir"], "empty"),
                             (["mount", "a.wim", "dir", "--index", ""], "empty"),
                             (["mount", "a.wim", "dir", "--index="], "empty"), (["help", "mont"], "mont"),
                             (["unmount", "dir", "--commit", "--discard"], "commit")):
            with self.subTest(words=words):
                self.assertEqual(self.exit_code(*words), 2, self.output + self.errors)
                self.assertEqual(self.output, "")
                self.assertIn(named, self.errors)

    def test_a_library_that_is_not_there(self):
        self.assertEqual(self.exit_code("selftest", "--library", self.path("Kestro.dll")), 4)
        self.assertIn("Kestro.dll", self.errors)

    def test_a_failure_has_code_name_message_and_hint(self):
        image = self.write("image.wim", "no image")
        self.write("mount/in the way.txt", "")
        self.assertEqual(self.exit_code("mount", image, self.path("mount")), 1)
        for part in ("DismMountImage", "0xC1420114", "the mount directory is not empty",
                     "Use an empty directory."):
            self.assertIn(part, self.errors)
        self.assertEqual(self.exit_code("mount", self.path("none.wim"), self.path("empty")), 1)
        self.assertRegex(self.errors, r"0x[0-9A-F]{8}")


class Results(KestroCase):
    def show(self, content, exit_code):
        self.assertEqual(self.exit_code("result", self.write("result.ini", content), "--json"),
                         exit_code, self.errors)
        return json.loads(self.output)

    def test_a_narrow_file(self):
        shown = self.show(NARROW, 0)
        self.assertEqual([(step["step"], step["succeeded"]) for step in shown["steps"]],
                         [("DISM_INITIALIZE", True), ("DISM_MOUNT", True)])
        self.assertEqual([line["text"] for line in shown["log"]],
                         ["Mounting image...", "Image mounted successfully."])
        self.assertTrue(shown["succeeded"])

    def test_a_wide_file(self):
        shown = self.show(FAILED_WIDE, 1)
        self.assertEqual([(step["step"], step["succeeded"]) for step in shown["steps"]],
                         [("DISM_INITIALIZE", True), ("DISM_OPENSESSION", False)])
        self.assertEqual([(failure["function"], failure["hresult"]) for failure in shown["failures"]],
                         [("DismOpenSession", "0x80070005")])

    def test_for_people(self):
        self.assertEqual(self.exit_code("result", self.write("result.ini", FAILED_WIDE)), 1)
        self.assertIn("DISM_OPENSESSION", self.output)
        self.assertIn("E_ACCESSDENIED", self.errors)

    def test_what_is_no_result_file(self):
        for path in (self.path("none.ini"), self.write("other.ini", "[other]\r\nkey=value\r\n")):
            self.assertEqual(self.exit_code("result", path), 2)
            self.assertIn(".ini", self.errors)

    def test_following_a_file_while_another_host_writes_it(self):
        path = self.write("result.ini", "[DISM_INITIALIZE]\r\nResult=OK\r\n")
        watching = subprocess.Popen(self.command("result", path, "--watch", "--idle", "2"),
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                                    stderr=subprocess.DEVNULL)
        self.addCleanup(watching.stdout.close)
        self.addCleanup(watching.kill)
        seen = watching.stdout.readline()
        while "DISM_INITIALIZE" not in seen:
            self.assertNotEqual(seen, "", "the watching ended early")
            seen = watching.stdout.readline()
        # Only now come the lines: it is the following that shows them.
        self.write("result.ini", NARROW)
        rest, _ = watching.communicate(timeout=HANG)
        self.assertEqual(watching.returncode, 0)
        self.assertIn("Mounting image...", rest)
        self.assertIn("DISM_MOUNT", rest)
        self.assertNotIn("DISM_INITIALIZE", rest)

    def test_following_that_the_user_ends_still_gives_its_document(self):
        def was_read(path):
            return os.stat(path).st_atime_ns != 0

        path, other = self.write("result.ini", NARROW), self.write("other.ini", NARROW)
        for file in (path, other):
            os.utime(file, ns=(0, os.stat(file).st_mtime_ns))
        with open(other, encoding="utf-8") as stream:
            stream.read()
        if not was_read(other):
            self.skipTest("the file system does not tell when a file is read")
        watching = self.start_watched("result", path, "--watch", "--json")
        self.wait_until(lambda: was_read(path))
        watching.send_signal(signal.SIGINT)
        document, _ = watching.communicate(timeout=HANG)
        self.assertEqual(watching.returncode, 0)
        self.assertEqual(json.loads(document)["command"], "result")


class Lists(KestroCase):
    def run_list(self, document, exit_code, *options):
        text = document if isinstance(document, str) else json.dumps(document)
        code = self.exit_code("run", self.write("list.json", text), *options)
        self.assertEqual(code, exit_code, self.output + self.errors)

    def operations(self):
        good = self.write("good.ini", NARROW)
        bad = self.write("bad.ini", FAILED_WIDE)
        return [["result", good], ["result", bad], ["result", good]]

    def test_stops_at_a_failure(self):
        self.run_list({"operations": self.operations()}, 1, "--json")
        shown = json.loads(self.output)
        self.assertEqual([one["exit_code"] for one in shown["operations"]], [0, 1])
        self.assertEqual((shown["succeeded"], shown["not_run"]), (False, 1))

    def test_goes_on_when_told(self):
        self.run_list({"operations": self.operations(), "on_failure": "continue"}, 1)
        self.assertIn("2 of 3 operations succeeded, 1 failed", self.output)
        self.assertIn("[3/3] result", self.output + self.errors)

    def test_a_library_that_is_not_there_fails_one_operation(self):
        good = self.operations()[0]
        self.run_list({"operations": [good, ["selftest", "--library", self.path("none.dll")], good],
                       "on_failure": "continue"}, 1, "--json")
        self.assertEqual([one["exit_code"] for one in json.loads(self.output)["operations"]], [0, 4, 0])
        self.assertIn("none.dll", self.errors)

    def test_a_whole_servicing(self):
        self.write("tree/file.txt", "content")
        image = self.capture("tree", "image.wim")
        mount = self.path("mount")
        os.mkdir(mount)
        self.run_list({"operations": [["mount", image, mount], ["unmount", mount, "--discard"]]}, 0)
        self.assertIn("2 of 2 operations succeeded", self.output)

    def test_nothing_runs_of_a_list_with_a_mistake(self):
        good = self.write("good.ini", NARROW)
        for document, named in (
                ("{", "JSON"), ({"operations": "mount"}, "operations"),
                ({"operations": [["result", good], ["mont"]]}, "operation 2"),
                ({"operations": [["result", good], ["run", "x"]]}, "run is no operation"),
                ({"operations": [["--wide", "run", "x"]]}, "run is no operation"),
                ({"operations": [], "on_failure": "retry"}, "on_failure"),
                ({"operations": [], "onfailure": "stop"}, "onfailure")):
            with self.subTest(document=document):
                self.run_list(document, 2)
                self.assertIn(named, self.errors)
                self.assertNotIn("Mounting image", self.output)
        self.assertEqual(self.exit_code("run", self.path("none.json")), 2)


if __name__ == "__main__":
    unittest.main()
