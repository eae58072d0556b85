// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The division of the OS layer, under the platform's name.

#include "tarn/os.h"
#include "tarn/platform.h"

void mu_div(uint64_t dividend, uint32_t divisor, uint64_t *quotient, uint32_t *remainder) {
  OS_DO_DIV(dividend, divisor, quotient, remainder);
}
