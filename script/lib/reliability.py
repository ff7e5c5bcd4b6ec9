"""Prints the figures of docs/reliability.md from what script/reliability left: the tests' XML files in
the folder given, those of every Windows version in build/versions, and the logs of fuzzing, soak and checks.

    reliability.py FOLDER SECONDS
    reliability.py version FOLDER    the counts of one version's tests only, in a line
"""

import collections
import datetime
import glob
import os
import re
import subprocess
import sys
import xml.etree.ElementTree as xml

LOGS = "build/logs"
FAULTS = ("allocations_failed", "calls_failed")


def log_of(title):
    """The log that the step with this title left; see script/lib/console.sh."""
    name = re.sub(r"[^A-Za-z0-9]+", "-", title)
    with open(f"{LOGS}/{name}.log", encoding="utf-8", errors="replace") as file:
        return file.read()


def counts_of(path):
    counts = collections.Counter()
    for case in xml.parse(path).iter("testcase"):
        counts["tests"] += 1
        counts["failed"] += case.find("failure") is not None
        counts["skipped"] += case.find("skipped") is not None
        for prop in case.iter("property"):
            if prop.get("name") in FAULTS:
                counts[prop.get("name")] += int(prop.get("value"))
    return counts


def test_table(folder):
    families = collections.defaultdict(dict)
    for path in glob.glob(f"{folder}/*.xml"):
        half, family = os.path.basename(path)[:-4].rsplit("-", 1)
        families[family][half] = counts_of(path)
    lines = ["| family | tests, DLL under Wine | tests, sanitizers | allocations made to fail | system calls made to fail |",
             "|---|---:|---:|---:|---:|"]
    total = collections.Counter()
    for family, halves in sorted(families.items()):
        win32, host = halves.get("win32", collections.Counter()), halves.get("host", collections.Counter())
        allocations = win32["allocations_failed"] + host["allocations_failed"]
        lines.append(f"| {family} | {win32['tests']} | {host['tests']} | {allocations} | {win32['calls_failed']} |")
        total.update({"win32": win32["tests"], "host": host["tests"], "allocations": allocations,
                      "calls": win32["calls_failed"], "i686": halves.get("win32-i686", {}).get("tests", 0),
                      "failed": sum(counts["failed"] for counts in halves.values())})
    lines.append(f"| **all** | **{total['win32']}** | **{total['host']}** | **{total['allocations']}** | **{total['calls']}** |")
    lines += ["", f"Built for processors without SSE2 (`-march=i686`): {total['i686']} tests of the portable and the platform modules."]
    return lines, total["failed"]


def version_counts(folder):
    """How many tests ran on a version, and the skipped ones by reason."""
    counts, reasons = collections.Counter(), collections.Counter()
    for path in glob.glob(f"{folder}/*.xml"):
        counts.update(counts_of(path))
        # A message is the place, a line's end and the reason.
        reasons.update(skip.get("message").splitlines()[-1] for skip in xml.parse(path).iter("skipped"))
    return counts, ", ".join(f"{count} ({reason})" for reason, count in sorted(reasons.items())) or "0"


def version_table():
    versions = open("script/lib/versions.sh", encoding="utf-8").read()
    lines = ["| Wine as | tests | failed | skipped |", "|---|---:|---:|---|"]
    for name, title in re.findall(r'\[(\w+)\]="(Windows [^"]*)"', versions):
        counts, skipped = version_counts(f"build/versions/{name}/results")
        lines.append(f"| {title} | {counts['tests']} | {counts['failed']} | {skipped} |")
    return lines


def fuzz_lines(seconds):
    names = sorted(os.path.basename(folder) for folder in glob.glob("fuzz/corpora/*"))
    lines = ["| fuzz target | inputs run | findings |", "|---|---:|---:|"]
    for name in names:
        log = log_of(f"fuzz {name} for {seconds} s")
        runs = int(re.search(r"stat::number_of_executed_units: (\d+)", log)[1])
        lines.append(f"| {name} | {runs:,} | {len(glob.glob(f'build/fuzz/{name}-crash-*') + glob.glob(f'build/fuzz/{name}-timeout-*'))} |")
    return lines


def break_lines():
    """What script/mutate says of each folder in its last line."""
    lines = ["| folder | places broken | noticed | can make no difference | do not compile |", "|---|---:|---:|---:|---:|"]
    for path in sorted(glob.glob(f"{LOGS}/break-*.log")):
        folder = os.path.basename(path)[len("break-"):-len(".log")]
        counts = re.search(r"seed \d+: (\d+) of (\d+) killed, (.*); (\d+) equivalent, (\d+) do not compile", log_of(f"break {folder}"))
        lines.append(f"| {folder} | {counts[2]} | {counts[1]} ({counts[3]}) | {counts[4]} | {counts[5]} |")
    return lines


def main():
    if sys.argv[1] == "version":
        counts, skipped = version_counts(sys.argv[2])
        print(f"looked at {counts['tests']} tests, skipped {skipped}")
        return
    folder, seconds = sys.argv[1:]
    tests, failed = test_table(folder)
    soak = re.search(r"moved .*", log_of(f"soak, {seconds} s"))[0]
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], check=True, capture_output=True, text=True).stdout.strip()
    print(f"Taken on {datetime.date.today().isoformat()} at {commit}; {failed} tests failed.\n")
    print("\n".join(tests), end="\n\n")
    print("An allocation or a call counts once for each run of a scenario in which it was the one that failed. The tests under")
    print("sanitizers ran with AddressSanitizer and UndefinedBehaviorSanitizer, which end a test at their first finding.\n")
    print("\n".join(version_table()), end="\n\n")
    print("The whole Windows half but for what is about building, with Wine playing each version: what the version calls say, and")
    print("some behaviour. It exports the same functions whatever it plays. Nothing here ran on Windows itself.\n")
    print("\n".join(fuzz_lines(seconds)), end="\n\n")
    print(f"Shared-memory queue, {seconds} s under load with peers killed and replaced: {soak.strip()}.\n")
    holding = re.findall(r"model: (.*): (\d+) states, holds", log_of("models of the queue"))
    broken = re.findall(r"model: broken: .*: found", log_of("models of the queue"))
    print("Models of its protocol, every state of them (docs/shmqueue-model.md): "
          + "; ".join(f"{title}: {int(states):,} states, no error" for title, states in holding)
          + f". {len(broken)} orders of steps that were turned round on purpose were found.\n")
    print("The library broken on purpose, in one place at a time picked by the day's number (`script/mutate`): whether the tests of")
    print("its folder notice.\n")
    print("\n".join(break_lines()), end="\n\n")
    print("`script/check`: clang-tidy over library and samples without a finding, imports, exports, layout, hardening as recorded.\n")


if __name__ == "__main__":
    main()
