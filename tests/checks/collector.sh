#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Whether rsyslog collects the forwarded messages. Usage: collector.sh PACKAGES_FOLDER LOG_STORM
#
# If rsyslog is not installed, its packages are unpacked into the folder.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need python3
root=/
if [[ ! -x /usr/sbin/rsyslogd ]]; then
  root=$1
  if [[ ! -x $root/usr/sbin/rsyslogd ]]; then
    need apt-get dpkg
    mkdir -p "$root/packages"
    (cd "$root/packages" && apt-get download rsyslog libestr0 libfastjson4) || {
      echo "skipped: rsyslog's packages cannot be fetched"
      exit 77
    }
    for package in "$root"/packages/*.deb; do dpkg -x "$package" "$root"; done
  fi
fi
timeout 300 tests/system/collector_test.py "$root" "$2"
