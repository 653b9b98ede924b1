#!/usr/bin/env python3
"""Four programs edit one stanza file at once, each adding numbered keys of its own; at the end every
key that was acknowledged has to be there.

usage: programs.py TORTURE ZPROP FILE SECONDS

- api: uses the library (TORTURE program FILE SECONDS);
- zprop: runs `zprop edit` again and again;
- locker: takes the record lock alone and rewrites the file in place;
- editor: writes a new file and renames it over the old one, with no lock for that.

What the last two have to do for it, docs/reliability.md says and replaced() and rename_over() show.
"""
import fcntl
import multiprocessing
import os
import re
import subprocess
import sys
import time

OURS = re.compile(rb"^(n\d+) = \1$")  # an update, whole


def with_keys(text, stanza, keys):
    """The text with the keys added behind the header of the stanza."""
    header = b"[" + stanza + b"]\n"
    lines = b"".join(key + b" = " + key + b"\n" for key in keys)
    return text.replace(header, header + lines, 1)


def keys_of(text):
    """The updates of each stanza that a text holds whole."""
    found, stanza = {}, b""
    for line in text.splitlines():
        if line.startswith(b"["):
            stanza = line[1:line.find(b"]")]
        elif match := OURS.match(line):
            found.setdefault(stanza, set()).add(match.group(1))
    return found


def is_whole(text):
    """Whether it is a state that somebody stored: while a file is rewritten others see less."""
    return text.endswith(b"\n[end]\nend = end\n")


def replaced(file, path):
    """Whether the path names another file by now."""
    held = os.fstat(file.fileno())
    try:
        named = os.stat(path)
    except FileNotFoundError:
        return True
    return (held.st_dev, held.st_ino) != (named.st_dev, named.st_ino)


def rewrite_locked(path, stanza, key):
    """One update; false when it has to be made again."""
    with open(path, "r+b", buffering=0) as file:
        fcntl.lockf(file, fcntl.LOCK_EX)
        if replaced(file, path):
            return False
        new = with_keys(file.read(), stanza, [key])
        # In one call: an editor that takes no lock may look at any time.
        os.pwrite(file.fileno(), new, 0)
        os.fsync(file.fileno())
        # Again: somebody who takes no lock may have put another file there meanwhile.
        return not replaced(file, path)


def lock_and_rewrite(path, end, count):
    while time.monotonic() < end:
        key = b"n%d" % count.value
        while not rewrite_locked(path, b"locker", key):
            pass
        count.value += 1
        time.sleep(0.002)


def read_locked(file):
    """What a store is writing may be seen half; a shared lock waits for the rest."""
    fcntl.lockf(file, fcntl.LOCK_SH)
    file.seek(0)
    text = file.read()
    fcntl.lockf(file, fcntl.LOCK_UN)
    return text


def rename_over(path, updates):
    """Writes the updates into a new file that replaces the old one. Answers those that have to be
    made again: all of them when somebody was faster; else what the old file got at the last moment
    from a program that could not know of the rename."""
    with open(path, "rb", buffering=0) as old:
        base = read_locked(old)
        text = base
        for stanza, keys in updates.items():
            text = with_keys(text, stanza, sorted(keys))
        temporary = path + ".editor"
        with open(temporary, "wb") as new:
            new.write(text)
        if read_locked(old) != base or replaced(old, path):
            return updates
        os.rename(temporary, path)
        old.seek(0)
        last = old.read()
        return missing(text, last) if last != base else {}


def missing(text, other):
    """The updates of `other` that `text` has not got."""
    have = keys_of(text)
    found = {name: keys - have.get(name, set()) for name, keys in keys_of(other).items()}
    return {name: keys for name, keys in found.items() if keys}


def edit_and_rename(path, end, count):
    while time.monotonic() < end:
        updates = {b"editor": {b"n%d" % count.value}}
        while updates:
            updates = rename_over(path, updates)
        count.value += 1
        time.sleep(0.005)


def run_zprop(zprop, path, end, count):
    while time.monotonic() < end:
        line = "set zprop n%d n%d\n" % (count.value, count.value)
        done = subprocess.run([zprop, "edit", "--wait", "60", path], input=line, text=True,
                              capture_output=True, check=False)
        if done.returncode == 0:
            count.value += 1
        else:
            print("zprop:", done.stderr.strip(), flush=True)
            time.sleep(0.01)


def start(path, lines):
    with open(path, "wb") as file:
        for stanza in (b"api", b"zprop", b"locker", b"editor"):
            file.write(b"[" + stanza + b"]\n\n")
        file.write(b"[filler]\n")
        for number in range(lines):
            file.write(b"f%d = %s\n" % (number, b"x" * 50))
        file.write(b"\n[end]\nend = end\n")


def main():
    torture, zprop, path, seconds = sys.argv[1:]
    start(path, 1000)
    end = time.monotonic() + float(seconds)
    counts = {name: multiprocessing.Value("i", 0) for name in ("zprop", "locker", "editor")}
    others = [
        multiprocessing.Process(target=run_zprop, args=(zprop, path, end, counts["zprop"])),
        multiprocessing.Process(target=lock_and_rewrite, args=(path, end, counts["locker"])),
        multiprocessing.Process(target=edit_and_rename, args=(path, end, counts["editor"])),
    ]
    with subprocess.Popen([torture, "program", path, seconds], stdout=subprocess.PIPE,
                          text=True) as api:
        for process in others:
            process.start()
        answer = api.communicate()[0]
    for process in others:
        process.join()
    acknowledged = {name: count.value for name, count in counts.items()}
    acknowledged["api"] = int(answer or 0)
    failed = api.returncode != 0 or any(process.exitcode != 0 for process in others)
    sys.exit(1 if report(path, acknowledged) or failed else 0)


def report(path, acknowledged):
    """Prints what was acknowledged and what of it is gone; the number of the latter."""
    with open(path, "rb") as file:
        text = file.read()
    have = keys_of(text)
    gone = 0
    print("\n| program | updates | lost |\n|---------|---------|------|")
    for name, count in acknowledged.items():
        lost = {b"n%d" % number for number in range(count)} - have.get(name.encode(), set())
        gone += len(lost)
        print("| %-7s | %7d | %4d |" % (name, count, len(lost)))
        gone += count == 0  # a program that did nothing shows nothing
    if not is_whole(text):
        print("the file is cut off")
        gone += 1
    return gone


if __name__ == "__main__":
    main()
