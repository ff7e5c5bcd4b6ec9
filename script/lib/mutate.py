"""What script/mutate does, on a copy of the project:

    mutate.py copy COPY FOLDER                brings the copy up to date
    mutate.py unbroken COPY FOLDER            builds and tests it as it is, and notes how long the tests take
    mutate.py break COPY FOLDER COUNT SEED    breaks one place after the other
"""

import dataclasses
import filecmp
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

EQUIVALENTS = "tests/equivalents.txt"
# The guides with tables of examples and programs that are tests of a folder too, where its own programs notice nothing.
GUIDES = {"containers": "containers", "buffers": "buffers", "text": "text|validators", "diag": "diagnostics", "ipc": "shmqueue",
          "spline": "splines", "geom": "geometry", "time": "time", "platform": "platform|validators"}
LONGEST_FILE = 1 << 30  # what a broken test program may write

# What a place becomes. Binary operators stand between spaces, which tells them from pointers and templates.
OPERATORS = {
    " == ": [" != "], " != ": [" == "], " < ": [" <= ", " > "], " <= ": [" < "], " > ": [" >= ", " < "], " >= ": [" > "],
    " + ": [" - "], " - ": [" + "], " * ": [" + "], " / ": [" * "], " % ": [" / "], " << ": [" >> "], " >> ": [" << "],
    " & ": [" | "], " | ": [" & "], " ^ ": [" | "], " && ": [" || "], " || ": [" && "],
    " += ": [" -= "], " -= ": [" += "], " |= ": [" = "], " &= ": [" = "], "++": ["--"], "--": ["++"],
}
OPERATOR = re.compile("|".join(re.escape(operator) for operator in sorted(OPERATORS, key=len, reverse=True)))
NEGATION = re.compile(r"(?<=[ (!])!(?=[\w(])")
NUMBER = re.compile(r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+\.\d*(?:[eE][-+]?\d+)?|\d+)([uUlLfF]*)(?![\w.])")
TRUTH = re.compile(r"\b(true|false)\b")
TEXT = re.compile(r'"(?:\\.|[^"\\\n])+"')
CONDITION = re.compile(r"\b(?:if|while) \(")
STATEMENT = re.compile(r"^[ \t]+(?!(?:return .|using|typedef|static_assert|case|default|goto|struct|enum)\b)[^\s#/{}][^\n]*;", re.M)
# What is no code that runs. Texts in the others are left standing for the places that are texts.
UNTOUCHED = re.compile(r"//[^\n]*|/\*.*?\*/|^[ \t]*#(?:\\\n|[^\n])*|static_assert\(.*?\);|GENERAL_MODULE_ID\([^\n]*|"
                       r"\[\[[^\n]*?\]\]|(?<![\w'])'(?:\\.|[^'\\\n])+'|asm\b[^;]*;", re.M | re.S)


@dataclasses.dataclass
class Break:
    path: str
    start: int
    end: int
    replacement: str
    change: str  # as it is printed, and listed in EQUIVALENTS
    line: int = 0
    text: str = ""  # of the line, without the spaces around it


def blanked(text, pattern):
    """The text with spaces for what the pattern matches, so that places stay where they are."""
    return pattern.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def closing_parenthesis(text, start):
    depth = 0
    for at in range(start, len(text)):
        depth += {"(": 1, ")": -1}.get(text[at], 0)
        if depth == 0:
            return at
    return None


def changed_number(digits, suffix):
    if "." in digits:
        return f"{float(digits) * 1.5 + (float(digits) == 0)}{suffix}"
    return f"{int(digits, 0) + 1}{suffix}" if not re.fullmatch(r"0\d+", digits) else None


def breaks_of(path, text):
    """All that can be broken in a file, by kind."""
    with_texts = blanked(text, UNTOUCHED)
    code = blanked(with_texts, TEXT)
    kinds = {"operator": [], "constant": [], "condition": [], "statement": []}

    def add(kind, start, end, replacement, change):
        kinds[kind].append(Break(path, start, end, replacement, change))

    for match in OPERATOR.finditer(code):
        for replacement in OPERATORS[match[0]]:
            add("operator", *match.span(), replacement, f"{match[0].strip()} becomes {replacement.strip()}")
    for match in NEGATION.finditer(code):
        add("operator", *match.span(), "", "! goes")
    for match in NUMBER.finditer(code):
        number = changed_number(*match.groups())
        if number is not None:
            add("constant", *match.span(), number, f"{match[0]} becomes {number}")
    for match in TRUTH.finditer(code):
        other = "false" if match[0] == "true" else "true"
        add("constant", *match.span(), other, f"{match[0]} becomes {other}")
    for match in TEXT.finditer(with_texts):
        add("constant", *match.span(), '"#' + match[0][1:], f"{match[0]} begins with #")
    for match in CONDITION.finditer(code):
        end = closing_parenthesis(code, match.end() - 1)
        if end is not None and ";" not in code[match.end():end]:
            for value in ("true", "false"):
                add("condition", match.end(), end, value, f"{' '.join(text[match.end():end].split())} becomes {value}")
    for match in STATEMENT.finditer(code):
        start = match.start() + len(match[0]) - len(match[0].lstrip())
        if code[start:match.end()].count("(") == code[start:match.end()].count(")"):
            add("statement", start, match.end(), ";", "deleted")
    lines = text.split("\n")
    for place in sum(kinds.values(), []):
        place.line = text.count("\n", 0, place.start) + 1
        place.text = lines[place.line - 1].strip()
    return kinds


