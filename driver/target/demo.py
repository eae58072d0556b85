"""Part of the target's run: gatewayd at work, as a child of the init process."""

import image
import report
import system

LIMIT_S = 600
CLAIMS = 18


def run(target):
    disk = target.work / "demo.ext4"
    image.make_ext4(disk, 64)
    share = target.boot((image.HERE / "guest/demo").read_text(), LIMIT_S, overlay=disk)
    cases = report.read_results("demo/", share / "results")
    if len(cases) < CLAIMS:
        cases.append(report.Case("demo/IsWhole", "failed", f"{len(cases)} claims of {CLAIMS}"))
    return cases + [system.kernel_is_well(share)]
