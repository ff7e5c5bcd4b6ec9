"""Compares the binary interface with base/general.abi, or records it there; see script/abi."""

import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
DESCRIPTION = ROOT / "base/general.abi"
# -mrtd makes another calling convention the default, so that a declaration has to name its own.
CLANG = ["clang", "--target=i686-pc-windows-msvc", "-ffreestanding", "-mrtd", "-I", ROOT / "include", "-fsyntax-only", "-x", "c"]
CONVENTION = " __attribute__((cdecl))"

HEAD = """# The binary interface that programs are compiled against. Written by script/abi --record.
# function NAME TYPE | variable NAME TYPE | callback NAME TYPE | constant NAME VALUE
# record NAME SIZE, then its fields: OFFSET TYPE NAME
"""


def clang(*options):
    """The compiler's view of the whole interface."""
    header = ROOT / "include/general.h"
    return subprocess.run([*CLANG, *options, header], check=True, capture_output=True, text=True).stdout


def constants_of(enumeration):
    """Name and value of each constant; one without a value follows the one before it."""
    value = -1
    for constant in enumeration.get("inner", []):
        if constant["kind"] != "EnumConstantDecl":
            continue
        given = [part["value"] for part in constant.get("inner", []) if part["kind"] == "ConstantExpr"]
        value = int(given[0]) if given else value + 1
        yield constant["name"], value


def declarations():
    """{(kind, name): type or value} of everything that the headers declare but records."""
    found = {}
    kinds = {"FunctionDecl": "function", "VarDecl": "variable"}
    for node in json.loads(clang("-Xclang", "-ast-dump=json"))["inner"]:
        if node.get("isImplicit"):
            continue
        if node["kind"] in kinds:
            found[kinds[node["kind"]], node["name"]] = node["type"]["qualType"]
        elif node["kind"] == "TypedefDecl" and "(*)" in node["type"]["qualType"]:
            found["callback", node["name"]] = node["type"]["qualType"]
        elif node["kind"] == "EnumDecl":
            found.update((("constant", name), str(value)) for name, value in constants_of(node))
    return found


def records():
    """{(kind, name): size or (type)} of each public record and, as "field", of what lies at its offsets."""
    found = {}
    for dump in clang("-Xclang", "-fdump-record-layouts-complete").split("*** Dumping AST Record Layout")[1:]:
        name = re.search(r"0 \| struct (\w+)\n", dump)
        if not name or name[1].startswith("__"):
            continue
        found["record", name[1]] = re.search(r"sizeof=(\d+)", dump)[1]
        for offset, kind, field in re.findall(r"^ +(\d+) \|   (\S.*) (\w+)$", dump, re.MULTILINE):
            found["field", f"{name[1]}.{field}"] = f"{offset} {kind}"
    return found


def exported_names():
    lines = (ROOT / "base/general.def").read_text(encoding="utf-8").split("EXPORTS", 1)[1].splitlines()
    return {line.split()[0] for line in lines if re.match(r"\s+[A-Za-z_]", line)}


def written(interface):
    lines = [f"{kind} {name} {what}" for (kind, name), what in sorted(interface.items()) if kind not in ("record", "field")]
    for (kind, name), size in interface.items():
        if kind == "record":
            lines.append(f"record {name} {size}")
            lines += [f"  {what} {field.split('.')[1]}" for (kind, field), what in interface.items()
                      if kind == "field" and field.startswith(name + ".")]
    return HEAD + "\n".join(lines) + "\n"


def recorded():
    interface, record = {}, None
    for line in DESCRIPTION.read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            continue
        if line.startswith("  "):
            what, _, field = line.strip().rpartition(" ")
            interface["field", f"{record}.{field}"] = what
            continue
        kind, name, what = line.split(" ", 2)
        record = name
        interface[kind, name] = what
    return interface


BROKEN = {  # what a program that was compiled earlier meets: when the thing is gone, when it changed
    "function": ("programs that import it no longer start", "programs call it with the arguments of before"),
    "variable": ("programs that import it no longer start", "programs read and write it as the old type"),
    "callback": ("sources that name it no longer compile", "programs hand in functions with the arguments of before"),
    "constant": ("sources that name it no longer compile", "programs send and compare the old value"),
    "record": ("sources that name it no longer compile", "programs set aside the old size"),
    "field": ("programs read and write what lies there now", "programs read and write it where it was"),
}


def differences(before, now):
    for (kind, name), what in before.items():
        gone, changed = BROKEN[kind]
        if (kind, name) not in now:
            yield f"{kind} {name} is gone: {gone}"
        elif now[kind, name] != what:
            yield f"{kind} {name} was '{what}' and is '{now[kind, name]}': {changed}"
    for kind, name in now:
        if (kind, name) not in before:
            yield f"{kind} {name} is new: breaks nobody, and is not recorded yet"


def main():
    now = declarations() | records()
    declared = {name for kind, name in now if kind in ("function", "variable")}
    found = []
    for (kind, name), what in now.items():
        if kind in ("function", "callback"):
            now[kind, name] = what.removesuffix(CONVENTION)
            if now[kind, name] == what:
                found.append(f"{kind} {name} lacks GENERAL_CALL: programs of another default convention call it wrongly")
    found += [f"{name} is declared but not in base/general.def" for name in sorted(declared - exported_names())]
    found += [f"{name} is in base/general.def but no header declares it" for name in sorted(exported_names() - declared)]
    if sys.argv[1:] == ["--record"]:
        DESCRIPTION.write_text(written(now), encoding="utf-8")
    found += differences(recorded(), now)
    for line in found:
        print(line)
    if found:
        print("\nWhere a difference is meant: script/abi --record, and say in CHANGELOG.md who has to rebuild.")
        return 1
    print(f"looked at {len(now)} facts of the interface")
    return 0 if now else 1


if __name__ == "__main__":
    sys.exit(main())
