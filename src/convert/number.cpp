// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Numbers from text. Values are computed in the width of the result and wrap there.

#include "internal.h"
#include "tarn/os.h"

using namespace tarn;
using namespace tarn::convert;

namespace {

constexpr int kPrefixLength = 2;
constexpr int kMaxDigits32 = 8;

bool has_hex_prefix(const char *s) { return s[0] == '0' && s[1] == 'x'; }

// Deliberate: leading zeros are refused, so "012" fails here and parses in mu_str2decl. Held by
// Str2Dec.RefusesLeadingZeros.
bool parse_decimal32(const char *s, u32 &value) {
  if (*s == '0') return s[1] == '\0';
  const char *end = read_digits<10>(s, value);
  return end != s && *end == '\0';
}

// Deliberate: a prefix without digits parses as 0 here and fails in mu_str2decl. Held by
// Str2Dec.TakesAPrefixWithoutDigitsAsZero.
bool parse_hex32(const char *digits, u32 &value) {
  const char *end = read_digits<16>(digits, value);
  return *end == '\0' && end - digits <= kMaxDigits32;
}

}  // namespace

uint32_t mu_atoi(const char *s) {
  if (s == nullptr) return 0;
  u32 value = 0;
  (void)read_digits<10>(s, value);  // text after the digits is ignored
  return value;
}

mu_status_t mu_str2dec(const char *s, uint32_t *out) {
  u32 value = 0;
  const bool parsed = has_hex_prefix(s) ? parse_hex32(s + kPrefixLength, value) : parse_decimal32(s, value);
  *out = parsed ? value : 0;
  return parsed ? kSuccess : kFailure;
}

mu_status_t mu_str2decl(const char *s, uint64_t *out) {
  if (s == nullptr || out == nullptr) return kFailure;
  u64 value = 0;
  const char *end = nullptr;
  if (has_hex_prefix(s)) {
    if (s[kPrefixLength] == '\0') return kFailure;
    end = read_digits<16>(s + kPrefixLength, value);
  } else {
    // Deliberate: the empty text parses as 0 and zeros may lead, unlike in mu_str2dec. Held by
    // Str2Decl.TakesTheEmptyTextAsZero and Str2Decl.TakesLeadingZerosAsDecimal.
    end = read_digits<10>(s, value);
  }
  if (*end != '\0') return kFailure;
  *out = value;
  return kSuccess;
}

uint32_t mu_strtol(const char *s) {
  if (s == nullptr) return 0;
  u32 value = 0;
  (void)mu_str2dec(s, &value);  // a failure leaves 0
  return value;
}

uint64_t mu_strtoll(const char *s) {
  u64 value = 0;
  (void)mu_str2decl(s, &value);  // a failure leaves 0
  return value;
}

unsigned long mu_strtoul(const char *s, char **end, uint32_t base) {
  if (s == nullptr) return 0;
  return OS_STRTOUL(s, end, static_cast<int>(base));
}

uint64_t mu_inter_to64(uint32_t high, uint32_t low) { return u64{high} << 32 | low; }
