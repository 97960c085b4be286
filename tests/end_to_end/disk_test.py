"""Cleaning disks and bringing them online and offline through kestro.exe, Kestro.dll, COM and the
embedded disk service; sfdisk partitions them, and sfdisk and blkid say what is left."""

import json
import os
import signal
import subprocess
import time
import unittest

# A prefix of its own: the tests here end its service and change what it knows.
PREFIX = os.environ["WINEPREFIX"] = os.environ["WINEPREFIX"] + "-disks"

from kestro_case import HANG, RUN, KestroCase

DATA = os.path.join(PREFIX, "drive_c", "ProgramData", "Kestro")
DISKS, LOG = os.path.join(DATA, "disks.ini"), os.path.join(DATA, "vds.log")
ACTIVATE = os.environ["KESTRO_ACTIVATE"]
DYING = os.environ["KESTRO_DYING"]
ACTIVATIONS = int(os.environ.get("KESTRO_ACTIVATIONS", "24"))

GPT = "label: gpt\n2048,8192\n12288,4096\n"
MBR = "label: dos\n2048,8192,7\n10240,16384,E\n12288,4096\n"
OEM = "label: dos\n2048,8192,27\n"


def setUpModule():
    subprocess.run([RUN, "--start"], check=True, timeout=HANG)


def tearDownModule():
    subprocess.run([RUN, "--stop"], check=True, timeout=HANG)
    end = time.monotonic() + HANG
    while services():
        if time.monotonic() > end:
            raise AssertionError("the service still runs")
        time.sleep(0.05)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def services():
    """Processes of the disk service in this prefix."""
    found = []
    for entry in os.listdir("/proc"):
        try:
            with open("/proc/%s/cmdline" % entry, "rb") as stream:
                line = stream.read()
            with open("/proc/%s/environ" % entry, "rb") as stream:
                mine = b"WINEPREFIX=" + PREFIX.encode() in stream.read().split(b"\0")
        except OSError:
            continue
        if mine and line.rstrip(b"\0").split(b"\0")[0].lower().endswith(b"vds.exe"):
            found.append(int(entry))
    return found


class DiskCase(KestroCase):
    """Each test describes the disks it needs to the service."""

    def setUp(self):
        super().setUp()
        os.makedirs(os.path.dirname(DISKS), exist_ok=True)
        self.addCleanup(lambda: os.path.exists(DISKS) and os.remove(DISKS))
        self.disks = []

    def disk(self, script=GPT, megabytes=16, **keys):
        """A partitioned disk; returns its file and its name."""
        number = len(self.disks) + 1
        file = self.path("disk%d.img" % number)
        with open(file, "wb") as stream:
            stream.truncate(megabytes << 20)
        if script:
            subprocess.run(["sfdisk", "-q", file], input=script, text=True, check=True, timeout=HANG,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        name = "\\\\?\\PhysicalDrive%d" % number
        self.disks.append({"Name": name, "File": "Z:" + file.replace("/", "\\"), **keys})
        self.describe()
        return file, name

    def describe(self, more=""):
        with open(DISKS, "w", encoding="utf-8") as stream:
            stream.write(more)
            for number, keys in enumerate(self.disks, 1):
                stream.write("[Disk %d]\r\n" % number)
                stream.writelines("%s=%s\r\n" % item for item in keys.items())

    def is_empty(self, file):
        """Neither sfdisk nor blkid finds anything on the disk."""
        return all(subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  timeout=HANG).returncode != 0
                   for command in (["sfdisk", "-d", file], ["blkid", "-p", file]))

    def clean(self, name, *options, **more):
        return self.kestro("disk", "clean", name, "--yes", *options, **more)

    def bytes_of(self, file):
        with open(file, "rb") as stream:
            return stream.read()


