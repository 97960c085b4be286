"""The PowerShell example. There is no PowerShell here to run it: this checks that kestro.exe has every
command and option that the script uses, and prints every key that it reads."""

import json
import os
import re
import unittest

from driver_package import make_packages, minimal_hive
from kestro_case import SOURCE, KestroCase

SCRIPT = os.path.join(SOURCE, "examples", "powershell", "service-image.ps1")


def script():
    with open(SCRIPT, encoding="utf-8") as file:
        return re.sub(r"<#.*?#>", "", file.read(), flags=re.S)


def read_keys(pattern, text):
    return set(re.findall(pattern, text))


def command_lines():
    """(words of the command, number of further arguments, options) of every call of kestro.exe."""
    for line in re.findall(r"Invoke-Kestro ([a-z][^|)\n]*)", script()):
        words = line.split()
        options = [word for word in words if word.startswith("--")]
        # --log and --result take the word that follows them.
        for option in ("--log", "--result"):
            if option in words:
                del words[words.index(option):words.index(option) + 2]
        command = [word for word in words if re.fullmatch("[a-z]+", word)]
        arguments = [word for word in words if word.startswith("$")]
        yield command, len(arguments), options


class Script(KestroCase):
    def test_kestro_has_every_command_and_option(self):
        lines = list(command_lines())
        self.assertEqual(len(lines), 5)
        for command, arguments, options in lines:
            with self.subTest(command=command):
                self.assertEqual(self.exit_code(*command, "--help"), 0, self.errors)
                usage = self.output
                self.assertEqual(self.exit_code("--help"), 0, self.errors)
                known = set(re.findall(r"--[a-z-]+", usage + self.output))
                self.assertLessEqual(set(options), known)
                positionals = re.search(r"(?m)^Usage: kestro %s (?:\[OPTIONS\])?(.*)$" % " ".join(command),
                                        usage)[1]
                self.assertEqual(arguments, len(positionals.split()), usage)

    def test_kestro_prints_every_key_that_is_read(self):
        self.write("tree/Windows/System32/config/DRIVERS", minimal_hive())
        os.makedirs(self.path("tree/Windows/INF"))
        os.makedirs(self.path("mount"))
        image = self.capture("tree", "image.wim")
        make_packages(self.path("packages"))
        failed = self.document("mount", self.path("missing.wim"), self.path("mount"))
        self.document("mount", image, self.path("mount"))
        added = self.document("driver", "add", self.path("mount"), self.path("packages"))
        listed = self.document("driver", "list", self.path("mount"))

        text = script()
        self.assertEqual(read_keys(r"\$(?:Document|added|list)\.([a-z_]+)", text),
                         {"failure", "packages", "succeeded"})
        for document in (failed, added, listed):
            self.assertIn("succeeded", document)
        self.assertIn("packages", added)
        self.assert_read(r"\.failure\.([a-z_]+)", text, failed["failure"])
        self.assert_read(r"\$_\.([a-z_]+)", text, added["packages"][0])
        columns = re.search(r"Format-Table (.*)", text)[1]
        self.assert_read(r"([a-z_]+)", columns, listed["packages"][0])

    def assert_read(self, pattern, text, document):
        keys = read_keys(pattern, text)
        self.assertGreater(len(keys), 1)
        self.assertLessEqual(keys, set(document))

    def document(self, *command):
        self.exit_code(*command, "--json")
        return json.loads(self.output)

    def test_brackets_and_quotes_are_closed(self):
        text = re.sub(r"#[^\n]*", "", script())
        outside = re.sub(r"\"[^\"\n]*\"|'[^'\n]*'", "", text)
        self.assertNotRegex(outside, "[\"']")
        for opening, closing in ("()", "{}", "[]"):
            self.assertEqual(outside.count(opening), outside.count(closing))


if __name__ == "__main__":
    unittest.main()
