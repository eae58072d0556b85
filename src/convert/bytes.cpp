// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bytes written in hexadecimal with separators between them: byte strings and MAC addresses.
//
//   text      = [ byte *( separator byte ) [ separator ] ]
//   byte      = 1*2 hexadecimal digits
//   separator = ":" / "."

#include "internal.h"

using namespace tarn;
using namespace tarn::convert;

namespace {

constexpr int kMaxDigits = 2;

enum class Trailing { kRefused, kAccepted };

bool is_separator(char c) { return c == ':' || c == '.'; }

// A byte is stored once it is complete, and stays stored when an error follows it.
bool parse_bytes(const char *s, u8 *out, int len, Trailing trailing_separator) {
  int stored = 0;
  while (*s != '\0') {
    u32 byte = 0;
    const char *end = read_digits<16>(s, byte);
    if (end == s || end - s > kMaxDigits || stored >= len) return false;
    if (*end != '\0' && !is_separator(*end)) return false;
    out[stored++] = static_cast<u8>(byte);
    if (*end == '\0') break;
    s = end + 1;
    if (*s == '\0' && trailing_separator == Trailing::kRefused) return false;
  }
  return stored == len;
}

}  // namespace

mu_status_t mu_str2hex(const char *s, uint8_t *out, int len) {
  if (s == nullptr || out == nullptr) return kFailure;
  // Deliberate: a trailing separator is accepted here and refused by mu_str2mac. Held by
  // Str2Hex.AcceptsOneTrailingSeparator.
  return parse_bytes(s, out, len, Trailing::kAccepted) ? kSuccess : kFailure;
}

mu_status_t mu_str2mac(const char *s, uint8_t mac[MU_MAC_BYTES]) {
  if (s == nullptr || mac == nullptr) return kFailure;
  return parse_bytes(s, mac, MU_MAC_BYTES, Trailing::kRefused) ? kSuccess : kFailure;
}
