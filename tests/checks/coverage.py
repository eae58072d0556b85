#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Reports line and branch coverage by folder, from gcovr's JSON summary, and fails below the floors.

    coverage.py SUMMARY FOLDER...

Each folder must appear in the summary: a folder that no test reaches is a fault too.
"""

import json
import pathlib
import sys

LINE_FLOOR = 100.0
BRANCH_FLOOR = 95.0


def percent(covered, total):
    return 100.0 * covered / total if total else 100.0


def main():
    files = json.loads(pathlib.Path(sys.argv[1]).read_text())["files"]
    folders = sys.argv[2:]
    rows = {folder: [0, 0, 0, 0] for folder in [*folders, "total"]}
    for file in files:
        counts = [file[key] for key in ("line_covered", "line_total", "branch_covered", "branch_total")]
        for row in (str(pathlib.PurePath(file["filename"]).parent), "total"):
            rows[row] = [a + b for a, b in zip(rows[row], counts)]

    faults = []
    print(f"note: {'folder':16}{'lines':>20}{'branches':>24}")
    for folder, (lines, all_lines, branches, all_branches) in rows.items():
        line_share, branch_share = percent(lines, all_lines), percent(branches, all_branches)
        print(f"note: {folder:16}{lines:6} of {all_lines:5} {line_share:6.2f} %{branches:8} of {all_branches:5} "
              f"{branch_share:6.2f} %")
        if all_lines == 0:
            faults.append(f"{folder}: no lines found")
        elif line_share < LINE_FLOOR or branch_share < BRANCH_FLOOR:
            faults.append(f"{folder}: {line_share:.2f} % of lines (floor {LINE_FLOOR:g}), "
                          f"{branch_share:.2f} % of branches (floor {BRANCH_FLOOR:g})")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
