#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether every source has the format of clang-format.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need clang-format
files '*.c' '*.cpp' '*.h' | xargs -0 -n 40 -P "$(nproc)" clang-format --dry-run -Werror
