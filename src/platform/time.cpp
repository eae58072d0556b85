// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The clocks and delays of the OS layer, under the platform's names.

#include "tarn/os.h"
#include "tarn/platform.h"

int64_t mu_current_time() { return OS_TIME_GET(); }

uint64_t mu_current_tick() { return OS_TICK_GET(); }

void mu_udelay(uint32_t us) { OS_DELAY(us); }

// Deliberate: the product wraps at 32 bits, as in OS_SLEEP; unlike mu_sleep, 0 makes a system call. Held by
// MuDelay.WaitsOnce.
void mu_mdelay(uint32_t ms) { OS_DELAY(ms * 1000u); }

void mu_sleep(uint32_t ms) { OS_SLEEP(ms); }
