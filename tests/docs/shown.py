"""Runs what a page shows, in its order, and says what each block ought to hold.

  ```console          lines that begin with "$ " are run; what they show follows them. "$ kestro ..."
                      runs kestro.exe, and so does a call of platform/kestro-wine; "$ echo $?" gives
                      its exit code
  ```c                compiled with kestro.h and run; statements without a main become one
  ```text output      what the program before it printed
  ```ini D:\\file.ini  the file as it is then; with "input" after it, written before going on
  ```c signature      declarations of kestro.h

As a program: shown.py PAGE... writes what really happens into the pages."""

import os
import shlex
import sys

from kestro_case import HOST
from page import Page
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


def expected_blocks(page):
    """[(block, lines it ought to hold)] of every block that shows what something wrote."""
    found = []
    with World(page.prepared()) as world:
        for block in page.blocks:
            if block.language == "console":
                found.append((block, transcript(world, block.lines)))
            elif block.language == "c" and "signature" not in block.words:
                world.program(block.text)
            elif block.language == "text" and "output" in block.words:
                found.append((block, canonical(world.output).rstrip("\n").split("\n")))
            elif block.language == "ini" and "input" in block.words:
                world.write(block.words[0], block.text.encode("cp1252"))
            elif block.language == "ini" and block.words:
                found.append((block, canonical(world.read(block.words[0])).rstrip("\n").split("\n")))
    return found


if __name__ == "__main__":
    for name in sys.argv[1:]:
        page = Page(name)
        before = list(page.lines)
        page.replace(expected_blocks(page))
        print("%s  %s" % ("same   " if page.lines == before else "changed", os.path.relpath(name)))
