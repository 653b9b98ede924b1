#!/usr/bin/env python3
"""Prints the lines and branches that a gcovr summary counts, for each room of src and in all; exits 1
when the share of branches in all is below a limit.

usage: coverage_rooms.py SUMMARY.json PERCENT
"""
import json
import sys
from collections import Counter, defaultdict
from pathlib import Path

KINDS = ("line_covered", "line_total", "branch_covered", "branch_total")


def room_of(path):
    folders = Path(path).parts[1:-1]
    if folders == ("Z",):
        return "public headers"
    return folders[1] if folders[0] == "Z" else folders[0]


def share(counts, kind):
    total = counts[f"{kind}_total"]
    return 100 * counts[f"{kind}_covered"] / total if total else 100.0


def show(title, counts):
    print(f"{title:<16}{counts['line_total']:>7}{share(counts, 'line'):>8.1f} %"
          f"{counts['branch_total']:>9}{share(counts, 'branch'):>8.1f} %")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        files = json.load(file)["files"]
    rooms = defaultdict(Counter)
    for entry in files:
        rooms[room_of(entry["filename"])].update({kind: entry[kind] for kind in KINDS})
    in_all = sum(rooms.values(), Counter())
    print(f"{'room':<16}{'lines':>7}{'run':>10}{'branches':>9}{'taken':>10}")
    for room in sorted(rooms):
        show(room, rooms[room])
    show("src", in_all)
    if share(in_all, "branch") < float(sys.argv[2]):
        sys.exit(f"error: less than {sys.argv[2]} % of the branches of src are taken")


main()
