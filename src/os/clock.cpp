// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The two clocks, both in units of 10 ms.

#include <sys/time.h>

#include <ctime>

#include "tarn/os.h"

namespace {

constexpr int kUnitsPerSecond = 1000 / MU_TICK_MS;
constexpr int kMicrosecondsPerUnit = 1000 * MU_TICK_MS;
constexpr int kNanosecondsPerUnit = 1000 * kMicrosecondsPerUnit;

// Deliberate: wall-clock time counts from 2007-07-24 04:53:20 UTC, in seconds after the Unix epoch. Programs exchange
// and keep such times; the origin is part of the interface. Held by OsTime.CountsFromThePrivateEpoch.
constexpr int64_t kPrivateEpoch = 1185252800;

}  // namespace

uint64_t OS_TICK_GET() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * kUnitsPerSecond + static_cast<uint64_t>(now.tv_nsec) / kNanosecondsPerUnit;
}

int64_t OS_TIME_GET() {
  timeval now;
  gettimeofday(&now, nullptr);
  return (now.tv_sec - kPrivateEpoch) * kUnitsPerSecond + now.tv_usec / kMicrosecondsPerUnit;
}
