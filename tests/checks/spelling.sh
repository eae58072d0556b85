#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether codespell finds no misspelt word. .codespellrc lists the exceptions.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need codespell git
git ls-files -z | xargs -0 codespell
