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
                positionals = re.search(r"(?m)^Usage: kestro [a-z ]*(?:\[OPTIONS\])?(.*)$", usage)[1]
                self.assertEqual(arguments, len(positionals.split()), usage)

    def test_kestro_prints_every_key_that_is_read(self):
        self.write("tree/Windows/System32/config/DRIVERS", minimal_hive())
        os.makedirs(self.path("tree/Windows/INF"))
        os.makedirs(self.path("mount"))
        image = self.capture("tree", "image.wim")
        make_packages(self.path("packages"))
        documents = [self.document("mount", self.path("missing.wim"), self.path("mount")),
                     self.document("mount", image, self.path("mount")),
                     self.document("driver", "add", self.path("mount"), self.path("packages")),
                     self.document("driver", "list", self.path("mount")),
                     self.document("unmount", self.path("mount"), "--discard")]
        for document in documents:
            self.assertIn("succeeded", document)
        self.assertLessEqual({"function", "hresult"}, set(documents[0]["failure"]))
        for package in documents[2]["packages"]:
            self.assertLessEqual({"added", "inf", "last_error"}, set(package))
        for package in documents[3]["packages"]:
            self.assertLessEqual({"published_name", "original_file"}, set(package))

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
