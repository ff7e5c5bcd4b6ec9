#!/usr/bin/env python3
"""Prints what takes the room in general.dll, as a Markdown table: the code and constant data of each
folder's modules, then what every DLL has.

  bench/room.py BUILD_FOLDER STRIPPED_DLL"""

import collections
import glob
import os
import subprocess
import sys

TARGET = "i686-w64-mingw32"


def sizes_of(objects):
    """Bytes of code and data of each folder, as the compiler made them."""
    listing = subprocess.run([f"{TARGET}-size", *objects], check=True, capture_output=True, text=True).stdout
    folders = collections.Counter()
    for line in listing.splitlines()[1:]:
        text, data, _, _, _, path = line.split(maxsplit=5)
        folders[os.path.basename(os.path.dirname(path))] += int(text) + int(data)
    return folders


def main():
    build, dll = sys.argv[1:]
    folders = sizes_of(glob.glob(f"{build}/CMakeFiles/general.dir/*/*.obj"))
    whole = os.path.getsize(dll)
    print("| part of the stripped DLL | bytes | share |\n|---|---:|---:|")
    for folder, size in folders.most_common():
        print(f"| `{folder}/` | {size:,} | {100 * size / whole:.0f} % |")
    rest = whole - sum(folders.values())
    print(f"| start-up code of the tool-chain, export, import and relocation tables, headers | {rest:,} | {100 * rest / whole:.0f} % |")
    print(f"| **whole** | **{whole:,}** | |")


if __name__ == "__main__":
    main()
