"""Image files that are odd in one way each: odd_images.py FOLDER. They are captured with wimlib-imagex and then
changed byte by byte."""

import os
import struct
import subprocess
import sys
import tempfile

from wim_edit import Wim


def capture(files, compression="none", unix=False):
    with tempfile.TemporaryDirectory(prefix="kestro-odd-") as folder:
        tree, image = os.path.join(folder, "tree"), os.path.join(folder, "image.wim")
        for path, content in files.items():
            path = os.path.join(tree, path)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(content)
        subprocess.run(["wimlib-imagex", "capture", tree, image, "Odd", "--compress=" + compression]
                       + (["--unix-data"] if unix else []), check=True, stdout=subprocess.DEVNULL)
        return Wim(image) if compression == "none" else open(image, "rb").read()


def wrong_hash(path):
    """A file's SHA-1 does not match its content."""
    content = b"a file whose content is not what was captured\n"
    wim = capture({"file.txt": content, "other.txt": b"another file\n"})
    offset = struct.unpack_from("<Q", wim.data, wim.content_entry(content) + 8)[0]
    wim.data[offset] ^= 1
    wim.write(path)


def does_not_decompress(path):
    """A file's compressed content is none."""
    content = b"".join(b"line %d of a text that compresses well\n" % i for i in range(400))
    data = bytearray(capture({"file.txt": content}, "LZX"))
    header = 208
    data[header:header + 300] = b"\xff" * 300
    with open(path, "wb") as file:
        file.write(data)


def contains_itself(path):
    """A directory contains the directory that it is in, and so itself."""
    wim = capture({"outer/inner/file.txt": b"a file\n"})
    wim.root.child("outer").child("inner").children = wim.root.children
    wim.save(path)


def climbs_out(path):
    """An entry climbs out of the image."""
    wim = capture({"up/up/up/up/etc/kestro-was-here": b"outside\n"})
    directory = wim.root.child("up")
    while directory.name == "up":
        directory.name = ".."
        directory = directory.children[0]
    wim.save(path)


def two_of_one_name(path):
    """A directory holds one name more than once."""
    wim = capture({"same.txt": b"the first\n", "other.txt": b"the second\n", "third.txt": b"the third\n"})
    for entry in wim.root.children:
        entry.name = "same.txt"
    wim.save(path)


def long_path(path):
    """A path is longer than Windows' MAX_PATH; valid."""
    folders = "/".join(letter * 100 for letter in "abcd")
    with open(path, "wb") as file:
        file.write(capture({folders + "/file.txt": b"far down\n"}, "XPRESS"))


def empty_dacl(path):
    """A file's security descriptor has a DACL that grants nobody anything; valid."""
    wim = capture({"locked.txt": b"for nobody\n", "open.txt": b"for everybody\n"})
    administrators = bytes([1, 2, 0, 0, 0, 0, 0, 5]) + struct.pack("<II", 32, 544)
    with_dacl, relative = 0x0004, 0x8000
    acl = struct.pack("<BBHHH", 2, 0, 8, 0, 0)
    owner = 20
    group = owner + len(administrators)
    dacl = group + len(administrators)
    wim.security = [struct.pack("<BBHIIII", 1, 0, with_dacl | relative, owner, group, 0, dacl)
                    + administrators * 2 + acl]
    wim.root.child("locked.txt").set_security(0)
    wim.save(path)


def old_linux_attributes(path):
    """Extended attributes of Linux, in wimlib's format of old; valid."""
    wim = capture({"file.txt": b"a file with attributes\n"}, unix=True)
    attributes = b""
    for name, value in ((b"user.kestro", b"a value"), (b"user.empty", b""), (b"user.long", b"v" * 50)):
        one = struct.pack("<II", len(name), len(value)) + name + value
        attributes += one + bytes(-len(one) % 4)
    attributes += bytes(-len(attributes) % 8)
    old_tag = 0x337DD874
    wim.root.child("file.txt").extra += struct.pack("<II", old_tag, len(attributes)) + attributes
    wim.save(path)


ODD = (wrong_hash, does_not_decompress, contains_itself, climbs_out, two_of_one_name, long_path,
       empty_dacl, old_linux_attributes)


def main(folder):
    os.makedirs(folder, exist_ok=True)
    for make in ODD:
        make(os.path.join(folder, make.__name__.replace("_", "-") + ".wim"))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: odd_images.py FOLDER")
    main(sys.argv[1])
