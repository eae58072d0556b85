# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Part of the target's run: repeated power cuts while a daemon logs, on one disk.

The machine is killed at once, so data that it had not written to its disk is lost and written data remains. A daemon
logs numbered messages and prints on the console what it logged and saved. Each start shows the state after the last
cut.
"""

import dataclasses
import re
import time

import image
import results

BOOT_LIMIT_S = 240
COMMIT_S = 5  # the file system's own period, after which a closed file is on the disk
# A save that is older than this must be on the disk: the commit period, doubled for a slow machine.
SAFE_MS = 2 * COMMIT_S * 1000
JOB = """
mount -t ext4 /dev/vdb /overlay && echo "cut: mounted"
for file in mu_log user_log; do
  if [ -e /overlay/$file.txt ]; then cp /overlay/$file.txt /share/$file; fi
done
/programs/driver/cut_writer
"""
RECORD = re.compile(rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\[Error\](?:main|user):number (\d+) of a run that ends with the power ?")
SAID = re.compile(r"cut: (found|logged|saved|rewrite) (\d+) (\d+)")
# The moments of the cuts: seconds after the daemon's start, or the first rewrite from that time on.
FIRST_MOMENTS = (("rewrite", 7), ("time", 8.5), ("rewrite", 12), ("time", 6))
AT_START = ("start", 0)
SIGN = {"rewrite": "cut: rewrite", "time": "cut: logged", "start": "cut: found"}


def moment_of(number):
    """FIRST_MOMENTS, then both kinds, spread over 15 s: three commits of the file system."""
    if number < len(FIRST_MOMENTS):
        return FIRST_MOMENTS[number]
    return ("rewrite", "time")[number % 2], 1 + number * 5 % 29 / 2


@dataclasses.dataclass
class Run:
    """The output of a machine before its power was cut."""
    found: int = 0  # records of the system log that the daemon had read back
    base: int = 0  # the number before the first of this run
    moment: str = ""
    logged: int = 0
    start_ms: int = 0
    logged_ms: int = 0
    saves: list = dataclasses.field(default_factory=list)  # (last number, ms)
    up: bool = False

    def hear(self, line):
        heard = SAID.fullmatch(line)  # a line mixed with kernel output does not match
        if heard is None:
            return
        what, first, second = heard[1], int(heard[2]), int(heard[3])
        if what == "found":
            self.found, self.base = first, second
            self.logged = self.base
            self.up = True
        elif what == "logged":
            self.logged, self.logged_ms = first, second
            self.start_ms = self.start_ms or self.logged_ms
        elif what == "saved":
            self.saves.append((first, second))

    def seconds(self):
        return (self.logged_ms - self.start_ms) / 1000

    def surely_saved(self):
        return max((number for number, ms in self.saves if ms < self.logged_ms - SAFE_MS), default=0)


@dataclasses.dataclass
class Left:
    """The content of a log file after a cut."""
    state: str
    numbers: list = dataclasses.field(default_factory=list)

    def last(self):
        return self.numbers[-1] if self.numbers else 0


def read_left(file, head_end, ring, run, found):
    """found: the numbers in this file at the start of the run that was cut."""
    if not file.exists():
        return Left("missing")
    content = file.read_bytes()
    if not content:
        return Left("empty")
    head = content.find(head_end)
    lines = content[head + len(head_end):].split(b"\n")
    matches = [RECORD.fullmatch(line) for line in lines[:-1]]
    if head < 0 or not all(matches):
        return Left("damaged")
    numbers = [int(match[1]) for match in matches]
    if not numbers:
        return Left("head only")
    expected = found + list(range(run.base + 1, numbers[-1] + 1)) if run else numbers
    start = expected.index(numbers[0]) if numbers[0] in expected else 0
    if expected[start:start + len(numbers)] != numbers:
        return Left("damaged", numbers)
    if not lines[-1] and numbers == found:
        return Left("as at the start", numbers)
    is_whole = not lines[-1] and numbers == expected[-ring:]
    return Left("whole" if is_whole else "a part", numbers)


def wait_for_moment(target, run, moment):
    """Reads the console until the moment of the cut."""
    what, seconds = moment
    deadline = time.monotonic() + BOOT_LIMIT_S
    while (line := target.next_line(deadline)) is not None:
        run.hear(line)
        if line.startswith(SIGN[what]) and run.seconds() >= seconds:
            return


def judge(run, left, name):
    """The violations of the log store's rules, if any."""
    faults = []
    if left.state == "damaged":
        faults.append("its records are damaged, out of order, or were never logged")
    if left.last() > run.logged + 1:  # the console may lag by one
        faults.append(f"record {left.last()} was never logged")
    if left.state in ("whole", "as at the start") and left.last() < run.surely_saved():
        faults.append(f"{left.last()} is the last record, but {run.surely_saved()} was saved long before")
    return [f"{name}: {fault}" for fault in faults]


def one_boot(target, disk, moment):
    """Returns the run, the share with the files from before it, and whether the disk could be mounted."""
    run = Run()
    with target.start(JOB, overlay=disk) as machine:
        wait_for_moment(machine, run, moment)
        machine.cut_power()
        while (line := machine.next_line(time.monotonic() + 10)) is not None:
            run.hear(line)
    run.moment = ("in a rewrite, " if moment[0] == "rewrite" else "") + f"{run.seconds():.1f} s"
    return run, machine.share, "cut: mounted" in machine.lines


def row(number, run, lefts):
    cells = [str(number), run.moment, str(run.logged), str(run.saves[-1][0]) if run.saves else "none"]
    for left in lefts:
        held = f"{left.numbers[0]} to {left.last()}" if left.numbers else "nothing"
        cells += [left.state, held, str(max(0, run.logged - left.last()))]
    return "| " + " | ".join(cells) + " |"


def run_cuts(target):
    disk = target.work / "overlay.ext4"
    image.make_ext4(disk, 64)
    cases, rows = [], []
    before = None  # the run whose power was cut
    found = [[], []]
    count = target.arguments.cuts
    for number in range(count + 1):
        run, share, mounted = one_boot(target, disk, moment_of(number) if number < count else AT_START)
        lefts = [read_left(share / "mu_log", b"SysLog:\n", 1024, before, found[0]),
                 read_left(share / "user_log", b"\n\n", 512, before, found[1])]
        if before is not None:
            faults = judge(before, lefts[0], "system log") + judge(before, lefts[1], "user log")
            if not mounted or not run.up:
                faults.append("the next start did not come up")
            if run.found != len(lefts[0].numbers):
                faults.append(f"the daemon read {run.found} records of {len(lefts[0].numbers)}")
            rows.append(row(number, before, lefts))
            cases.append(results.Case(f"cuts/{number}", "failed" if faults else "passed", "; ".join(faults), rows[-1]))
            print("target: cut " + rows[-1], flush=True)
        found = [left.numbers for left in lefts]
        before = run
    (target.work / "cuts.md").write_text("\n".join(rows) + "\n")
    return cases
