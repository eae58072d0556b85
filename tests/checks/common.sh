# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Shared by the checks. Each sources it: . tests/checks/common.sh
# shellcheck shell=bash
set -euo pipefail

# need PROGRAM...: skips the check if one is missing.
need() {
  local program
  for program in "$@"; do
    if [[ -z $(command -v "$program") ]]; then
      echo "skipped: no $program"
      exit 77
    fi
  done
}

# files PATTERN...: the project's files by name patterns, each ended by a NUL.
files() {
  local pattern names=()
  for pattern in "$@"; do names+=(-o -name "$pattern"); done
  find . \( -path ./build -o -path ./.git \) -prune -o -type f \( "${names[@]:1}" \) -print0 | sort -z
}
