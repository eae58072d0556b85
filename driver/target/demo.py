# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Part of the target's run: gatewayd at work, as a child of the init process."""

import image
import results
import system

LIMIT_S = 600


def run(target):
    disk = target.work / "demo.ext4"
    image.make_ext4(disk, 64)
    share = target.boot((image.HERE / "guest/demo").read_text(), LIMIT_S, overlay=disk)
    return results.read_results("demo/", share / "results") + [system.kernel_is_well(share)]