class Clean(DiskCase):
    def test_partitions_of_both_kinds_are_gone(self):
        for script in (GPT, MBR):
            with self.subTest(script=script):
                file, name = self.disk(script)
                self.assertFalse(self.is_empty(file))
                self.clean(name, "--force")
                self.assertTrue(self.is_empty(file))

    def test_a_disk_of_a_pack(self):
        self.disk()
        file, name = self.disk(Pack="Pack 1")
        self.disk(Pack="Pack 1")
        other, other_name = self.disk(Pack="Pack 2", Provider="Another provider")
        self.clean(name, "--force")
        self.assertTrue(self.is_empty(file))
        self.assertFalse(self.is_empty(other))
        self.clean(other_name, "--force")
        self.assertTrue(self.is_empty(other))

    def test_a_plain_clean_leaves_the_data_and_a_full_one_nothing(self):
        file, name = self.disk()
        with open(file, "r+b") as stream:
            stream.seek(5 << 20)
            stream.write(b"data" * 1000)
        self.clean(name, "--force")
        self.assertIn(b"datadata", self.bytes_of(file))
        self.clean(name, "--full")
        self.assertEqual(self.bytes_of(file).count(0), 16 << 20)

    def test_without_yes_nothing_is_done(self):
        file, name = self.disk()
        before = self.bytes_of(file)
        self.assertEqual(self.exit_code("disk", "clean", name, "--force"), 2)
        self.assertIn(name, self.errors)
        self.assertEqual(self.bytes_of(file), before)

    def test_a_disk_that_is_not_there(self):
        file, _ = self.disk()
        before = self.bytes_of(file)
        log = self.clean("\\\\?\\PhysicalDrive9", exit_code=3).log()
        self.assertTrue(any(line.startswith("No more providers") for line in log))
        self.assertEqual(self.bytes_of(file), before)

    def test_the_log_ends_with_the_outcome(self):
        _, name = self.disk()
        self.disk(Pack="Pack 1")
        report = self.clean(name, "--force")
        log = report.log()
        self.assertEqual(report["Log"]["righe"], str(len(log) + 1))
        self.assertIn("Disk cleaned successfully.", log)


class Lists(DiskCase):
    def test_each_disk_and_whether_it_can_be_cleaned(self):
        self.disk(GPT)
        self.disk(MBR, Pack="Pack 1", ReadOnly="yes")
        self.disk(None, megabytes=32, Online="no")
        self.disk(GPT, System="yes", Pack="Pack 1")
        self.assertEqual(self.exit_code("disk", "list", "--json"), 0, self.errors)
        disks = {disk["name"][-1]: disk for disk in json.loads(self.output)["disks"]}
        self.assertEqual(sorted(disks), ["1", "2", "3", "4"])
        self.assertEqual([(disks[n]["style"], disks[n]["state"], disks[n]["size"] >> 20, disks[n]["pack"],
                           disks[n]["can_be_cleaned"], disks[n]["refusal"]) for n in "1234"], [
            ("GPT", "online", 16, "", True, ""), ("MBR", "online", 16, "Pack 1", False, "read-only"),
            ("-", "offline", 32, "", False, "offline"),
            ("GPT", "online", 16, "Pack 1", False, "holds the system volume")])
        self.assertEqual(self.exit_code("disk", "list"), 0, self.errors)
        self.assertRegex(self.output, r"(?m)^NAME +SIZE +STYLE +STATE +CAN BE CLEANED\r?$")
        self.assertRegex(self.output, r"(?m)^\\\\\?\\PhysicalDrive1 +16\.0 MB +GPT +online +yes; data on it needs --force")

    def test_the_list_and_a_clean_agree(self):
        self.disk(GPT)
        self.disk(MBR, Pack="Pack 1")
        self.disk(OEM)
        self.disk("label: dos\n2048,8192,27\n12288,4096,7\n")
        self.disk("label: dos\n2048,8192,42\n")
        self.disk("label: gpt\n2048,8192,U\n")
        self.disk("label: gpt\n2048,8192,E3C9E316-0B5C-4DB8-817D-F92DF00215AE\n", Pack="Pack 1")
        self.disk("label: gpt\n")
        self.disk(None)
        for keys in ({"Online": "no"}, {"ReadOnly": "yes"}, {"System": "yes"}, {"Boot": "yes"},
                     {"File": "Z:\\none.img"}):
            self.disk(None, **keys)
        self.assertEqual(self.exit_code("disk", "list", "--json"), 0, self.errors)
        disks = sorted(json.loads(self.output)["disks"], key=lambda disk: int(disk["name"].split("Drive")[1]))
        self.assertEqual([disk["needs"] for disk in disks], [
            ["--force"], ["--force"], ["--force-oem"], ["--force", "--force-oem"], ["--force"], ["--force"],
            *[[] for _ in range(8)]])
        for disk in disks:
            with self.subTest(disk=disk["name"]):
                for missing in disk["needs"]:
                    self.clean(disk["name"], *[need for need in disk["needs"] if need != missing], exit_code=1)
                if disk["can_be_cleaned"]:
                    self.clean(disk["name"], *disk["needs"])
                else:
                    self.clean(disk["name"], "--force", "--force-oem", exit_code=1)

    def test_no_disk(self):
        self.assertEqual(self.exit_code("disk", "list", "--json"), 0, self.errors)
        self.assertEqual(json.loads(self.output)["disks"], [])


