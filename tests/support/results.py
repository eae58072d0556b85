# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Results of test programs that fork for each of their tests: read from their files, written for the tally."""

import dataclasses
import re
import xml.etree.ElementTree

# The output of GoogleTest for GTEST_SKIP() << reason.
SKIP_REASON = re.compile(r": Skipped\n+([^\n]*)")
RESULT = re.compile(r"(passed|skipped|failed) (\S+) (\d+) (.*)")
NOT_IN_XML = re.compile("[^\t\n\x20-\ud7ff\ue000-\ufffd]")


@dataclasses.dataclass
class Case:
    name: str
    result: str  # passed, skipped or failed
    how: str = ""
    output: str = ""
    milliseconds: int = 0

    def skip_reason(self):
        found = SKIP_REASON.search(self.output)
        return found[1].strip() if found else self.how


def read_results(prefix, file):
    """The results that tests/support/main.cpp wrote. A file that is missing or cut short is one more failure."""
    cases = []
    try:
        lines = file.read_text(errors="replace").splitlines()
    except OSError:
        lines = []
    for line in lines:
        found = RESULT.fullmatch(line)
        if found:
            cases.append(Case(prefix + found[2], found[1], found[4], milliseconds=int(found[3])))
        elif line.startswith("| ") and cases:
            cases[-1].output += line.removeprefix("| ") + "\n"
    if not lines or lines[-1] != f"done {len(cases)}":
        cases.append(Case(prefix + "program", "failed", "not all results", "\n".join(lines[-1:])))
    return cases


def junit_case(case):
    node = xml.etree.ElementTree.Element("testcase", name=case.name, time=f"{case.milliseconds / 1000:.3f}")
    node.set("status", {"passed": "run", "failed": "fail", "skipped": "notrun"}[case.result])
    text = case.output
    if case.result == "failed":
        xml.etree.ElementTree.SubElement(node, "failure", message=case.how)
    elif case.result == "skipped":
        xml.etree.ElementTree.SubElement(node, "skipped", message="SKIP_RETURN_CODE=77")
        text = f"skipped: {case.skip_reason()}\n"
    xml.etree.ElementTree.SubElement(node, "system-out").text = NOT_IN_XML.sub("?", text)
    return node


def write_junit(cases, file):
    suite = xml.etree.ElementTree.Element("testsuite", name="target", tests=str(len(cases)))
    suite.extend(map(junit_case, cases))
    xml.etree.ElementTree.ElementTree(suite).write(file, encoding="utf-8", xml_declaration=True)


def summary(cases):
    counts = {result: sum(case.result == result for case in cases) for result in ("passed", "failed", "skipped")}
    text = f"{counts['passed']} passed, {counts['failed']} failed"
    return text + (f", {counts['skipped']} skipped" if counts["skipped"] else "")
