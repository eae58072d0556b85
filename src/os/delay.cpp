// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Delays: a select call on no descriptors.

#include <sys/select.h>

#include "tarn/os.h"

namespace {

void OS_DELAY_INTERNAL(uint32_t us) {
  timeval timeout = {us / 1000000, us % 1000000};
  (void)select(1, nullptr, nullptr, nullptr, &timeout);  // a signal ends it early; the remaining time is not waited
}

}  // namespace

void OS_DELAY(uint32_t us) { OS_DELAY_INTERNAL(us); }

void OS_SLEEP(uint32_t ms) {
  if (ms == 0) return;
  // Deliberate: the product wraps at 32 bits, so 5000000 ms sleep about 705 s. Callers are promised exactly this; do
  // not widen it. Held by OsSleep.WrapsAbove4294967Milliseconds.
  OS_DELAY_INTERNAL(ms * 1000u);
}
