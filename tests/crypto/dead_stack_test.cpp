// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A call leaves no part of the key on the stack or in the registers.

#include <sys/mman.h>
#include <ucontext.h>

#include <cstring>

#include "crypto/fixture.h"

using namespace crypto_test;

namespace {

constexpr size_t kStackSize = 256 * 1024;
constexpr size_t kPiece = 8;  // consecutive bytes that do not occur by chance

// A call with its arguments, none of which is on the stack where it is made.
struct Call {
  const char *name;
  void (*function)(const Call &call);
  const uint8_t *key = nullptr;
  const uint8_t *round_keys = nullptr;
  const uint8_t *bytes = nullptr;
  uint8_t *out = nullptr;
};

constexpr uint32_t kMessage = 40;  // its last block takes the second subkey

const Call kCalls[] = {
    {.name = "aes_key_schedule_128", .function = [](const Call &c) { aes_key_schedule_128(c.key, c.out); }},
    {.name = "aes_encrypt_128", .function = [](const Call &c) { aes_encrypt_128(c.round_keys, c.bytes, c.out); }},
    {.name = "aes_decrypt_128", .function = [](const Call &c) { aes_decrypt_128(c.round_keys, c.bytes, c.out); }},
    {.name = "aes128_ecb_encrypt", .function = [](const Call &c) { aes128_ecb_encrypt(c.key, c.bytes, c.out); }},
    {.name = "aes128_ecb_decrypt", .function = [](const Call &c) { aes128_ecb_decrypt(c.key, c.bytes, c.out); }},
    {.name = "generate_subkey", .function = [](const Call &c) { generate_subkey(c.key, c.out, c.out + kBlock); }},
    {.name = "aes128_cmac_compute",
     .function = [](const Call &c) { aes128_cmac_compute(c.key, c.bytes, kMessage, 16, c.out); }},
    {.name = "aes128_cmac_compute, whole blocks",
     .function = [](const Call &c) { aes128_cmac_compute(c.key, c.bytes, 32, 16, c.out); }},
};

// The vector registers, then the general ones, of those that a call may change.
alignas(16) uint8_t g_registers[512];

#if defined(__x86_64__)

[[gnu::always_inline]] inline void note_registers() {
  __asm__ volatile(
      "movups %%xmm0, (%0)\n movups %%xmm1, 16(%0)\n movups %%xmm2, 32(%0)\n movups %%xmm3, 48(%0)\n"
      "movups %%xmm4, 64(%0)\n movups %%xmm5, 80(%0)\n movups %%xmm6, 96(%0)\n movups %%xmm7, 112(%0)\n"
      "movups %%xmm8, 128(%0)\n movups %%xmm9, 144(%0)\n movups %%xmm10, 160(%0)\n movups %%xmm11, 176(%0)\n"
      "movups %%xmm12, 192(%0)\n movups %%xmm13, 208(%0)\n movups %%xmm14, 224(%0)\n movups %%xmm15, 240(%0)\n"
      "mov %%rax, 256(%0)\n mov %%rcx, 264(%0)\n mov %%rdx, 272(%0)\n mov %%rsi, 280(%0)\n mov %%rdi, 288(%0)\n"
      "mov %%r8, 296(%0)\n mov %%r9, 304(%0)\n mov %%r10, 312(%0)\n mov %%r11, 320(%0)"
      :
      : "b"(g_registers)
      : "memory");
}

#elif defined(__aarch64__)

[[gnu::always_inline]] inline void note_registers() {
  register uint8_t *const to __asm__("x19") = g_registers;
  __asm__ volatile(
      "stp q0, q1, [%0]\n stp q2, q3, [%0, #32]\n stp q4, q5, [%0, #64]\n stp q6, q7, [%0, #96]\n"
      "stp q16, q17, [%0, #128]\n stp q18, q19, [%0, #160]\n stp q20, q21, [%0, #192]\n stp q22, q23, [%0, #224]\n"
      "stp q24, q25, [%0, #256]\n stp q26, q27, [%0, #288]\n stp q28, q29, [%0, #320]\n stp q30, q31, [%0, #352]\n"
      "stp x0, x1, [%0, #384]\n stp x2, x3, [%0, #400]\n stp x4, x5, [%0, #416]\n stp x6, x7, [%0, #432]\n"
      "stp x8, x9, [%0, #448]\n stp x10, x11, [%0, #464]\n stp x12, x13, [%0, #480]\n stp x14, x15, [%0, #496]"
      :
      : "r"(to)
      : "memory");
}

#else

void note_registers() {}

#endif

const Call *g_call;

void make_call() {
  g_call->function(*g_call);
  note_registers();
}

// Makes the call on a separate stack and returns the content of that stack. Not on a thread: its end would write
// over the first bytes.
Bytes stack_after(const Call &call) {
  void *const stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ucontext_t here;
  ucontext_t there;
  getcontext(&there);
  there.uc_stack.ss_sp = stack;
  there.uc_stack.ss_size = kStackSize;
  there.uc_link = &here;
  g_call = &call;
  makecontext(&there, make_call, 0);
  swapcontext(&here, &there);
  const auto *bytes = static_cast<const uint8_t *>(stack);
  Bytes content(bytes, bytes + kStackSize);
  munmap(stack, kStackSize);
  return content;
}

bool holds_a_piece(const Bytes &memory, const Bytes &secret) {
  for (size_t at = 0; at + kPiece <= secret.size(); at += 4) {
    if (memmem(memory.data(), memory.size(), secret.data() + at, kPiece) != nullptr) return true;
  }
  return false;
}

class CryptoStack : public OnEachPath {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "instrumented code keeps its variables elsewhere";
#endif
  }
};
ON_EACH_PATH(CryptoStack);

}  // namespace

