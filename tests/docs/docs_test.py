"""The documentation says what is so: what it shows is run and compared, what it names exists."""

import glob
import os
import re
import unittest

import codes
from declarations import header_functions
from kestro_case import SOURCE
from page import Page
from programs import Programs
from shown import expected_blocks

PAGES = sorted(glob.glob(os.path.join(SOURCE, "docs", "**", "*.md"), recursive=True) +
               glob.glob(os.path.join(SOURCE, "examples", "*.md")) +
               glob.glob(os.path.join(SOURCE, "*.md")))
FOLDERS = ("bench", "cmake", "docs", "examples", "fuzz", "host", "include", "platform", "src", "tests")


def read(*parts):
    with open(os.path.join(SOURCE, *parts), encoding="utf-8") as file:
        return file.read()


def named(path):
    return os.path.relpath(path, SOURCE)


class Shown(unittest.TestCase):
    """Commands, programs and files of the pages."""

    maxDiff = None

    def test_what_the_pages_show_is_what_happens(self):
        checked = 0
        pages = [Page(path) for path in PAGES]
        with Programs(pages) as programs:
            for page in pages:
                with self.subTest(page=named(page.path)):
                    for block, expected in expected_blocks(page, programs):
                        checked += 1
                        self.assertEqual(
                            block.lines, expected,
                            "%s, line %d; ./dev docs --refresh writes what really happens" % (
                                named(page.path), block.first + 1))
        self.assertGreater(checked, 40)

    def test_every_block_is_of_a_kind_that_is_checked(self):
        kinds = {"console", "c", "ini", "text output", "sh", "mermaid", "cmake", "text figure", "cpp", "json"}
        for path in PAGES:
            for block in Page(path).blocks:
                kind = " ".join([block.language] + block.words[:1]) \
                    if block.language == "text" else block.language
                with self.subTest(page=named(path), line=block.first):
                    self.assertIn(kind, kinds)
                    if kind in ("ini", "json"):
                        self.assertRegex(block.words[0], r"^[A-Z]:\\")


class Signatures(unittest.TestCase):
    @staticmethod
    def shown():
        for path in PAGES:
            for block in Page(path).blocks:
                if block.language == "c" and block.words == ["signature"]:
                    yield path, header_functions(re.sub(
                        r"(?m)^(\S.*?[ *])(\w+)\(", r"KESTRO_API \1KESTRO_CALL \2(", block.text))

    def test_each_export_has_its_page_and_its_signature(self):
        header = header_functions(read("include", "kestro.h"))
        found = {}
        for path, functions in self.shown():
            self.assertNotEqual(functions, {}, named(path))
            for name, function in functions.items():
                with self.subTest(function=name):
                    self.assertNotIn(name, found)
                    self.assertEqual(function, header[name])
                    self.assertIn(name, Page(path).lines[0])
                found[name] = path
        self.assertEqual(sorted(found), sorted(header))


class Names(unittest.TestCase):
    """Links, files and commands of the tree."""

    def test_links_lead_somewhere(self):
        for path in PAGES:
            for target in re.findall(r"\]\(([^)\s]+)\)", Page(path).prose()):
                if re.match(r"[a-z]+:", target):
                    continue
                file, _, anchor = target.partition("#")
                with self.subTest(page=named(path), link=target):
                    full = os.path.join(os.path.dirname(path), file) if file else path
                    self.assertTrue(os.path.exists(full))
                    if anchor:
                        self.assertIn(anchor, self.anchors(full))

    @staticmethod
    def anchors(path):
        headings = re.findall(r"(?m)^#+ (.*)$", Page(path).prose())
        return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}

    def test_files_of_the_tree_exist(self):
        for path in PAGES:
            text = Page(path).prose()
            for name in re.findall(r"`((?:%s)/[\w./*-]*)`" % "|".join(FOLDERS), text):
                with self.subTest(page=named(path), name=name):
                    self.assertTrue(glob.glob(os.path.join(SOURCE, name)))

    def test_commands_of_the_tree_exist(self):
        commands = set(re.findall(r"(?m)^  (\w+) +\S", read("dev")))
        presets = set(re.findall(r'"name": "(\w+)"', read("CMakePresets.json")))
        for path in PAGES:
            text = "\n".join(Page(path).lines)
            for command in re.findall(r"\./dev (\w+)", text):
                with self.subTest(page=named(path), command=command):
                    self.assertIn(command, commands)
            for preset in re.findall(r"--preset (\w+)", text):
                with self.subTest(page=named(path), preset=preset):
                    self.assertIn(preset, presets)

    def test_every_page_is_in_the_index(self):
        index = read("docs", "README.md")
        for path in glob.glob(os.path.join(SOURCE, "docs", "**", "*.md"), recursive=True):
            name = os.path.relpath(path, os.path.join(SOURCE, "docs"))
            if name != "README.md":
                self.assertIn("](%s)" % name, index)


class ErrorCodes(unittest.TestCase):
    """What a code means is stated once, and each that the embedded platform gives has its meaning."""

    def test_the_page_is_made_from_the_table(self):
        page = read("docs", "error-codes.md")
        rows = re.findall(r"(?m)^\| `(0x[0-9A-F]{8})` ", page)
        listed = [code for table in codes.sections().values() for code, _, _ in table]
        self.assertGreater(len(listed), 60)
        self.assertEqual(rows, listed)
        self.assertEqual(len(set(listed)), len(listed))
        self.assertEqual(page, codes.page_with_tables(page), "run ./dev docs --refresh")

    def test_no_code_is_missing(self):
        listed = {code for table in codes.sections().values() for code, _, _ in table}
        for source in (("platform", "dismapi", "engine", "codes.h"), ("platform", "dismapi", "README.md"),
                       ("platform", "vds", "disk_clean.h"), ("platform", "vds", "README.md")):
            for code in sorted(set(re.findall(r"0x[0-9A-F]{8}\b", read(*source)))):
                with self.subTest(code=code, source=source[-1]):
                    self.assertIn(code, listed)


class Changelog(unittest.TestCase):
    def test_the_version_of_the_project_has_its_entry(self):
        version = re.search(r"project\(Kestro VERSION ([\d.]+)", read("CMakeLists.txt"))[1]
        self.assertRegex(read("CHANGELOG.md"), r"(?m)^## %s\b" % re.escape(version))


if __name__ == "__main__":
    unittest.main()
