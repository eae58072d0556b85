#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether clang-tidy finds nothing in the compiled sources. Usage: tidy.sh GREP_OPTION...
# The options select paths of sources: -E 'src/' selects the library's.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need clang-tidy clang++
# Without precompiled headers, and each file by itself: that is what clang-tidy reads.
cmake --preset clang -B build/tidy -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DTARN_TEST_BATCH=1 -DTARN_BUILD_TOGETHER=OFF
mapfile -t sources < <(sed -n "s|^ *\"file\": \"$PWD/\(.*\)\".*|\1|p" build/tidy/compile_commands.json |
  sort -u | grep "$@")
printf '%s\0' "${sources[@]}" | xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/tidy --quiet
echo "note: ${#sources[@]} files"
