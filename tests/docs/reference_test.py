"""The HTML reference: Doxygen makes it from the headers without a warning, and finds every function and
argument described."""

import glob
import os
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as xml

from declarations import header_functions

SOURCE = os.environ["KESTRO_SOURCE"]


def doxygen(folder, *settings):
    with open(os.path.join(SOURCE, "docs", "Doxyfile"), encoding="utf-8") as file:
        script = file.read() + "\nOUTPUT_DIRECTORY = %s\n" % folder + "\n".join(settings) + "\n"
    return subprocess.run(["doxygen", "-"], input=script, cwd=SOURCE, text=True, timeout=120,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


class Reference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="kestro-")
        cls.addClassCleanup(cls.folder.cleanup)
        cls.done = doxygen(cls.folder.name)

    def functions(self):
        for file in glob.glob(os.path.join(self.folder.name, "xml", "kestro_8h.xml")):
            for member in xml.parse(file).iter("memberdef"):
                if member.get("kind") == "function":
                    yield member

    def test_there_is_no_warning(self):
        self.assertEqual((self.done.returncode, self.done.stdout), (0, ""))

    def test_a_warning_is_a_failure(self):
        with tempfile.TemporaryDirectory(prefix="kestro-") as folder:
            header = os.path.join(folder, "broken.hpp")
            with open(header, "w", encoding="utf-8") as file:
                file.write("/** Broken.\n * @param nothing is not there */\nint Function(int value);\n")
            done = doxygen(folder, "INPUT = " + header, "FILTER_PATTERNS =")
            self.assertNotEqual(done.returncode, 0, done.stdout)

    def test_every_function_and_argument_is_described(self):
        with open(os.path.join(SOURCE, "include", "kestro.h"), encoding="utf-8") as file:
            header = header_functions(file.read())
        found = {}
        for member in self.functions():
            name = member.findtext("name")
            self.assertTrue("".join(member.find("briefdescription").itertext()).strip(), name)
            found[name] = ["".join(parameter.itertext()).strip()
                           for parameter in member.iter("parametername")]
        self.assertEqual(found, {name: [parameter for _, parameter in parameters]
                                 for name, (_, parameters) in header.items()})


if __name__ == "__main__":
    unittest.main()
