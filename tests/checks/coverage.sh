#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# Measures how much of the library its tests cover, and checks that it is enough. Usage: coverage.sh
#
# The test programs are those of build/release; the library is an instrumented one, found by LD_LIBRARY_PATH. Code for
# 64-bit Arm only is covered under emulation, by the test program of build/aarch64.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need gcovr aarch64-linux-gnu-gcov qemu-aarch64-static
subsystems=(os platform containers convert timer startup_cfg crypto log event)
summaries=(--root . --exclude-throw-branches -j "$(nproc)")
export TARN_TEST_SHARD

# instrument PRESET: only the library, into build/PRESET.
instrument() {
  if [[ -d build/$1 ]]; then find "build/$1" -name '*.gcda' -delete; fi
  cmake --preset "$1"
  cmake --build --preset "$1" --target tarn
}

# run PROGRAM [EMULATOR...]: two processes share the program's tests.
run() {
  local program=$1 shard running=()
  shift
  for shard in 0/2 1/2; do
    TARN_TEST_SHARD=$shard TARN_TEST_FORK=build/coverage/results-${shard%/2} "$@" "$program" >/dev/null 2>&1 &
    running+=($!)
  done
  local status=0 child
  for child in "${running[@]}"; do wait "$child" || status=1; done
  if ((status != 0)); then
    grep -hv '^passed' build/coverage/results-*
    echo "$program: failed"
    exit 1
  fi
}

instrument coverage
for subsystem in "${subsystems[@]}" sim; do
  LD_LIBRARY_PATH=$PWD/build/coverage run "build/release/tests/${subsystem}_test"
done
gcovr "${summaries[@]}" --object-directory build/coverage --filter src/ --json build/coverage/native.json \
  build/coverage/src

instrument coverage-aarch64
TARN_TEST_ONLY=processor LD_LIBRARY_PATH=$PWD/build/coverage-aarch64 \
  run build/aarch64/tests/crypto_test qemu-aarch64-static -L /usr/aarch64-linux-gnu
gcovr "${summaries[@]}" --gcov-executable aarch64-linux-gnu-gcov --object-directory build/coverage-aarch64 \
  --filter src/crypto/arm.cpp --json build/coverage-aarch64/arm.json build/coverage-aarch64/src

merged=("${summaries[@]}" --add-tracefile build/coverage/native.json --add-tracefile build/coverage-aarch64/arm.json)
gcovr "${merged[@]}" --json-summary build/coverage/summary.json --txt build/coverage/lines.txt
gcovr "${merged[@]}" --branches --txt build/coverage/branches.txt
cat build/coverage/lines.txt build/coverage/branches.txt
tests/checks/coverage.py build/coverage/summary.json "${subsystems[@]/#/src/}"
