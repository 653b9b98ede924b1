"""Pretty printers of gdb for the library's objects, and the commands zprint and zbreak.

gdb loads this by itself beside the shared library; "source zfc.py" does the same for a program that
has the library inside. docs/debugging.md tells more. What is printed with "print" must have a type
that gdb knows; zprint needs none.
"""
import os
import re
import sys

import gdb
import gdb.printing

# From the folder of this file, and leaving nothing there.
before = sys.path, sys.dont_write_bytecode
sys.path = [os.path.dirname(os.path.realpath(__file__)), *sys.path]
sys.dont_write_bytecode = True
import zfc_objects as objects  # noqa: E402
sys.path, sys.dont_write_bytecode = before

# Types of variables through which such an object is seen.
BASES = {
    "ZObject", "ZAbstractString", "ZAbstractMutableString", "ZAbstractConstString", "ZList",
    "ZAbstractList", "ZMap", "ZAbstractMap", "ZKeyMap", "ZAbstractKeyMap", "ZStack",
    "ZAbstractStack", "ZArrayInterface", "ZAbstractArray", "ZBufferInterface", "ZAbstractBuffer",
    "ZLockInterface", "ZAbstractLock", "ZConditionInterface", "ZAbstractCondition",
    "ZReadWriteLockInterface", "ZAbstractReadWriteLock", "ZAbstractProcessReadWriteLock",
    "ZAbstractProcessReadWriteFileLock", "ZPropertiesInterface", "ZPropertiesMutableInterface",
    "ZAbstractProperties", "ZStanzaFileProperties",
}


class Printer:
    def __init__(self, thing):
        self.thing, self.summary = thing, thing.summary()

    def to_string(self):
        return self.summary

    def children(self):
        return self.thing.items(1)


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("zfc")

    def __call__(self, value):
        name = value.type.strip_typedefs().unqualified().tag or ""
        base = name.split("_")[0]
        is_ours = base in objects.READERS or base in BASES or base.endswith("Exception")
        if not objects.TAGGED.fullmatch(name) or not is_ours or value.address is None:
            return None
        try:
            _, reader, start = objects.whole(int(value.address))
            return Printer(reader(start)) if reader else None
        except (gdb.error, ValueError, OverflowError):  # it is not made yet: gdb tells what it can
            return None


def address_of(value):
    kind = value.type.strip_typedefs().code
    if kind in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        value = value.referenced_value()
        kind = value.type.strip_typedefs().code
    if kind in (gdb.TYPE_CODE_PTR, gdb.TYPE_CODE_INT):
        return int(value)
    if value.address is None:
        raise gdb.GdbError("this value has no address")
    return int(value.address)


class Print(gdb.Command):
    """Print an object of the library, whatever gdb knows of its type.
Usage: zprint EXPRESSION
The expression is the object, or a pointer to it or to any of its bases."""

    def __init__(self):
        super().__init__("zprint", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        try:
            print(objects.render(address_of(gdb.parse_and_eval(argument))))
        except (gdb.MemoryError, ValueError) as e:
            raise gdb.GdbError("there is no object of the library") from e


class Text(gdb.Function):
    """The text of a string of the library, as for a condition:
break serve if $_streq($ztext(name), "east")"""

    def __init__(self):
        super().__init__("ztext")

    def invoke(self, value):
        name, reader, start = objects.whole(address_of(value))
        if reader is objects.MutableString:
            return objects.text_bytes(start).decode("utf-8", "backslashreplace")
        if reader is objects.ConstString:
            data = objects.c_text(objects.CONST_STRING.get(start, "chars"))
            return data.decode("utf-8", "backslashreplace")
        raise gdb.GdbError(f"{name} is no string")


def tags():
    """Those of the releases in the program."""
    found = gdb.execute("info functions ^zfcVersion_", to_string=True)
    # Where a library was compiled with the tables of lines alone, no function is listed.
    files = "\n".join(file.filename for file in gdb.objfiles() if file.filename)
    return sorted(set(re.findall(r"\bzfcVersion(_\w+)", found)) |
                  set(re.findall(r"/libzfc\.so\.(_\w+)$", files, re.MULTILINE)))


class Break(gdb.Command):
    """Set a breakpoint by the name that the source has, in every release in the program.
Usage: zbreak ZLock::lock"""

    def __init__(self):
        super().__init__("zbreak", gdb.COMMAND_BREAKPOINTS, gdb.COMPLETE_NONE)

    def invoke(self, argument, from_tty):
        if not argument:
            raise gdb.GdbError("zbreak takes the name of a function")
        known = tags()
        if not known:
            raise gdb.GdbError("the library is not loaded yet; \"start\" the program before")
        for tag in known:
            gdb.execute("break " + re.sub(r"\b(Z[A-Z]\w*|Voyeur|z[a-z]\w*)", rf"\1{tag}", argument))


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
Print()
Text()
Break()