class Refusals(DiskCase):
    def refused(self, code, script=GPT, options=(), **keys):
        file, name = self.disk(script, **keys)
        before = self.bytes_of(file)
        self.clean(name, *options, exit_code=1)
        self.assertIn("0x%08X" % code, self.errors)
        self.assertEqual(self.bytes_of(file), before)
        return file, name

    def test_data_without_force(self):
        file, name = self.refused(0x80042910)
        self.clean(name, "--force")
        self.assertTrue(self.is_empty(file))

    def test_an_oem_partition_without_its_own_force(self):
        file, name = self.refused(0x80042911, OEM, ["--force"])
        self.clean(name, "--force", "--force-oem")
        self.assertTrue(self.is_empty(file))

    def test_a_dynamic_disk_without_force(self):
        file, name = self.refused(0x80042414, "label: dos\n2048,8192,42\n")
        self.clean(name, "--force")
        self.assertTrue(self.is_empty(file))

    def test_read_only_offline_system_boot(self):
        for code, keys in ((0x8004280B, {"ReadOnly": "yes"}), (0x8004280A, {"Online": "no"}),
                           (0x80042912, {"System": "yes"}), (0x80042912, {"Boot": "yes"})):
            with self.subTest(keys=keys):
                self.refused(code, options=["--force", "--force-oem"], **keys)


class OnlineOffline(DiskCase):
    def state(self, number=1):
        with open(DISKS, encoding="utf-8") as stream:
            section = stream.read().split("[Disk %d]" % number)[1].split("[")[0]
        return [line.split("=")[1].strip() for line in section.splitlines()
                if line.startswith("Online=")]

    def test_round_trip(self):
        for keys in ({}, {"Pack": "Pack 1"}):
            with self.subTest(**keys):
                self.disks = []
                file, name = self.disk(**keys)
                self.assertEqual(self.exit_code("disk", "offline", name), 0, self.errors)
                self.assertEqual(self.state(), ["no"])
                self.clean(name, "--force", exit_code=1)
                self.assertEqual(self.exit_code("disk", "online", name), 0, self.errors)
                self.assertEqual(self.state(), ["yes"])
                self.assertEqual(self.exit_code("disk", "online", name), 0, self.errors)
                self.clean(name, "--force")
                self.assertTrue(self.is_empty(file))

    def test_a_disk_that_is_not_there(self):
        self.disk()
        for command in ("online", "offline"):
            self.assertEqual(self.exit_code("disk", command, "\\\\?\\PhysicalDrive9"), 3)

    def test_a_system_disk_stays_online(self):
        _, name = self.disk(System="yes")
        self.assertEqual(self.exit_code("disk", "offline", name), 1)
        self.assertIn("0x80042811", self.errors)

    def test_json(self):
        _, name = self.disk()
        self.assertEqual(self.exit_code("disk", "offline", name, "--json"), 0, self.errors)
        document = json.loads(self.output)
        self.assertEqual((document["succeeded"], document["found"], document["disk"]),
                         (True, True, name))


class Results(DiskCase):
    """Codes that only the service's answer tells."""

    def test_a_full_clean_that_got_only_a_part(self):
        file, name = self.disk(BadSector=str(5 << 11))
        with open(file, "r+b") as stream:
            stream.seek(5 << 20)
            stream.write(b"data" * 1000)
        report = self.clean(name, "--force", "--full", exit_code=1)
        self.assertIn("0x0004241A", self.errors)
        self.assertIn("Disk cleaned successfully.", report.log())
        self.assertTrue(self.is_empty(file))
        self.assertIn(b"datadata", self.bytes_of(file))

    def test_a_disk_that_is_being_cleaned(self):
        _, name = self.disk(None, megabytes=32, KilobytesPerSecond="1024")
        before = self.begun(name)
        slow = self.start("disk", "clean", name, "--full", "--yes")
        self.addCleanup(self.kill, slow)
        # Or it would go on without its client.
        self.addCleanup(lambda: [os.kill(service, signal.SIGKILL) for service in services()])
        self.wait_until(lambda: self.begun(name) > before)
        self.clean(name, "--force", exit_code=1)
        self.assertIn("0x80042558", self.errors)

    @staticmethod
    def begun(name):
        return read(LOG).count("cleaning " + name) if os.path.exists(LOG) else 0


    def test_a_disk_is_looked_at_again(self):
        _, name = self.disk()
        _, empty = self.disk(None, Pack="Pack 1")
        for wanted, code in ((name, "80042414"), (empty, "00000000"),
                             ("\\\\?\\PhysicalDrive9", "80042405")):
            done = subprocess.run([RUN, ACTIVATE, wanted], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, timeout=HANG, text=True)
            self.assertEqual(done.stdout.strip(), code, wanted)


