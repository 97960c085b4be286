"""The first inputs of the fuzz targets that read catalogs, INFs and image files, from the samples, and those of
the one that reads the records of mounts: fuzz_seeds.py SAMPLES FOLDER. Two of them are changed as inputs were
that once broke a target."""

import json
import os
import shutil
import sys

SHA256 = bytes.fromhex("0609608648016503040201")
NO_DIGEST = bytes.fromhex("06092b240303020801010d")  # an elliptic curve


def copy_all(source, ending, target):
    for name in sorted(os.listdir(source)):
        if name.endswith(ending):
            shutil.copyfile(os.path.join(source, name), os.path.join(target, name))


def changed(source, old, new, target):
    with open(source, "rb") as file:
        content = file.read()
    if old not in content:
        sys.exit("%s does not hold what is to be changed in it" % source)
    with open(target, "wb") as file:
        file.write(content.replace(old, new, 1))


IMAGE = "/nonexistent/image.wim"  # as the target has it


def record(**changes):
    """A mount's record as the platform writes it."""
    return json.dumps({"image": IMAGE, "imageIdentity": [0, 0, ""], "index": 1, "directory": "/nonexistent/mount",
                       "directoryIdentity": [1, 2, 0, 0], "readOnly": False, "status": "mounted", "layers": "",
                       "layersAreOld": False, **changes})


def tree_state(*entries):
    """What an extracted mount held: type, size, path."""
    return "".join("%s %d 1700000000000000000 1700000000000000001 %d 1600000000000000000 %s\0" % (
        kind, size, 77 + number, path) for number, (kind, size, path) in enumerate(entries))


def upper_state(*entries):
    """What a lazy mount's overlay noted: type and flag, inode, path, where a directory was, where a file was."""
    return "upper 2\n" + "".join(
        "%s 10 1700000000000000000 1700000000000000001 %d 1600000000000000000 %s\0%s\0%s\0" % entry
        for entry in entries)


def write_records(folder):
    tree = tree_state(("d", 0, "/Windows"), ("f", 10, "/Windows/a b"), ("l", 1, "/l"))
    upper = upper_state(
        ("d-", 70, "/Windows", "", ""), ("f-", 71, "/Windows/changed", "", "/Windows/changed"),
        ("f-", 72, "/Windows/linked", "", ""), ("f-", 72, "/Windows/linked too", "", ""),
        ("f-", 73, "/Windows/renamed", "", "/Windows/before"), ("ow", 0, "/Windows/removed", "", ""),
        ("ow", 0, "/Windows/before", "", ""), ("do", 74, "/anew", "", ""), ("d-", 75, "/moved", "/Windows/m", ""),
        ("f-", 76, "/moved/inside", "", "/Windows/m/inside"), ("d-", 78, "/moved/renamed", "inner", ""),
        ("l-", 79, "/link", "", ""))
    # The layers that are the record's own lie in its folder, whose place no input knows, or beside the image.
    lazy = {"layers": IMAGE + ".kestro-0123-layers-1", "layersAreOld": True}
    header = (b"MSWIM\0\0\0" + (208).to_bytes(4, "little") + bytes(196)).hex()
    following = {"status": "unmounting", "appendedTo": header, "imageIdentity": [0, 0, header]}
    for name, files in {
            "extracted": [record(), tree],
            "saving": [record(), tree, record(**following), tree],
            "lazy": [record(**lazy), upper],
            "lazy-new": [record(layers=lazy["layers"]), upper_state()],
            "lazy-saving": [record(**lazy), upper, record(**lazy, **following), upper_state()],
            "other-directory": [record(), tree, record(directory="/nonexistent/other")]}.items():
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write("\n---\n".join(files))


def main(samples, folder):
    shutil.rmtree(folder, ignore_errors=True)
    catalogs, infs, images, records = (os.path.join(folder, name) for name in ("catalog", "inf", "image", "record"))
    for target in (catalogs, infs, images, records):
        os.makedirs(target)
    write_records(records)
    signed = os.path.join(samples, "drivers", "signed")
    copy_all(signed, ".cat", catalogs)
    copy_all(os.path.join(signed, "amd64"), "stor.sys", catalogs)
    copy_all(signed, ".inf", infs)
    copy_all(os.path.join(samples, "drivers", "unsigned"), ".inf", infs)
    copy_all(os.path.join(samples, "images"), ".wim", images)
    # PKCS7_verify does not free everything when it does not know a digest.
    changed(os.path.join(signed, "kestrohid.cat"), SHA256, NO_DIGEST,
            os.path.join(catalogs, "unknown-digest"))
    # The name of a string, which goes into the registry, was no UTF-8.
    changed(os.path.join(signed, "kestrohid.inf"), b"Reader.Service    =", b"\xe9" * 100 + b"Service =",
            os.path.join(infs, "string-name"))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: fuzz_seeds.py SAMPLES FOLDER")
    main(*sys.argv[1:])
