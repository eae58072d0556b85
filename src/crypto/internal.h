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

#define TARN_VECTOR_REGISTERS                                                                                         \
  "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", \
      "xmm14", "xmm15"

// Zeroes the registers that a call may change. The loader stores them on the stack when a program calls a function for
// the first time.
[[gnu::always_inline]] inline void wipe_registers() {
#if defined(__x86_64__)
#if defined(__AVX__)
  __asm__ volatile("vzeroall" : : : TARN_VECTOR_REGISTERS);
#else
  __asm__ volatile(
      "pxor %%xmm0, %%xmm0\n pxor %%xmm1, %%xmm1\n pxor %%xmm2, %%xmm2\n pxor %%xmm3, %%xmm3\n"
      "pxor %%xmm4, %%xmm4\n pxor %%xmm5, %%xmm5\n pxor %%xmm6, %%xmm6\n pxor %%xmm7, %%xmm7\n"
      "pxor %%xmm8, %%xmm8\n pxor %%xmm9, %%xmm9\n pxor %%xmm10, %%xmm10\n pxor %%xmm11, %%xmm11\n"
      "pxor %%xmm12, %%xmm12\n pxor %%xmm13, %%xmm13\n pxor %%xmm14, %%xmm14\n pxor %%xmm15, %%xmm15"
      :
      :
      : TARN_VECTOR_REGISTERS);
#endif
  __asm__ volatile(
      "xor %%eax, %%eax\n xor %%ecx, %%ecx\n xor %%edx, %%edx\n xor %%esi, %%esi\n xor %%edi, %%edi\n"
      "xor %%r8d, %%r8d\n xor %%r9d, %%r9d\n xor %%r10d, %%r10d\n xor %%r11d, %%r11d"
      :
      :
      : "rax", "rcx", "rdx", "rsi", "rdi", "r8", "r9", "r10", "r11", "cc");
#elif defined(__aarch64__)
  // A call may change only the upper halves of v8 to v15.
  __asm__ volatile(
      "movi v0.2d, #0\n movi v1.2d, #0\n movi v2.2d, #0\n movi v3.2d, #0\n"
      "movi v4.2d, #0\n movi v5.2d, #0\n movi v6.2d, #0\n movi v7.2d, #0\n"
      "mov v8.d[1], xzr\n mov v9.d[1], xzr\n mov v10.d[1], xzr\n mov v11.d[1], xzr\n"
      "mov v12.d[1], xzr\n mov v13.d[1], xzr\n mov v14.d[1], xzr\n mov v15.d[1], xzr\n"
      "movi v16.2d, #0\n movi v17.2d, #0\n movi v18.2d, #0\n movi v19.2d, #0\n"
      "movi v20.2d, #0\n movi v21.2d, #0\n movi v22.2d, #0\n movi v23.2d, #0\n"
      "movi v24.2d, #0\n movi v25.2d, #0\n movi v26.2d, #0\n movi v27.2d, #0\n"
      "movi v28.2d, #0\n movi v29.2d, #0\n movi v30.2d, #0\n movi v31.2d, #0"
      :
      :
      : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24",
        "v25", "v26", "v27", "v28", "v29", "v30", "v31");
  __asm__ volatile(
      "mov x0, xzr\n mov x1, xzr\n mov x2, xzr\n mov x3, xzr\n mov x4, xzr\n mov x5, xzr\n mov x6, xzr\n"
      "mov x7, xzr\n mov x8, xzr\n mov x9, xzr\n mov x10, xzr\n mov x11, xzr\n mov x12, xzr\n mov x13, xzr\n"
      "mov x14, xzr\n mov x15, xzr\n mov x16, xzr\n mov x17, xzr"
      :
      :
      : "x0", "x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12", "x13", "x14", "x15", "x16",
        "x17");
#endif
}

// Zeroes the stack below the caller, where the functions that it called before had their variables. The zeroed part
// must begin directly below the caller's frame: neither a guard nor padding may be between them.
template <size_t kDepth>
__attribute__((noinline, no_stack_protector)) void wipe_stack() {
  alignas(16) u8 dead[kDepth * kDepthScale];
  memset(dead, 0, sizeof dead);
  __asm__ volatile("" : : "m"(dead) : "memory");  // keeps the compiler from omitting the zeros
#if defined(__x86_64__) && defined(__OPTIMIZE__)
  // This function saves the register, in the 8 bytes below the return address that would otherwise be padding.
  __asm__ volatile("" : : : "rbx");
#endif
}

// Each path has its own depth, because its functions use a different amount of stack.
template <size_t kDepth>
void wipe() {
  wipe_registers();
  wipe_stack<kDepth>();  // last: its frame then begins where theirs began
}

extern const Path kPortable;

// The path that uses the processor's AES instructions; null if there are none.
const Path *hardware_path();

// The path of this process.
const Path &chosen_path();

}  // namespace tarn::aes

#endif
