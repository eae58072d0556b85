#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands in the pages, and compiles the programs in them.

    documents.py SOURCE_FOLDER BUILD_FOLDER WORK_FOLDER

Each block of a page that is fenced as sh runs in a copy of the sources, in which build/release is BUILD_FOLDER; files
that a block installs go below the work folder. A block fenced as c that has a main function is compiled with the public
headers, linked to the library of BUILD_FOLDER and run. Commands of ELSEWHERE are not run here: each is a separate stage
of the continuous integration, or needs changes that the check may not make. They are compared as far as possible.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

PAGES = ("README.md", "CONTRIBUTING.md", "docs/*.md", "sim/README.md", "tools/README.md", "examples/README.md",
         "driver/README.md")
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
UNFENCED = re.compile(r"^    (?:\./dev|cmake|ctest|build/|gdb|git|make|insmod|tarn-) .*", re.MULTILINE)
HANG_LIMIT_S = 600


def check_dev(sources, build, line):
    command = line.split()[1].rstrip(",")
    usage = subprocess.run([sources / "dev", "help"], check=True, text=True, stdout=subprocess.PIPE).stdout
    for option in [f"./dev {command}", *re.findall(r"--[a-z]+", line)]:
        if option not in usage:
            yield f"./dev help does not know {option}"


def check_preset(sources, build, line):
    presets = json.loads((sources / "CMakePresets.json").read_text())
    name = re.search(r"--preset[ =](\S+)", line)[1]
    kind = "workflowPresets" if "--workflow" in line else "buildPresets" if "--build" in line else "configurePresets"
    if name not in [preset["name"] for preset in presets[kind]]:
        yield f"{kind} have no {name}"


def check_other_build(sources, build, line):
    path = re.search(r"build/(?:asan|tsan|debug|aarch64)/(\S+)", line)[1]
    if not (build / path).exists():
        yield f"no build has {path}"


def check_nothing(sources, build, line):
    return []


ELSEWHERE = (
    (re.compile(r"\./dev "), check_dev),
    (re.compile(r"cmake --(workflow --|build --)?preset"), check_preset),
    (re.compile(r"(setarch -R )?build/(asan|tsan|debug|aarch64)/"), check_other_build),
    # The virtual target builds the driver, loads it and uses its files.
    (re.compile(r"make -C driver|insmod |echo .*/sys/kernel/debug"), check_nothing),
    (re.compile(r"(sudo )?ldconfig|sudo apt"), check_nothing),
    # tests/programs/tools runs the commands of the tools' pages, tests/programs/sim those that need a simulation.
    (re.compile(r"tarn-(cfg|log|event) "), check_nothing),
)


def run(command, folder, work, **options):
    environment = dict(os.environ, DESTDIR=str(work / "installed"), TMPDIR=str(work), CI="true")
    result = subprocess.run(command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, errors="replace", timeout=HANG_LIMIT_S, **options)
    if result.returncode != 0:
        yield f"status {result.returncode}: {' '.join(map(str, command[-1:]))}\n{result.stdout[-3000:]}"


def run_shell(text, tree, sources, build, work):
    here = []
    for line in text.splitlines():
        check = next((check for pattern, check in ELSEWHERE if pattern.match(line)), None)
        if check:
            yield from check(sources, build, line)
        else:
            here.append(line)
    if any(line.strip() and not line.startswith("#") for line in here):
        yield from run(["bash", "-euo", "pipefail", "-c", "\n".join(here)], tree, work)


def run_program(text, sources, build, work):
    if "int main(" not in text:
        return
    (work / "program.c").write_text(text)
    yield from run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", f"-I{sources}/include", "program.c", f"-L{build}",
                    f"-Wl,-rpath,{build}", "-ltarn", "-o", "program"], work, work)
    yield from run([work / "program"], work, work)


def faults_of_page(page, sources, build, work):
    text = page.read_text()
    tree = work / "tree"
    if tree.exists():
        shutil.rmtree(tree)
    shutil.copytree(sources, tree, ignore=shutil.ignore_patterns("build", ".git"), symlinks=True)
    (tree / "build").mkdir()
    (tree / "build/release").symlink_to(build)
    subprocess.run("git init -q && git add -A .", cwd=tree, shell=True, check=True)  # for pages that show git grep
    for line in UNFENCED.findall(FENCE.sub("", text)):
        yield f"write commands between ```sh and ```: {line.strip()}"
    for language, block in FENCE.findall(text):
        if language == "sh":
            yield from run_shell(block, tree, sources, build, work)
        elif language == "c":
            yield from run_program(block, sources, build, work)


def main():
    sources, build, work = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    failed = False
    for pattern in PAGES:
        for page in sorted(sources.glob(pattern)):
            for fault in faults_of_page(page, sources, build, work):
                print(f"{page.relative_to(sources)}: {fault}")
                failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
