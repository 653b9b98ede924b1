"""SVG plots of the rows: cost against size on logarithmic axes, or bars beside the best peer's."""
import math
from html import escape

COLOURS = {"ours": "#0b6e4f", "floor": "#9a9a9a"}
PEER_COLOURS = ("#d1495b", "#30638e", "#edae49", "#7b4f9d", "#00a6a6", "#8a5a44")
STYLE = ('<style>text{font:12px sans-serif;fill:#222}.title{font-weight:bold}'
         '.axis{stroke:#bbb;fill:none}.small{font-size:10px;fill:#666}</style>')
WIDTH, HEIGHT, MARGIN, COLUMNS = 330, 220, 46, 2  # of one panel


def colours_of(rows):
    """A colour for every side, the same in all panels."""
    peers = sorted({side for row in rows for side in row.sides} - set(COLOURS))
    return COLOURS | {side: PEER_COLOURS[i % len(PEER_COLOURS)] for i, side in enumerate(peers)}


def in_words(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def document(width, height, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
            f'viewBox="0 0 {width} {height}">{STYLE}'
            f'<rect width="{width}" height="{height}" fill="white"/>\n' + "\n".join(parts)
            + "\n</svg>\n")


def text(x, y, words, anchor="start", kind=""):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" class="{kind}">'
            f'{escape(words)}</text>')


def legend(x, y, colours):
    parts = []
    for side, colour in colours.items():
        parts.append(f'<rect x="{x}" y="{y - 9}" width="10" height="10" fill="{colour}"/>')
        parts.append(text(x + 14, y, side))
        x += 26 + 7 * len(side)
    return parts


class Scale:
    """Maps the logarithm of a value to a range of pixels."""

    def __init__(self, values, low, high):
        self.first = math.floor(math.log10(min(values)))
        self.last = max(math.ceil(math.log10(max(values))), self.first + 1)
        self.low, self.high = low, high

    def at(self, value):
        share = (math.log10(value) - self.first) / (self.last - self.first)
        return self.low + share * (self.high - self.low)

    def decades(self):
        return [10.0 ** exponent for exponent in range(self.first, self.last + 1)]


def panel(name, rows, colours, left, top):
    """One row of the report at all its sizes."""
    sizes = Scale([row.size for row in rows], left + MARGIN, left + WIDTH - 14)
    costs = Scale([cost.time for row in rows for cost in row.sides.values()],
                  top + HEIGHT - 30, top + 28)
    parts = [text(left + MARGIN, top + 16, name, kind="title")]
    for value in sizes.decades():
        x = sizes.at(value)
        parts.append(f'<path class="axis" d="M{x:.1f} {costs.low}V{costs.high}"/>')
        parts.append(text(x, costs.low + 14, f"{value:,.0f}", "middle", "small"))
    for value in costs.decades():
        y = costs.at(value)
        parts.append(f'<path class="axis" d="M{sizes.low} {y:.1f}H{sizes.high}"/>')
        parts.append(text(sizes.low - 4, y + 4, in_words(value), "end", "small"))
    for side, colour in colours.items():
        points = [(sizes.at(row.size), costs.at(row.sides[side].time))
                  for row in rows if side in row.sides]
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in points]
    return parts


def lines(rows):
    """Cost against size, a panel for each row."""
    panels = {}
    for row in sorted(rows, key=lambda row: row.size):
        panels.setdefault(row.name, []).append(row)
    colours = colours_of(rows)
    parts = legend(MARGIN, 18, colours)
    for i, (name, sized) in enumerate(panels.items()):
        parts += panel(name, sized, colours, i % COLUMNS * WIDTH, 26 + i // COLUMNS * HEIGHT)
    height = 30 + math.ceil(len(panels) / COLUMNS) * HEIGHT
    return document(COLUMNS * WIDTH + 20, height, parts)


def bars(rows):
    """For each row the cost of every side, in units of the best peer's."""
    left, unit, most = 320, 120, 3.0
    colours = colours_of(rows)
    parts, y = legend(16, 18, colours), 40
    top = y
    for row in rows:
        parts.append(text(left - 8, y + 11, row.name + (f", {row.size:,}" if row.size else ""),
                          "end"))
        for side in (side for side in colours if side in row.sides):
            cost = row.sides[side].time
            share = cost / row.sides[row.best].time
            length = unit * min(share, most)
            parts.append(f'<rect x="{left}" y="{y}" width="{length:.1f}" height="11" '
                         f'fill="{colours[side]}"/>')
            parts.append(text(left + length + 4, y + 10,
                              in_words(cost) + (" (cut)" if share > most else ""), kind="small"))
            y += 13
        y += 9
    parts.append(f'<path d="M{left + unit} {top - 6}V{y}" stroke="#222" stroke-dasharray="3 3"/>')
    return document(left + int(unit * most) + 90, y + 8, parts)
