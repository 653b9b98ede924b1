#!/usr/bin/env python3
"""Plants faults into src and counts those that the tests notice; scripts/plant_faults.sh runs it."""
import argparse
import os
import shutil
import signal
import sys
import time
from collections import Counter, defaultdict
from pathlib import Path

import building
import candidates
import running

ROOT = Path(__file__).resolve().parents[2]
OUT = ROOT / "build" / "faults"
LEAST_LIMIT, TIMES_NORMAL = 10.0, 5


def arguments():
    parser = argparse.ArgumentParser(prog="plant_faults.sh")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--room")
    parser.add_argument("--tree", type=Path, default=ROOT)
    parser.add_argument("--list", action="store_true")
    return parser.parse_args()


def say(*words):
    print(*words, flush=True)


class Selection:
    """Per room the lowest-ranked faults up to its quota; one that is none gives way to the next."""

    def __init__(self, faults, quota):
        self.waiting = {room: list(faults.get(room, [])) for room in quota}
        self.wanted = dict(quota)

    def next(self):
        """The lowest-ranked of those that a room still wants; None when there is none now."""
        rooms = [room for room in self.wanted if self.wanted[room] > 0 and self.waiting[room]]
        if not rooms:
            return None
        room = min(rooms, key=lambda r: self.waiting[r][0].rank)
        self.wanted[room] -= 1
        return self.waiting[room].pop(0)

    def replace(self, fault):
        self.wanted[fault.room] += 1


class Order:
    """Which programs to ask first: those that noticed much nearby, for the time that they take."""

    def __init__(self, programs, seconds):
        self.programs, self.seconds, self.noticed = programs, seconds, Counter()

    def count(self, fault, name):
        for near in (fault.path, fault.room, ""):
            self.noticed[near, name] += 1

    def gain(self, fault, program):
        score = 0.05 + (1.0 if program.room == fault.room else 0.0)
        score += (1.0 if shared_word(fault.path, program.name) else 0.0)
        score += 2.0 * self.noticed[fault.path, program.name]
        score += 0.5 * self.noticed[fault.room, program.name] + 0.1 * self.noticed["", program.name]
        return score / (self.seconds[program.name] + (0.4 if program.link else 0.1))

    def programs_for(self, fault):
        ranked = sorted(self.programs, key=lambda program: -self.gain(fault, program))
        return [(program.name, max(LEAST_LIMIT, TIMES_NORMAL * self.seconds[program.name]))
                for program in ranked]


def shared_word(path, name):
    """Does the program's name say the file's, as list_test of ZList.cpp?"""
    subject = name.removesuffix("_test").replace("_", "")
    stem = Path(path).stem.lower().replace("_", "")
    return subject in stem or stem.removeprefix("z") in subject


class Report:
    """The outcome so far, on the terminal and in a table."""

    def __init__(self, options):
        self.rows, self.begin = [], time.monotonic()
        tree = options.tree.resolve()
        parts = ["faults", options.room, None if tree == ROOT else tree.name, str(options.seed)]
        self.table = OUT / ("-".join(filter(None, parts)) + ".tsv")
        self.wanted = options.count

    def add(self, fault, outcome, name):
        self.rows.append((fault, outcome, name))
        with open(self.table, "w", encoding="utf-8") as file:
            print("outcome", "program", "room", "file:line", "kind", "before", "after", "rank",
                  sep="\t", file=file)
            for row, ended, noticed_by in sorted(self.rows, key=lambda r: (r[0].path, r[0].line)):
                print(ended, noticed_by or "-", row.room, f"{row.path}:{row.line}", row.kind,
                      row.before, row.after, row.rank, sep="\t", file=file)
        if outcome == "not caught":
            say(survivor(fault))
        counted = self.counted()
        if counted and len(counted) % 20 == 0 and self.counts(outcome):
            minutes = (time.monotonic() - self.begin) / 60
            say(f"-- {len(counted)} of {self.wanted}, {share(counted)} caught, "
                f"{len(counted) / minutes:.1f} a minute")

    @staticmethod
    def counts(outcome):
        return outcome == "not caught" or outcome.startswith("caught")

    def counted(self):
        return [row for row in self.rows if self.counts(row[1])]

    def close(self):
        rooms, counted = defaultdict(list), self.counted()
        for row in counted:
            rooms[row[0].room].append(row)
        say("\nnot caught:")
        for fault in sorted((r[0] for r in counted if r[1] == "not caught"),
                            key=lambda f: (f.path, f.line)):
            say(survivor(fault))
        say(f"\n{'room':<16}{'faults':>8}{'caught':>8}{'share':>9}")
        for room in sorted(rooms):
            say(figures(room, rooms[room]))
        say(figures("all", counted))
        others = Counter(row[1] for row in self.rows if not self.counts(row[1]))
        say("left out:", ", ".join(f"{n} ({why})" for why, n in others.items()) or "none")
        say(f"{(time.monotonic() - self.begin) / 60:.0f} minutes; the whole table: {self.table}")


