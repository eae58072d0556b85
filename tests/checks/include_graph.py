#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Checks includes: the order of the subsystems, and which system headers each may use.

    include_graph.py [ROOT]

A subsystem may include the headers of its own folder in src/, its own public header, those of the subsystems that it
builds on, and platform/support.h. A new subsystem is a new line of BUILDS_ON and of PUBLIC_HEADERS.
"""

import pathlib
import re
import sys

# Each subsystem, and those that it builds on: only ones listed above it.
BUILDS_ON = {
    "os": [],
    "platform": ["os"],
    "containers": ["platform"],
    "convert": ["os", "platform"],
    "timer": ["os", "platform", "containers"],
    "startup_cfg": ["platform"],
    "crypto": ["platform"],
    "log": ["platform", "timer"],
    "event": ["platform", "containers", "timer"],
}

# Each public header, and the project's and system headers that it may include: callers include all of them too.
PUBLIC_HEADERS = {
    "types.h": ["assert.h", "stddef.h", "stdint.h"],
    "os.h": ["tarn/types.h", "pthread.h", "stdio.h", "sys/types.h"],
    "platform.h": ["tarn/types.h", "pthread.h", "stdio.h", "sys/types.h"],
    "containers.h": ["tarn/types.h"],
    "convert.h": ["tarn/types.h"],
    "timer.h": ["tarn/types.h", "tarn/containers.h", "pthread.h"],
    "startup_cfg.h": ["tarn/types.h"],
    "crypto.h": ["tarn/types.h"],
    "log.h": ["tarn/types.h", "time.h"],
    "event.h": ["tarn/types.h", "tarn/containers.h"],
}

# System headers that only these subsystems may include.
RESERVED = {
    "fcntl.h": ["os", "log", "event"],
    "mqueue.h": ["os"],
    "pthread.h": ["os", "event"],
    "semaphore.h": ["os", "log"],
    "sys/select.h": ["os", "event"],
    "sys/time.h": ["os"],
    "unistd.h": ["os", "log", "event"],
    "arm_neon.h": ["crypto"],
    "cpuid.h": ["crypto"],
    "sys/auxv.h": ["crypto"],
    "tmmintrin.h": ["crypto"],
    "wmmintrin.h": ["crypto"],
    "arpa/inet.h": ["log"],
    "linux/netlink.h": ["event"],
    "netinet/in.h": ["log"],
    "sys/ioctl.h": ["log", "event"],
    "sys/socket.h": ["log", "event"],
}

# Headers that no source of the library includes: they need the C++ run-time library, or bypass platform/ and os/.
BANNED = ["condition_variable", "exception", "fstream", "functional", "iostream", "map", "mutex", "new", "sstream",
          "stdexcept", "string", "thread", "unordered_map", "vector"]

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:<([^>]+)>|"([^"]+)")', re.MULTILINE)


def includes(file):
    """Triples of (line number, header, whether it is in quotes)."""
    text = file.read_text()
    for match in INCLUDE.finditer(text):
        line = text.count("\n", 0, match.start()) + 1
        yield line, match[1] or match[2], match[2] is not None


def sources(folder):
    return sorted(file for file in folder.rglob("*") if file.suffix in (".c", ".cpp", ".h"))


def project_name(root, file, header):
    """The header of an #include "..." as a path below the root or below include/; None when there is no such file."""
    for base in (file.parent, root / "src", root, root / "include"):
        path = base / header
        if path.is_file():
            path = path.resolve().relative_to(root)
            return str(path.relative_to(path.parts[0]) if path.parts[0] in ("include", "src") else path)
    return None


def subsystem_fault(root, subsystem, file, header, quoted):
    if not quoted:
        if header.startswith("tarn/"):
            return "the project's own headers stand in quotes"
        if header in BANNED:
            return "not in the library"
        if subsystem not in RESERVED.get(header, [subsystem]):
            return "only for " + ", ".join(RESERVED[header])
        return None
    name = project_name(root, file, header)
    if name is None:
        return "no such file"
    allowed = {"tarn/types.h", f"tarn/{subsystem}.h", *(f"tarn/{other}.h" for other in BUILDS_ON[subsystem])}
    if "platform" in (subsystem, *BUILDS_ON[subsystem]):
        allowed.add("platform/support.h")
    if name in allowed or name.startswith(subsystem + "/"):
        return None
    return f"{subsystem} does not build on it"


def public_fault(header_name, header, quoted):
    if quoted != header.startswith("tarn/"):
        return "the project's own headers stand in quotes, the system's in angle brackets"
    return None if header in PUBLIC_HEADERS[header_name] else "not in the list of this public header"


# The folders that use the library from outside, and the paths in their quoted includes: no header of src/.
OUTSIDERS = {"sim": ("sim/", "tarn/"), "examples": ("examples/", "tarn/"), "tools": ("tools/", "common/", "tarn/")}


def outsider_fault(folder, header, quoted):
    if not quoted or "/" not in header or header.startswith(OUTSIDERS[folder]):
        return None
    return "not for " + folder


def faults(root):
    listed = list(BUILDS_ON)
    for position, (subsystem, others) in enumerate(BUILDS_ON.items()):
        for other in others:
            if other not in listed[:position]:
                yield f"{subsystem} builds on {other}, which does not stand above it"
    built = set(re.findall(r"^ +(\w+)/\w+\.cpp", (root / "src/CMakeLists.txt").read_text(), re.MULTILINE))
    for name in sorted(built.symmetric_difference(BUILDS_ON)):
        yield f"{name}: in one of src/CMakeLists.txt and this script's table, not in the other"
    for subsystem in BUILDS_ON:
        for file in sources(root / "src" / subsystem):
            for line, header, quoted in includes(file):
                fault = subsystem_fault(root, subsystem, file, header, quoted)
                if fault:
                    yield f"{file.relative_to(root)}:{line}: {header}: {fault}"
    for file in sources(root / "include"):
        if file.name not in PUBLIC_HEADERS:
            yield f"{file.relative_to(root)}: not in the table of public headers"
            continue
        for line, header, quoted in includes(file):
            fault = public_fault(file.name, header, quoted)
            if fault:
                yield f"{file.relative_to(root)}:{line}: {header}: {fault}"
    for folder in OUTSIDERS:
        for file in sources(root / folder):
            for line, header, quoted in includes(file):
                fault = outsider_fault(folder, header, quoted)
                if fault:
                    yield f"{file.relative_to(root)}:{line}: {header}: {fault}"


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    found = list(faults(root))
    for fault in found:
        print(fault)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
