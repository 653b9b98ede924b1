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

MOST_ROUNDS = 5
SHARE = 20  # seconds of a round that a program may repeat its rows in
MOST_REPETITIONS = 5
JAVA_ROWS = "properties file"
LONGEST = 300  # seconds of one program; one that takes longer hangs


def pattern(names):
    """What selects the rows of these names, or all of them, among the benchmarks of a program."""
    # Of a row on several threads the report adds their number.
    plain = sorted({re.sub(r", \d+ threads$", "", name) for name in names})
    row = "|".join(re.sub(r"[][.(){}*+?|^$\\]", r"\\\g<0>", name) for name in plain) or "[^/]+"
    return f"^({row})/[A-Za-z][^/]*(/|$)"


def run_program(program, output, names, repetitions):
    """The rows of a Google Benchmark program, all of them when `names` is empty, and their sides in
    random order, as often as told."""
    subprocess.run(
        [program, f"--benchmark_filter={pattern(names)}", f"--benchmark_out={output}",
         "--benchmark_out_format=json", f"--benchmark_repetitions={repetitions}",
         "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.02"],
        check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=LONGEST)


def run_java(classes, output):
    with output.open("w") as file:
        subprocess.run(["java", "-Xmx3g", "-cp", classes, "JavaProperties"], check=True,
                       stdout=file, timeout=LONGEST)


def timed(name, run, output, samples):
    """Runs one program and reads its output; the seconds that took. A failure is told, and costs
    the program's rows alone."""
    output.write_text("")
    start = time.monotonic()
    try:
        run()
        results.read_output(output, samples)
    except (subprocess.SubprocessError, OSError, ValueError) as failure:
        print(f"{name} failed: {failure}", file=sys.stderr)
    took = time.monotonic() - start
    print(f"    {name}: {took:.0f} s", flush=True)
    return took


def run_round(programs, java, output, names, samples, repetitions):
    """Runs every program, and notes in `repetitions` how often it may repeat its rows in the next
    round: those that take long once a round, so that the others get more samples."""
    for program in programs:
        times = repetitions.get(program, 1)
        took = timed(Path(program).name,
                     lambda: run_program(program, output, names, times), output, samples)
        repetitions[program] = max(1, min(MOST_REPETITIONS, int(SHARE * times / took)))
    if java is not None and (not names or any(name.startswith(JAVA_ROWS) for name in names)):
        timed("java", lambda: run_java(java, output), output, samples)


def measure(programs, java, seconds, names=()):
    """The median costs, {(row, size, side): Cost}, of all rows or of those named. Another round
    begins as long as it is likely to end within `seconds`; one is always made."""
    samples, repetitions = {}, {}
    directory = Path(tempfile.mkdtemp())
    start = time.monotonic()
    for done in range(1, MOST_ROUNDS + 1):
        print(f"round {done}", flush=True)
        run_round(programs, java, directory / "output.json", names, samples, repetitions)
        if (time.monotonic() - start) * (done + 1) / done > seconds:
            break
    shutil.rmtree(directory)
    return results.medians(samples)
