"""Mounting and unmounting real images through kestro.exe, Kestro.dll and the embedded platform."""

import os
import random
import subprocess
import time
import unittest

from kestro_case import KestroCase, sha256


def hresult(log):
    """The code that the log gives below the line of a failed function."""
    return int(log[-1]) & 0xFFFFFFFF


class MountCase(KestroCase):
    def setUp(self):
        super().setUp()
        self.write("tree/Windows/System32/hosts", "127.0.0.1 localhost\r\n")
        self.write("tree/Windows/System32/kernel.bin", random.Random(1).randbytes(200_000))
        self.write("tree/Windows/notes.txt", "notes\r\n" * 1000)
        os.makedirs(self.path("tree/Windows/Empty"))
        os.makedirs(self.path("mount"))
        self.mount_folder = self.path("mount")

    def mount(self, image, **options):
        return self.kestro("mount", image, self.mount_folder, **options)

    def unmount(self, how="--discard", **options):
        return self.kestro("unmount", self.mount_folder, how, **options)


class RoundTrips(MountCase):
    def change_tree(self):
        self.write("mount/Windows/System32/hosts", "10.0.0.1 changed\r\n")
        self.write("mount/Windows/new folder/new.txt", "new\r\n")
        os.remove(self.path("mount/Windows/notes.txt"))

    def check_changed(self, image):
        self.verify(image)
        self.assertEqual(self.paths_in(image), [
            "/Windows", "/Windows/Empty", "/Windows/System32", "/Windows/System32/hosts",
            "/Windows/System32/kernel.bin", "/Windows/new folder", "/Windows/new folder/new.txt"])
        self.assertEqual(self.file_in(image, "/Windows/System32/hosts"), b"10.0.0.1 changed\r\n")
        self.assertEqual(self.file_in(image, "/Windows/new folder/new.txt"), b"new\r\n")
        self.assertEqual(self.file_in(image, "/Windows/System32/kernel.bin"),
                         self.read("tree/Windows/System32/kernel.bin"))

    def test_changes_are_committed_in_every_compression(self):
        for compression in ("none", "XPRESS", "LZX"):
            with self.subTest(compression=compression):
                image = self.capture("tree", compression + ".wim", "--compress=" + compression)
                self.mount(image)
                self.assertEqual(self.read("mount/Windows/notes.txt"), b"notes\r\n" * 1000)
                self.change_tree()
                self.unmount("--commit")
                self.check_changed(image)
                self.assertEqual(os.listdir(self.mount_folder), [])

    def test_discard_leaves_the_image_byte_for_byte(self):
        image = self.capture("tree", "image.wim")
        before = sha256(image)
        self.mount(image)
        self.change_tree()
        self.unmount("--discard")
        self.assertEqual(sha256(image), before)
        self.assertEqual(os.listdir(self.mount_folder), [])

    def test_other_images_of_the_file_stay(self):
        image = self.capture("tree", "image.wim")
        self.write("second/only.txt", "second image\r\n")
        self.wimlib("append", self.path("second"), image, "Second")
        self.mount(image)
        self.change_tree()
        self.unmount("--commit")
        self.check_changed(image)
        self.assertEqual(self.file_in(image, "/only.txt", 2), b"second image\r\n")

    def test_the_wide_form_does_the_same(self):
        image = self.capture("tree", "image.wim")
        result = self.kestro("mount", image, self.mount_folder, "--wide")
        self.assertEqual(result["DISM_MOUNT"], {"ok": "OK"})
        self.change_tree()
        result = self.kestro("unmount", self.mount_folder, "--commit", "--wide")
        self.assertEqual(result["DISM_UNMOUNT"], {"0": "0", "ok": "OK"})
        self.check_changed(image)


