#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether cppcheck finds nothing in the library. Usage: cppcheck.sh WORK_FOLDER
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need cppcheck
[[ $# -eq 1 ]] || { echo "usage: cppcheck.sh WORK_FOLDER" >&2; exit 2; }
mkdir -p "$1"
cppcheck --std=c++20 --language=c++ --platform=unix64 --library=posix --library=gnu \
  --enable=warning,performance,portability,style --inline-suppr --error-exitcode=1 --quiet -j "$(nproc)" \
  --cppcheck-build-dir="$1" -D__x86_64__ -D__GNUC__=12 -D_GNU_SOURCE -DTARN_LOG_SERVER_IP=1u -I include -I src src
