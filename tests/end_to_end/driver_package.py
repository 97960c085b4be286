"""Driver packages for the tests, which the build makes, and a hive for the image."""

import os
import re
import shutil
import struct

from kestro_case import SOURCE

SAMPLES = os.path.join(SOURCE, "build", "platform", "samples", "drivers")
INFS = ("kestrobus.inf", "kestrodisplay.inf", "kestrohealth.inf", "kestrohid.inf", "kestroport.inf",
        "kestrostor.inf")


def _entries(path):
    """(section, key, values) of every line with a key; names in lower case."""
    section = ""
    with open(path, "rb") as file:
        encoding = "utf-16" if file.read(2) == b"\xff\xfe" else "latin-1"
    with open(path, encoding=encoding) as file:
        for line in file:
            line = line.split(";")[0].strip()
            header = re.fullmatch(r"\[(.*)\]", line)
            if header:
                section = header[1].lower()
            elif "=" in line:
                key, value = line.split("=", 1)
                yield section, key.strip(), [part.strip().strip('"') for part in value.split(",")]


def _folder(text):
    return text.replace("\\", "/").strip("/")


def payload(inf):
    """Paths of the files that the INF names, below its folder."""
    entries = list(_entries(inf))
    disks = {key: _folder(values[3]) if len(values) > 3 else ""
             for section, key, values in entries if section.startswith("sourcedisksnames")}
    for section, key, values in entries:
        if section.startswith("sourcedisksfiles"):
            folder = _folder(values[1]) if len(values) > 1 else ""
            yield os.path.join(disks.get(values[0], ""), folder, key)


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
