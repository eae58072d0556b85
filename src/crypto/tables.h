// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The constants of FIPS 197, computed from their definitions over GF(2^8).
#ifndef TARN_CRYPTO_TABLES_H
#define TARN_CRYPTO_TABLES_H

#include <array>
#include <bit>

#include "internal.h"

namespace tarn::aes {

// The product by x modulo x^8 + x^4 + x^3 + x + 1: section 4.2.1. Has no branch: it would depend on the data.
constexpr u8 xtime(u8 a) { return static_cast<u8>((a << 1) ^ ((a >> 7) * 0x1B)); }

using Table = std::array<u8, 256>;

// Section 5.1.1: the inverse in the field, then an affine map of its bits. x + 1 generates all elements but 0, and the
// inverse of its power e is its power 255 - e.
constexpr Table substitution_box() {
  constexpr u8 kAffineConstant = 0x63;
  Table box{};
  box[0] = kAffineConstant;  // 0 has no inverse: 0 is used instead
  Table powers{};
  u8 element = 1;
  for (u8 &power : powers) {
    power = element;
    element = static_cast<u8>(element ^ xtime(element));
  }
  for (size_t exponent = 0; exponent < 255; exponent++) {
    const u8 inverse = powers[(255 - exponent) % 255];
    box[powers[exponent]] = static_cast<u8>(inverse ^ std::rotl(inverse, 1) ^ std::rotl(inverse, 2) ^
                                            std::rotl(inverse, 3) ^ std::rotl(inverse, 4) ^ kAffineConstant);
  }
  return box;
}

constexpr Table inverse_of(const Table &box) {
  Table inverse{};
  for (size_t i = 0; i < box.size(); i++) inverse[box[i]] = static_cast<u8>(i);
  return inverse;
}

inline constexpr Table kSbox = substitution_box();
inline constexpr Table kInverseSbox = inverse_of(kSbox);

// Section 5.2: the first bytes of Rcon[1] to Rcon[10] are the powers of x.
inline constexpr std::array<u8, kRounds> kRoundConstants = [] {
  std::array<u8, kRounds> constants{};
  u8 power = 1;
  for (u8 &constant : constants) {
    constant = power;
    power = xtime(power);
  }
  return constants;
}();

static_assert(kSbox[0x00] == 0x63 && kSbox[0x53] == 0xED && kSbox[0xFF] == 0x16);  // figure 7
static_assert(kInverseSbox[0x63] == 0x00 && kInverseSbox[0xED] == 0x53 && kInverseSbox[0x16] == 0xFF);
static_assert(kRoundConstants[0] == 0x01 && kRoundConstants[8] == 0x1B && kRoundConstants[9] == 0x36);

}  // namespace tarn::aes

#endif
