#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether Debian's hardening-check finds the hardening that a library should have. Usage: hardening.sh LIBRARY
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need hardening-check
# A shared object is always position-independent; elf.py checks the marks of control-flow protection.
hardening-check --nopie --nocfprotection "$1"
