// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the conversions: their statuses, and the reader of digits that every parser uses.
#ifndef TARN_CONVERT_INTERNAL_H
#define TARN_CONVERT_INTERNAL_H

#include <array>

#include "platform/support.h"
#include "tarn/convert.h"

namespace tarn::convert {

constexpr mu_status_t kSuccess = 0;
constexpr mu_status_t kFailure = 1;

constexpr u8 kNoDigit = 0xFF;

// The value of each character as a hexadecimal digit, or kNoDigit.
inline constexpr std::array<u8, 256> kDigitValues = [] {
  std::array<u8, 256> values{};
  values.fill(kNoDigit);
  for (u8 digit = 0; digit < 10; digit++) values['0' + digit] = digit;
  for (u8 digit = 10; digit < 16; digit++) values['a' + digit - 10] = values['A' + digit - 10] = digit;
  return values;
}();

// Reads digits up to the first character that is not one, into a value that wraps at its width. Returns the place of
// that character: `s` itself when there is no digit.
template <unsigned kBase, typename Value>
inline const char *read_digits(const char *s, Value &value) {
  static_assert(kBase == 10 || kBase == 16);
  value = 0;
  for (;; s++) {
    const unsigned digit = kDigitValues[static_cast<u8>(*s)];
    if (digit >= kBase) return s;
    value = value * kBase + digit;
  }
}

}  // namespace tarn::convert

#endif
