// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The hex dump: a title, then rows of 16 bytes.

#include <algorithm>

#include "internal.h"

using namespace tarn;
using namespace tarn::convert;

namespace {

constexpr size_t kRowBytes = 16;
constexpr size_t kBytePlaces = 3;  // two digits and a blank

// A row is printed in one call, so rows of several threads do not mix, and a dump costs one call for 16 bytes.
void print_row(const u8 *bytes, size_t count) {
  constexpr char kDigits[] = "0123456789abcdef";
  char row[kRowBytes * kBytePlaces + sizeof "\n"];
  char *at = row;
  for (size_t i = 0; i < count; i++) {
    *at++ = kDigits[bytes[i] >> 4];
    *at++ = kDigits[bytes[i] & 0xF];
    *at++ = ' ';
  }
  if (count == kRowBytes) *at++ = '\n';
  *at = '\0';
  mu_printf("%s", row);
}

}  // namespace

mu_status_t mu_buffer_dump(const char *title, const uint8_t *buf, uint16_t len) {
  if (title == nullptr || buf == nullptr) return kFailure;
  mu_printf("\r\n%s\n", title);
  for (size_t at = 0; at < len; at += kRowBytes) print_row(buf + at, std::min(kRowBytes, len - at));
  mu_printf("\n");
  return kSuccess;
}
