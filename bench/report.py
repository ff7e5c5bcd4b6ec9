#!/usr/bin/env python3
"""Writes docs/performance.md from one run of every benchmark: `script/bench all --report` calls it.

  bench/report.py FOLDER STRIPPED_DLL

FOLDER holds NAME.json of each benchmark. bench/NAME/notes.md has a title, what is measured, a line
<!-- table -->, and what explains the rows below their aim; the tables are put where that line is."""

import datetime
import pathlib
import re
import subprocess
import sys

import ratios

BENCH = pathlib.Path(__file__).resolve().parent
MARK = "<!-- table -->\n"

HEAD = """# Performance

Written by `script/bench all --report` from one run; the figures are not edited by hand.

Each family is timed beside what a user would pick instead, in one program and one run, under Wine. A row's ratio is
the peer's time over the library's: above 1 the library is faster. A contender called "limit" is no peer but a
bound. Rows below their aim are marked, and explained beside the table. Compare ratios: absolute times under
Wine say little about Windows, where a kernel call costs a fraction.

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


def section(name, folder):
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
    return f"#{title}\n{text.replace(MARK, chr(10).join(tables) + chr(10))}\n", rows, missed


def room(dll):
    build = BENCH.parent / "build/win32-bench"
    table = output_of(sys.executable, str(BENCH / "room.py"), str(build), str(dll))
    return f"## What takes the room\n\n{table}\n"


def main():
    folder, dll = map(pathlib.Path, sys.argv[1:])
    sections, rows, missed = [], 0, 0
    for notes in sorted(BENCH.glob("*/notes.md")):
        text, more, below = section(notes.parent.name, folder)
        sections.append(text)
        rows += more
        missed += below
    summary = f"\n{rows} comparisons; {missed} are below their aim.\n\n"
    (BENCH.parent / "docs/performance.md").write_text(HEAD + machine() + summary + "".join(sections) + room(dll), encoding="utf-8")


if __name__ == "__main__":
    main()
