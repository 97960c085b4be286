"""The Python example: each declaration converts what kestro.h declares, bit for bit. There is no Python for
Windows here, so no call is made."""

import ctypes
import os
import subprocess
import sys
import unittest

from declarations import header_functions
from kestro_case import SOURCE

EXAMPLE = os.path.join(SOURCE, "examples", "python")
sys.path.insert(0, EXAMPLE)
import kestro  # noqa: E402  (the example's own module)

CONVERTED = {
    "const wchar_t *": ctypes.c_wchar_p,
    "const char *": ctypes.c_char_p,
    "const wchar_t * const *": kestro.DriverList,
    "uint8_t": ctypes.c_uint8,
    "uint32_t": ctypes.c_uint32,
    "int32_t": ctypes.c_int32,
    "void *": ctypes.c_void_p,
    "void": None,
}


class Declarations(unittest.TestCase):
    maxDiff = None

    def test_each_function_converts_what_the_header_declares(self):
        with open(os.path.join(SOURCE, "include", "kestro.h"), encoding="utf-8") as file:
            header = header_functions(file.read())
        self.assertEqual(len(header), 22)
        self.assertEqual(kestro.FUNCTIONS, {
            name: (CONVERTED[result], [CONVERTED[kind] for kind, _ in parameters])
            for name, (result, parameters) in header.items()})

    def test_a_driver_list_has_eight_entries(self):
        self.assertEqual(kestro.DriverList._length_, 8)


class Program(unittest.TestCase):
    def test_says_how_it_is_called(self):
        done = subprocess.run([sys.executable, "-B", os.path.join(EXAMPLE, "service_image.py")],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(done.returncode, 2)
        self.assertTrue(done.stderr.startswith("usage: service_image.py"), done.stderr)


if __name__ == "__main__":
    unittest.main()
