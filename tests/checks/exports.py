#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Compares what a shared library exports with the committed list, and that list with the public headers.

    exports.py LIST HEADER_FOLDER LIBRARY [NM]     compares; prints each difference
    exports.py --from-headers HEADER_FOLDER        prints the TARN_API names of the headers, in the form of the list
"""

import pathlib
import re
import subprocess
import sys

VERSION_NODE = "TARN_1.0"
CLASSES = {"T": "function", "B": "object", "D": "object", "R": "object"}

# A declaration that begins with TARN_API, up to its semicolon: `extern TYPE NAME` or `extern TYPE NAME[SIZE]`, or `TYPE
# NAME(` with the arguments.
DECLARATION = re.compile(r"^TARN_API\s+([^;]*);", re.MULTILINE)
OBJECT = re.compile(r"^extern\s[^()]*?(\w+)(?:\[\w+\])?$")
FUNCTION = re.compile(r"^[^()]*?(\w+)\(")


def from_headers(folder):
    symbols = {}
    for header in sorted(folder.glob("*.h")):
        text = re.sub(r"/\*.*?\*/|//[^\n]*|^[ \t]*#(?:\\\n|[^\n])*", "", header.read_text(), flags=re.DOTALL | re.MULTILINE)
        declarations = DECLARATION.findall(text)
        if len(declarations) != text.count("TARN_API"):
            sys.exit(f"{header}: a TARN_API that does not begin a declaration")
        for declaration in declarations:
            object_, function = OBJECT.match(declaration), FUNCTION.match(declaration)
            if not object_ and not function:
                sys.exit(f"{header}: not understood: {declaration}")
            symbols[(object_ or function)[1]] = "object" if object_ else "function"
    return symbols


def from_list(file):
    lines = (line.split() for line in file.read_text().splitlines() if line and not line.startswith("#"))
    return {name: kind for name, kind in lines}


def from_library(library, nm):
    listing = subprocess.run([nm, "-D", "--defined-only", "--with-symbol-versions", library], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    symbols, foreign = {}, []
    for line in listing.splitlines():
        _, letter, name = line.split()
        name, _, node = name.partition("@")
        if letter == "A" and name == VERSION_NODE:
            continue  # the version node itself
        if node.lstrip("@") != VERSION_NODE or letter not in CLASSES:
            foreign.append(line)
        symbols[name] = CLASSES.get(letter, letter)
    return symbols, foreign


def difference(left_name, left, right_name, right):
    for name in sorted(left.keys() | right.keys()):
        if left.get(name) != right.get(name):
            yield f"{name}: {left_name}: {left.get(name, 'none')}; {right_name}: {right.get(name, 'none')}"


def main():
    if sys.argv[1] == "--from-headers":
        for name, kind in sorted(from_headers(pathlib.Path(sys.argv[2])).items()):
            print(name, kind)
        return 0
    listed = from_list(pathlib.Path(sys.argv[1]))
    declared = from_headers(pathlib.Path(sys.argv[2]))
    exported, foreign = from_library(sys.argv[3], sys.argv[4] if len(sys.argv) > 4 else "nm")
    faults = [f"not of version {VERSION_NODE}, or of an unknown class: {line}" for line in foreign]
    faults += difference("the list", listed, "the headers", declared)
    faults += difference("the list", listed, "the library", exported)
    if not listed:
        faults.append("the list is empty")
    for fault in faults:
        print(fault)
    print(f"{len(exported)} symbols")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
