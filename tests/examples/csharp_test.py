"""The C# example: Mono's compiler accepts it, and each declaration marshals what kestro.h declares. No
.NET runs under Wine here, so no call is made."""

import os
import subprocess
import tempfile
import unittest

from declarations import csharp_functions, header_functions

SOURCE = os.environ["KESTRO_SOURCE"]
EXAMPLE = os.path.join(SOURCE, "examples", "csharp")

WIDE = "string as UnmanagedType.LPWStr"
NARROW = "string as UnmanagedType.LPStr"
LIST = ("string[] as UnmanagedType.LPArray, ArraySubType = UnmanagedType.LPWStr, SizeConst = 8")

# What marshals to each C type, bit for bit.
MARSHALLED = {
    "const wchar_t *": WIDE,
    "const char *": NARROW,
    "const wchar_t * const *": LIST,
    "uint8_t": "byte",
    "uint32_t": "uint",
    "int32_t": "int",
    "void *": "IntPtr",
    "void": "void",
}

LAST_ERROR = {"InfInstall", "OpenVdFile", "OpenPhDrive"}


def read(*parts):
    with open(os.path.join(SOURCE, *parts), encoding="utf-8") as file:
        return file.read()


class Declarations(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.header = header_functions(read("include", "kestro.h"))
        cls.csharp = csharp_functions(read("examples", "csharp", "Kestro.cs"))

    def test_all_of_them_are_there(self):
        self.assertEqual(len(self.header), 22)
        self.assertEqual(sorted(self.csharp), sorted(self.header))

    def test_each_marshals_what_the_header_declares(self):
        for name, (result, parameters) in self.header.items():
            with self.subTest(function=name):
                expected = [(MARSHALLED[kind], parameter) for kind, parameter in parameters]
                self.assertEqual(self.csharp[name][1], expected)
                self.assertEqual(self.csharp[name][0], MARSHALLED[result])

    def test_each_finds_the_export_of_its_own_name(self):
        for name, (_, _, attribute) in self.csharp.items():
            with self.subTest(function=name):
                self.assertTrue(attribute.startswith("Library, ExactSpelling = true,"), attribute)

    def test_a_narrow_path_that_does_not_fit_is_an_error(self):
        for name, (_, parameters, attribute) in self.csharp.items():
            narrow = any(kind == NARROW for kind, _ in parameters)
            with self.subTest(function=name):
                self.assertEqual("CharSet.Ansi" in attribute, narrow)
                self.assertEqual(
                    "BestFitMapping = false, ThrowOnUnmappableChar = true" in attribute, narrow)

    def test_the_last_error_is_kept_where_it_is_the_reason(self):
        kept = {name for name, (_, _, attribute) in self.csharp.items()
                if "SetLastError = true" in attribute}
        self.assertEqual(kept, LAST_ERROR)


class Compilation(unittest.TestCase):
    def test_without_a_warning(self):
        with tempfile.TemporaryDirectory(prefix="kestro-") as folder:
            program = os.path.join(folder, "service-image.exe")
            done = subprocess.run(
                ["mcs", "-warnaserror", "-warn:4", "-platform:x64", "-out:" + program,
                 os.path.join(EXAMPLE, "Kestro.cs"), os.path.join(EXAMPLE, "Program.cs")],
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120)
            self.assertEqual(done.returncode, 0, done.stdout)
            # What it does without arguments needs no Kestro.dll.
            done = subprocess.run(["mono", program], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  text=True, timeout=120)
            self.assertEqual(done.returncode, 2)
            self.assertTrue(done.stderr.startswith("usage: service-image"), done.stderr)


if __name__ == "__main__":
    unittest.main()
