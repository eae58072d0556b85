#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether every file states its licence and its copyright (https://reuse.software).
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need reuse git
reuse lint
