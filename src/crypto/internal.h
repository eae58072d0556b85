// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the sources of crypto/: the paths, which are implementations of AES-128, and the choice among them.
#ifndef TARN_CRYPTO_INTERNAL_H
#define TARN_CRYPTO_INTERNAL_H

#include <cstring>

#include "platform/support.h"
#include "tarn/crypto.h"

namespace tarn::aes {

constexpr size_t kRounds = 10;
constexpr size_t kBlockSize = AES128_BLOCK_BYTES;
constexpr size_t kRoundKeysSize = AES128_ROUND_KEYS_BYTES;
static_assert(kRoundKeysSize == (kRounds + 1) * kBlockSize);

// One path. Round keys and blocks are in the form of the public functions; `out` may be `in`.
struct Path {
  void (*expand_key)(const u8 *key, u8 *round_keys);
  void (*encrypt)(const u8 *round_keys, const u8 *in, u8 *out);
  void (*decrypt)(const u8 *round_keys, const u8 *in, u8 *out);
  // For each of `blocks` blocks at `msg`: x = AES(x XOR block).
  void (*chain)(const u8 *round_keys, u8 *x, const u8 *msg, size_t blocks);
  // Expands the key and enciphers one block.
  void (*encrypt_once)(const u8 *key, const u8 *in, u8 *out);
  // Overwrites what the functions above, and their callers in this folder, left on the dead stack and in the registers
  // that a later call may store there. Every exported function that calls them calls this one last.
  void (*wipe)();
};

// An unoptimised build keeps in memory what an optimised one keeps in registers.
#if defined(__OPTIMIZE__)
constexpr size_t kDepthScale = 1;
#else
constexpr size_t kDepthScale = 4;
#endif

// Zeroes the stack below the caller, where the functions that it called earlier had their variables.
template <size_t kDepth>
__attribute__((noinline, no_stack_protector)) void wipe_stack() {
  alignas(16) u8 dead[kDepth * kDepthScale];
  memset(dead, 0, sizeof dead);
  __asm__ volatile("" : : "r"(dead) : "memory");  // the compiler must not drop the zeros
}

extern const Path kPortable;

// The path that uses the processor's AES instructions; null if there are none.
const Path *hardware_path();

// The path of this process.
const Path &chosen_path();

}  // namespace tarn::aes

#endif
