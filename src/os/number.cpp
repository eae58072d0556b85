// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Text to number, and a division that never traps.

#include <cstdlib>

#include "tarn/os.h"

unsigned long OS_STRTOUL(const char *text, char **end, int base) { return strtoul(text, end, base); }

void OS_DO_DIV(uint64_t dividend, uint32_t divisor, uint64_t *quotient, uint32_t *remainder) {
  // For a zero divisor the quotient is 0 and the remainder is the dividend's low 32 bits.
  const uint64_t result = divisor == 0 ? 0 : dividend / divisor;
  *quotient = result;
  *remainder = static_cast<uint32_t>(dividend - result * divisor);
}