def survivor(fault):
    return f"{fault.path}:{fault.line}: {fault.before} -> {fault.after}"


def caught(rows):
    return sum(row[1] != "not caught" for row in rows)


def share(rows):
    return f"{100 * caught(rows) / len(rows):.1f} %"


def figures(title, rows):
    return f"{title:<16}{len(rows):>8}{caught(rows):>8}{share(rows) if rows else '-':>9}"


def check_programs(workers, built):
    """Runs all programs without a fault: {program: seconds}; ends all when one fails."""
    tasks, seconds = [program.name for program in built.programs], {}

    def done(name, outcome):
        ended, seconds[name] = outcome
        if ended != "passed":
            raise SystemExit(f"error: {name} {ended} without any fault planted")

    workers.run(lambda: (name := tasks.pop(), "check", (name, running.FIRST_LIMIT)) if tasks else None,
                done)
    return seconds


def plant(selection, order, workers, report):
    def next_task():
        fault = selection.next()
        return fault and (fault, "test", (fault, order.programs_for(fault)))

    def done(fault, result):
        outcome, name = result
        if name:
            order.count(fault, name)
        if not Report.counts(outcome):
            selection.replace(fault)
        report.add(fault, outcome, name)

    workers.run(next_task, done)


def remove_leftovers():
    """Folders of runs that were killed."""
    for work in OUT.glob("work-*"):
        if not Path(f"/proc/{work.name.removeprefix('work-')}").exists():
            shutil.rmtree(work, ignore_errors=True)


def chosen(faults, lines, options):
    if options.room and options.room not in lines:
        raise SystemExit(f"error: no room \"{options.room}\"; there are {', '.join(sorted(lines))}")
    if options.room:
        lines = {options.room: lines[options.room]}
    return Selection(faults, candidates.quotas(lines, options.count))


def main():
    options = arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    faults, lines = candidates.ranked_faults(options.tree.resolve(), options.seed)
    selection = chosen(faults, lines, options)
    if options.list:
        for fault in iter(selection.next, None):
            say(survivor(fault))
        return
    OUT.mkdir(parents=True, exist_ok=True)
    remove_leftovers()
    work = OUT / f"work-{os.getpid()}"
    try:
        work.mkdir()
        say("building", options.tree, "...")
        built = building.build_all(options.tree.resolve(), work / "tree", OUT / "build.log")
        owns = [building.Own(built, work / f"worker-{n}") for n in range(os.cpu_count() or 1)]
        with running.Workers(owns) as workers:
            seconds = check_programs(workers, built)
            say(f"{len(seconds)} programs pass in {sum(seconds.values()):.0f} s without a fault")
            report = Report(options)
            plant(selection, Order(built.programs, seconds), workers, report)
            report.close()
    finally:
        shutil.rmtree(work, ignore_errors=True)


main()
