"""What was measured: rows, each with its sizes and sides. Read from the benchmark programs' output,
kept in a table, and held against the goals."""
import csv
import json
import statistics
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
GOALS = ROOT / "bench/goals.tsv"
FLOOR, OURS = "floor", "ours"
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


@dataclass
class Cost:
    """Of one operation, in nanoseconds; `bytes_per_key` is 0 where memory was not measured."""
    time: float
    bytes_per_key: float = 0.0


@dataclass
class Row:
    """One line of the report."""
    name: str
    size: int  # 0: it has none
    group: str = "more"
    goals: list = field(default_factory=list)  # texts of goals.tsv
    sides: dict = field(default_factory=dict)  # side: Cost

    @property
    def peers(self):
        """What others have: another way of ours, such as "ours by an object", is none."""
        return {side: cost.time for side, cost in self.sides.items()
                if side != FLOOR and not side.startswith(OURS)}

    @property
    def best(self):
        """The best peer's name, the floor's where no peer does this; None without either."""
        peers = self.peers
        return min(peers, key=peers.get) if peers else FLOOR if FLOOR in self.sides else None

    def ratio(self, side):
        """Our cost over that of `side`; None where one of the two was not measured."""
        if OURS not in self.sides or side not in self.sides:
            return None
        return self.sides[OURS].time / self.sides[side].time


def read_goals():
    """{(row, size): Row} of all rows of the table, in its order."""
    rows = {}
    lines = [line for line in GOALS.read_text().splitlines() if not line.startswith("#")]
    for line in csv.DictReader(lines, delimiter="\t", quoting=csv.QUOTE_NONE):
        for size in (0,) if line["sizes"] == "-" else map(int, line["sizes"].split()):
            goals = [] if line["goals"] == "-" else line["goals"].split("; ")
            rows[line["row"], size] = Row(line["row"], size, line["group"], goals)
    return rows


def is_met(row, goal, rows):
    """Whether one goal of a row is reached; None while a side that it needs was not measured."""
    number, _, of = goal.partition(" ")
    limit = float(number)
    if OURS not in row.sides:
        return None
    time = row.sides[OURS].time
    if of == "GB/s":
        return row.size / time >= limit
    if of.startswith("ours/"):
        size = int(of.removeprefix("ours/"))
        base = rows.get((row.name, size))
        return None if base is None or OURS not in base.sides else \
            time <= limit * base.sides[OURS].time
    ratio = row.ratio(of or row.best)
    return None if ratio is None else ratio <= limit


def cost_of(run):
    """(time, bytes per key) of one repetition. A benchmark whose iterations handle many things says
    how many in its counter "per", or in the items that it has processed."""
    time = run["real_time"] * NANOSECONDS[run["time_unit"]]
    if "per" in run:
        time /= run["per"]
    elif "items_per_second" in run:
        time = 1e9 / run["items_per_second"]
    return time, run.get("bytes_per_key", 0.0)


def key_of(name):
    """(row, side, size) of ROW/SIDE, ROW/SIDE/SIZE, and what Google Benchmark adds; None for a name
    of another kind. Several numbers are settings that the row's name tells."""
    row, _, rest = name.partition("/")
    side, *more = rest.split("/")
    if not row or not side or side.isdigit() or side == "real_time":
        return None
    threads = next((part.removeprefix("threads:") for part in more if "threads:" in part), "1")
    if threads != "1" and "threads" not in row:
        row += f", {threads} threads"
    numbers = [part for part in more if part.isdigit()]
    return row, side, int(numbers[0]) if len(numbers) == 1 else 0


def read_output(path, samples):
    """Adds the repetitions of one output file to `samples`, {(row, size, side): [cost, ...]}."""
    # A program that has none of the rows asked for leaves its output empty.
    for run in json.loads(path.read_text() or '{"benchmarks": []}')["benchmarks"]:
        key = key_of(run["name"])
        if run.get("run_type") == "iteration" and not run.get("error_occurred") and key:
            row, side, size = key
            samples.setdefault((row, size, side), []).append(cost_of(run))


def medians(samples):
    return {key: Cost(*(statistics.median(part) for part in zip(*costs)))
            for key, costs in samples.items()}


def with_goals(costs):
    """{(row, size): Row} of what was measured on our side and of what has a goal."""
    rows = read_goals()
    groups = {row.name: row.group for row in rows.values()}
    for (name, size, side), cost in costs.items():
        if (name, size, OURS) not in costs and (name, size) not in rows:
            continue
        row = rows.setdefault((name, size), Row(name, size, groups.get(name, "more")))
        row.sides[side] = cost
    return rows


def load(path):
    """The costs that save() has written; none where there is no such file."""
    if not path.exists():
        return {}
    with path.open(newline="") as file:
        return {(line["row"], int(line["size"]), line["side"]):
                Cost(float(line["ns"]), float(line["bytes_per_key"]))
                for line in csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE)}


def save(path, costs):
    lines = ["row\tsize\tside\tns\tbytes_per_key"]
    lines += [f"{row}\t{size}\t{side}\t{cost.time:.4g}\t{cost.bytes_per_key:.4g}"
              for (row, size, side), cost in sorted(costs.items())]
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join(lines) + "\n")
