#!/usr/bin/env python3
"""Turns Google Benchmark's JSON (files named as arguments) into Markdown tables with a ratio per row.

A benchmark's name is "ROW | CONTENDER"; the contender "general" is the library. The ratio is the
peer's time over the library's: above 1 the library is faster. With several repetitions the median
counts. A contender called "limit: ..." is no peer but a bound, such as a call that does nothing: an aim
that the bound itself does not reach is out of reach for the library."""

import json
import sys

# Rows of these kinds are timed once, and have tables and figures of their own.
GROWTH, MEMORY = "growth: ", "memory: "
UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def readable(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def load(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def is_limit(contender):
    return contender.startswith("limit:")


def rows_of(report):
    medians = any(run.get("aggregate_name") == "median" for run in report["benchmarks"])
    rows = {}
    # Contenders that took turns in random order are listed in it.
    for run in sorted(report["benchmarks"], key=lambda run: run.get("family_index", 0)):
        once = run["run_name"].startswith((GROWTH, MEMORY))
        if medians and run.get("aggregate_name") != "median" and not once:
            continue
        if run.get("error_occurred") and once:
            continue
        if run.get("error_occurred"):
            sys.exit(f"{run['name']}: {run['error_message']}")
        row, _, contender = run["run_name"].partition(" | ")
        contender = contender.split("/")[0]  # options such as min_time follow a slash
        entry = rows.setdefault(row, {"times": {}, "aims": {}, "bytes": {}})
        entry["times"][contender] = run["real_time"] * UNITS[run["time_unit"]]
        if run.get("label", "").startswith("aim "):
            entry["aims"][contender if is_limit(contender) else "general"] = float(run["label"][4:])
        if "bytes" in run:
            entry["bytes"][contender] = run["bytes"]
    return rows


def verdict(ratio, aim, reachable):
    """What the table says of an aim, and whether it is missed."""
    if aim is None:
        return "", False
    if ratio >= aim:
        return f"{aim:.2g}", False
    return (f"{aim:.2g} (missed)", True) if reachable else (f"{aim:.2g} (out of reach)", False)


def table_of(rows):
    lines = ["| task | general | instead | ratio | aim |", "|---|---:|---:|---:|---:|"]
    missed = 0
    for row, entry in rows.items():
        if row.startswith((GROWTH, MEMORY)):
            continue
        times = dict(entry["times"])
        ours = times.pop("general")
        if not times:
            lines.append(f"| {row} | {readable(ours)} | | | |")
        slowest_limit = max((time for peer, time in times.items() if is_limit(peer)), default=0)
        for peer, time in times.items():
            aim = entry["aims"].get(peer if is_limit(peer) else "general")
            reachable = is_limit(peer) or aim is None or slowest_limit == 0 or time / slowest_limit >= aim
            text, below = verdict(time / ours, aim, reachable)
            missed += below
            lines.append(f"| {row} | {readable(ours)} | {readable(time)} {peer} | {time / ours:.2f} | {text} |")
    return lines, missed


def memory_table_of(rows):
    lines = ["| bytes of heap for each of 100,000 entries | general | instead |", "|---|---:|---:|"]
    for row, entry in rows.items():
        if row.startswith(MEMORY):
            ours = entry["bytes"].pop("general")
            for peer, size in entry["bytes"].items():
                lines.append(f"| {row.removeprefix(MEMORY)} | {ours:.1f} | {size:.1f} {peer} |")
    return lines if len(lines) > 2 else []


def main():
    for path in sys.argv[1:]:
        rows = rows_of(load(path))
        lines, missed = table_of(rows)
        print("\n".join(lines))
        print("\n".join(["", *memory_table_of(rows)]))
        print(f"\n{missed} rows below their aim" if missed else "\nEvery row reaches its aim")


if __name__ == "__main__":
    main()
