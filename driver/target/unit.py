"""Part of the target's run: every unit test program."""

import report

LIMIT_S = 1500  # none that passes comes near
HEAVY = ("startup_cfg_test", "log_test", "crypto_test")
JOB = r"""
export LD_LIBRARY_PATH=/programs/lib
mkdir /tmp/results
cat >/tmp/run <<'END'
#!/bin/sh
name=$(basename "$1")
start=$(cut -d . -f 1 /proc/uptime)
TARN_TEST_FORK=/tmp/results/$name "$1" >/tmp/output-$name 2>&1
result=$?
cp /tmp/results/$name /tmp/output-$name /share
echo "target: $name: exit $result, $(($(cut -d . -f 1 /proc/uptime) - start)) s"
END
chmod +x /tmp/run
xargs -P 2 -n 1 /tmp/run </share/list
"""


def rank(path):
    return HEAVY.index(path.name) if path.name in HEAVY else len(HEAVY)


def test_programs(build):
    """Those that compute most come first, and then the large ones: none that takes long shall come last, alone."""
    found = [path for path in (build / "tests").rglob("*_test") if path.is_file()]
    return sorted(found, key=lambda path: (rank(path), -path.stat().st_size))


def run(target):
    programs = [path.relative_to(target.build) for path in test_programs(target.build)]

    def prepare(share):
        (share / "list").write_text("".join(f"/programs/{path}\n" for path in programs))

    share = target.boot(JOB, LIMIT_S, prepare)
    cases = []
    for path in programs:
        cases += report.read_results(f"{path.name.removesuffix('_test')}/", share / path.name)
    return cases
