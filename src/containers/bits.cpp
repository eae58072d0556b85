// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bit arrays: bit 0 is the most significant bit of byte 0, so 64 consecutive bits are a big-endian number, and the
// index of its first set bit is its number of leading zeros.

#include <bit>
#include <cstring>

#include "platform/support.h"
#include "tarn/containers.h"

namespace {

using tarn::u32;
using tarn::u64;
using tarn::u8;

constexpr u64 kWordBits = 64;

constexpr size_t byte_of(int n) { return static_cast<u32>(n) / 8; }

constexpr u8 mask_of(int n) { return static_cast<u8>(0x80u >> (static_cast<u32>(n) % 8)); }

u64 load_word(const u8 *bytes) {
  u64 word = 0;
  memcpy(&word, bytes, sizeof word);
  return word;
}

u32 leading_zeros(u64 word) {
  if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
  return static_cast<u32>(std::countl_zero(word));
}

// The first of `nbits` bits that is set after an XOR with `flip`, which is all zeros or all ones; MU_BIT_NONE if there
// is none. Reads only the bytes that hold these bits.
u32 find(const u8 *bits, u32 nbits, u64 flip) {
  u64 bit = 0;  // wide enough for a multiple of 8 above any `nbits`
  for (; bit + kWordBits <= nbits; bit += kWordBits) {
    const u64 word = load_word(bits + bit / 8) ^ flip;
    if (word != 0) return static_cast<u32>(bit) + leading_zeros(word);
  }
  for (; bit < nbits; bit += 8) {
    const u8 byte = static_cast<u8>(bits[bit / 8] ^ flip);
    if (byte == 0) continue;
    const u64 found = bit + static_cast<u32>(std::countl_zero(byte));
    return found < nbits ? static_cast<u32>(found) : MU_BIT_NONE;  // the last byte may hold bits after the array
  }
  return MU_BIT_NONE;
}

u32 find_set(const u8 *bits, u32 nbits) { return find(bits, nbits, 0); }

u32 find_clear(const u8 *bits, u32 nbits) { return find(bits, nbits, ~u64{0}); }

u32 length_of(int nbits) { return nbits > 0 ? static_cast<u32>(nbits) : 0; }

}  // namespace

mu_status_t mu_bit_set(uint8_t *bits, int n) {
  bits[byte_of(n)] |= mask_of(n);
  return 0;
}

mu_status_t mu_bit_clr(uint8_t *bits, int n) {
  bits[byte_of(n)] &= static_cast<u8>(~mask_of(n));
  return 0;
}

int mu_bit_tst(const uint8_t *bits, int n) { return (bits[byte_of(n)] & mask_of(n)) != 0; }

uint32_t mu_bit_get_0(const uint8_t *bits, int nbits) { return find_clear(bits, length_of(nbits)); }

uint32_t mu_bit_get_1(const uint8_t *bits, int nbits) { return find_set(bits, length_of(nbits)); }

int mu_bit_tst_all(const uint8_t *bits, uint32_t nbits) { return find_clear(bits, nbits) == MU_BIT_NONE; }
