// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A call leaves no part of the key on the stack.

#include <pthread.h>
#include <sys/mman.h>

#include <cstring>

#include "crypto/fixture.h"

using namespace crypto_test;

namespace {

constexpr size_t kStackSize = 256 * 1024;
constexpr size_t kPiece = 8;  // consecutive bytes that do not occur by chance

// A call with its arguments, none of which is on the stack of the thread that makes it.
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

void *make_call(void *arg) {
  const auto &call = *static_cast<const Call *>(arg);
  call.function(call);
  return nullptr;
}

// Everything on the stack of a thread that has made the call.
Bytes stack_after(Call call) {
  void *const stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(pthread_attr_setstack(&attributes, stack, kStackSize), 0);
  pthread_t thread;
  EXPECT_EQ(pthread_create(&thread, &attributes, make_call, &call), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
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
  }
}

// The search finds bytes that are there. They are deep in the stack: the end of the thread uses the top of it again.
TEST_P(CryptoStack, IsSearchedWhereTheCallWas) {
  static const Bytes secret = from_hex("00112233445566778899aabbccddeeff");
  const Bytes stack = stack_after({.name = "", .function = [](const Call &) {
                                     uint8_t copy[8192];
                                     memcpy(copy, secret.data(), kBlock);
                                     __asm__ volatile("" : : "r"(copy) : "memory");
                                   }});
  EXPECT_TRUE(holds_a_piece(stack, secret));
}
