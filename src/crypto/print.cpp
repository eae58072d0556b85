// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bytes in hexadecimal on standard output.
//
// Each byte, blank and line feed is a separate call of printf or putchar: programs that interpose these functions rely
// on that. The buffering of standard output decides when the text appears. The functions have no result, so they ignore
// failures.

#include <cstdio>

#include "tarn/crypto.h"

namespace {

constexpr int32_t kGroup = 4;
constexpr int32_t kLine = 16;

bool ends(int32_t i, int32_t unit) { return i % unit == unit - 1; }

void print_byte(const uint8_t *buf, int32_t i) {
  (void)printf("%02x", buf[i]);
  if (ends(i, kGroup)) (void)putchar(' ');
}

void print_groups(const uint8_t *p, int32_t len) {
  for (int32_t i = 0; i < len; i++) print_byte(p, i);
}

}  // namespace

void print_hex(const char *prefix, const uint8_t *buf, int32_t len) {
  if (len <= 0) return;
  for (int32_t i = 0; i < len; i++) {
    if (i != 0 && i % kLine == 0) (void)printf("%s", prefix);
    print_byte(buf, i);
    if (ends(i, kLine)) (void)putchar('\n');
  }
  if (len % kLine != 0) (void)putchar('\n');
}

void print128(const uint8_t *p) { print_groups(p, 16); }

void print96(const uint8_t *p) { print_groups(p, 12); }

void print64(const uint8_t *p) { print_groups(p, 8); }

void print32(const uint8_t *p) { print_groups(p, 4); }
