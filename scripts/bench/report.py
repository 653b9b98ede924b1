"""Writes docs/benchmarks.md and its plots from the tables of results.

usage: report.py
"""
import os
import re
import subprocess
from pathlib import Path

import plot
import results

DOCS = results.ROOT / "docs"
PLOTS = DOCS / "benchmarks"
RECORD = PLOTS / "results.tsv"
RECORD_32 = PLOTS / "results-32.tsv"
MACHINE = PLOTS / "machine.txt"
REASONS = results.ROOT / "bench" / "reasons.tsv"
LINES = ("configuration", "maps", "lists")  # groups whose rows are plotted against their size


def machine():
    """The machine in words, without its name."""
    def first(path, pattern):
        found = re.search(pattern, Path(path).read_text(), re.MULTILINE)
        return found.group(1).strip() if found else "unknown"

    memory = int(first("/proc/meminfo", r"^MemTotal:\s*(\d+)")) / 2**20
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True,
                              check=False).stdout.strip()
    return (f"{os.cpu_count()} cores of {first('/proc/cpuinfo', r'^model name.*: (.*)')}, "
            f"{memory:.0f} GiB of memory, {first('/etc/os-release', r'PRETTY_NAME=.(.*).$')}, "
            f"g++ {compiler}, -O2")


def ratio_text(ratio):
    return "" if ratio is None else f"{ratio:.2f}"


def time_text(row, side):
    return plot.in_words(row.sides[side].time) if side in row.sides else ""


def goal_text(row, rows):
    """The goals, those that are not reached in bold."""
    words = []
    for goal in row.goals:
        met = results.is_met(row, goal, rows)
        words.append(f"**{goal}**" if met is False else f"{goal} ?" if met is None else goal)
    return ", ".join(words)


def line_of(row, rows, rows_32):
    best = row.best
    memory = row.sides["ours"].bytes_per_key if "ours" in row.sides else 0
    cells = [row.name.replace("|", "\\|"), f"{row.size:,}" if row.size else "",
             time_text(row, "ours"), f"{best} {time_text(row, best)}" if row.peers else "",
             ratio_text(row.ratio(best)) if row.peers else "", ratio_text(row.ratio("floor")),
             f"{memory:.0f}" if memory else ""]
    if rows_32:
        other = rows_32.get((row.name, row.size))
        cells.append("" if other is None else
                     f"{time_text(other, 'ours')} {ratio_text(other.ratio(other.best))}".strip())
    return "| " + " | ".join([*cells, goal_text(row, rows)]) + " |"


def table(group_rows, rows, rows_32):
    heads = ["", "size", "ours", "best peer", "ratio", "to the floor", "bytes a key"]
    heads += ["32 bits: ours, ratio"] if rows_32 else []
    heads.append("goal")
    body = [line_of(row, rows, rows_32) for row in group_rows]
    return "\n".join(["| " + " | ".join(heads) + " |", "|---" * len(heads) + "|", *body])


def count_goals(rows):
    verdicts = [results.is_met(row, goal, rows) for row in rows.values() for goal in row.goals]
    return verdicts.count(True), verdicts.count(False), verdicts.count(None)


def introduction(rows):
    met, missed, unknown = count_goals(rows)
    unmeasured = f", {unknown} were not measured" if unknown else ""
    return f"""# Benchmarks

Written by `./scripts/bench.sh`, on {MACHINE.read_text().strip()}.

Of {met + missed + unknown} goals {met} are reached, {missed} are not{unmeasured}.

Every time is the median of several runs; the sides of a row run in turns, in random order, so that
what disturbs the machine disturbs all of them. The ratio is ours to the best peer's: below 1 is
faster. The floor is the least work that gives the same answer. A goal is a ratio to the best peer,
or to the side that stands behind it; one that is not reached is bold, one that was not measured has
a question mark. Times of rows that handle many keys are per key.
"""


def reasons(rows):
    """What is known of the rows that miss a goal, and of those whose bound is not ours to move."""
    missed = {row.name for row in rows.values()
              if any(results.is_met(row, goal, rows) is False for goal in row.goals)}
    lines = []
    for line in REASONS.read_text().splitlines():
        if line.startswith("#"):
            continue
        name, kind, reason = line.split("\t")
        if kind == "always" or name in missed:
            lines.append(f"- **{name.replace('|', chr(92) + '|')}**: {reason}")
    return "## Why\n\n" + "\n".join(lines) + "\n"


def write():
    rows = results.with_goals(results.load(RECORD))
    rows_32 = results.with_goals(results.load(RECORD_32)) if RECORD_32.exists() else {}
    groups = {}
    for row in rows.values():
        groups.setdefault(row.group, []).append(row)
    parts = [introduction(rows)]
    for group, group_rows in groups.items():
        parts.append(f"## {group.capitalize()}\n")
        shown = [row for row in group_rows if row.best and "ours" in row.sides]
        if shown:
            name = group.replace(" ", "-") + ".svg"
            (PLOTS / name).write_text((plot.lines if group in LINES else plot.bars)(shown))
            parts.append(f"![{group}](benchmarks/{name})\n")
        parts.append(table(group_rows, rows, rows_32) + "\n")
    parts.append(reasons(rows))
    (DOCS / "benchmarks.md").write_text("\n".join(parts))


if __name__ == "__main__":
    write()
