"""Runs benchmark programs in rounds, so that what disturbs the machine for a while disturbs every
side alike, and gives the medians."""
import re
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import results

REPETITIONS = 3  # in a round, the rows and sides of a program in random order
MOST_ROUNDS = 3


def pattern(names):
    """What selects the rows of these names, or all of them, among the benchmarks of a program."""
    # Of a row on several threads the report adds their number.
    plain = sorted({re.sub(r", \d+ threads$", "", name) for name in names})
    row = "|".join(re.sub(r"[][.(){}*+?|^$\\]", r"\\\g<0>", name) for name in plain) or "[^/]+"
    return f"^({row})/[A-Za-z][^/]*(/|$)"


def run_program(program, output, names):
    """One round of a Google Benchmark program; of all its rows when `names` is empty."""
    subprocess.run(
        [program, f"--benchmark_filter={pattern(names)}", f"--benchmark_out={output}",
         "--benchmark_out_format=json", f"--benchmark_repetitions={REPETITIONS}",
         "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.02"],
        check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def run_java(classes, output):
    with output.open("w") as file:
        subprocess.run(["java", "-Xmx3g", "-cp", classes, "JavaProperties"], check=True, stdout=file)


def run_round(programs, java, directory, names, samples):
    for program in programs:
        output = directory / "output.json"
        output.write_text('{"benchmarks": []}')
        start = time.monotonic()
        try:
            run_program(program, output, names)
            results.read_output(output, samples)
        except (subprocess.CalledProcessError, ValueError) as failure:
            print(f"{Path(program).name} failed: {failure}", file=sys.stderr)
        print(f"    {Path(program).name}: {time.monotonic() - start:.0f} s", flush=True)
    if java is not None:
        run_java(java, directory / "java.json")
        results.read_output(directory / "java.json", samples)


def measure(programs, java, seconds, names=()):
    """The median costs, {(row, size, side): Cost}, of all rows or of those named. Another round
    begins as long as it is likely to end within `seconds`; one is always made."""
    samples = {}
    directory = Path(tempfile.mkdtemp())
    start = time.monotonic()
    for done in range(1, MOST_ROUNDS + 1):
        print(f"round {done}", flush=True)
        run_round(programs, java, directory, names, samples)
        if (time.monotonic() - start) * (done + 1) / done > seconds:
            break
    shutil.rmtree(directory)
    return results.medians(samples)
