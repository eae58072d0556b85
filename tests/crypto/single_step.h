// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Calls one instruction at a time: the processor traps after each while its trace flag is set. On x86-64 only.
// Instructions are not counted with sanitizers, which insert their own checks.
#ifndef TARN_TESTS_CRYPTO_SINGLE_STEP_H
#define TARN_TESTS_CRYPTO_SINGLE_STEP_H

#if defined(__x86_64__)
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TARN_CAN_STEP
#endif

#include <cpuid.h>
#include <ucontext.h>
#include <x86intrin.h>

#include <bit>
#include <csignal>
#include <cstdint>
#include <functional>

#include "support/library.h"

namespace crypto_test {

// Called before an instruction of the library, with its code and the registers, which it may change.
using BeforeStep = void (*)(const uint8_t *code, greg_t *registers);

inline BeforeStep g_before_step;
constexpr greg_t kTraceFlag = 0x100;

inline void run_in_steps(BeforeStep before_step, const std::function<void()> &call) {
  g_before_step = before_step;
  struct sigaction step = {};
  step.sa_flags = SA_SIGINFO;
  step.sa_sigaction = [](int, siginfo_t *, void *context) {
    greg_t *const registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    const auto *const code = std::bit_cast<const uint8_t *>(registers[REG_RIP]);
    if (tarn_test::is_in_library(code)) g_before_step(code, registers);
  };
  struct sigaction before = {};
  sigaction(SIGTRAP, &step, &before);
  __writeeflags(__readeflags() | uint64_t{kTraceFlag});
  call();
  __writeeflags(__readeflags() & ~uint64_t{kTraceFlag});
  sigaction(SIGTRAP, &before, nullptr);
}

// Bits of ECX of CPUID's leaf 1 that run_with_hidden_features shows as 0.
inline unsigned g_hidden_features;

// Runs a call on a processor that, to the library, lacks some of its features.
inline void run_with_hidden_features(unsigned features, const std::function<void()> &call) {
  g_hidden_features = features;
  run_in_steps(
      [](const uint8_t *code, greg_t *registers) {
        if (code[0] != 0x0f || code[1] != 0xa2) return;  // CPUID
        unsigned eax = 0;
        unsigned ebx = 0;
        unsigned ecx = 0;
        unsigned edx = 0;
        const auto leaf = static_cast<unsigned>(registers[REG_RAX]);
        __cpuid_count(leaf, static_cast<unsigned>(registers[REG_RCX]), eax, ebx, ecx, edx);
        if (leaf == 1) {
          ecx &= ~g_hidden_features;
          registers[REG_EFL] &= ~kTraceFlag;  // no other leaf matters: the rest of the call runs at full speed
        }
        registers[REG_RAX] = eax;
        registers[REG_RBX] = ebx;
        registers[REG_RCX] = ecx;
        registers[REG_RDX] = edx;
        registers[REG_RIP] += 2;
      },
      call);
}

}  // namespace crypto_test

#endif

#endif
