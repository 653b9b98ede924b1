"""Measures, and writes the report or compares with the recorded results. Called by bench.sh.

usage: run.py [--check] [--m32] [--part] [--java CLASSES] [--seconds N] PROGRAM...
"""
import argparse
import sys

import report
import results
from measure import measure

TOLERATED = 1.2


def ratios(costs):
    """{(row, size): our cost over the best other side's}."""
    rows = results.with_goals(costs)
    return {key: row.ratio(row.best) for key, row in rows.items()
            if row.best and row.ratio(row.best) is not None}


def worse(costs, recorded):
    """The rows, {(row, size): (recorded ratio, ratio now)}, that lost too much."""
    before, now = ratios(recorded), ratios(costs)
    return {key: (before[key], ratio) for key, ratio in now.items()
            if key in before and ratio > before[key] * TOLERATED}


def check(arguments, costs, recorded):
    """Measures a second time what got worse; exits 1 when it still is."""
    suspects = worse(costs, recorded)
    if suspects:
        print(f"{len(suspects)} ratios got worse; measuring these rows again")
        again = measure(arguments.programs, arguments.java, arguments.seconds,
                        sorted({row for row, _ in suspects}))
        suspects = {key: pair for key, pair in worse(again, recorded).items() if key in suspects}
    for (row, size), (before, now) in suspects.items():
        print(f"worse: {row}{f', {size}' if size else ''}: {before:.2f} before, {now:.2f} now")
    if suspects:
        sys.exit(1)
    print("no ratio got worse by more than a fifth")


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--m32", action="store_true")
    parser.add_argument("--part", action="store_true", help="keep the record of all other rows")
    parser.add_argument("--java")
    parser.add_argument("--seconds", type=float, default=480)
    parser.add_argument("programs", nargs="*")
    arguments = parser.parse_args()

    record = report.RECORD_32 if arguments.m32 else report.RECORD
    recorded = results.load(record)
    costs = measure(arguments.programs, arguments.java, arguments.seconds)
    if not costs:
        sys.exit("error: nothing was measured")
    if arguments.check:
        return check(arguments, costs, recorded)
    results.save(record, recorded | costs if arguments.part else costs)
    report.MACHINE.write_text(report.machine() + "\n")
    report.write()
    print("written: docs/benchmarks.md and docs/benchmarks/*.svg")


main()
