#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Checks what a built libtarn requires from the machine that runs it.

    elf.py BUILD_FOLDER [TOOL_PREFIX] [--loader NAME] [--size-limit BYTES]

TOOL_PREFIX is the prefix of the binary utilities ("aarch64-linux-gnu-"). --loader names a library that the
library may need besides libc. Prints each fault and the stripped size.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

SONAME = "libtarn.so.1"
LIBC = "libc.so.6"

# Symbols that only the C++ run-time library or the unwinder defines. __cxa_finalize is libc's, and weak.
CXX_RUNTIME = re.compile(r"^(_Z|__cxa_(?!finalize)|__gxx_|_Unwind_|__once_proxy|__dynamic_cast)")
CODE_AT_START = re.compile(r"\s\.(preinit_array|init_array|fini_array|ctors|dtors|init|fini)\b[^\s]*\s")

# The marks of -fcf-protection and -mbranch-protection=standard, as readelf names them.
CONTROL_FLOW = {"AArch64": {"BTI", "PAC"}, "Advanced Micro Devices X86-64": {"IBT", "SHSTK"}}


class Library:
    def __init__(self, build, prefix):
        self.prefix = prefix
        self.shared = build / "libtarn.so"
        self.archive = build / "libtarn.a"

    def tool(self, name, *arguments):
        return subprocess.run([self.prefix + name, *map(str, arguments)], check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def readelf(self, *arguments):
        return self.tool("readelf", "-W", *arguments)

    def stripped_size(self):
        with tempfile.NamedTemporaryFile() as stripped:
            self.tool("strip", "-o", stripped.name, self.shared)
            return pathlib.Path(stripped.name).stat().st_size


def dynamic_faults(library, loader):
    dynamic = library.readelf("-d", library.shared)
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
    if not {LIBC} <= needed <= {LIBC, loader}:
        yield f"needs {', '.join(sorted(needed)) or 'nothing'}"
    soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
    if soname != [SONAME]:
        yield f"SONAME is {soname}"
    if "(TEXTREL)" in dynamic or re.search(r"\(FLAGS\).*TEXTREL", dynamic):
        yield "has text relocations"
    if re.search(r"\((RPATH|RUNPATH)\)", dynamic):
        yield "carries a search path"


def stack_faults(library):
    stack = re.findall(r"^\s*GNU_STACK\s.*", library.readelf("-l", library.shared), re.MULTILINE)
    if len(stack) != 1 or re.search(r"\sR?WE\s|\sE\s", stack[0]):
        yield f"executable stack: {stack}"


def constructor_faults(library):
    """No code of the library runs when it is loaded or unloaded."""
    dynamic = library.readelf("-d", library.shared)
    for entry in re.findall(r"\((INIT|FINI|INIT_ARRAY|FINI_ARRAY|PREINIT_ARRAY)\)", dynamic):
        yield f"has {entry}: something runs at load time"
    sections = library.readelf("-S", library.archive)
    if ".text" not in sections:
        yield "the archive has no code"
    for section in CODE_AT_START.finditer(sections):
        yield f"an object of the archive has a section .{section[1]}"


def control_flow_faults(library):
    """The kernel and the loader enforce landing pads and shadow stacks only for a file that carries the marks."""
    wanted = CONTROL_FLOW.get(re.search(r"Machine:\s+(.*)", library.readelf("-h", library.shared))[1])
    if wanted is None:
        return
    notes = library.readelf("-n", library.shared)
    marks = {mark.strip() for line in re.findall(r"feature: (.*)", notes) for mark in line.split(",")}
    if not wanted <= marks:
        yield f"lacks the marks {', '.join(sorted(wanted - marks))}"


def runtime_faults(library):
    undefined = re.findall(r"^\s+[Uwv] (\S+)", library.tool("nm", "-D", "--undefined-only", library.shared),
                           re.MULTILINE)
    if not undefined:
        yield "no undefined symbols found: is this the library?"
    for name in undefined:
        if CXX_RUNTIME.match(name):
            yield f"needs {name} of the C++ run-time library"
    # The objects of the static library may call each other by C++ names; all other symbols must be libc's.
    defined = set(re.findall(r" [A-TV-Zu] (\S+)", library.tool("nm", "--defined-only", library.archive)))
    undefined = set(re.findall(r"^\s+[Uwv] (\S+)", library.tool("nm", "--undefined-only", library.archive),
                               re.MULTILINE))
    for name in sorted(undefined - defined):
        if CXX_RUNTIME.match(name):
            yield f"the archive needs {name} of the C++ run-time library"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("prefix", nargs="?", default="")
    parser.add_argument("--loader", default=LIBC)
    parser.add_argument("--size-limit", type=int)
    arguments = parser.parse_args()

    library = Library(arguments.build, arguments.prefix)
    faults = [*dynamic_faults(library, arguments.loader), *stack_faults(library), *constructor_faults(library),
              *control_flow_faults(library), *runtime_faults(library)]
    size = library.stripped_size()
    if arguments.size_limit and size >= arguments.size_limit:
        faults.append(f"{size} bytes stripped, not below {arguments.size_limit}")
    for fault in faults:
        print(f"{library.shared}: {fault}")
    print(f"{size} bytes stripped")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
