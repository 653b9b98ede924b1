"""The library's objects as gdb finds them in memory. Loaded by zfc.py, which stands beside it.

An object is read by its vtable and by the places of its fields, which stay the same for all builds
of a release: neither the library nor the program needs debug information for that, and whatever the
version tag is does not matter.
"""
import itertools
import re

import gdb

MOST_DEPTH = 3  # of containers inside of containers
MOST_COUNTED = 100000  # entries of a map, one by one
TAGGED = re.compile(r"(Z[A-Za-z0-9]+|Voyeur)_\w+")


# ------------------------------------------------------------------------------------------- memory

def pointer_size():
    return gdb.lookup_type("void").pointer().sizeof


def read(address, size):
    return bytes(gdb.selected_inferior().read_memory(address, size))


def number(address, size, signed=False):
    return int.from_bytes(read(address, size), "little", signed=signed)


def word(address):
    return number(address, pointer_size())


def c_text(address, most=512):
    """The bytes up to a NUL, by small steps, as the page behind the text may not be there."""
    found = b""
    while b"\0" not in found and len(found) < most:
        found += read(address + len(found), 16 - (address + len(found)) % 16)
    return found.split(b"\0")[0][:most]


class Layout:
    """The places of fields as the compiler lays them out. A field is "KIND NAME": p is a pointer or
    a long, i has four bytes; another layout stands for an object inside."""

    def __init__(self, *fields):
        self.fields = fields
        self.places = {}

    def measure(self):
        size = pointer_size()
        if size not in self.places:
            offset, found = 0, {}
            for field in self.fields:
                if isinstance(field, tuple):
                    name, width, step = field[0], field[1].size(), size
                else:
                    kind, name = field.split()
                    width = step = size if kind == "p" else 4
                offset = -(-offset // step) * step
                found[name] = (offset, width)
                offset += width
            found[None] = (-(-offset // size) * size, 0)
            self.places[size] = found
        return self.places[size]

    def size(self):
        return self.measure()[None][0]

    def at(self, address, name):
        return address + self.measure()[name][0]

    def get(self, address, name):
        offset, width = self.measure()[name]
        return number(address + offset, width)


MUTABLE_STRING = Layout("p vptr", "p chars", "i length", "i capacity",
                        *(f"i inline{i}" for i in range(24)))
CONST_STRING = Layout("p vptr", "p chars", "i length")
LIST = Layout("p vptr", "p list", "i capacity", "p data", "i count", "i owns")
ARRAY = Layout("p vptr", "p array", "p data", "i owns", "i count")
HASH_MAP = Layout("p vptr", "p map", ("buckets", ARRAY), "i owns")
KEY_MAP = Layout("p vptr", "p map", ("entries", HASH_MAP), "i copy")
KEY_ENTRY = Layout("p vptr", "p key", "p value")
BUFFER = Layout("p vptr", "p interface", "i length", "p bytes")
LOCK = Layout("p vptr", "p object", "p mutex", "p owner", "i depth")
CONDITION = Layout("p vptr", "p interface", "p resource", "p lock", "i owns", "p cond",
                   "i predicate")
PLAIN_CONDITION = Layout("p vptr", "p interface", "p resource", "p lock", "i owns", "p cond")
OBSERVABLE = Layout("p vptr", ("observers", LIST), ("lock", LOCK))
MODES = ("p vptr", "p interface", ("observable", OBSERVABLE))
READ_WRITE_LOCK = Layout(*MODES, "i word", "i state", "p owner", "i waiters",
                         ("condition", PLAIN_CONDITION))
PROCESS_LOCK = Layout(*MODES, "i state", ("name", MUTABLE_STRING), "i sequence", "i last",
                      "i update", ("threads", READ_WRITE_LOCK))
FILE_LOCK = Layout(("base", PROCESS_LOCK), ("directory", MUTABLE_STRING),
                   ("file", MUTABLE_STRING), ("lock", LOCK), "i descriptor")
EXCEPTION = Layout("p vptr", "p number", "p name", "p file", "i line")
PROPERTIES = Layout("p vptr", ("lock", LOCK), "p reads", "p edits", ("observable", OBSERVABLE),
                    "p cache", ("file", MUTABLE_STRING), "i modified")
# What is behind the containers and the values of a file.
BUCKET_TABLE = Layout("p vptr", *(f"p pool{i}" for i in range(7)), "p block", "p buckets", "i count")
REST = Layout("p crowd", "i count", "i doublings")
VECTOR = Layout("p begin", "p end", "p room")
POOL = Layout(("chunks", VECTOR), "i count", "i free")
STD_STRING = Layout("p chars", "p length", *(f"i inline{i}" for i in range(4)))
TABLE = Layout(("slots", VECTOR), "i mask", "i count", "i most")
ASKED = Layout("i stanza", "i key", "i hash", ("name", STD_STRING))
RECORDS = Layout(("blocks", VECTOR), "p room", "p left", "p held", "p used",
                 "p names", ("stanzas", POOL), ("keys", POOL), "i recent", ("asked", ASKED),
                 ("table", TABLE), ("tables", VECTOR),
                 "p texts", ("values", POOL), ("lists", POOL))
STANZA = Layout("p name", "i length")
KEY = Layout("p name", "p value", "i length", "i valueLength", "i stanza", "i line", "i more",
             "i obfuscated")
VALUE = Layout("p text", "i length", "i next")
VALUE_LIST = Layout("i first", "i last", "i count", "i key", "i prev", "i next")
NONE = 0xffffffff


# -------------------------------------------------------------------------------------------- texts

def most_elements():  # none: without a limit
    return gdb.parameter("print elements") or 1 << 20


def shown(text):
    """As gdb can write it where its own text has no such characters."""
    try:
        text.encode(gdb.host_charset() if hasattr(gdb, "host_charset") else "ascii")
        return text
    except (UnicodeError, LookupError):
        return text.encode("utf-8").decode("ascii", "backslashreplace")


def quoted(data, is_cut=False):
    text = data.decode("utf-8", "ignore" if is_cut else "backslashreplace")
    text = "".join(c if c.isprintable() else c.encode("unicode_escape").decode()
                   for c in text.replace('"', '\\"'))
    return f'"{shown(text)}"' + ("..." if is_cut else "")


def quoted_at(address, length):
    most = most_elements()
    return quoted(read(address, min(length, most)), length > most)


def text_bytes(address):  # of a string that holds its text
    return read(MUTABLE_STRING.get(address, "chars"), MUTABLE_STRING.get(address, "length"))


def counted(count, what):
    return f"{count} {what}" + ("" if count == 1 else "s")


def thread_text(owner):
    """A pthread_t as gdb numbers its threads, where it can tell."""
    try:
        handle = owner.to_bytes(pointer_size(), "little")
        thread = gdb.selected_inferior().thread_from_handle(handle)
        if thread is not None:
            return f"thread {thread.num} (LWP {thread.ptid[1]})"
    except (gdb.error, AttributeError):
        pass
    return f"thread {owner:#x}"


# ------------------------------------------------------------------------------------ run-time types

def type_name(info):
    """The class of a std::type_info, as the source has it; its symbol where that is no plain name."""
    mangled = c_text(word(info + pointer_size())).decode("ascii", "replace")
    parts, rest = [], mangled.lstrip("*")
    rest = rest[1:-1] if rest.startswith("N") and rest.endswith("E") else rest
    while rest:
        match = re.match(r"\d+", rest)
        if not match or len(rest) < match.end() + int(match[0]):
            return mangled
        end = match.end() + int(match[0])
        part = rest[match.end():end]
        parts.append("(anonymous namespace)" if part == "_GLOBAL__N_1" else part)
        rest = rest[end:]
    return "::".join(parts)


def base_infos(info):
    """(type_info, offset) of each base that is not virtual."""
    size = pointer_size()
    kind = gdb.execute(f"info symbol {word(info)}", to_string=True)
    if "__si_class_type_info" in kind:
        return [(word(info + 2 * size), 0)]
    if "__vmi_class_type_info" not in kind:
        return []
    entries = (info + 2 * size + 8 + 2 * size * i for i in range(number(info + 2 * size + 4, 4)))
    flags = [(word(entry), number(entry + size, size, True)) for entry in entries]
    return [(base, flag >> 8) for base, flag in flags if not flag & 1]


def kind_of(info, offset=0):
    """(reader, offset) of the class or, of one that is derived, of its first base with a reader."""
    name = type_name(info)
    if TAGGED.fullmatch(name):
        reader = READERS.get(name.split("_")[0])
        if reader:
            return reader, offset
    for base, distance in base_infos(info):
        found = kind_of(base, offset + distance)
        if found:
            return found
    return None


def whole(address):
    """(class name, reader or None, address for it) of the object that a pointer to any base of it
    points to. Raises gdb.MemoryError or ValueError where there is none."""
    size = pointer_size()
    vtable = word(address)
    if vtable < 4096:
        raise ValueError("no object")
    info = word(vtable - size)
    start = address + number(vtable - 2 * size, size, True)
    name = type_name(info)
    if not re.fullmatch(r"[\w:*() ]+", name):
        raise ValueError("no object")
    found = kind_of(info)
    return (name, found[0], start + found[1]) if found else (name, None, start)


def render(address, depth=0):
    """The object as one text."""
    if address == 0:
        return "null"
    name, reader, start = whole(address)
    if reader is None:
        return foreign(name, start)
    thing = reader(start)
    items = [] if depth >= MOST_DEPTH else thing.items(depth + 1)
    return thing.summary() + inside(items, thing.is_map)


def inside(items, is_map):
    most = most_elements()
    texts = []
    for name, text in items:
        if len(texts) == most:
            texts.append("...")
            break
        texts.append(f"{name} = {text}" if is_map or not name.startswith("[") else text)
    return " {" + ", ".join(texts) + "}" if texts else ""


def foreign(name, address):
    """An object of the program's own class, as gdb knows it."""
    try:
        pointer = gdb.Value(address).cast(gdb.lookup_type(name).pointer())
        return f"{pointer.dereference()}"
    except gdb.error:
        return f"<{name} at {address:#x}>"


def member(address, depth):
    try:
        return render(address, depth)
    except (gdb.error, ValueError):
        return f"<no object at {address:#x}>"


# ------------------------------------------------------------------------------------------- readers

class Thing:
    """An object: summary() is a line about it, items() what is in it as (name, text)."""
    is_map = False

    def __init__(self, address):
        self.address = address

    def items(self, depth):
        return iter(())


class MutableString(Thing):
    def summary(self):
        return quoted_at(*(MUTABLE_STRING.get(self.address, of) for of in ("chars", "length")))


class ConstString(Thing):
    def summary(self):
        most = most_elements()
        data = c_text(CONST_STRING.get(self.address, "chars"), most + 1)
        return quoted(data[:most], len(data) > most)


class Row(Thing):
    layout, what = LIST, "member"

    def summary(self):
        count = self.layout.get(self.address, "count")
        owned = ", owned" if self.layout.get(self.address, "owns") else ""
        return counted(count, self.what) + owned

    def items(self, depth):
        data, size = self.layout.get(self.address, "data"), pointer_size()
        for i in range(self.layout.get(self.address, "count")):
            yield f"[{i}]", member(word(data + i * size), depth)


class Array(Row):
    layout, what = ARRAY, "slot"


class HashMap(Thing):
    def place(self):
        return self.address

    def cells(self):
        """The address of each entry's cell. Buckets are read many at a time: most may be empty."""
        size, row = pointer_size(), HASH_MAP.at(self.place(), "buckets")
        table = word(ARRAY.get(row, "data"))
        start, count = (BUCKET_TABLE.get(table, part) for part in ("buckets", "count"))
        for first in range(start, start + 64 * count, 64 * 1024):
            block = read(first, min(64 * 1024, start + 64 * count - first))
            for at in range(0, len(block) if any(block) else 0, 64):
                if block[at + 2 * size + 4]:
                    yield first + at
                rest = int.from_bytes(block[at + 64 - size:at + 64], "little")
                for i in range(REST.get(rest, "count") if rest else 0):
                    cell = rest + REST.size() + i * (64 - size)
                    if number(cell + 2 * size + 4, 1):
                        yield cell

    def summary(self):
        count = sum(1 for _ in itertools.islice(self.cells(), MOST_COUNTED))
        text = counted(count, "entry").replace("entrys", "entries")
        return "at least " + text if count == MOST_COUNTED else text

    def items(self, depth):
        for i, cell in enumerate(self.cells()):
            yield f"[{i}]", member(word(cell), depth)


class KeyMap(HashMap):
    is_map = True

    def place(self):
        return KEY_MAP.at(self.address, "entries")

    def items(self, depth):
        for cell in self.cells():
            yield member(word(cell), depth), member(word(cell + pointer_size()), depth)


class KeyEntry(Thing):
    def summary(self):
        key, value = (member(KEY_ENTRY.get(self.address, part), 1) for part in ("key", "value"))
        return f"{key} = {value}"


class Buffer(Thing):
    def summary(self):
        length = BUFFER.get(self.address, "length")
        most = min(length, most_elements())
        data = read(BUFFER.get(self.address, "bytes"), most) if length else b""
        text = "".join(chr(c) if 32 <= c < 127 and c not in b'"\\' else f"\\x{c:02x}" for c in data)
        return counted(length, "byte") + f': "{text}"' + ("..." if most < length else "")


class Lock(Thing):
    def summary(self):
        owner, depth = word(LOCK.get(self.address, "owner")), LOCK.get(self.address, "depth")
        if owner == (1 << 8 * pointer_size()) - 1 or depth == 0:
            return "free"
        return f"held by {thread_text(owner)}, depth {depth}"


class Condition(Thing):
    def summary(self):
        return "condition, its lock " + Lock(CONDITION.get(self.address, "lock")).summary()


class BooleanCondition(Condition):
    def summary(self):
        return f"predicate {CONDITION.get(self.address, 'predicate')}, " + super().summary()


class ReadWriteLock(Thing):
    def summary(self):
        held = READ_WRITE_LOCK.get(self.address, "word")
        mode, waits, readers = held & 3, held & 4, held >> 3
        texts = []
        if mode:
            owner = thread_text(READ_WRITE_LOCK.get(self.address, "owner"))
            texts.append(("", "read", "protect", "write")[mode] + " by " + owner)
        if readers or not mode:
            texts.append("read by " + counted(readers, "reader") if readers else "free")
        return ", ".join(texts + (["threads wait"] if waits else []))


class ProcessLock(Thing):
    def summary(self):
        lock = self.address
        state = ("unset", "read", "protect", "write")[PROCESS_LOCK.get(lock, "state") & 3]
        threads = ReadWriteLock(PROCESS_LOCK.at(lock, "threads")).summary()
        return (quoted(text_bytes(PROCESS_LOCK.at(lock, "name"))) + f", {state}; threads: "
                f"{threads}; sequence {PROCESS_LOCK.get(lock, 'sequence')}")


class FileLock(ProcessLock):
    def summary(self):
        return super().summary() + "; file " + quoted(
            text_bytes(FILE_LOCK.at(self.address, "file")))


class ExceptionText(Thing):
    def summary(self):
        get = lambda name: EXCEPTION.get(self.address, name)  # noqa: E731
        where = c_text(get("file")).decode() + f":{get('line')}" if get("file") else "not thrown"
        name = c_text(get("name")).decode() if get("name") else "exception"
        return f"{name}, message {get('number')}, {where}"


class Properties(Thing):
    is_map = True

    def records(self):  # behind the vtable of the cache
        return word(PROPERTIES.get(self.address, "cache") + pointer_size())

    def free(self, pool, layout, chunk_size):
        """The numbers of records that are not in use."""
        found, at = set(), POOL.get(pool, "free")
        while at != NONE and at not in found:
            found.add(at)
            at = number(self.record(pool, layout, chunk_size, at), 4)
        return found

    def keys(self):
        """Of the first stanzas, as many as are shown."""
        pool = RECORDS.at(self.records(), "keys")
        free = self.free(pool, KEY, 64)
        used = (self.record(pool, KEY, 64, i) for i in range(POOL.get(pool, "count"))
                if i not in free)
        return sorted(itertools.islice(used, most_elements() + 1),
                      key=lambda key: KEY.get(key, "stanza"))

    @staticmethod
    def record(pool, layout, chunk_size, i):
        chunk = word(VECTOR.get(POOL.at(pool, "chunks"), "begin") + i // chunk_size * pointer_size())
        return chunk + i % chunk_size * layout.size()

    def values(self, key):
        """The texts of its values; an obfuscated one stays out of sight here, too."""
        if KEY.get(key, "obfuscated") != NONE:
            return ["(obfuscated)"]
        if not KEY.get(key, "value"):
            return ["(no value)"]
        found = [quoted_at(KEY.get(key, "value"), KEY.get(key, "valueLength"))]
        more = KEY.get(key, "more")
        if more != NONE:
            lists, values = (RECORDS.at(self.records(), part) for part in ("lists", "values"))
            at = VALUE_LIST.get(self.record(lists, VALUE_LIST, 64, more), "first")
            while at != NONE and len(found) < most_elements():
                value = self.record(values, VALUE, 64, at)
                found.append(quoted_at(VALUE.get(value, "text"), VALUE.get(value, "length")))
                at = VALUE.get(value, "next")
        return found

    def summary(self):
        name = text_bytes(PROPERTIES.at(self.address, "file"))
        texts = [quoted(name) if name else "no file"]
        pool = RECORDS.at(self.records(), "stanzas")
        count = POOL.get(pool, "count") - len(self.free(pool, STANZA, 16))
        texts.append(counted(count, "stanza"))
        if PROPERTIES.get(self.address, "modified"):
            texts.append("modified")
        lock = Lock(PROPERTIES.at(self.address, "lock")).summary()
        return ", ".join(texts + ([lock] if lock != "free" else []))

    def items(self, depth):
        stanzas = RECORDS.at(self.records(), "stanzas")
        for key in self.keys():
            stanza = self.record(stanzas, STANZA, 16, KEY.get(key, "stanza"))
            names = (c_text(part).decode("utf-8", "backslashreplace")
                     for part in (STANZA.get(stanza, "name"), KEY.get(key, "name")))
            place = shown("[{}] {}".format(*names))
            for value in self.values(key):
                yield place, value


READERS = {
    "ZLCString": MutableString, "ZUTF8String": MutableString,
    "ZLCConstString": ConstString, "ZUTF8ConstString": ConstString,
    "ZArrayList": Row, "ZArrayMap": Row, "ZArrayStack": Row, "ZArray": Array,
    "ZHashMap": HashMap, "ZHashKeyMap": KeyMap, "ZKeyEntry": KeyEntry,
    "ZBuffer": Buffer, "ZConstBuffer": Buffer,
    "ZLock": Lock, "ZCondition": Condition, "ZBooleanCondition": BooleanCondition,
    "ZReadWriteLock": ReadWriteLock, "ZStubProcessReadWriteLock": ProcessLock,
    "ZUnixProcessReadWriteFileLock": FileLock, "ZStubProcessReadWriteFileLock": FileLock,
    "ZException": ExceptionText, "ZProperties": Properties,
}
