# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Part of the target's run: every unit test program."""

import results

LIMIT_S = 1500  # far above any run that passes
# The processors share each program's tests: with whole programs one processor would be idle at the end.
SHARDS = 4
JOB = r"""
export LD_LIBRARY_PATH=/programs/lib
mkdir /tmp/results
cat >/tmp/run <<'END'
#!/bin/sh
name=$(basename "$1")-$2
start=$(cut -d . -f 1 /proc/uptime)
TARN_TEST_FORK=/tmp/results/$name TARN_TEST_SHARD=$2/$3 "$1" >/tmp/output-$name 2>&1
result=$?
cp /tmp/results/$name /tmp/output-$name /share
echo "target: $name: exit $result, $(($(cut -d . -f 1 /proc/uptime) - start)) s"
END
chmod +x /tmp/run
xargs -P 2 -n 3 /tmp/run </share/list
"""


def test_programs(build):
    """The large ones first, so that none of them runs last on one processor."""
    found = [path for path in (build / "tests").rglob("*_test") if path.is_file()]
    return sorted(found, key=lambda path: -path.stat().st_size)


def run(target):
    programs = [path.relative_to(target.build) for path in test_programs(target.build)]

    def prepare(share):
        (share / "list").write_text("".join(
            f"/programs/{path} {shard} {SHARDS}\n" for path in programs for shard in range(SHARDS)))

    share = target.boot(JOB, LIMIT_S, prepare)
    cases = []
    for path in programs:
        for shard in range(SHARDS):
            cases += results.read_results(f"{path.name.removesuffix('_test')}/", share / f"{path.name}-{shard}")
    return cases
