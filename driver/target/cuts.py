"""Part of the target's run: the power goes while a daemon logs, again and again, on one disk.

The machine is killed as it stands, so what it had not given to its disk is gone; what it had given stays. A daemon of
numbered messages tells on the console what it logged and saved. Each start shows what the cut before it left.
"""

import dataclasses
import re
import time

import image
import report

BOOT_LIMIT_S = 240
COMMIT_S = 5  # the file system's own period, at which a closed file is on the disk at last
# A save that is older than this must be on the disk: the commit, and as much again for a machine that is slow.
SAFE_MS = 2 * COMMIT_S * 1000
JOB = """
mount -t ext4 /dev/vdb /overlay && echo "cut: mounted"
for file in mu_log user_log; do
  if [ -e /overlay/$file.txt ]; then cp /overlay/$file.txt /share/$file; fi
done
%s
"""
GO_ON = "/programs/driver/cut_writer"
RECORD = re.compile(rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\[Error\](?:main|user):number (\d+) of a run that ends with the power ?")
# When the power goes: in the n-th rewrite, or so many seconds after the n-th save was complete.
MOMENTS = (("rewrite", 2, 0), ("save", 4, 1.5), ("save", 2, 0), ("rewrite", 4, 0), ("save", 1, 2.5), ("save", 3, 0.5),
           ("rewrite", 1, 0), ("save", 5, 2), ("rewrite", 3, 0.01), ("save", 2, 1))


@dataclasses.dataclass
class Run:
    """What a machine said before its power went."""
    found: tuple = (0, 0, 0)  # records, first, last that the daemon had read back
    moment: str = ""
    logged: int = 0
    logged_ms: int = 0
    saves: list = dataclasses.field(default_factory=list)  # (last number, ms)
    up: bool = False

    def hear(self, line):
        words = line.split()
        if line.startswith("cut: found"):
            self.found = tuple(int(word) for word in words[2:5])
            self.logged = self.found[2]
            self.up = True
        elif line.startswith("cut: logged"):
            self.logged, self.logged_ms = int(words[2]), int(words[3])
        elif line.startswith("cut: saved"):
            self.saves.append((int(words[2]), int(words[3])))

    def surely_saved(self):
        return max((number for number, ms in self.saves if ms < self.logged_ms - SAFE_MS), default=0)


@dataclasses.dataclass
class Left:
    """What a log file held after a cut."""
    state: str
    first: int = 0
    last: int = 0
    records: int = 0


def read_left(file, head_end, ring, run, found):
    """found: first and last number of this file at the start of the run that was cut."""
    if not file.exists():
        return Left("missing")
    content = file.read_bytes()
    if not content:
        return Left("empty")
    head = content.find(head_end)
    lines = content[head + len(head_end):].split(b"\n") if head >= 0 else [content]
    matches = [RECORD.fullmatch(line) for line in lines[:-1]]
    if head < 0 or not all(matches):
        return Left("damaged")
    numbers = [int(match[1]) for match in matches]
    if not numbers:
        return Left("head only" if not lines[-1].strip(b"\0") else "a part")
    if numbers != list(range(numbers[0], numbers[-1] + 1)):
        return Left("damaged", numbers[0], numbers[-1], len(numbers))
    left = Left("a part", numbers[0], numbers[-1], len(numbers))
    if not lines[-1]:
        if (left.first, left.last) == found:
            left.state = "as at the start"
        elif left.first == max(found[0], 1, left.last - ring + 1):
            left.state = "whole"
    return left


def wait_for_moment(target, run, moment):
    """Listens until the power shall go."""
    what, count, delay_s = moment
    beginning = "cut: rewrite" if what == "rewrite" else "cut: saved"
    deadline = time.monotonic() + BOOT_LIMIT_S
    while count > 0:
        line = target.next_line(deadline)
        if line is None:
            return
        run.hear(line)
        count -= line.startswith(beginning)
    time.sleep(delay_s)


def describe(moment):
    what, count, delay_s = moment
    if what == "rewrite":
        return f"in rewrite {count}"
    return f"{delay_s:.1f} s after save {count}"


def judge(run, left, is_system):
    """What contradicts the rules of the log store; empty if nothing does."""
    faults = []
    if left.state == "damaged":
        faults.append("records are damaged or out of order")
    if left.last > run.logged + 1:  # the console may lag by one
        faults.append(f"record {left.last} was never logged")
    if left.state in ("whole", "as at the start") and left.last < run.surely_saved():
        faults.append(f"{left.last} is the last record, but {run.surely_saved()} was saved long before")
    return [("system log: " if is_system else "user log: ") + fault for fault in faults]


def one_boot(target, disk, moment):
    """Returns the run, and the share with what the cut before it left."""
    run = Run()
    job = JOB % (GO_ON if moment else GO_ON + " & sleep 4")
    with target.start(job, overlay=disk) as machine:
        if moment is None:
            machine.wait_for_end(BOOT_LIMIT_S, on_line=run.hear)
        else:
            wait_for_moment(machine, run, moment)
            machine.cut_power()
            while (line := machine.next_line(time.monotonic() + 10)) is not None:
                run.hear(line)
            run.moment = describe(moment)
        mounted = "cut: mounted" in machine.lines
    return run, machine.share, mounted


def row(number, run, lefts):
    cells = [str(number), run.moment, str(run.logged), str(run.saves[-1][0]) if run.saves else "-"]
    for left in lefts:
        held = f"{left.first} to {left.last}" if left.records else "-"
        cells += [left.state, held, str(max(0, run.logged - left.last))]
    return "| " + " | ".join(cells) + " |"


def run_cuts(target):
    disk = target.work / "overlay.ext4"
    image.make_ext4(disk, 64)
    cases, rows = [], []
    before = None  # the run whose power went
    found = [(0, 0), (0, 0)]
    count = target.arguments.cuts
    for number in range(count + 1):
        moment = MOMENTS[number % len(MOMENTS)] if number < count else None
        run, share, mounted = one_boot(target, disk, moment)
        lefts = [read_left(share / "mu_log", b"SysLog:\n", 1024, before, found[0]),
                 read_left(share / "user_log", b"\n\n", 512, before, found[1])]
        if before is not None:
            faults = judge(before, lefts[0], True) + judge(before, lefts[1], False)
            if not mounted or not run.up:
                faults.append("the next start did not come up")
            if run.found[0] != lefts[0].records:
                faults.append(f"the daemon read {run.found[0]} records of {lefts[0].records}")
            rows.append(row(number, before, lefts))
            cases.append(report.Case(f"cuts/{number}", "failed" if faults else "passed", "; ".join(faults), rows[-1]))
            print("target: cut " + rows[-1], flush=True)
        # The user log goes on with the numbers of the system log, so it may have a gap where it was saved later.
        found = [(left.first, left.last) for left in lefts]
        before = run
    (target.work / "cuts.md").write_text("\n".join(rows) + "\n")
    return cases
