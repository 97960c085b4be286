"""The functions of Kestro.dll for Python. kestro.h says what each of them does.

load() gives the library with every function declared: its arguments convert from str, bytes and int, and
what does not fit is an error before the call is made. The narrow forms take their ResultFile as bytes in the
ANSI code page: os.fsencode() is UTF-8 on Windows and is not what they want; path.encode("mbcs", "strict")
is, and refuses a path that the code page does not hold. The W forms take any path.
"""

import ctypes
from ctypes import c_char_p, c_int32, c_uint8, c_uint32, c_void_p, c_wchar_p

# How many entries a driver list has: no more, no fewer, none of them None.
DRIVER_LIST_LENGTH = 8
DriverList = c_wchar_p * DRIVER_LIST_LENGTH

# Flags of UnmountWimImage.
SAVE_CHANGES, DROP_CHANGES = 0, 1

# Each function's result and arguments, as kestro.h declares them.
FUNCTIONS = {
    # Images. Narrow forms return 0 for success, W forms 1.
    "MountWimImage": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_char_p]),
    "MountWimImageW": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_wchar_p]),
    "UnmountWimImage": (c_uint8, [c_wchar_p, c_uint32, c_wchar_p, c_char_p]),
    "UnmountWimImageW": (c_uint8, [c_wchar_p, c_uint32, c_wchar_p, c_wchar_p]),
    # Drivers of an image.
    "AddDriver": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_char_p]),
    "AddDriverW": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_wchar_p]),
    "RemoveDriver": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_char_p]),
    "RemoveDriverW": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_wchar_p]),
    "AddDriverList": (c_uint8, [c_wchar_p, DriverList, c_wchar_p, c_char_p]),
    "AddDriverListW": (c_uint8, [c_wchar_p, DriverList, c_wchar_p, c_wchar_p]),
    # The inventory. GetDriverInfoW returns 0 for plain success and for failure.
    "GetDrivers": (c_uint8, [c_wchar_p, c_wchar_p, c_char_p]),
    "GetDriversW": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p]),
    "GetDriverInfo": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_char_p]),
    "GetDriverInfoW": (c_uint8, [c_wchar_p, c_wchar_p, c_wchar_p, c_wchar_p]),
    # Disks. Each call may consume one COM initialisation of the thread that makes it: make these calls
    # on a thread of their own. The three flags are bytes.
    "CleanDisk": (c_int32, [c_wchar_p, c_uint8, c_uint8, c_uint8, c_char_p]),
    "OnlineDisk": (c_int32, [c_wchar_p]),
    "OfflineDisk": (c_int32, [c_wchar_p]),
    # This machine. The reason of a failure is ctypes.get_last_error(). The openers' handles are the
    # caller's to close.
    "InfInstall": (c_int32, [c_wchar_p]),
    "OpenVdFile": (c_void_p, [c_wchar_p]),
    "OpenPhDrive": (c_void_p, [c_wchar_p]),
    # The reporting itself.
    "WriteTest": (None, [c_char_p]),
    "WriteTestW": (None, [c_wchar_p]),
}


def load(path):
    """The library at the full `path`, so that nothing else of its name is found first."""
    library = ctypes.WinDLL(path, use_last_error=True)
    for name, (result, arguments) in FUNCTIONS.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library
