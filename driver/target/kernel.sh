#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# The kernel of the virtual machine: fetches the distribution's arm64 kernel, its headers and a static busybox, unpacks
# them, and builds the driver against them. Nothing is installed, and the machine's own package state does not change.
#
# Usage: kernel.sh FOLDER
# Creates in FOLDER: root/ (the content of the packages), vmlinuz, release (the kernel's), busybox, tarn_platform.ko.
# Files that exist are used again. Exit status 77: a package is not available here.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mkdir -p "${1:?usage: kernel.sh FOLDER}"
folder=$(cd "$1" && pwd)
readonly here folder
readonly driver=$here/..
readonly root=$folder/root

cannot() {
  printf 'skipped: %s\n' "$*"
  exit 77
}

# ---- The packages ----------------------------------------------------------------------------------------------------

native=$(dpkg --print-architecture) || cannot "the kernel's packages are Debian's"
readonly native

# apt with a private state for two architectures; its sources are the machine's.
apt=(-o "Dir::State::Lists=$folder/apt/lists" -o Dir::State::status=/dev/null -o "Dir::Cache=$folder/apt/cache"
  -o APT::Architecture=arm64 -o "APT::Architectures=arm64,$native" -o APT::Sandbox::User=root)

# depends_on PACKAGE PREFIX: the first dependency of PACKAGE whose name begins with PREFIX.
depends_on() {
  apt-cache "${apt[@]}" show --no-all-versions "$1" | sed -n 's/^Depends: //p' | sed 's/[,|]/\n/g' |
    sed -n "s/^ *\($2[^ ]*\).*/\1/p" | head -n 1
}

fetch() {
  local image headers kbuild
  mkdir -p "$folder/apt/lists/partial" "$folder/apt/cache/archives/partial" "$folder/packages"
  timeout 300 apt-get "${apt[@]}" update || cannot "no package lists for arm64"
  image=$(depends_on linux-image-arm64 linux-image-)
  headers=$(depends_on linux-headers-arm64 linux-headers-)
  if [[ -z $image || -z $headers ]]; then cannot "no arm64 kernel among the packages"; fi
  kbuild=$(depends_on "$headers" linux-kbuild-)
  cd "$folder/packages"
  rm -f -- *.deb
  timeout 900 apt-get "${apt[@]}" download "$image" "$headers" "$(depends_on "$headers" linux-headers-):all" \
    "$kbuild:$native" busybox-static || cannot "the arm64 kernel's packages cannot be fetched"
}

# The header tree contains the paths of its installation, and a compiler name with a version.
make_headers_usable() {
  local headers
  headers=$(echo "$root"/usr/src/linux-headers-*-arm64)
  sed -i "s|/usr/src/|$root/usr/src/|g" "$headers/Makefile"
  sed -i 's/aarch64-linux-gnu-gcc-[0-9]*/aarch64-linux-gnu-gcc/; s/gcc-[0-9]*/gcc/' "$headers/.kernelvariables"
}

if [[ ! -e $folder/release ]]; then
  (fetch)
  rm -rf "$root"
  mkdir -p "$root"
  for package in "$folder"/packages/*.deb; do dpkg -x "$package" "$root"; done
  make_headers_usable
  cp "$root"/boot/vmlinuz-* "$folder/vmlinuz"
  cp "$root/bin/busybox" "$folder/busybox"
  release=$(basename "$root"/lib/modules/*)
  echo "$release" >"$folder/release" # last: marks the folder as complete
fi

# ---- The driver ------------------------------------------------------------------------------------------------------

mkdir -p "$folder/driver"
cp "$driver"/Kbuild "$driver"/*.[ch] "$folder/driver"
make -C "$root/usr/src/linux-headers-$(cat "$folder/release")" "M=$folder/driver" ARCH=arm64 \
  CROSS_COMPILE=aarch64-linux-gnu- modules
cp "$folder/driver/tarn_platform.ko" "$folder"
