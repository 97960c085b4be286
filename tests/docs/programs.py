"""The C and C++ blocks of all pages as two programs, each compiled once: the number of a block chooses it."""

import os
import subprocess
import tempfile

from kestro_case import HANG, HOST, SOURCE

BUILD = os.path.dirname(os.path.dirname(HOST))
WARNINGS = ["-Wall", "-Wextra", "-Werror", "-I" + os.path.join(SOURCE, "include")]
LANGUAGES = {
    "c": (["x86_64-w64-mingw32-gcc-posix", "-std=c11"], """\
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>
#include "kestro.h"
"""),
    "cpp": (["x86_64-w64-mingw32-g++-posix", "-std=c++20"], """\
#include <cstdio>
#include <cstdlib>
#include <windows.h>
#include "kestro.hpp"
"""),
}


def is_program(block):
    return block.language in LANGUAGES and "signature" not in block.words


class Programs:
    """Use it in a with statement: its end removes the programs."""

    def __init__(self, pages):
        self.numbers = {language: {} for language in LANGUAGES}
        self.texts = {language: start for language, (_, start) in LANGUAGES.items()}
        for page in pages:
            for block in filter(is_program, page.blocks):
                self._add(page, block)

    def _add(self, page, block):
        numbers = self.numbers[block.language]
        number = numbers[page.path, block.first] = len(numbers)
        self.texts[block.language] += '#line %d "%s"\nstatic void block%d(void) {\n%s\n}\n' % (
            block.first, page.path, number, block.text.rstrip("\n"))

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="kestro-docs-")
        # Windows looks for Kestro.dll beside the program.
        os.symlink(os.path.join(BUILD, "bin", "Kestro.dll"), os.path.join(self.folder.name, "Kestro.dll"))
        try:
            builds = [self._build(language) for language in LANGUAGES if self.numbers[language]]
            errors = [build.communicate(timeout=HANG)[0] for build in builds]
            if any(build.returncode for build in builds):
                raise RuntimeError("".join(errors))
        except Exception:
            self.folder.cleanup()
            raise
        return self

    def __exit__(self, *_):
        self.folder.cleanup()

    def _program(self, language):
        return os.path.join(self.folder.name, language + "-blocks.exe")

    def _build(self, language):
        compiler, _ = LANGUAGES[language]
        source = os.path.join(self.folder.name, "blocks." + language)
        cases = "".join("case %d: block%d(); break;\n" % (n, n) for n in self.numbers[language].values())
        with open(source, "w", encoding="utf-8") as file:
            file.write(self.texts[language] + "int main(int count, char** arguments)\n{\n"
                       "switch (count == 2 ? atoi(arguments[1]) : -1) {\n" + cases +
                       "default: return 2;\n}\nreturn 0;\n}\n")
        return subprocess.Popen(
            [*compiler, *WARNINGS, source, "-o", self._program(language), "-static",
             os.path.join(BUILD, "lib", "libKestro.dll.a"), "-lole32"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def command(self, page, block):
        return [self._program(block.language), str(self.numbers[block.language][page.path, block.first])]
