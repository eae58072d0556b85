// What the sources of crypto/ share: the paths by which AES-128 can be computed, and the choice among them.
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
  // Overwrites what the functions above, and a function of this folder that called them, have left on the dead stack
  // and in the registers that the next call of anything may store there. Every exported function that enciphers ends
  // with it.
  void (*wipe)();
};

// What an unoptimised build keeps in memory, an optimised one has in registers.
#if defined(__OPTIMIZE__)
constexpr size_t kDepthScale = 1;
#else
constexpr size_t kDepthScale = 4;
#endif

// Zeroes the stack below the caller, where the functions that it called before had their variables.
template <size_t kDepth>
[[gnu::noinline, gnu::no_stack_protector]] void wipe_stack() {
  alignas(16) u8 dead[kDepth * kDepthScale];
  memset(dead, 0, sizeof dead);
  __asm__ volatile("" : : "r"(dead) : "memory");  // somebody may look: the zeros must be written
}

extern const Path kPortable;

// The processor's own instructions; null where it has none.
const Path *hardware_path();

// The path of this process.
const Path &chosen_path();

}  // namespace tarn::aes

#endif