class Service(DiskCase):
    """The service's life: one for all clients, started when it is needed."""

    def setUp(self):
        super().setUp()
        self.addCleanup(self.wine, "sc", "stop", "vds")

    def wine(self, *arguments):
        done = subprocess.run([RUN, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=HANG, text=True)
        return done.stdout

    def clients(self, number, activations):
        """So many programs at once, each of which asks for the service again and again."""
        running = [subprocess.Popen([RUN, ACTIVATE, str(activations)], stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, text=True) for _ in range(number)]
        for client in running:
            output, _ = client.communicate(timeout=10 * HANG)
            self.assertEqual(client.returncode, 0, output)
            print(output, end="")

    def holder(self):
        client = subprocess.Popen([RUN, ACTIVATE, "hold"], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(client.communicate)
        self.assertEqual(client.stdout.readline(), "00000000\n")
        return client

    @staticmethod
    def ask(client):
        client.stdin.write("\n")
        client.stdin.flush()
        return client.stdout.readline().strip()

    def test_many_activations_one_after_another(self):
        self.clients(1, ACTIVATIONS)
        self.assertEqual(len(services()), 1)

    def test_eight_clients_at_once(self):
        self.wine("sc", "stop", "vds")
        self.clients(8, max(1, ACTIVATIONS // 8))
        self.assertEqual(len(services()), 1)

    def test_it_runs_on_without_clients(self):
        self.clients(1, 1)
        first = services()
        self.clients(1, 1)
        self.assertEqual(services(), first)
        self.assertIn("RUNNING", self.wine("sc", "query", "vds"))

    def test_a_client_notices_that_it_died_and_the_next_gets_a_new_one(self):
        client = self.holder()
        self.assertEqual(self.ask(client), "00000000")
        dead = services()
        os.kill(dead[0], signal.SIGKILL)
        self.assertRegex(self.ask(client), "^80(0706B|0101)")
        self.clients(8, 1)
        self.assertEqual(len(services()), 1)
        self.assertNotEqual(services(), dead)

    def test_what_a_killed_client_held_is_let_go(self):
        client = self.holder()
        before = read(LOG).count("objects behind")
        os.kill(client.pid, signal.SIGKILL)
        self.wait_until(lambda: read(LOG).count("objects behind") > before)

    def test_a_clean_outlives_its_client(self):
        file, name = self.disk(None, megabytes=8, KilobytesPerSecond="2048")
        with open(file, "r+b") as stream:
            stream.write(b"\xAA" * (8 << 20))
        client = self.start("disk", "clean", name, "--full", "--yes")
        self.wait_until(lambda: self.bytes_of(file)[-4096:] == bytes(4096))
        self.kill(client)
        self.wait_until(lambda: self.bytes_of(file).count(0) == 8 << 20)

    def test_a_service_that_is_not_ready_yet(self):
        _, name = self.disk()
        self.wine("sc", "stop", "vds")
        self.describe("[Service]\r\nSecondsToReady=3\r\n")
        client = self.holder()
        self.assertEqual(self.ask(client), "80042401")
        # kestro.exe waits until it is.
        self.clean(name, "--force")

    def test_a_service_that_is_disabled(self):
        _, name = self.disk()
        self.wine("sc", "stop", "vds")
        self.addCleanup(self.wine, ACTIVATE, "enable")
        self.wine(ACTIVATE, "disable")
        self.assertEqual(self.exit_code("disk", "online", name), 1)
        self.assertIn("0x80070422", self.errors)
        self.assertIn("disabled", self.errors)

    def test_a_service_that_dies_under_a_clean(self):
        file, name = self.disk(None, megabytes=64, KilobytesPerSecond="2048")
        with open(file, "r+b") as stream:
            stream.write(b"\xAA" * (64 << 20))
        process = subprocess.Popen(
            self.command("disk", "clean", name, "--full", "--yes"), stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.wait_until(lambda: self.bytes_of(file)[-4096:] == bytes(4096))
        os.kill(services()[0], signal.SIGKILL)
        _, errors = process.communicate(timeout=HANG)
        self.assertEqual(process.returncode, 1, errors)
        self.assertRegex(errors, "0x80(0706BA|0706BE|010108|0706BF)")
        # The next call starts a new service.
        self.disks[0].pop("KilobytesPerSecond")
        self.describe()
        self.clean(name, "--full")
        self.assertEqual(self.bytes_of(file).count(0), 64 << 20)

    def test_a_clean_that_reads_as_a_success_because_its_service_died(self):
        """Not every platform's marshalling delivers the failure: some leave a zero."""
        _, name = self.disk(None)
        for option in ((), ("--full",)):
            self.assertEqual(self.exit_code("disk", "clean", name, "--yes", *option, "--library", DYING), 1)
            self.assertRegex(self.errors, "0x80(0706BA|0706BE|010108|0706BF)")


if __name__ == "__main__":
    unittest.main()
