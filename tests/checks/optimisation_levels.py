#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Builds the libraries at every optimisation level, with GCC and Clang, and checks that they need nothing but libc.

    optimisation_levels.py SOURCE_FOLDER WORK_FOLDER OS_TEST

Code that a compiler inlines at one level may be a call into the C++ run-time library at another. At each level the
shared library must need only libc, and `cc` must link a C program with all of the static library, which must run.
Then it builds the shared library without unwind tables and runs with it those tests of OS_TEST that cancel a waiting
thread: the functions that wait must have kept their tables.
Prints one line for each build. The exit status is 1 after a fault, 77 if there is no compiler.
"""

import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys

COMPILERS = (("gcc", "gcc", "g++"), ("clang", "clang", "clang++"))

# The standard build types, without debug information, which takes time and changes nothing; then other levels.
BUILD_TYPES = {"Debug": "-O0", "Release": "-O3 -DNDEBUG", "RelWithDebInfo": "-O2 -DNDEBUG",
               "MinSizeRel": "-Os -DNDEBUG", "None": "-O0 -DNDEBUG", "O1": "-O1", "Og": "-Og"}

# The hardening of distributions: the containers' checks would call the run-time library.
EXTRA = "-Wp,-D_GLIBCXX_ASSERTIONS"

PROGRAM = """
#include <tarn/platform.h>
int main(void) {
  mu_printf("linked\\n");
  return 0;
}
"""


def run(*command):
    result = subprocess.run([str(part) for part in command], text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    if result.returncode != 0:
        raise RuntimeError(f"{command[0]} failed:\n{result.stdout[-3000:]}")
    return result.stdout


def configure(source, work, name, c_compiler, cxx_compiler):
    build = work / name
    levels = [f"-DCMAKE_{language}_FLAGS_{type_.upper()}={flags}" for type_, flags in BUILD_TYPES.items()
              for language in ("C", "CXX")]
    run("cmake", "-G", "Ninja Multi-Config", "-S", source, "-B", build, f"-DCMAKE_C_COMPILER={c_compiler}",
        f"-DCMAKE_CXX_COMPILER={cxx_compiler}", f"-DCMAKE_CXX_FLAGS={EXTRA}",
        "-DCMAKE_CONFIGURATION_TYPES=" + ";".join(BUILD_TYPES), *levels)
    return build


def faults_of(source, build, type_, c_compiler):
    libraries = build / type_
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-dW", libraries / "libtarn.so"))
    if needed != ["libc.so.6"]:
        yield f"the shared library needs {', '.join(needed)}"
    program = libraries / "program"
    try:
        run(c_compiler, libraries / "program.c", f"-I{source}/include", "-o", program, "-Wl,--whole-archive",
            libraries / "libtarn.a", "-Wl,--no-whole-archive")
        if run(program) != "linked\n":
            yield "a C program with the static library does not run"
    except RuntimeError as error:
        missing = sorted(set(re.findall(r"undefined reference to `([^']*)'", str(error))))
        yield "the static library needs " + ", ".join(missing) if missing else str(error)


def check(source, build, name, c_compiler, type_):
    run("cmake", "--build", build, "--config", type_, "--target", "tarn", "tarn_static", "--parallel", os.cpu_count())
    (build / type_ / "program.c").write_text(PROGRAM)
    faults = list(faults_of(source, build, type_, c_compiler))
    print(f"{name} {type_} ({BUILD_TYPES[type_]}): {'; '.join(faults) if faults else 'only libc'}", flush=True)
    return not faults


def default_type_is_release(source, work):
    build = work / "default"
    environment = {name: value for name, value in os.environ.items() if name != "CMAKE_BUILD_TYPE"}
    subprocess.run(["cmake", "-G", "Ninja", "-S", source, "-B", build], check=True, env=environment,
                   stdout=subprocess.DEVNULL)
    found = re.search(r"^CMAKE_BUILD_TYPE:\w+=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE)[1]
    print(f"no build type: {found or 'none'}", flush=True)
    return found == "Release"


def waits_keep_their_tables(source, work, os_test):
    build = work / "without-tables"
    run("cmake", "-G", "Ninja", "-S", source, "-B", build, "-DTARN_UNWIND_TABLES=OFF")
    run("cmake", "--build", build, "--target", "tarn")
    environment = {**os.environ, "LD_LIBRARY_PATH": str(build), "TARN_TEST_ONLY": "CancelledIn",
                   "TARN_TEST_FORK": str(build / "results")}
    status = subprocess.run([os_test], env=environment, stdout=subprocess.DEVNULL, check=False).returncode
    results = (build / "results").read_text().splitlines()
    passed = sum(line.startswith("passed ") for line in results)
    print(f"without unwind tables: {passed} waits can be cancelled", flush=True)
    return status == 0 and passed > 0 and passed == len(results) - 1  # the last line has the number of tests


def main():
    source, work, os_test = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    compilers = [compiler for compiler in COMPILERS if shutil.which(compiler[1]) and shutil.which(compiler[2])]
    if not compilers:
        print("skipped: neither GCC nor Clang")
        return 77
    is_good = default_type_is_release(source, work)
    is_good &= waits_keep_their_tables(source, work, os_test)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        builds = list(pool.map(lambda compiler: configure(source, work, *compiler), compilers))
    for build, (name, c_compiler, _) in zip(builds, compilers):
        for type_ in BUILD_TYPES:
            is_good &= check(source, build, name, c_compiler, type_)
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
