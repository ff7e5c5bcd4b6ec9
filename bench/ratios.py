#!/usr/bin/env python3
"""Turns Google Benchmark's JSON (files named as arguments) into Markdown tables with a ratio per row.

A benchmark's name is "ROW | CONTENDER"; the contender "general" is the library. The ratio is the
peer's time over the library's: above 1 the library is faster. With several repetitions the median
counts. A contender called "limit: ..." is no peer but a bound, such as a call that does nothing."""

import json
import sys

UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def readable(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def load(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def rows_of(report):
    medians = any(run.get("aggregate_name") == "median" for run in report["benchmarks"])
    rows = {}
    # Contenders that took turns in random order are listed in it.
    for run in sorted(report["benchmarks"], key=lambda run: run.get("family_index", 0)):
        if medians and run.get("aggregate_name") != "median":
            continue
        if run.get("error_occurred"):
            sys.exit(f"{run['name']}: {run['error_message']}")
        row, _, contender = run["run_name"].partition(" | ")
        contender = contender.split("/")[0]  # options such as min_time follow a slash
        entry = rows.setdefault(row, {"times": {}, "aim": None})
        entry["times"][contender] = run["real_time"] * UNITS[run["time_unit"]]
        if run.get("label", "").startswith("aim "):
            entry["aim"] = float(run["label"][4:])
    return rows


def table_of(rows):
    lines = ["| task | general | instead | ratio | aim |", "|---|---:|---:|---:|---:|"]
    missed = 0
    for row, entry in rows.items():
        ours = entry["times"].pop("general")
        peers = entry["times"] or {"": None}
        for peer, time in peers.items():
            if time is None:
                lines.append(f"| {row} | {readable(ours)} | | | |")
                continue
            ratio = time / ours
            aim = ""
            if entry["aim"] is not None and not peer.startswith("limit:"):
                aim = f"{entry['aim']:.2g}"
                if ratio < entry["aim"]:
                    aim += " (missed)"
                    missed += 1
            lines.append(f"| {row} | {readable(ours)} | {readable(time)} {peer} | {ratio:.2f} | {aim} |")
    return lines, missed


def main():
    for path in sys.argv[1:]:
        lines, missed = table_of(rows_of(load(path)))
        print("\n".join(lines))
        print(f"\n{missed} rows below their aim" if missed else "\nEvery row reaches its aim")


if __name__ == "__main__":
    main()
