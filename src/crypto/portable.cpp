// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The portable path: FIPS 197 with only the instructions that every processor of the architecture has. Its time and its
// memory accesses do not depend on key or data.
//
// A state is a block in the standard's order, column after column: row r of column c is byte 4c + r.

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

#include <array>
#include <bit>
#include <cstring>

#include "internal.h"
#include "tables.h"

namespace tarn::aes {

namespace {

constexpr size_t kWordSize = 4;

struct State {
  u8 bytes[kBlockSize];
};

// A whole state at once, for the steps that treat all bytes or all columns alike: its bytes, and its four columns in
// the processor's own order.
using Bytes = u8 __attribute__((vector_size(kBlockSize)));
using SignedBytes = std::int8_t __attribute__((vector_size(kBlockSize)));
using Columns = u32 __attribute__((vector_size(kBlockSize)));

Bytes bytes_of(const u8 *block) {
  Bytes bytes;
  memcpy(&bytes, block, sizeof bytes);
  return bytes;
}

void store(u8 *block, Bytes bytes) { memcpy(block, &bytes, sizeof bytes); }

// In each column the byte of row r comes from row r + `rows`.
Bytes rotate_columns(Bytes bytes, int rows) {
  constexpr bool kLittleEndian = std::endian::native == std::endian::little;
  const int to_the_right = kLittleEndian ? rows * 8 : 32 - rows * 8;
  const auto columns = reinterpret_cast<Columns>(bytes);
  return reinterpret_cast<Bytes>(columns >> to_the_right | columns << (32 - to_the_right));
}

// 0xFF for each byte whose top bit is set, 0 for the others.
Bytes has_top_bit(Bytes bytes) { return reinterpret_cast<Bytes>(reinterpret_cast<SignedBytes>(bytes) < 0); }

// Each byte times x, as in xtime.
Bytes times_x(Bytes bytes) {
  constexpr u8 kPolynomial = 0x1B;
  return (bytes + bytes) ^ (has_top_bit(bytes) & kPolynomial);
}

#if defined(__aarch64__)

// An S-box is loaded into registers and always read whole: each of four table instructions covers 64 bytes.
Bytes look_up(const Table &box, Bytes bytes) {
  const auto index = reinterpret_cast<uint8x16_t>(bytes);
  uint8x16_t found = vqtbl4q_u8(vld1q_u8_x4(box.data()), index);
  for (u8 from = 64; from != 0; from = static_cast<u8>(from + 64)) {
    found = vqtbx4q_u8(found, vld1q_u8_x4(box.data() + from), vsubq_u8(index, vdupq_n_u8(from)));
  }
  return reinterpret_cast<Bytes>(found);
}

Bytes substitute(Bytes bytes) { return look_up(kSbox, bytes); }
Bytes inverse_substitute(Bytes bytes) { return look_up(kInverseSbox, bytes); }

#else

// The S-boxes are computed (section 5.1.1) for all bytes at once: a table would be read at secret indices.

Bytes multiply(Bytes a, Bytes b) {
  Bytes product = {};
  for (int bit = 7; bit >= 0; bit--, b += b) product = times_x(product) ^ (a & has_top_bit(b));
  return product;
}

// A linear map of the bits of a byte, as the images of 1, 2, 4, ... 0x80.
using Linear = std::array<u8, 8>;

Bytes map(const Linear &images, Bytes bytes) {
  Bytes image = {};
  for (int bit = 7; bit >= 0; bit--, bytes += bytes) image ^= has_top_bit(bytes) & images[static_cast<size_t>(bit)];
  return image;
}

constexpr u8 product_of(u8 a, u8 b) {
  u8 product = 0;
  for (int bit = 7; bit >= 0; bit--) product = static_cast<u8>(xtime(product) ^ (((b >> bit) & 1) * a));
  return product;
}

template <typename Function>
constexpr Linear images_under(Function function) {
  Linear images{};
  for (size_t bit = 0; bit < images.size(); bit++) images[bit] = function(static_cast<u8>(1 << bit));
  return images;
}

// Repeated squaring is linear over GF(2).
template <int kTimes>
constexpr u8 squared(u8 a) {
  for (int i = 0; i < kTimes; i++) a = product_of(a, a);
  return a;
}
constexpr Linear kPower2 = images_under(squared<1>);
constexpr Linear kPower4 = images_under(squared<2>);
constexpr Linear kPower16 = images_under(squared<4>);

// The inverse in the field, or 0 for 0: the 254th power.
Bytes invert(Bytes a) {
  const Bytes power_2 = map(kPower2, a);
  const Bytes power_3 = multiply(power_2, a);
  const Bytes power_12 = map(kPower4, power_3);
  const Bytes power_15 = multiply(power_12, power_3);
  const Bytes power_252 = multiply(map(kPower16, power_15), power_12);
  return multiply(power_252, power_2);
}

constexpr u8 kAffineConstant = 0x63;
constexpr Linear kAffine = images_under(
    [](u8 a) { return static_cast<u8>(a ^ std::rotl(a, 1) ^ std::rotl(a, 2) ^ std::rotl(a, 3) ^ std::rotl(a, 4)); });
constexpr Linear kInverseAffine =
    images_under([](u8 a) { return static_cast<u8>(std::rotl(a, 1) ^ std::rotl(a, 3) ^ std::rotl(a, 6)); });

Bytes substitute(Bytes bytes) { return map(kAffine, invert(bytes)) ^ kAffineConstant; }
Bytes inverse_substitute(Bytes bytes) { return invert(map(kInverseAffine, bytes ^ kAffineConstant)); }

#endif

void add_round_key(State &state, const u8 *round_key) {
  store(state.bytes, bytes_of(state.bytes) ^ bytes_of(round_key));
}

// Row r moves r columns to the left.
void sub_bytes_and_shift_rows(State &state) {
  State from;
  store(from.bytes, substitute(bytes_of(state.bytes)));
  for (size_t i = 0; i < kBlockSize; i++) {
    const size_t row = i % kWordSize;
    state.bytes[i] = from.bytes[(i + row * kWordSize) % kBlockSize];
  }
}

void inverse_shift_rows_and_sub_bytes(State &state) {
  const State from = state;
  for (size_t i = 0; i < kBlockSize; i++) {
    const size_t row = i % kWordSize;
    state.bytes[(i + row * kWordSize) % kBlockSize] = from.bytes[i];
  }
  store(state.bytes, inverse_substitute(bytes_of(state.bytes)));
}

// Each column (a, b, c, d) times {03}x^3 + {01}x^2 + {01}x + {02}. Its first byte, 2a + 3b + c + d, is
// a + (a + b + c + d) + 2(a + b), and so on around the column.
Bytes mix(Bytes bytes) {
  const Bytes pairs = bytes ^ rotate_columns(bytes, 1);
  return bytes ^ pairs ^ rotate_columns(pairs, 2) ^ times_x(pairs);
}

void mix_columns(State &state) { store(state.bytes, mix(bytes_of(state.bytes))); }

// The inverse polynomial is that of MixColumns times {04}x^2 + {05}.
void inverse_mix_columns(State &state) {
  const Bytes bytes = bytes_of(state.bytes);
  store(state.bytes, mix(bytes ^ times_x(times_x(bytes ^ rotate_columns(bytes, 2)))));
}

void expand_key(const u8 *key, u8 *round_keys) {
  memcpy(round_keys, key, kBlockSize);
  for (size_t i = kBlockSize; i < kRoundKeysSize; i += kWordSize) {
    u8 word[kWordSize];
    memcpy(word, round_keys + i - kWordSize, kWordSize);
    if (i % kBlockSize == 0) {  // SubWord(RotWord(word)) XOR Rcon
      u8 substituted[kBlockSize];
      store(substituted, substitute(bytes_of(round_keys + i - kBlockSize)));
      for (size_t j = 0; j < kWordSize; j++) word[j] = substituted[kBlockSize - kWordSize + (j + 1) % kWordSize];
      word[0] ^= kRoundConstants[i / kBlockSize - 1];
    }
    for (size_t j = 0; j < kWordSize; j++) round_keys[i + j] = round_keys[i + j - kBlockSize] ^ word[j];
  }
}

void encrypt(const u8 *round_keys, const u8 *in, u8 *out) {
  State state;
  memcpy(state.bytes, in, kBlockSize);
  add_round_key(state, round_keys);
  for (size_t round = 1; round < kRounds; round++) {
    sub_bytes_and_shift_rows(state);
    mix_columns(state);
    add_round_key(state, round_keys + round * kBlockSize);
  }
  sub_bytes_and_shift_rows(state);
  add_round_key(state, round_keys + kRounds * kBlockSize);
  memcpy(out, state.bytes, kBlockSize);
}

void decrypt(const u8 *round_keys, const u8 *in, u8 *out) {
  State state;
  memcpy(state.bytes, in, kBlockSize);
  add_round_key(state, round_keys + kRounds * kBlockSize);
  for (size_t round = kRounds - 1; round > 0; round--) {
    inverse_shift_rows_and_sub_bytes(state);
    add_round_key(state, round_keys + round * kBlockSize);
    inverse_mix_columns(state);
  }
  inverse_shift_rows_and_sub_bytes(state);
  add_round_key(state, round_keys);
  memcpy(out, state.bytes, kBlockSize);
}

void chain(const u8 *round_keys, u8 *x, const u8 *msg, size_t blocks) {
  for (; blocks != 0; blocks--, msg += kBlockSize) {
    store(x, bytes_of(x) ^ bytes_of(msg));
    encrypt(round_keys, x, x);
  }
}

void encrypt_once(const u8 *key, const u8 *in, u8 *out) {
  u8 round_keys[kRoundKeysSize];
  expand_key(key, round_keys);
  encrypt(round_keys, in, out);
}

}  // namespace

constinit const Path kPortable = {expand_key, encrypt, decrypt, chain, encrypt_once, wipe<1536>};

}  // namespace tarn::aes
