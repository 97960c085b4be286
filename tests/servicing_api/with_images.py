"""Makes the images that servicing_api_images_test works on, and runs it: with_images.py PROGRAM."""

import os
import random
import subprocess
import sys
import tempfile

RUN = os.path.join(os.environ["KESTRO_SOURCE"], "platform", "kestro-wine")
ABOUT = ("ARCH=9", "EDITIONID=Professional", "VERSION/MAJOR=10", "VERSION/BUILD=19041",
         "LANGUAGES/LANGUAGE[1]=de-DE", "LANGUAGES/LANGUAGE[2]=en-US", "LANGUAGES/DEFAULT=en-US")


def main(program):
    with tempfile.TemporaryDirectory(prefix="kestro-images-") as folder:
        for name in ("first", "second", "mount"):
            os.mkdir(os.path.join(folder, name))
        with open(os.path.join(folder, "first", "large.bin"), "wb") as file:
            file.write(random.Random(3).randbytes(8 << 20))
        with open(os.path.join(folder, "second", "small.txt"), "wb") as file:
            file.write(b"small\n")
        image = os.path.join(folder, "two.wim")
        for command in (["capture", os.path.join(folder, "first"), image, "First"],
                        ["append", os.path.join(folder, "second"), image, "Second", "With languages", "--boot",
                         *["--image-property=WINDOWS/" + value for value in ABOUT]]):
            subprocess.run(["wimlib-imagex", *command], check=True, stdout=subprocess.DEVNULL)
        environment = dict(os.environ, KESTRO_IMAGES="Z:" + folder.replace("/", "\\"))
        return subprocess.run([RUN, program], env=environment, stdin=subprocess.DEVNULL).returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
