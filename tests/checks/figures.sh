#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether the figures of docs/ are the output of their scripts.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need python3
for script in docs/*_figure.py; do "$script" | diff "${script%_figure.py}.svg" -; done
