// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The path of x86-64 processors with AES-NI.
//
// Only the functions marked TARN_AES use instructions beyond the baseline, and they run only where the processor has
// them. Their time and their memory accesses do not depend on key or data.

#if defined(__x86_64__)

#include <cpuid.h>
#include <tmmintrin.h>
#include <wmmintrin.h>

#include <cstring>

#include "internal.h"
#include "tables.h"

#define TARN_AES __attribute__((target("aes,ssse3")))

namespace tarn::aes {

namespace {

using Block = __m128i;

struct RoundKeys {
  Block keys[kRounds + 1];
};
static_assert(sizeof(RoundKeys) == kRoundKeysSize);

Block load(const u8 *bytes) {
  Block block;
  memcpy(&block, bytes, sizeof block);
  return block;
}

void store(u8 *bytes, Block block) { memcpy(bytes, &block, sizeof block); }

RoundKeys load_round_keys(const u8 *bytes) {
  RoundKeys round_keys;
#pragma GCC unroll 11
  for (size_t round = 0; round <= kRounds; round++) round_keys.keys[round] = load(bytes + round * kBlockSize);
  return round_keys;
}

// The round key after `key`. Its word i is the XOR of words 0 to i of `key` and of SubWord(RotWord(word 3)) XOR Rcon.
// The instruction for the last round computes the latter, because it is faster than the one for key generation:
// ShiftRows changes nothing when all columns are equal.
TARN_AES Block next_round_key(Block key, u8 round_constant) {
  const Block rotated_last_word = _mm_set1_epi32(0x0C0F0E0D);
  const Block rotated = _mm_shuffle_epi8(key, rotated_last_word);
  const Block substituted = _mm_aesenclast_si128(rotated, _mm_set1_epi32(round_constant));
  key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
  key = _mm_xor_si128(key, _mm_slli_si128(key, 8));
  return _mm_xor_si128(key, substituted);
}

TARN_AES void expand_key(const u8 *key, u8 *round_keys) {
  Block round_key = load(key);
  store(round_keys, round_key);
  for (const u8 round_constant : kRoundConstants) {
    round_keys += kBlockSize;
    round_key = next_round_key(round_key, round_constant);
    store(round_keys, round_key);
  }
}

// The cipher without its first step, the XOR with round key 0.
TARN_AES inline Block encrypt_whitened(const RoundKeys &round_keys, Block state) {
#pragma GCC unroll 10
  for (size_t round = 1; round < kRounds; round++) state = _mm_aesenc_si128(state, round_keys.keys[round]);
  return _mm_aesenclast_si128(state, round_keys.keys[kRounds]);
}

TARN_AES void encrypt(const u8 *round_keys, const u8 *in, u8 *out) {
  const RoundKeys keys = load_round_keys(round_keys);
  store(out, encrypt_whitened(keys, _mm_xor_si128(load(in), keys.keys[0])));
}

// The instruction computes the equivalent inverse cipher, FIPS 197 section 5.3.5: it needs inner round keys that went
// through InvMixColumns.
TARN_AES void decrypt(const u8 *round_keys, const u8 *in, u8 *out) {
  const RoundKeys keys = load_round_keys(round_keys);
  Block state = _mm_xor_si128(load(in), keys.keys[kRounds]);
#pragma GCC unroll 10
  for (size_t round = kRounds - 1; round > 0; round--) {
    state = _mm_aesdec_si128(state, _mm_aesimc_si128(keys.keys[round]));
  }
  store(out, _mm_aesdeclast_si128(state, keys.keys[0]));
}

TARN_AES void chain(const u8 *round_keys, u8 *x, const u8 *msg, size_t blocks) {
  const RoundKeys keys = load_round_keys(round_keys);
  Block state = load(x);
  for (; blocks != 0; blocks--, msg += kBlockSize) {
    // In this order only one XOR waits for the previous block.
    state = encrypt_whitened(keys, _mm_xor_si128(state, _mm_xor_si128(load(msg), keys.keys[0])));
  }
  store(x, state);
}

TARN_AES void encrypt_once(const u8 *key, const u8 *in, u8 *out) {
  Block round_key = load(key);
  Block state = _mm_xor_si128(load(in), round_key);
  for (size_t round = 0; round < kRounds - 1; round++) {
    round_key = next_round_key(round_key, kRoundConstants[round]);
    state = _mm_aesenc_si128(state, round_key);
  }
  round_key = next_round_key(round_key, kRoundConstants[kRounds - 1]);
  store(out, _mm_aesenclast_si128(state, round_key));
}

constexpr Path kAesNi = {expand_key, encrypt, decrypt, chain, encrypt_once, wipe<768>};

}  // namespace

const Path *hardware_path() {
  constexpr unsigned kNeeded = bit_AES | bit_SSSE3;
  unsigned eax = 0;
  unsigned ebx = 0;
  unsigned ecx = 0;
  unsigned edx = 0;
  __cpuid(1, eax, ebx, ecx, edx);
  return (ecx & kNeeded) == kNeeded ? &kAesNi : nullptr;
}

}  // namespace tarn::aes

#endif
