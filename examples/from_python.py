#!/usr/bin/env python3
"""Reads, edits and stores a stanza file from Python, without a wrapper: by the C functions that the
library knows under their plain names.

    from_python.py [FILE]    without FILE on one of its own
"""
import ctypes
import sys
import tempfile
from pathlib import Path

OPEN_WRITE = 2
TEXT, INT, HANDLE = ctypes.c_char_p, ctypes.c_int, ctypes.c_void_p

library = ctypes.CDLL("libzfc.so")
# The one name that is the same in all releases; it gives the address of any function.
library.zfcFunction.restype = ctypes.c_void_p
library.zfcFunction.argtypes = [TEXT]


def function(name, result, *arguments):
    address = library.zfcFunction(name.encode())
    if not address:
        sys.exit(f"this release of the library has no {name}()")
    return ctypes.CFUNCTYPE(result, *arguments)(address)


setup = function("zfc_setup", INT)
last_error = function("zstzPropLastError", TEXT)
open_file = function("zstzPropOpen", INT, ctypes.POINTER(HANDLE), TEXT, INT)
close = function("zstzPropClose", INT, HANDLE)
store = function("zstzPropStore", INT, HANDLE, TEXT)
# The text is the caller's: as an address, which Python would not keep behind a c_char_p.
get_string = function("zstzPropGetStringValue", ctypes.c_void_p, HANDLE, TEXT, TEXT, INT,
                      ctypes.POINTER(INT))
free_string = function("zstzPropFree", None, ctypes.c_void_p)
get_integer = function("zstzPropGetInteger64Value", ctypes.c_longlong, HANDLE, TEXT, TEXT, INT,
                       ctypes.POINTER(INT))
set_integer = function("zstzPropSetInteger64Value", INT, HANDLE, TEXT, TEXT, ctypes.c_longlong)
get_keys = function("zstzPropGetKeyNames", ctypes.POINTER(TEXT), HANDLE, TEXT, ctypes.POINTER(INT))
free_names = function("zstzPropFreeNames", None, ctypes.POINTER(TEXT))


class Refused(Exception):
    """What a function of the library answered otherwise than with 0, in its own words."""


def check(code):
    if code != 0:
        raise Refused(last_error().decode())


class Settings:
    """An open stanza file; use it with "with"."""

    def __init__(self, path):
        self.handle = HANDLE()
        check(open_file(ctypes.byref(self.handle), str(path).encode(), OPEN_WRITE))

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        close(self.handle)

    def text(self, stanza, key):
        code = INT()
        address = get_string(self.handle, stanza.encode(), key.encode(), 1, ctypes.byref(code))
        check(code.value)
        try:
            return ctypes.string_at(address).decode()
        finally:
            free_string(address)

    def integer(self, stanza, key):
        code = INT()
        number = get_integer(self.handle, stanza.encode(), key.encode(), 1, ctypes.byref(code))
        check(code.value)
        return number

    def set_integer(self, stanza, key, number):
        check(set_integer(self.handle, stanza.encode(), key.encode(), number))

    def keys(self, stanza):
        code = INT()
        names = get_keys(self.handle, stanza.encode(), ctypes.byref(code))
        check(code.value)
        found = []
        while names[len(found)] is not None:
            found.append(names[len(found)])
        free_names(names)
        return [name.decode() for name in found]

    def store(self):
        check(store(self.handle, None))


def raise_port(path):
    with Settings(path) as settings:
        port = settings.integer("server", "port")
        print(f"{settings.text('server', 'host')}:{port}; keys:",
              ", ".join(settings.keys("server")))
        settings.set_integer("server", "port", port + 1)
        settings.store()


def show_refusal(path):
    with Settings(path) as settings:
        try:
            settings.integer("server", "host")
        except Refused as reason:
            # Behind the reason, in parentheses, stands the place in the library's source.
            print("refused:", str(reason).replace(str(path), "FILE").rpartition(" (")[0])


def main():
    if setup() != 0:
        sys.exit("the library's codeset data are not where they were installed")
    if len(sys.argv) > 1:
        raise_port(sys.argv[1])
        return
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "app.conf"
        path.write_text("# who answers\n[server]\nhost = east.example\nport = 8080\n")
        raise_port(path)
        show_refusal(path)
        print(path.read_text(), end="")


try:
    main()
except Refused as refusal:
    sys.exit(str(refusal))
