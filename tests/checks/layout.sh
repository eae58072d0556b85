#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether the public structures have their documented layout on three processors.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

for compiler in gcc aarch64-linux-gnu-gcc s390x-linux-gnu-gcc; do
  need "$compiler"
  echo "$compiler"
  "$compiler" -std=c11 -Wall -Wextra -Wpedantic -Werror -Iinclude -fsyntax-only tests/checks/layout.c
done
