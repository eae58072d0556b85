#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Counts tests and checks.

    tally.py record FILE NAME SECONDS STATUS [--junit FILE] [--check]
        Writes the record of one stage. STATUS is the exit status of its commands. --junit: the results of CTest;
        shows the output of failed tests. --check: the stage is a check, or has one besides its tests, which counts
        as one passed or failed test. Prints the counts.
    tally.py total [--times] FILE...
        Prints the sum of the records: the last line of ./dev and .ci/run.

A failure that no count shows (a broken build, a run without a test) counts as one failed test.
"""

import argparse
import collections
import json
import pathlib
import re
import sys
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import results  # noqa: E402

FORKED = re.compile(r"(\w+)/forked-(\d+)")
SHOWN_LINES = 150  # of the output of one failed test
# The output of GoogleTest for GTEST_SKIP() << reason, of Python's unittest for skipTest(reason), and of our scripts.
SKIP_REASON = re.compile(r""": Skipped\n+([^\n]*)|\bskipped ['"](.*)['"]|^skipped: (.*)""", re.MULTILINE)


def skip_reason(case):
    if case.get("status") == "disabled":
        return "disabled"
    found = SKIP_REASON.search(case.findtext("system-out") or "")
    reason = found[found.lastindex].strip() if found else ""
    return reason if reason and not reason.startswith("[") else "no reason given"


def cases_of(file):
    """The test cases of a JUnit file. A program that forks for each of its tests has a separate file."""
    try:
        cases = list(xml.etree.ElementTree.parse(file).iter("testcase"))
    except (OSError, xml.etree.ElementTree.ParseError):
        return
    for case in cases:
        forked = FORKED.fullmatch(case.get("name"))
        if not forked:
            yield case
            continue
        inner = results.read_results(forked[1] + "/", file.parent / "results" / f"{forked[1]}-{forked[2]}")
        yield from map(results.junit_case, inner)
        if case.get("status") != "run" and all(one.result != "failed" for one in inner):
            yield case  # it failed outside its tests


def read_junit(file):
    """(passed, [failed test cases], Counter of skip reasons). A file that is missing or cut short has no tests."""
    passed, failed, skipped = 0, [], collections.Counter()
    for case in cases_of(file):
        mark = case.find("skipped")
        message = mark.get("message", "") if mark is not None else ""
        if case.get("status") == "run" and case.find("failure") is None:
            passed += 1
        elif case.get("status") == "disabled" or message.startswith(("SKIP_RETURN_CODE", "SKIP_REGULAR_EXPRESSION")):
            skipped[skip_reason(case)] += 1
        else:  # also one that could not be started
            failed.append(case)
    return passed, failed, skipped


def show_failure(case):
    failure = case.find("failure")
    message = failure.get("message", "") if failure is not None else "not run"
    print(f"\n---- failed: {case.get('name')} ({message or 'failed'})")
    lines = (case.findtext("system-out") or "").rstrip().splitlines()
    if len(lines) > SHOWN_LINES:
        print(f"     (the last {SHOWN_LINES} of {len(lines)} lines)")
    print("\n".join(lines[-SHOWN_LINES:]))


def summary(passed, failed, skipped):
    text = f"{passed} passed, {failed} failed"
    if skipped:
        reasons = "; ".join(f"{reason} ({count})" for reason, count in sorted(skipped.items()))
        text += f", {sum(skipped.values())} skipped: {reasons}"
    return text


def record(arguments):
    passed, failed, skipped = 0, 0, collections.Counter()
    succeeded = arguments.status == 0
    if arguments.junit:
        passed, failed_cases, skipped = read_junit(arguments.junit)
        failed = len(failed_cases)
        for case in failed_cases:
            show_failure(case)
        if succeeded and passed + failed + sum(skipped.values()) == 0:
            succeeded = False
    if arguments.check and succeeded:
        passed += 1
    if not succeeded and failed == 0:
        failed = 1
    counts = {"name": arguments.name, "seconds": arguments.seconds, "passed": passed, "failed": failed,
              "skipped": skipped}
    arguments.file.write_text(json.dumps(counts) + "\n")
    print(summary(passed, failed, skipped))
    return 1 if failed else 0


def total(arguments):
    records = [json.loads(file.read_text()) for file in arguments.files]
    skipped = collections.Counter()
    for counts in records:
        skipped.update(counts["skipped"])
        if arguments.times:
            print(f"{counts['seconds']:6} s  {counts['name']}: {counts['passed']} passed, {counts['failed']} failed")
    print(summary(sum(counts["passed"] for counts in records), sum(counts["failed"] for counts in records), skipped))
    return 0


def main():
    parser = argparse.ArgumentParser()
    commands = parser.add_subparsers(required=True)
    of_record = commands.add_parser("record")
    of_record.add_argument("file", type=pathlib.Path)
    of_record.add_argument("name")
    of_record.add_argument("seconds", type=int)
    of_record.add_argument("status", type=int)
    of_record.add_argument("--junit", type=pathlib.Path)
    of_record.add_argument("--check", action="store_true")
    of_record.set_defaults(run=record)
    of_total = commands.add_parser("total")
    of_total.add_argument("--times", action="store_true")
    of_total.add_argument("files", type=pathlib.Path, nargs="*")
    of_total.set_defaults(run=total)
    arguments = parser.parse_args()
    return arguments.run(arguments)


if __name__ == "__main__":
    sys.exit(main())
