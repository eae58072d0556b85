// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A second AES-128 and AES-CMAC, written only to follow the standards: bit by bit, without tables.
#ifndef TARN_TESTS_CRYPTO_REFERENCE_H
#define TARN_TESTS_CRYPTO_REFERENCE_H

#include <array>

#include "crypto/fixture.h"

namespace crypto_test {

namespace reference {

// Section numbers are those of FIPS 197.

// 4.2: polynomials over GF(2), multiplied and reduced by x^8 + x^4 + x^3 + x + 1.
inline uint8_t multiply(unsigned a, unsigned b) {
  unsigned product = 0;
  for (int i = 0; i < 8; i++) product ^= ((b >> i) & 1) * (a << i);
  for (int i = 14; i >= 8; i--) product ^= ((product >> i) & 1) * (0x11Bu << (i - 8));
  return static_cast<uint8_t>(product);
}

// 5.1.1
inline uint8_t substitute(uint8_t a) {
  unsigned inverse = 0;
  for (unsigned b = 1; b < 256; b++) {
    if (multiply(a, b) == 1) inverse = b;
  }
  unsigned result = 0;
  for (int i = 0; i < 8; i++) {
    unsigned bit = 0x63u >> i;
    for (const int j : {0, 4, 5, 6, 7}) bit ^= inverse >> ((i + j) % 8);
    result |= (bit & 1) << i;
  }
  return static_cast<uint8_t>(result);
}

struct Boxes {
  std::array<uint8_t, 256> forward;
  std::array<uint8_t, 256> backward;
};

inline const Boxes &boxes() {
  static const Boxes boxes = [] {
    Boxes made{};
    for (unsigned a = 0; a < 256; a++) {
      made.forward[a] = substitute(static_cast<uint8_t>(a));
      made.backward[made.forward[a]] = static_cast<uint8_t>(a);
    }
    return made;
  }();
  return boxes;
}

// 5.2
inline Bytes expand_key(const Bytes &key) {
  Bytes w = key;
  uint8_t rcon = 1;
  for (size_t i = 4; i < 44; i++) {
    std::array<uint8_t, 4> temp{w[4 * i - 4], w[4 * i - 3], w[4 * i - 2], w[4 * i - 1]};
    if (i % 4 == 0) {
      temp = {boxes().forward[temp[1]], boxes().forward[temp[2]], boxes().forward[temp[3]], boxes().forward[temp[0]]};
      temp[0] ^= rcon;
      rcon = multiply(rcon, 2);
    }
    for (size_t j = 0; j < 4; j++) w.push_back(w[4 * i - 16 + j] ^ temp[j]);
  }
  return w;
}

// 3.4: s[r][c] = in[r + 4c]
struct State {
  uint8_t s[4][4];
};

inline State to_state(const Bytes &in) {
  State state{};
  for (size_t i = 0; i < 16; i++) state.s[i % 4][i / 4] = in[i];
  return state;
}

inline Bytes to_bytes(const State &state) {
  Bytes out(16);
  for (size_t i = 0; i < 16; i++) out[i] = state.s[i % 4][i / 4];
  return out;
}

inline void add_round_key(State &state, const Bytes &w, size_t round) {
  for (size_t i = 0; i < 16; i++) state.s[i % 4][i / 4] ^= w[16 * round + i];
}

inline void sub_bytes(State &state, const std::array<uint8_t, 256> &box) {
  for (auto &row : state.s) {
    for (uint8_t &byte : row) byte = box[byte];
  }
}

inline void shift_rows(State &state, size_t step) {
  const State from = state;
  for (size_t r = 0; r < 4; r++) {
    for (size_t c = 0; c < 4; c++) state.s[r][c] = from.s[r][(c + r * step) % 4];
  }
}

// 5.1.3 and 5.3.3: `factors` is the first row of the matrix.
inline void mix_columns(State &state, const std::array<unsigned, 4> &factors) {
  const State from = state;
  for (size_t r = 0; r < 4; r++) {
    for (size_t c = 0; c < 4; c++) {
      state.s[r][c] = 0;
      for (size_t k = 0; k < 4; k++) state.s[r][c] ^= multiply(from.s[k][c], factors[(k + 4 - r) % 4]);
    }
  }
}

// 5.1
inline Bytes encrypt(const Bytes &w, const Bytes &in) {
  State state = to_state(in);
  add_round_key(state, w, 0);
  for (size_t round = 1; round <= 10; round++) {
    sub_bytes(state, boxes().forward);
    shift_rows(state, 1);
    if (round != 10) mix_columns(state, {2, 3, 1, 1});
    add_round_key(state, w, round);
  }
  return to_bytes(state);
}

// 5.3
inline Bytes decrypt(const Bytes &w, const Bytes &in) {
  State state = to_state(in);
  add_round_key(state, w, 10);
  for (size_t round = 10; round-- > 0;) {
    shift_rows(state, 3);
    sub_bytes(state, boxes().backward);
    add_round_key(state, w, round);
    if (round != 0) mix_columns(state, {14, 11, 13, 9});
  }
  return to_bytes(state);
}

// A block as a number of 128 bits, doubled in the field of RFC 4493; `rb` is its constant.
inline Bytes doubled(const Bytes &block, const Bytes &rb) {
  Bytes result(16);
  for (size_t bit = 1; bit < 128; bit++) {  // bit 0 is the first byte's highest
    const unsigned value = (block[bit / 8] >> (7 - bit % 8)) & 1;
    result[(bit - 1) / 8] |= static_cast<uint8_t>(value << (7 - (bit - 1) % 8));
  }
  return (block[0] & 0x80) != 0 ? exclusive_or(result, rb) : result;
}

inline Bytes standard_rb() {
  Bytes rb(16);
  rb[15] = 0x87;
  return rb;
}

// RFC 4493, section 2.3.
struct Subkeys {
  explicit Subkeys(const Bytes &key, const Bytes &rb = standard_rb())
      : l(encrypt(expand_key(key), Bytes(16))), k1(doubled(l, rb)), k2(doubled(k1, rb)) {}

  // Whether the top bits of L and of K1 are set: 0 to 3.
  int top_bits() const { return (l[0] >> 7) * 2 + (k1[0] >> 7); }

  Bytes l, k1, k2;
};

// RFC 4493, section 2.4. `cipher`: a faster one for long messages.
inline Bytes cmac(const Bytes &key, const Bytes &msg, const Bytes &rb = standard_rb(),
                  Bytes (*cipher)(const Bytes &w, const Bytes &in) = encrypt) {
  const Bytes w = expand_key(key);
  const Subkeys subkeys(key, rb);
  Bytes padded = msg;
  const bool complete = !msg.empty() && msg.size() % 16 == 0;
  if (!complete) {
    padded.push_back(0x80);
    while (padded.size() % 16 != 0) padded.push_back(0);
  }
  for (size_t i = 0; i < 16; i++) padded[padded.size() - 16 + i] ^= (complete ? subkeys.k1 : subkeys.k2)[i];
  Bytes x(16);
  for (size_t at = 0; at < padded.size(); at += 16) x = cipher(w, exclusive_or(x, part(padded, at, 16)));
  return x;
}

}  // namespace reference

}  // namespace crypto_test

#endif
