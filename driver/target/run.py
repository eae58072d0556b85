#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Runs the tests on the virtual target.

    run.py --kernel FOLDER --build FOLDER --work FOLDER [--parts PART,...] [--soak MINUTES] [--cuts N] [--shell]

--kernel: the folder of kernel.sh. --build: the cross build. --work: for images, logs and results. The results are in
WORK/tests.xml; the last line is "N passed, N failed". --shell: a prompt on the machine, with the driver loaded.
"""

import argparse
import pathlib
import shutil
import sys
import time
import traceback

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests/support"))
import cuts  # noqa: E402
import demo  # noqa: E402
import image  # noqa: E402
import machine  # noqa: E402
import results  # noqa: E402
import system  # noqa: E402
import unit  # noqa: E402

PARTS = {"unit": unit.run, "system": system.run_system, "soak": system.run_soak, "demo": demo.run,
         "cuts": cuts.run_cuts}

SHELL_JOB = """
insmod /modules/tarn_platform.ko
mount -t tmpfs overlay /overlay
echo "The programs are in /programs, the driver's files in /sys/kernel/debug/tarn. 'exit' ends the machine."
setsid cttyhack sh
"""


class Target:
    def __init__(self, arguments):
        self.arguments = arguments
        self.build = arguments.build.resolve()
        self.work = arguments.work.resolve()
        self.work.mkdir(parents=True, exist_ok=True)
        (self.work / "console.log").unlink(missing_ok=True)
        shutil.copy(arguments.kernel / "vmlinuz", self.work)
        image.make_initramfs(arguments.kernel, self.build, self.work / "initramfs.cpio")
        image.make_programs_disk(self.build, self.work / "programs.ext4")

    def start(self, job, **options):
        return machine.Machine(self.work, job, **options)

    def boot(self, job, limit_s, prepare=None, overlay=None):
        """Runs a job to its end. Returns the share's folder."""
        with self.start(job, prepare=prepare, overlay=overlay) as started:
            started.wait_for_end(limit_s, on_line=print_line)
        return started.share

    def shell(self):
        with self.start(SHELL_JOB, interactive=True) as started:
            return started.process.wait()


def print_line(line):
    if line.startswith("target:"):
        print(line, flush=True)


def run_part(target, name):
    start = time.monotonic()
    try:
        cases = PARTS[name](target)
    except Exception as error:  # the other parts still run
        traceback.print_exc()
        cases = [results.Case(f"{name}/machine", "failed", str(error))]
    print(f"target: {name}: {results.summary(cases)} ({time.monotonic() - start:.0f} s)", flush=True)
    for case in cases:
        if case.result == "failed":
            print(f"target: failed: {case.name} ({case.how})\n{case.output}", flush=True)
    return cases


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kernel", type=pathlib.Path, required=True)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--parts", default=",".join(PARTS))
    parser.add_argument("--soak", type=float, default=1, metavar="MINUTES")
    parser.add_argument("--cuts", type=int, default=4)
    parser.add_argument("--shell", action="store_true")
    arguments = parser.parse_args()
    target = Target(arguments)
    if arguments.shell:
        return target.shell()
    cases = []
    for name in arguments.parts.split(","):
        cases += run_part(target, name)
    results.write_junit(cases, target.work / "tests.xml")
    print(results.summary(cases))
    return 1 if any(case.result == "failed" for case in cases) else 0


if __name__ == "__main__":
    sys.exit(main())
