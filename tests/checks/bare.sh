#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether README's two commands work for root on a bare machine: a minimal Debian in a folder, with the sources cloned
# into root's home, which other users cannot enter. Usage: bare.sh WORK_FOLDER
#
# Both commands run with a /dev/pts, and the tests again without one. Takes about half an hour.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need git
if [[ ${1-} != --inside ]]; then
  if ((EUID != 0)); then
    echo "skipped: not root"
    exit 77
  fi
  need debootstrap unshare
  work=$(mkdir -p "$1" && realpath "$1")
  root=$work/root
  # The archive from which this machine gets its packages.
  # shellcheck disable=SC2016  # the words are apt's
  mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | head -n 1)
  # shellcheck disable=SC2016
  release=$(apt-get indextargets --format '$(CODENAME)' 'Created-By: Packages' | grep -v -e '-' | head -n 1)
  if [[ ! -e $root/root/.bashrc ]]; then
    rm -rf "$root"
    debootstrap --variant=minbase "$release" "$root" "$mirror"
    cp -a /etc/apt/sources.list* /etc/apt/apt.conf.d "$root/etc/apt/"
  fi
  rm -rf "$root/root/tarn"
  git clone --quiet . "$root/root/tarn"
  chmod 700 "$root/root"
  exec unshare --mount --pid --fork "${BASH_SOURCE[0]}" --inside "$root"
fi

root=$2
mount --make-rprivate /
mount -t proc proc "$root/proc"
mount -t tmpfs tmpfs "$root/tmp"
mount -t tmpfs dev "$root/dev"
for device in null zero full random urandom tty; do
  touch "$root/dev/$device"
  mount --bind "/dev/$device" "$root/dev/$device"
done
ln -s /proc/self/fd "$root/dev/fd"
mkdir "$root/dev/pts" "$root/dev/shm" "$root/dev/mqueue"
mount -t tmpfs shm "$root/dev/shm"
mount -t mqueue mqueue "$root/dev/mqueue" || true

inside() {
  echo "== in a bare Debian${2-}: $1"
  chroot "$root" /usr/bin/env HOME=/root bash -c "cd /root/tarn && $1" | tail -n 40
}

inside './dev test' ', without /dev/pts'
mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts "$root/dev/pts"
ln -s pts/ptmx "$root/dev/ptmx"
inside './dev demo'
inside './dev test'
