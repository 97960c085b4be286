"""The JSON Schemas of docs/: what kestro.exe prints with --json is valid, for every command, in success and in
failure; what it does not print is not. All commands run in one list, that is in one process."""

import copy
import json
import os
import re
import shutil
import subprocess
import unittest

import jsonschema

from docs_test import PAGES, named, read
from kestro_case import HANG, HOST, RUN
from page import Page
from world import World


def validator(name, part=None):
    schema = json.loads(read("docs", "kestro-%s.schema.json" % name))
    jsonschema.Draft202012Validator.check_schema(schema)
    if part:
        schema = {"$ref": "#/$defs/" + part, "$defs": schema["$defs"]}
    return jsonschema.Draft202012Validator(schema)


OUTPUT = validator("output")
LIST = validator("operations")

HID = r"D:\drivers\kestrohid.inf"
DISK, MISSING = r"\\?\PhysicalDrive1", r"\\?\PhysicalDrive9"
COMMANDS = {"inject", "image list", "mount", "unmount", "mounts", "driver add", "driver remove",
            "driver list", "driver info", "driver export", "disk list", "disk clean", "disk online", "disk offline", "inf install", "selftest", "result"}

# They only say how things are.
NEVER_FAIL = {"mounts", "disk-list"}

OPERATIONS = [
    ["image", "list", r"D:\install.wim"],
    ["image", "list", r"D:\missing.wim"],
    ["inject", r"D:\install.wim", HID, "--dry-run"],
    ["inject", r"D:\install.wim", r"D:\unsigned"],
    ["inject", r"D:\missing.wim", HID],
    ["mount", r"D:\install.wim", r"D:\mount", "--read-only"],
    ["mount", r"D:\install.wim", r"D:\mount", "--read-only"],
    ["mounts"],
    ["unmount", r"D:\mount", "--discard"],
    ["mount", r"D:\install.wim", r"D:\mount", "--result", r"D:\mount.ini"],
    ["mount", r"D:\missing.wim", r"D:\mount", "--wide", "--result", r"D:\failed.ini"],
    ["result", r"D:\mount.ini"],
    ["result", r"D:\failed.ini"],
    ["result", r"D:\missing.ini"],
    ["driver", "add", r"D:\mount", HID],
    ["driver", "add", r"D:\mount", r"D:\drivers", r"D:\unsigned"],
    ["driver", "add", r"D:\mount", r"D:\unsigned\kestrohid.inf"],
    ["driver", "add", r"D:\nowhere", r"D:\drivers"],
    ["driver", "list", r"D:\mount"],
    ["driver", "list", r"D:\nowhere"],
    ["driver", "list", r"D:\mount", "--all", "--long"],
    ["driver", "list", r"D:\nowhere", "--long"],
    ["driver", "export", r"D:\mount", "oem0.inf", r"D:\exported"],
    ["driver", "export", r"D:\nowhere", "all", r"D:\exported"],
    ["driver", "export", r"D:\mount", "oem99.inf", r"D:\exported"],
    ["driver", "info", r"D:\mount", "oem0.inf"],
    ["driver", "info", r"D:\mount", HID],
    ["driver", "info", r"D:\mount", "oem99.inf"],
    ["driver", "remove", r"D:\mount", "oem0.inf"],
    ["driver", "remove", r"D:\mount", "oem0.inf", "--wide"],
    ["unmount", r"D:\mount", "--discard"],
    ["unmount", r"D:\mount", "--commit"],
    ["disk", "list"],
    ["disk", "clean", DISK, "--yes"],
    ["disk", "clean", DISK],
    ["disk", "offline", DISK],
    ["disk", "online", MISSING],
    ["inf", "install", HID],
    ["inf", "install", HID, "--library", r"D:\deaf_kestro.dll"],
    ["selftest"],
    ["selftest", "--library", r"D:\deaf_kestro.dll"],
    ["selftest", "--library", r"D:\no.dll"],
]


