#!/usr/bin/env python3
"""Draws how the cost of one operation grows with size, a figure (SVG) per family: bench/report.py calls it.

  bench/growth.py JSON FOLDER

JSON is a benchmark's output with rows "growth: FAMILY, OPERATION, SIZE | CONTENDER". The figures are
FOLDER/performance-FAMILY.svg."""

import html
import math
import pathlib
import re
import sys

import ratios

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 78, 26, 44, 88

# Ours and the peer's by colour, operations by dash; the colours are told apart by the colour-blind
# too, and seen on white and on black.
STYLE = """
  text { font: 13px sans-serif; fill: #333 }
  .title { font-size: 15px; font-weight: bold }
  .grid { stroke: #bbb; stroke-width: 0.6 }
  .frame { stroke: #777; fill: none }
  .curve { fill: none; stroke-width: 2.2 }
  .ours { stroke: #0a78c2; fill: #0a78c2 }
  .peer { stroke: #d9730d; fill: #d9730d }
  .curve.ours, .curve.peer { fill: none }
  @media (prefers-color-scheme: dark) {
    .paper { fill: #15181c } text { fill: #ddd } .grid { stroke: #454b54 } .frame { stroke: #888 }
    .ours { stroke: #4fb3ff } circle.ours { fill: #4fb3ff }
    .peer { stroke: #ff9a3c } circle.peer { fill: #ff9a3c }
  }
"""
PAPER = "#fff"
DASHES = ["", "7 4"]


def is_growth(row):
    return row.startswith(ratios.GROWTH)


def families(rows):
    """{family: {(operation, contender): [(size, nanoseconds)]}}, in the order of the rows."""
    found = {}
    for row, entry in rows.items():
        if not is_growth(row):
            continue
        family, operation, size = re.fullmatch(r"growth: (.*), (.*), (\d+)", row).groups()
        for contender, time in entry["times"].items():
            found.setdefault(family, {}).setdefault((operation, contender), []).append((int(size), time))
    return found


def in_words(size):
    for word, unit in (("M", 10**6), ("k", 10**3)):
        if size >= unit:
            return f"{size // unit} {word}"
    return str(size)


def figure(family, curves):
    points = [point for curve in curves.values() for point in curve]
    sizes = sorted({size for size, _ in points})
    low = math.floor(math.log10(min(time for _, time in points)))
    high = max(low + 1, math.ceil(math.log10(max(time for _, time in points))))
    first, last = math.log10(sizes[0]), max(math.log10(sizes[-1]), math.log10(sizes[0]) + 1)

    def x_of(size):
        return LEFT + (math.log10(size) - first) / (last - first) * (WIDTH - LEFT - RIGHT)

    def y_of(time):
        return HEIGHT - BOTTOM - (math.log10(time) - low) / (high - low) * (HEIGHT - TOP - BOTTOM)

    title = html.escape(f"{family}: time of one operation by number of entries")
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}" height="{HEIGHT}" role="img">',
           f"<title>{title}</title>", f"<style>{STYLE}</style>",
           f'<rect class="paper" width="{WIDTH}" height="{HEIGHT}" fill="{PAPER}"/>',
           f'<text class="title" x="{LEFT}" y="26">{title}</text>']
    for size in sizes:
        x = f"{x_of(size):.1f}"
        out.append(f'<line class="grid" x1="{x}" y1="{TOP}" x2="{x}" y2="{HEIGHT - BOTTOM}"/>')
        out.append(f'<text x="{x}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{in_words(size)}</text>')
    for exponent in range(low, high + 1):
        y = y_of(10.0**exponent)
        out.append(f'<line class="grid" x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}"/>')
        out.append(f'<text x="{LEFT - 8}" y="{y + 4:.1f}" text-anchor="end">{ratios.readable(10.0**exponent)}</text>')
    out.append(f'<rect class="frame" x="{LEFT}" y="{TOP}" width="{WIDTH - LEFT - RIGHT}" height="{HEIGHT - TOP - BOTTOM}"/>')

    operations = list(dict.fromkeys(operation for operation, _ in curves))
    for number, ((operation, contender), curve) in enumerate(curves.items()):
        whose = "ours" if contender == "general" else "peer"
        dash = DASHES[operations.index(operation) % len(DASHES)]
        dashes = f' stroke-dasharray="{dash}"' if dash else ""
        path = " ".join(f"{x_of(size):.1f},{y_of(time):.1f}" for size, time in sorted(curve))
        out.append(f'<polyline class="curve {whose}" points="{path}"{dashes}/>')
        out += [f'<circle class="{whose}" cx="{x_of(size):.1f}" cy="{y_of(time):.1f}" r="3"/>' for size, time in curve]
        x = LEFT + (number % 2) * (WIDTH - LEFT - RIGHT) / 2
        y = HEIGHT - 42 + number // 2 * 22
        out.append(f'<line class="curve {whose}" x1="{x:.0f}" y1="{y - 4}" x2="{x + 34:.0f}" y2="{y - 4}"{dashes}/>')
        out.append(f'<text x="{x + 42:.0f}" y="{y}">{html.escape(f"{contender}, {operation}")}</text>')
    return "\n".join(out) + "\n</svg>\n"


def draw(rows, folder):
    """Writes the figures; returns (family, file name) of each."""
    drawn = []
    for family, curves in families(rows).items():
        name = f"performance-{family.replace(' ', '-')}.svg"
        (folder / name).write_text(figure(family, curves), encoding="utf-8")
        drawn.append((family, name))
    return drawn


def main():
    if len(sys.argv) != 3 or sys.argv[1] in ("-h", "--help"):
        sys.exit(__doc__)
    for _, name in draw(ratios.rows_of(ratios.load(sys.argv[1])), pathlib.Path(sys.argv[2])):
        print(name)


if __name__ == "__main__":
    main()