TEST_P(CryptoStack, HoldsNothingOfTheKeyAfterACall) {
  Random random(60);
  const Bytes key = random.bytes(kBlock);
  const Bytes bytes = random.bytes(kMessage);
  const Bytes zeros(kBlock);
  Bytes round_keys(AES128_ROUND_KEYS_BYTES);
  Bytes subkeys(2 * kBlock);
  Bytes first(kBlock);  // the input of the subkeys
  aes_key_schedule_128(key.data(), round_keys.data());
  generate_subkey(key.data(), subkeys.data(), subkeys.data() + kBlock);
  aes128_ecb_encrypt(key.data(), zeros.data(), first.data());
  Bytes out(AES128_ROUND_KEYS_BYTES);
  for (Call call : kCalls) {
    SCOPED_TRACE(call.name);
    call.key = key.data();
    call.round_keys = round_keys.data();
    call.bytes = bytes.data();
    call.out = out.data();
    const Bytes stack = stack_after(call);
    EXPECT_FALSE(holds_a_piece(stack, round_keys));  // the first of which is the key itself
    EXPECT_FALSE(holds_a_piece(stack, subkeys));
    EXPECT_FALSE(holds_a_piece(stack, first));
    const Bytes registers(std::begin(g_registers), std::end(g_registers));
    EXPECT_FALSE(holds_a_piece(registers, round_keys));
    EXPECT_FALSE(holds_a_piece(registers, subkeys));
    EXPECT_FALSE(holds_a_piece(registers, first));
  }
}

// The search finds bytes that are there, also those of a frame that is small.
TEST_P(CryptoStack, IsSearchedWhereTheCallWas) {
  static const Bytes secret = from_hex("00112233445566778899aabbccddeeff");
  const Bytes stack = stack_after({.name = "", .function = [](const Call &) {
                                     uint8_t copy[kBlock];
                                     memcpy(copy, secret.data(), kBlock);
                                     __asm__ volatile("" : : "r"(copy) : "memory");
                                   }});
  EXPECT_TRUE(holds_a_piece(stack, secret));
}
