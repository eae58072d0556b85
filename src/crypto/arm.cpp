// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The path of 64-bit Arm processors with the Cryptography Extensions.
//
// Only the functions marked TARN_AES use instructions beyond the baseline, and they run only where the processor has
// them. Their time and their memory accesses do not depend on key or data.

#if defined(__aarch64__)

#include <arm_neon.h>
#include <sys/auxv.h>

#include "internal.h"
#include "tables.h"

#if defined(__clang__)
#define TARN_AES __attribute__((target("aes")))
#else
#define TARN_AES __attribute__((target("+crypto")))
#endif

namespace tarn::aes {

namespace {

using Block = uint8x16_t;

struct RoundKeys {
  Block keys[kRounds + 1];
};

RoundKeys load_round_keys(const u8 *bytes) {
  RoundKeys round_keys;
#pragma GCC unroll 11
  for (size_t round = 0; round <= kRounds; round++) round_keys.keys[round] = vld1q_u8(bytes + round * kBlockSize);
  return round_keys;
}

// The round key after `key`. Its word i is the XOR of words 0 to i of `key` and of SubWord(RotWord(word 3)) XOR Rcon.
// AESE computes SubWord: ShiftRows changes nothing when all columns are equal.
TARN_AES Block next_round_key(Block key, u8 round_constant) {
  const Block zero = vdupq_n_u8(0);
  const Block rotated_last_word = {13, 14, 15, 12, 13, 14, 15, 12, 13, 14, 15, 12, 13, 14, 15, 12};
  const Block first_of_each_word = {0xFF, 0, 0, 0, 0xFF, 0, 0, 0, 0xFF, 0, 0, 0, 0xFF, 0, 0, 0};
  const Block substituted = vaeseq_u8(vqtbl1q_u8(key, rotated_last_word), zero);
  const Block constants = vandq_u8(vdupq_n_u8(round_constant), first_of_each_word);
  key = veorq_u8(key, vextq_u8(zero, key, 12));
  key = veorq_u8(key, vextq_u8(zero, key, 8));
  return veorq_u8(key, veorq_u8(substituted, constants));
}

TARN_AES void expand_key(const u8 *key, u8 *round_keys) {
  Block round_key = vld1q_u8(key);
  vst1q_u8(round_keys, round_key);
  for (const u8 round_constant : kRoundConstants) {
    round_keys += kBlockSize;
    round_key = next_round_key(round_key, round_constant);
    vst1q_u8(round_keys, round_key);
  }
}

// AESE begins with AddRoundKey and ends with ShiftRows; AESMC is MixColumns.
TARN_AES inline Block encrypt_block(const RoundKeys &round_keys, Block state) {
#pragma GCC unroll 10
  for (size_t round = 0; round < kRounds - 1; round++) state = vaesmcq_u8(vaeseq_u8(state, round_keys.keys[round]));
  return veorq_u8(vaeseq_u8(state, round_keys.keys[kRounds - 1]), round_keys.keys[kRounds]);
}

TARN_AES void encrypt(const u8 *round_keys, const u8 *in, u8 *out) {
  vst1q_u8(out, encrypt_block(load_round_keys(round_keys), vld1q_u8(in)));
}

// The equivalent inverse cipher, FIPS 197 section 5.3.5: the inner round keys go through InvMixColumns.
TARN_AES void decrypt(const u8 *round_keys, const u8 *in, u8 *out) {
  const RoundKeys keys = load_round_keys(round_keys);
  Block state = vaesdq_u8(vld1q_u8(in), keys.keys[kRounds]);
#pragma GCC unroll 10
  for (size_t round = kRounds - 1; round > 0; round--) {
    state = vaesdq_u8(vaesimcq_u8(state), vaesimcq_u8(keys.keys[round]));
  }
  vst1q_u8(out, veorq_u8(state, keys.keys[0]));
}

TARN_AES void chain(const u8 *round_keys, u8 *x, const u8 *msg, size_t blocks) {
  const RoundKeys keys = load_round_keys(round_keys);
  Block state = vld1q_u8(x);
  for (; blocks != 0; blocks--, msg += kBlockSize) state = encrypt_block(keys, veorq_u8(state, vld1q_u8(msg)));
  vst1q_u8(x, state);
}

TARN_AES void encrypt_once(const u8 *key, const u8 *in, u8 *out) {
  Block round_key = vld1q_u8(key);
  Block state = vld1q_u8(in);
  for (size_t round = 0; round < kRounds - 1; round++) {
    state = vaesmcq_u8(vaeseq_u8(state, round_key));
    round_key = next_round_key(round_key, kRoundConstants[round]);
  }
  state = vaeseq_u8(state, round_key);
  vst1q_u8(out, veorq_u8(state, next_round_key(round_key, kRoundConstants[kRounds - 1])));
}

constexpr Path kCryptographyExtensions = {expand_key, encrypt, decrypt, chain, encrypt_once, wipe<768>};

}  // namespace

const Path *hardware_path() { return (getauxval(AT_HWCAP) & HWCAP_AES) != 0 ? &kCryptographyExtensions : nullptr; }

}  // namespace tarn::aes

#endif
