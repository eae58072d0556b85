// The portable path: FIPS 197, byte by byte through the S-box; there is no other table.
//
// A state is a block as the standard numbers it, column after column: row r of column c is byte 4c + r.

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

// Each byte times x, as xtime.
Bytes times_x(Bytes bytes) {
  constexpr u8 kPolynomial = 0x1B;
  const auto has_top_bit = reinterpret_cast<Bytes>(reinterpret_cast<SignedBytes>(bytes) < 0);
  return (bytes + bytes) ^ (has_top_bit & kPolynomial);
}

void add_round_key(State &state, const u8 *round_key) {
  store(state.bytes, bytes_of(state.bytes) ^ bytes_of(round_key));
}

// Row r moves r columns to the left.
void sub_bytes_and_shift_rows(State &state) {
  const State from = state;
  for (size_t i = 0; i < kBlockSize; i++) {
    const size_t row = i % kWordSize;
    state.bytes[i] = kSbox[from.bytes[(i + row * kWordSize) % kBlockSize]];
  }
}

void inverse_shift_rows_and_sub_bytes(State &state) {
  const State from = state;
  for (size_t i = 0; i < kBlockSize; i++) {
    const size_t row = i % kWordSize;
    state.bytes[(i + row * kWordSize) % kBlockSize] = kInverseSbox[from.bytes[i]];
  }
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
      const u8 first = word[0];
      word[0] = kSbox[word[1]] ^ kRoundConstants[i / kBlockSize - 1];
      word[1] = kSbox[word[2]];
      word[2] = kSbox[word[3]];
      word[3] = kSbox[first];
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

}  // namespace

constinit const Path kPortable = {expand_key, encrypt, decrypt, chain};

}  // namespace tarn::aes