def pick(copy, folder, count, seed):
    """Places by seed, as many of each kind as there are, sorted so that few modules are compiled twice."""
    kinds = {}
    for path in sorted([*(copy / folder).glob("*.cpp"), *(copy / folder).glob("*.h")]):
        for kind, places in breaks_of(str(path.relative_to(copy)), path.read_text(encoding="utf-8")).items():
            kinds.setdefault(kind, []).extend(places)
    generator = random.Random(seed)
    for places in kinds.values():
        generator.shuffle(places)
    picked = []
    while len(picked) < count and any(kinds.values()):
        picked += [places.pop() for places in kinds.values() if places]
    return sorted(picked[:count], key=lambda place: (place.path, place.line, place.start))


def read_equivalents():
    """(file, line's text, change) of each entry; the file's head says how one is written."""
    entries = []
    if os.path.exists(EQUIVALENTS):
        for block in pathlib.Path(EQUIVALENTS).read_text(encoding="utf-8").split("\n\n"):
            lines = [line for line in block.splitlines() if not line.startswith("#")]
            if not lines:
                continue
            match = re.fullmatch(r"(\S+)\n    line:   (.*)\n    change: (.*)\n    why:    .*(?:\n            .*)*", "\n".join(lines).rstrip())
            if match is None:
                sys.exit(f"{EQUIVALENTS}: this is no entry as its head describes:\n{block}")
            entries.append(match.groups())
    return set(entries)


def update_copy(copy):
    """By content: what is as it should be keeps its time and is not built again."""
    kept = set()
    for folder, folders, files in os.walk("."):
        if folder == ".":
            folders[:] = [name for name in folders if name not in ("build", ".git")]
        (copy / folder).mkdir(parents=True, exist_ok=True)
        for name in files:
            source, target = pathlib.Path(folder, name), copy / folder / name
            kept.add(target)
            if not target.exists() or not filecmp.cmp(source, target, shallow=False):
                shutil.copyfile(source, target)
                shutil.copymode(source, target)
    for folder, folders, files in os.walk(copy):
        if folder == str(copy) and "build" in folders:
            folders.remove("build")
        for name in files:
            if pathlib.Path(folder, name) not in kept:
                os.remove(pathlib.Path(folder, name))


class Tester:
    def __init__(self, copy, folder):
        self.build_folder = copy / "build/win32"
        self.folder = folder
        self.prefix = (copy / "build/wine").resolve()
        self.environment = os.environ | {"GENERAL_WINE_PREFIX": str(self.prefix)}

    def build(self):
        command = ["cmake", "--build", self.build_folder, "--target", "general", f"tests/{self.folder}/all"]
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")

    def test(self, seconds):
        """None if the tests pass, else what became of them."""
        return (self.run_tests(self.folder, ".", seconds) or
                self.run_tests("documents", f"^documents/({GUIDES.get(self.folder, 'none')})$", seconds))

    def run_tests(self, folder, names, seconds):
        """What they left running is ended."""
        command = ["ctest", "--test-dir", self.build_folder / "tests" / folder, "--tests-regex", names, "--stop-on-failure",
                   "--output-on-failure", *(["--no-tests=error"] if names == "." else [])]
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (LONGEST_FILE, LONGEST_FILE))
        with subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              start_new_session=True, preexec_fn=limit) as process:
            try:
                self.output = process.communicate(timeout=seconds)[0].decode(errors="replace")
                return None if process.returncode == 0 else "failed"
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                subprocess.run(["wineserver", "-k"], env=self.environment | {"WINEPREFIX": str(self.prefix)}, check=False)
                return "took too long"


def test_unbroken(copy, folder):
    tester = Tester(copy, folder)
    build = tester.build()
    print(build.stdout)
    if build.returncode != 0:
        sys.exit("the library does not build as it is")
    for _ in range(2):  # the first run also makes the prefix
        started = time.monotonic()
        result = tester.test(1200)
        print(tester.output)
        if result is not None:
            sys.exit(f"the tests of {folder}, which nothing broke, {result}")
    (copy / "build/seconds").write_text(str(time.monotonic() - started))


def break_places(copy, folder, count, seed):
    tester = Tester(copy, folder)
    limit = 20 + 5 * float((copy / "build/seconds").read_text())
    equivalents = read_equivalents()
    counts = {"killed": 0, "survived": 0, "equivalent": 0, "does not compile": 0}
    for place in pick(copy, folder, count, seed):
        path = copy / place.path
        original = path.read_text(encoding="utf-8")
        try:
            path.write_text(original[:place.start] + place.replacement + original[place.end:], encoding="utf-8")
            if (place.path, place.text, place.change) in equivalents:
                outcome = "equivalent"
            elif tester.build().returncode != 0:
                outcome = "does not compile"
            else:
                outcome = "survived" if tester.test(limit) is None else "killed"
        finally:
            path.write_text(original, encoding="utf-8")
        counts[outcome] += 1
        print(f"{outcome:<17} {place.path}:{place.line}: {place.change}", flush=True)
        if outcome == "survived":
            print(f"{'':<17}     {place.text}", flush=True)
    noticed = counts["killed"] + counts["survived"]
    rate = f"{100 * counts['killed'] / noticed:.0f} %" if noticed > 0 else "nothing to kill"
    print(f"{folder}, seed {seed}: {counts['killed']} of {noticed} killed, {rate}; "
          f"{counts['equivalent']} equivalent, {counts['does not compile']} do not compile")


def main():
    action, copy, folder, *numbers = sys.argv[1:]
    copy = pathlib.Path(copy)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # mends what is broken
    if action == "copy":
        update_copy(copy)
    elif action == "unbroken":
        test_unbroken(copy, folder)
    else:
        break_places(copy, folder, *map(int, numbers))


if __name__ == "__main__":
    main()
