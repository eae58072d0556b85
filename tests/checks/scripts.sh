#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether the shell scripts parse, and shellcheck finds nothing in them.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need shellcheck
scripts=(dev .ci/run)
while IFS= read -r -d '' script; do scripts+=("$script"); done < <(files '*.sh' '*.bash')
for script in "${scripts[@]}"; do bash -n "$script"; done
shellcheck --severity=style --source-path=SCRIPTDIR --external-sources "${scripts[@]}"
