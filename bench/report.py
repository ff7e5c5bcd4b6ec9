#!/usr/bin/env python3
"""Writes docs/performance.md from one run of every benchmark: `script/bench all --report` calls it.

  bench/report.py FOLDER STRIPPED_DLL OUTPUT

FOLDER holds NAME.json of each benchmark; OUTPUT, docs/ for a report to keep, receives performance.md
and its figures. bench/NAME/notes.md has a title, what is measured, a line <!-- table -->, and what
explains the rows below their aim; the tables are put where that line is. A line <!-- memory --> makes
place for a table of bytes per entry, <!-- growth --> for figures of how cost grows."""

import datetime
import pathlib
import re
import subprocess
import sys

import growth
import ratios

BENCH = pathlib.Path(__file__).resolve().parent
MARK = "<!-- table -->\n"
MEMORY_MARK = "<!-- memory -->\n"
GROWTH_MARK = "<!-- growth -->\n"

HEAD = """# Performance

Written by `script/bench all --report` from one run; the figures are not edited by hand.

Each family is timed beside what a user would pick instead, in one program and one run, under Wine. A row's ratio is
the peer's time over the library's: above 1 the library is faster. A contender called "limit" is no peer but a
bound. Rows below their aim are marked, and explained beside the table; where the bound does not reach the aim
either, the aim is called out of reach, and the bound may have an aim of its own: the share of its speed. Compare
ratios: absolute times under Wine say little about Windows, where a kernel call costs a fraction.

"""


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def machine():
    processor = dict(re.findall(r"^([^:\n]+):\s+(.*)$", output_of("lscpu"), re.MULTILINE))
    facts = [
        ("processor", f"{processor['Model name']}, {processor['CPU(s)']} of its processors; caches L1d {processor.get('L1d cache', '?')}, "
                      f"L2 {processor.get('L2 cache', '?')}, L3 {processor.get('L3 cache', '?')}"),
        ("compiler", output_of("i686-w64-mingw32-g++-posix", "--version").splitlines()[0]),
        ("Wine", output_of("wine", "--version")),
        ("library", f"{output_of('git', 'describe', '--always', '--dirty')}, {datetime.date.today().isoformat()}"),
        ("figures", "medians of the repetitions of each row, whose contenders took turns in random order"),
    ]
    return "| | |\n|---|---|\n" + "".join(f"| {name} | {fact} |\n" for name, fact in facts)


def figures(measured, output):
    """Draws what was measured, and links the figures."""
    drawn = growth.draw(measured, output)
    return "".join(f"![{family}: time of one operation by number of entries]({name})\n\n" for family, name in drawn)


def section(name, folder, output):
    title, text = (BENCH / name / "notes.md").read_text(encoding="utf-8").split("\n", 1)
    tables, missed, rows = [], 0, 0
    for path in (folder / f"{name}.json", folder / f"{name}_host.json"):
        if path.exists():
            lines, below = ratios.table_of(ratios.rows_of(ratios.load(path)))
            tables.append("\n".join(lines).replace("*", r"\*") + "\n")
            missed += below
            rows += len(lines) - 2
    if MARK not in text:
        sys.exit(f"bench/{name}/notes.md has no line for the table")
    if MEMORY_MARK in text or GROWTH_MARK in text:
        measured = ratios.rows_of(ratios.load(folder / f"{name}.json"))
        text = text.replace(MEMORY_MARK, "\n".join(ratios.memory_table_of(measured)) + "\n\n")
        text = text.replace(GROWTH_MARK, figures(measured, output))
    return f"#{title}\n{text.replace(MARK, chr(10).join(tables) + chr(10))}\n", rows, missed


def room(dll):
    build = BENCH.parent / "build/win32-bench"
    table = output_of(sys.executable, str(BENCH / "room.py"), str(build), str(dll))
    return f"## What takes the room\n\n{table}\n"


def main():
    if len(sys.argv) != 4 or sys.argv[1] in ("-h", "--help"):
        sys.exit(__doc__)
    folder, dll, output = map(pathlib.Path, sys.argv[1:])
    sections, rows, missed = [], 0, 0
    for notes in sorted(BENCH.glob("*/notes.md")):
        text, more, below = section(notes.parent.name, folder, output)
        sections.append(text)
        rows += more
        missed += below
    summary = f"\n{rows} comparisons; {missed} are below their aim.\n\n"
    (output / "performance.md").write_text(HEAD + machine() + summary + "".join(sections) + room(dll), encoding="utf-8")


if __name__ == "__main__":
    main()
