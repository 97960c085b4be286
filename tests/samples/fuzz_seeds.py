"""The first inputs of the fuzz targets that read catalogs, INFs and image files, from the samples:
fuzz_seeds.py SAMPLES FOLDER. Two of them are changed as inputs were that once broke a target."""

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


def main(samples, folder):
    shutil.rmtree(folder, ignore_errors=True)
    catalogs, infs, images = (os.path.join(folder, name) for name in ("catalog", "inf", "image"))
    for target in (catalogs, infs, images):
        os.makedirs(target)
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
