# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Parts of the target's run that use the driver: the system tests, and the soak."""

import results

LIMIT_S = 900
SYSTEM_JOB = """
insmod /modules/tarn_platform.ko
TARN_TEST_FORK=/tmp/results /programs/driver/driver_system_test >/dev/null 2>&1
cp /tmp/results /share
cat /sys/kernel/debug/tarn/status >/share/status
dmesg >/share/kernel-log
"""
SOAK_JOB = """
insmod /modules/tarn_platform.ko
export TARN_SOAK_SECONDS=%d TARN_TEST_HANG_LIMIT_S=%d
TARN_TEST_FORK=/tmp/results /programs/driver/driver_soak_test >/dev/null 2>&1
cp /tmp/results /share
echo "target: soak: $(cat /tmp/soak)"
dmesg >/share/kernel-log
"""
# The kernel's messages about its own faults.
TROUBLE = ("BUG:", "WARNING:", "Oops", "Internal error", "Call trace:", "soft lockup", "hung task")


def kernel_is_well(share):
    """A case that passes if the kernel's log reports no fault."""
    try:
        text = (share / "kernel-log").read_text(errors="replace")
    except OSError:
        return results.Case("kernel/IsWell", "failed", "no kernel log")
    lines = [line for line in text.splitlines() if any(sign in line for sign in TROUBLE)]
    return results.Case("kernel/IsWell", "failed" if lines else "passed", "it complains", "\n".join(lines))


def run_system(target):
    share = target.boot(SYSTEM_JOB, LIMIT_S)
    return results.read_results("system/", share / "results") + [kernel_is_well(share)]


def run_soak(target):
    seconds = round(target.arguments.soak * 60)
    share = target.boot(SOAK_JOB % (seconds, seconds + 300), seconds + LIMIT_S)
    return results.read_results("soak/", share / "results") + [kernel_is_well(share)]
