"""Driver packages for the tests, which the build makes, and a hive for the image."""

import os
import shutil
import struct

from kestro_case import SOURCE

SAMPLES = os.path.join(SOURCE, "build", "platform", "samples", "drivers")
INFS = ("kestrobus.inf", "kestrodisplay.inf", "kestrohealth.inf", "kestrohid.inf", "kestroport.inf",
        "kestrostor.inf")


def payload(inf):
    """Paths of the files that the INF names for amd64, below its folder."""
    with open(inf, "rb") as file:
        text = file.read().replace(b"\0", b"").lower()  # one of them is UTF-16
    for folder in ("amd64", "firmware"):
        for name in sorted(os.listdir(os.path.join(os.path.dirname(inf), folder))):
            if name.encode() in text:
                yield os.path.join(folder, name)


def make_packages(destination, which="signed"):
    """Copies the packages and returns the INFs' paths in the order of their names."""
    shutil.copytree(os.path.join(SAMPLES, which), destination)
    infs = sorted(name for name in os.listdir(destination) if name.endswith(".inf"))
    return [os.path.join(destination, name) for name in infs]


def minimal_hive():
    """The smallest registry hive that tools accept: a root key and nothing in it."""
    none = 0xFFFFFFFF
    root, root_size, security_size = 0x20, 0x60, 0x30
    security, free = root + root_size, root + root_size + security_size
    header = bytearray(4096)
    header[0:4] = b"regf"
    struct.pack_into("<II", header, 4, 1, 1)  # equal: nothing waits in a log
    struct.pack_into("<IIII", header, 0x14, 1, 5, 0, 1)
    struct.pack_into("<III", header, 0x24, root, 4096, 1)
    total = 0
    for (value,) in struct.iter_unpack("<I", header[:0x1FC]):
        total ^= value
    struct.pack_into("<I", header, 0x1FC, total)

    block = bytearray(4096)
    block[0:4] = b"hbin"
    struct.pack_into("<I", block, 8, 4096)
    struct.pack_into("<i2sH", block, root, -root_size, b"nk", 0x2C)
    for field in (0x14, 0x20, 0x24, 0x2C, 0x34):  # no parent, subkeys, values or class
        struct.pack_into("<I", block, root + field, none)
    struct.pack_into("<I", block, root + 0x30, security)
    struct.pack_into("<H4x4s", block, root + 0x4C, 4, b"ROOT")
    struct.pack_into("<i2sHIIII", block, security, -security_size, b"sk", 0, security, security, 1, 20)
    struct.pack_into("<BBH", block, security + 24, 1, 0, 0x8000)
    struct.pack_into("<i", block, free, 4096 - free)
    return bytes(header + block)
