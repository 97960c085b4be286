"""A host in Python: adds a driver package to an image file and saves it.

    python service_image.py IMAGE DIRECTORY INF RESULTS
"""

import os
import sys

import kestro


def new_file(folder, name):
    """Keys of an earlier run would stay in the file and read like this one's."""
    path = os.path.join(folder, name)
    if os.path.exists(path):
        os.remove(path)
    return path


def report(what, returned, result_file):
    succeeded = returned == 1
    print(f"{what}: {'OK' if succeeded else 'failed'}")
    if succeeded or not os.path.exists(result_file):
        return succeeded
    # In a W form's file a failed step is ERR=ERR; its ErrorCode keeps its name.
    section = ""
    with open(result_file, encoding="mbcs") as file:
        for line in map(str.rstrip, file):
            if line.startswith("["):
                section = line.strip("[]")
            elif line == "ERR=ERR":
                print(f"  failed step {section}")
            elif section == "Log" and not line.startswith("Righe="):
                print(f"  {line.partition('=')[2]}")
    return False


def main(arguments):
    if len(arguments) != 4:
        print("usage: service_image.py IMAGE DIRECTORY INF RESULTS", file=sys.stderr)
        return 2
    image, directory, inf, results = map(os.path.abspath, arguments)
    library = kestro.load(os.path.join(os.path.dirname(os.path.abspath(__file__)), "Kestro.dll"))
    log = os.path.join(results, "dism.log")

    # The W forms take any path and return 1 for success.
    file = new_file(results, "mount.ini")
    if not report("mount", library.MountWimImageW(image, directory, log, file), file):
        return 1
    file = new_file(results, "driver.ini")
    added = report("add driver", library.AddDriverW(directory, inf, log, file), file)
    file = new_file(results, "unmount.ini")
    flags = kestro.SAVE_CHANGES if added else kestro.DROP_CHANGES
    unmounted = report("unmount", library.UnmountWimImageW(directory, flags, log, file), file)
    return 0 if added and unmounted else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