class Reports(MountCase):
    def test_a_good_mount_and_unmount(self):
        image = self.capture("tree", "image.wim")
        result = self.mount(image)
        self.assertEqual(result["DISM_INITIALIZE"], {"result": "OK"})
        self.assertEqual(result["DISM_MOUNT"], {"result": "OK"})
        self.assertEqual(result["DISM_SHUTDOWN"], {})
        self.assertEqual(result.log(), ["Mounting image...", "Image mounted successfully."])
        result = self.unmount()
        self.assertEqual(result["DISM_UNMOUNT"], {"flags": "1", "result": "OK"})
        self.assertEqual(result["DISM_SHUTDOWN"], {"result": "OK"})
        self.assertEqual(result.log(), ["Unmounting image...", "Image unmounted successfully."])
        self.assertRegex(result["Status"]["lastwrite"], r"^\d{14}$")

    def check_failed_mount(self, image, code):
        result = self.mount(image, exit_code=1)
        self.assertEqual(result["DISM_MOUNT"]["result"], "ERR")
        self.assertEqual("%08X" % hresult(result.log()), "%08X" % code)

    def test_each_failure_has_its_code(self):
        image = self.capture("tree", "image.wim")
        self.check_failed_mount(self.path("missing.wim"), 0x80070002)
        self.check_failed_mount(self.write("not.wim", b"not an image" * 100), 0x8007000B)
        self.write("mount/in the way.txt", "here first")
        self.check_failed_mount(image, 0xC1420114)
        self.assertEqual(self.read("mount/in the way.txt"), b"here first")
        os.remove(self.path("mount/in the way.txt"))
        os.rmdir(self.mount_folder)
        self.check_failed_mount(image, 0xC1420115)

    def test_a_mounted_image_is_not_mounted_again(self):
        image = self.capture("tree", "image.wim")
        self.mount(image)
        self.check_failed_mount(image, 0xC1420113)
        self.mount_folder = self.path("other")
        os.makedirs(self.mount_folder)
        self.check_failed_mount(image, 0xC1420127)
        self.mount_folder = self.path("mount")
        self.unmount()

    def test_a_folder_without_an_image_is_not_unmounted(self):
        self.write("mount/file.txt", "mine")
        result = self.unmount(exit_code=1)
        self.assertEqual(result["DISM_UNMOUNT"]["result"], "ERR")
        self.assertEqual("%08X" % hresult(result.log()), "C142010B")
        self.assertEqual(self.read("mount/file.txt"), b"mine")

    def test_an_image_changed_meanwhile_is_not_overwritten(self):
        image = self.capture("tree", "image.wim")
        self.mount(image)
        self.wimlib("append", self.path("tree/Windows"), image, "Appended meanwhile")
        changed = sha256(image)
        self.write("mount/new.txt", "new")
        result = self.unmount("--commit", exit_code=1)
        self.assertEqual("%08X" % hresult(result.log()), "C1420122")
        self.assertEqual(sha256(image), changed)
        self.unmount("--discard")
        self.assertEqual(sha256(image), changed)


class Kills(MountCase):
    """Whatever the moment, a kill leaves the old image or the new one, and the next call works. The
    moments are spread over the time that the whole call takes here."""

    SIZE = 6_000_000

    def setUp(self):
        super().setUp()
        self.content = random.Random(2).randbytes(self.SIZE)
        self.write("tree/Windows/large.bin", self.content)
        self.image = self.capture("tree", "image.wim", "--compress=LZX")

    def killed_after(self, seconds, *arguments):
        process = self.start(*arguments)
        try:
            process.wait(seconds)
        except subprocess.TimeoutExpired:
            pass
        self.kill(process)

    def unmount_if_mounted(self, how):
        """What a killed call left is unmounted; one that got through left nothing to unmount."""
        code = self.exit_code("unmount", self.mount_folder, how)
        if code != 0:
            self.assertIn("0xC142010B", self.errors, "exit code %d, %s %s" % (code, self.output, self.errors))
        self.assertEqual(os.listdir(self.mount_folder), [])

    def test_a_killed_commit(self):
        self.mount(self.image)
        started = time.monotonic()
        self.unmount("--commit")
        whole = time.monotonic() - started

        old = self.content
        for step in range(10):
            self.mount(self.image)
            new = random.Random(10 + step).randbytes(self.SIZE)
            self.write("mount/Windows/large.bin", new)
            self.killed_after(2 * whole * (step + 1) / 10, "unmount", self.mount_folder, "--commit")
            self.verify(self.image)
            self.assertIn(self.file_in(self.image, "/Windows/large.bin"), (old, new))

            self.unmount_if_mounted("--commit")
            self.verify(self.image)
            old = self.file_in(self.image, "/Windows/large.bin")
            self.assertEqual(old, new)
            self.assertEqual([name for name in os.listdir(self.folder) if "image.wim" in name],
                             ["image.wim"])

    def test_a_killed_discard_and_a_killed_mount(self):
        before = sha256(self.image)
        for step in range(6):
            self.killed_after(0.06 * (step + 1), "mount", self.image, self.mount_folder)
            self.killed_after(0.06 * (step + 1), "unmount", self.mount_folder, "--discard")
            self.unmount_if_mounted("--discard")
            self.assertEqual(sha256(self.image), before)
        self.mount(self.image)
        self.assertEqual(self.read("mount/Windows/large.bin"), self.content)
        self.unmount()


if __name__ == "__main__":
    unittest.main()
