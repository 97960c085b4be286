"""tiny_image.py OUT: an image of one file, the same bytes each time: no times, no random number."""

import os
import re
import subprocess
import sys
import tempfile

GUID = slice(24, 40)

with tempfile.TemporaryDirectory(prefix="kestro-tiny-") as folder:
    tree, image = os.path.join(folder, "tree"), os.path.join(folder, "tiny.wim")
    os.mkdir(tree)
    with open(os.path.join(tree, "readme.txt"), "w", encoding="ascii", newline="\r\n") as file:
        file.write("A tiny image, to be mounted and dropped.\n")
    for path in os.path.join(tree, "readme.txt"), tree:
        os.utime(path, (1600000000, 1600000000))
    subprocess.run(["wimlib-imagex", "capture", tree, image, "Tiny", "--compress=none"],
                   check=True, stdout=subprocess.DEVNULL)
    with open(image, "rb") as file:
        data = bytearray(file.read())

data[GUID] = b"kestro-tiny-wim\0"
for part, value in ("HIGHPART", "0x01D68A4C"), ("LOWPART", "0x00000000"):
    pattern = ("<%s>" % part).encode("utf-16-le") + b"(?:0.x.(?:[0-9A-F].){8})"
    data = re.sub(pattern, ("<%s>%s" % (part, value)).encode("utf-16-le"), bytes(data), flags=re.S)
with open(sys.argv[1], "wb") as file:
    file.write(data)
