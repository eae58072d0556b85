#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether each public header compiles by itself, as C and as C++, with two compilers, without a warning.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need gcc g++ clang clang++
count=0
for header in include/tarn/*.h; do
  for compiler in 'gcc -std=c99 -x c' 'gcc -std=c11 -x c' 'clang -std=c99 -x c' 'clang -std=c11 -x c' \
    'g++ -std=c++98 -x c++' 'g++ -std=c++17 -x c++' 'clang++ -std=c++98 -x c++' 'clang++ -std=c++17 -x c++'; do
    echo "$header: $compiler"
    read -ra command <<<"$compiler"
    "${command[@]}" -Wall -Wextra -Wpedantic -Werror -Iinclude -fsyntax-only - <<<"#include \"tarn/${header##*/}\""
  done
  count=$((count + 1))
done
echo "$count headers"
