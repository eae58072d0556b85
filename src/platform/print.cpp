// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The library's console printer.

#include <cstdarg>
#include <cstdio>

#include "tarn/platform.h"

void mu_printf(const char *format, ...) {
  char text[MU_PRINTF_SIZE];
  text[0] = '\0';
  va_list args;
  va_start(args, format);
  (void)vsnprintf(text, sizeof text, format, args);
  va_end(args);
  // The buffering of standard output decides when the text appears. The function has no result, so it ignores failures.
  (void)printf("%s", text);
}
