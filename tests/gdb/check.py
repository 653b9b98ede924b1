#!/usr/bin/env python3
"""Runs gdb on the sample program and compares what it prints.

The printers come by themselves, first from beside the library of the build, then from where an
installation puts them.
usage: check.py BUILD_DIR SAMPLE LIBRARY_DIR
"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

THREAD = r"thread (1 \(LWP \d+\)|0x[0-9a-f]+)"
SETTINGS = ('no file, 2 stanzas, modified = {[server] host = "east", [server] listen = "a", '
            '[server] listen = "b", [server] listen = "c", [log] rotate = (no value), '
            '[log] password = (obfuscated)}')
# At each stop, commands and what they print: text, or a compiled expression.
STOPS = [[
    ("print samples->local", '"it\'s \\"grün\\"\\n\\xff"'),
    ("print samples->longText", '"' + "0123456789" * 20 + '"...'),
    ("print samples->view", '"shown"'),
    ("print *seenAsString", '"shown"'),
    ("print *seenAsList",
     re.compile(r'3 members, owned = \{\[0\] = "derived", \[1\] = 0 members, owned, '
                r"\[2\] = \{.*x = 4, y = 2\}\}")),
    ("zprint seenAsList", re.compile(r'3 members, owned \{"derived", 0 .*x = 4, y = 2\}\}')),
    ("print samples->array", '2 slots = {[0] = null, [1] = "it\'s \\"grün\\"\\n\\xff"}'),
    ("print samples->map",
     re.compile(r'20 entries = \{(\[\d+\] = "(1?\d)"(, )?){20}\}')),
    ("print samples->keys", '2 entries = {"0" = "derived", "10" = "derived"}'),
    ("print samples->buffer", '5 bytes: "\\x01a\\x22b\\x00"'),
    ("print samples->lock", "free"),
    ("print samples->condition", "predicate 0, condition, its lock free"),
    ("print samples->readers", "free"),
    ("print samples->shared",
     '"counter", unset; threads: free; sequence 0; file "./._zplcounter"'),
    ("print samples->settings", SETTINGS),
    ("print *failure", "ZInvalidParameterException, message 22, not thrown"),
    ('print $_streq($ztext(samples->view), "shown")', "true"),
    ("set print elements 2", ""),
    ("print samples->local", '"it"...'),
    ("print *seenAsList", re.compile(r'3 members.*\[0\] = "de"\.\.\., \[1\] = 0 .*\.\.\.\}')),
    ("zprint 8", "Error: there is no object of the library"),
], [
    ("print samples->lock", re.compile(f"held by {THREAD}, depth 3")),
    ("print samples->readers", re.compile(f"protect by {THREAD}, read by 1 reader")),
    ("print samples->writer", re.compile(f"write by {THREAD}")),
    ("print samples->shared", re.compile(r'"counter", read; threads: read by 1 reader; .*')),
    ("zbreak ZReadWriteLock::unlock", re.compile(r"Breakpoint 2 at .*")),
], [
    ("info symbol $pc", re.compile(r"ZReadWriteLock_\w+::unlock\(\).*")),
]]


def script():
    """The commands for gdb, each answer between marks."""
    lines = ["set width 0", "set charset UTF-8", "set confirm off", "break stopHere", "run"]
    for stop in STOPS:
        for command, _ in stop:
            guarded = f"python\ntry:\n  gdb.execute({command!r})\nexcept gdb.error as e:\n" \
                      '  print("Error: " + str(e))\nend'
            lines += ["echo <<<", guarded, "echo >>>\\n"]
        lines.append("continue")
    return "\n".join(lines) + "\n"


def answers(sample, directory, *options):
    commands = Path(directory) / "commands.gdb"
    commands.write_text(script())
    run = subprocess.run(["gdb", "-batch", "-nx", *options, "-x", commands, sample], text=True,
                         capture_output=True, cwd=directory, encoding="utf-8", check=False)
    found = re.findall(r"<<<(.*?)>>>", run.stdout, re.S)
    return [re.sub(r"^\$\d+ = ", "", each.strip()) for each in found], run.stdout + run.stderr


def differences(found):
    for (command, expected), answer in zip((row for stop in STOPS for row in stop), found):
        matches = expected.fullmatch(answer) if isinstance(expected, re.Pattern) \
            else expected == answer
        if not matches:
            yield f"{command}: expected {expected}, not {answer}"


def main():
    build, sample, library = sys.argv[1:]
    with tempfile.TemporaryDirectory() as directory:
        subprocess.run(["cmake", "--install", build, "--prefix", f"{directory}/installed"],
                       check=True, capture_output=True)
        scripts = f"{directory}/installed/share/gdb/auto-load"
        ways = [("beside the library", "-iex", f"add-auto-load-safe-path {library}"),
                ("installed", "-iex", f"add-auto-load-scripts-directory {scripts}",
                 "-iex", f"add-auto-load-safe-path {scripts}",
                 "-iex", f"set environment LD_LIBRARY_PATH {directory}/installed/lib")]
        for way, *options in ways:
            found, output = answers(sample, directory, *options)
            wrong = list(differences(found))
            if wrong or len(found) != sum(map(len, STOPS)):
                sys.exit("\n".join([f"printers that are {way}:", *wrong, output]))


main()
