"""Runs what a page shows, in its order, and says what each block ought to hold.

  ```console          lines that begin with "$ " are run; what they show follows them. "$ kestro ..."
                      runs kestro.exe, and so does a call of platform/kestro-wine; "$ echo $?" gives
                      its exit code
  ```c, ```cpp        statements, compiled with kestro.h or kestro.hpp and run
  ```text output      what the program before it printed
  ```ini D:\\file.ini  the file as it is then; with "input" after it, written before going on
  ```json D:\\file    the same
  ```c signature      declarations of kestro.h

As a program: shown.py PAGE... writes what really happens into the pages."""

import os
import shlex
import sys

import codes
from kestro_case import HOST
from page import Page
from programs import Programs, is_program
from world import World, canonical

WINE_COMMAND = "platform/kestro-wine build/release/bin/kestro.exe"


def transcript(world, lines):
    shown = []
    for line in lines:
        if not line.startswith("$ "):
            continue
        shown.append(line)
        command = line[2:]
        if command == "echo $?":
            output = "%d\n" % world.exit_code
        elif command.split()[0] == "kestro":
            output = canonical(world.kestro(command))
        elif command.startswith(WINE_COMMAND):
            world.run([HOST, *shlex.split(command[len(WINE_COMMAND):])])
            output = canonical(world.output)
        else:
            raise ValueError("the pages show no such command: " + command)
        shown += output.rstrip("\n").split("\n") if output.strip() else []
    return shown


def expected_blocks(page, programs):
    """[(block, lines it ought to hold)] of every block that shows what something wrote."""
    found = []
    with World(page.prepared()) as world:
        for block in page.blocks:
            file = block.words[0] if block.language in ("ini", "json") and block.words else ""
            if block.language == "console":
                found.append((block, transcript(world, block.lines)))
            elif is_program(block):
                world.program(programs.command(page, block))
            elif block.language == "text" and "output" in block.words:
                found.append((block, canonical(world.output).rstrip("\n").split("\n")))
            elif file and "input" in block.words:
                world.write(file, block.text.encode("cp1252"))
            elif file:
                found.append((block, canonical(world.read(file)).rstrip("\n").split("\n")))
    return found


if __name__ == "__main__":
    codes.refresh()
    PAGES = [Page(name) for name in sys.argv[1:]]
    with Programs(PAGES) as built:
        for changing in PAGES:
            before = list(changing.lines)
            changing.replace(expected_blocks(changing, built))
            print("%s  %s" % ("same   " if changing.lines == before else "changed",
                              os.path.relpath(changing.path)))