class Output(unittest.TestCase):
    """Of each command, run once for all tests."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        with World(["image", "drivers", "disks"]) as world:
            shutil.copy(os.environ["KESTRO_DEAF"], world.path(r"D:\deaf_kestro.dll"))
            listed = {"on_failure": "continue", "operations": OPERATIONS}
            LIST.validate(listed)
            world.write(r"D:\all.json", json.dumps(listed).encode())
            done = subprocess.run([RUN, HOST, "run", r"D:\all.json", "--json"], timeout=HANG,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        cls.errors = done.stderr.decode(errors="replace")
        cls.run_document = json.loads(done.stdout)
        cls.documents = [document for operation in cls.run_document["operations"]
                         for document in operation["documents"]]

    def test_a_whole_list_is_valid(self):
        OUTPUT.validate(self.run_document)
        self.assertEqual([operation["operation"] for operation in self.run_document["operations"]],
                         OPERATIONS)

    def test_each_command_s_document_is_valid_alone(self):
        for document in self.documents:
            with self.subTest(command=document["command"]):
                OUTPUT.validate(document)

    def test_every_command_succeeded_and_failed(self):
        self.assertEqual({document["command"] for document in self.documents}, COMMANDS, self.errors)
        # Those of the disks are one kind of document; each call starts the disk service, which takes a second.
        seen = {(kind(document), document["succeeded"]) for document in self.documents}
        for document in self.documents:
            with self.subTest(command=document["command"]):
                self.assertIn((kind(document), True), seen, self.errors)
                if kind(document) not in NEVER_FAIL:
                    self.assertIn((kind(document), False), seen, self.errors)

    def test_what_the_exit_code_says_of_the_document(self):
        codes = set()
        for operation in self.run_document["operations"]:
            code, documents = operation["exit_code"], operation["documents"]
            codes.add(code)
            with self.subTest(operation=operation["operation"]):
                if code in (2, 4):
                    self.assertEqual(documents, [])
                else:
                    self.assertEqual([document["succeeded"] for document in documents], [code == 0])
                if code == 3:
                    self.assertFalse(documents[0]["found"])
        self.assertEqual(codes, {0, 1, 2, 3, 4})

    def test_a_document_that_kestro_does_not_print_is_not_valid(self):
        kinds = {}
        for document in self.documents:
            kinds[kind(document), document["succeeded"], "calls" in document, "form" in document] = document
        for (part_name, *_), document in kinds.items():
            part = validator("output", part_name)
            part.validate(document)
            for change, changed in changes(document):
                with self.subTest(command=document["command"], change=change):
                    self.assertFalse(part.is_valid(changed), changed)


def kind(document):
    """The schema's name for it."""
    command = document["command"]
    one = command in ("disk clean", "disk online", "disk offline")
    return "disk" if one else command.replace(" ", "-")


def changes(document):
    """The document with a key more, a key less, or a value of another kind, at each place."""
    def places(value, way):
        if isinstance(value, dict):
            yield way, value
            for key, inner in value.items():
                yield from places(inner, way + [key])
        elif isinstance(value, list) and value:
            yield from places(value[0], way + [0])

    def changed(way, act):
        copied = copy.deepcopy(document)
        place = copied
        for key in way:
            place = place[key]
        act(place)
        return copied

    for way, value in places(document, []):
        if way[-1:] == ["keys"]:
            continue  # any keys, with texts
        yield "more at %s" % way, changed(way, lambda place: place.update(surprise=1))
        for key in value:
            yield "%s is a list of lists" % (way + [key]), changed(
                way, lambda place, key=key: place.update({key: [[]]}))
            # A failure that nobody tells the reason of has no object for it.
            if key != "failure" or document["command"] == "inf install":
                yield "no %s" % (way + [key]), changed(way, lambda place, key=key: place.pop(key))


class Commands(unittest.TestCase):
    """Those of kestro.exe are those that are tested here and described."""

    def test_no_command_is_missing(self):
        done = subprocess.run([RUN, HOST, "--help-all"], stdin=subprocess.DEVNULL, timeout=HANG,
                              stdout=subprocess.PIPE, check=True)
        commands, group = set(), ""
        for name, inner in re.findall(r"(?m)^(?:(\w+)|    ([a-z]+)  .*)\r?$", done.stdout.decode()):
            if name:
                group = name
            commands = commands - {group} | {(group + " " + inner).strip()}
        self.assertEqual(commands, COMMANDS | {"run", "help"})
        page = read("docs", "command-line.md")
        for command in commands:
            self.assertIn("`" + command, page)


class Pages(unittest.TestCase):
    def test_the_json_that_the_pages_show_is_valid(self):
        shown = 0
        for path in PAGES:
            for block in Page(path).blocks:
                if block.language == "json" and block.words[1:] == ["input"]:
                    with self.subTest(page=named(path), line=block.first):
                        LIST.validate(json.loads(block.text))
                    shown += 1
                for text in re.findall(r"(?m)^\$ kestro .*--json\n(\{\n(?:.*\n)*?\}\n)", block.text):
                    with self.subTest(page=named(path), line=block.first):
                        OUTPUT.validate(json.loads(text))
                    shown += 1
        self.assertGreater(shown, 2)


class Lists(unittest.TestCase):
    """What kestro refuses as a list of operations, the schema refuses too."""

    REFUSED = [
        {}, [], {"operations": {}}, {"operations": ["mount"]}, {"operations": [[]]},
        {"operations": [["mount", 1]]}, {"operations": [[1]]}, {"operations": [], "on_failure": "ask"},
        {"operations": [], "stop": True}, {"operations": [["run", "D:\\again.json"]]},
        {"operations": [["help"]]},
    ]

    def test_the_schema_refuses_them(self):
        for listed in self.REFUSED:
            with self.subTest(listed=listed):
                self.assertFalse(LIST.is_valid(listed))

    def test_kestro_refuses_them(self):
        with World([]) as world:
            # A list with another one in it cannot be told by its first word alone.
            for number, listed in enumerate(self.REFUSED + [
                    {"operations": [["--wide", "run", "D:\\again.json"]]}]):
                with self.subTest(listed=listed):
                    world.write("D:\\%d.json" % number, json.dumps(listed).encode())
                    world.run([HOST, "run", "D:\\%d.json" % number, "--json"])
                    self.assertEqual(world.exit_code, 2, world.output)
                    self.assertTrue(world.output.startswith("kestro: D:\\%d.json: " % number),
                                    world.output)


if __name__ == "__main__":
    unittest.main()
