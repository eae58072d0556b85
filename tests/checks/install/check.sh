#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Installs a build and uses it as another project would: through CMake's package and through pkg-config, from C and from
# C++, with the shared and with the static library.
#
#   check.sh SOURCE_FOLDER BUILD_FOLDER WORK_FOLDER
set -euo pipefail

source_dir=$1 build_dir=$2 work_dir=$3
here="$source_dir/tests/checks/install"
first="$work_dir/first-prefix" prefix="$work_dir/prefix"

rm -rf "$work_dir"
mkdir -p "$work_dir"

echo "== a plain build, without options"
cmake -S "$source_dir" -B "$work_dir/plain" -G Ninja
cmake --build "$work_dir/plain" --parallel
test -f "$work_dir/plain/libtarn.so.1"
if grep -i 'gtest\|gmock' "$work_dir/plain/CMakeCache.txt"; then
  echo "the plain build looks for GoogleTest"
  exit 1
fi

echo "== installation"
cmake --install "$build_dir" --prefix "$first"
mv "$first" "$prefix" # an installation may be moved
find "$prefix" -type f -o -type l | sort
for header in "$source_dir"/include/tarn/*.h; do
  cmp "$header" "$prefix/include/tarn/$(basename "$header")"
done

for language in C CXX; do
  echo "== find_package from $language"
  version="$(sed -n 's/^#define TARN_VERSION_[A-Z]* //p' "$source_dir/include/tarn/types.h" | paste -sd.)"
  cmake -S "$here" -B "$work_dir/cmake-$language" -G Ninja -DCONSUMER_LANGUAGE="$language" \
    -DTARN_EXPECTED_VERSION="$version" -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$work_dir/cmake-$language"
  ctest --test-dir "$work_dir/cmake-$language" --output-on-failure --no-tests=error
done

libdir="$(dirname "$(find "$prefix" -name libtarn.so.1)")"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
read -ra cflags <<<"$(pkg-config --cflags tarn)"
read -ra libs <<<"$(pkg-config --libs tarn)"
read -ra static_libs <<<"$(pkg-config --libs tarn-static)"
[[ $(realpath "$(pkg-config --variable=prefix tarn)") == $(realpath "$prefix") ]]
for compiler in "gcc -std=c11 $here/consumer.c" "g++ -std=c++17 $here/consumer.cpp"; do
  echo "== pkg-config with $compiler"
  read -ra compile <<<"$compiler"
  "${compile[@]}" -Wall -Wextra -Werror "${cflags[@]}" "${libs[@]}" -o "$work_dir/shared"
  LD_LIBRARY_PATH="$libdir" "$work_dir/shared"
  readelf -d "$work_dir/shared" | grep -q 'NEEDED.*libtarn.so.1'
  "${compile[@]}" -Wall -Wextra -Werror "${cflags[@]}" "${static_libs[@]}" -o "$work_dir/static"
  "$work_dir/static"
  if readelf -d "$work_dir/static" | grep 'NEEDED.*libtarn'; then exit 1; fi
done
