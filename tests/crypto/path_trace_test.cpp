// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The instructions that the library executes: the chosen path, and that their sequence does not depend on key or data.

#include <gtest/gtest.h>

#include "crypto/single_step.h"

#if defined(TARN_CAN_STEP)

#include <span>

#include "crypto/fixture.h"

using namespace crypto_test;

namespace {

struct Trace {
  uint64_t instructions;      // of the library
  uint64_t aes_instructions;  // AESENC, AESENCLAST, AESDEC, AESDECLAST, AESIMC
  uint64_t way;               // a hash of the sequence of their addresses
};

Trace g_trace;

// 66 [REX] 0F 38 DB to DF.
bool is_aes(const uint8_t *code) {
  if (*code++ != 0x66) return false;
  if ((*code & 0xF0) == 0x40) code++;
  return code[0] == 0x0F && code[1] == 0x38 && code[2] >= 0xDB && code[2] <= 0xDF;
}

void note_step(const uint8_t *code, greg_t *) {
  g_trace.instructions++;
  if (is_aes(code)) g_trace.aes_instructions++;
  g_trace.way = (g_trace.way ^ std::bit_cast<uint64_t>(code)) * 0x100000001B3;
}

// Each function with a key and bytes of the caller's choice.
struct Function {
  const char *name;
  void (*call)(const uint8_t *key, const uint8_t *bytes);
  uint64_t aes_instructions;  // on the processor's own path
};

// Ten for a key, ten for a block, nine more to prepare round keys for decryption.
constexpr Function kFunctions[] = {
    {"aes_key_schedule_128",
     [](const uint8_t *key, const uint8_t *) {
       uint8_t round_keys[176];
       aes_key_schedule_128(key, round_keys);
     },
     10},
    {"aes_encrypt_128",
     [](const uint8_t *, const uint8_t *bytes) {
       uint8_t out[16];
       aes_encrypt_128(bytes, bytes + 176, out);
     },
     10},
    {"aes_decrypt_128",
     [](const uint8_t *, const uint8_t *bytes) {
       uint8_t out[16];
       aes_decrypt_128(bytes, bytes + 176, out);
     },
     19},
    {"aes128_ecb_encrypt",
     [](const uint8_t *key, const uint8_t *bytes) {
       uint8_t out[16];
       aes128_ecb_encrypt(key, bytes, out);
     },
     20},
    {"aes128_ecb_decrypt",
     [](const uint8_t *key, const uint8_t *bytes) {
       uint8_t out[16];
       aes128_ecb_decrypt(key, bytes, out);
     },
     29},
    {"generate_subkey",
     [](const uint8_t *key, const uint8_t *) {
       uint8_t k1[16], k2[16];
       generate_subkey(key, k1, k2);
     },
     20},
    {"aes128_cmac_compute, 48 bytes",
     [](const uint8_t *key, const uint8_t *bytes) {
       uint8_t tag[16];
       aes128_cmac_compute(key, bytes, 48, 16, tag);
     },
     50},
    {"aes128_cmac_compute, 33 bytes",
     [](const uint8_t *key, const uint8_t *bytes) {
       uint8_t tag[16];
       aes128_cmac_compute(key, bytes, 33, 16, tag);
     },
     50},
};

Trace trace(const Function &function, const Bytes &key, const Bytes &bytes) {
  g_trace = {};
  run_in_steps(note_step, [&] { function.call(key.data(), bytes.data()); });
  return g_trace;
}

void expect_processors_path() {
  for (const Function &function : kFunctions) {
    const Trace found = trace(function, Bytes(16), Bytes(192));
    EXPECT_EQ(found.aes_instructions, function.aes_instructions) << function.name;
  }
}

void expect_portable_path() {
  for (const Function &function : std::span(kFunctions).first(3)) {  // the others consist of these
    const Trace found = trace(function, Bytes(16), Bytes(192));
    EXPECT_GT(found.instructions, 100u) << function.name;
    EXPECT_EQ(found.aes_instructions, 0u) << function.name;
  }
}

bool has_instructions() { return __builtin_cpu_supports("aes") != 0 && __builtin_cpu_supports("ssse3") != 0; }

class AesPathOfProcessor : public testing::Test {
 protected:
  void SetUp() override {
    if (!has_instructions()) GTEST_SKIP() << "this processor has no AES instructions";
  }
};
using AesWay = AesPathOfProcessor;

class AesPathOfProcessorWithout : public AesPathOfProcessor, public testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Features, AesPathOfProcessorWithout, testing::Values(bit_AES, bit_SSSE3, bit_AES | bit_SSSE3),
                         [](const auto &bits) { return "bits" + std::to_string(bits.param); });

}  // namespace

TEST_F(AesPathOfProcessor, CannotBeOrderedByTheEnvironment) {
  setenv("TARN_AES", "portable", 1);
  choose_path();
  expect_processors_path();
}

TEST_F(AesPathOfProcessor, IsItsOwnByDefault) {
  order_processors_path();
  expect_processors_path();
}

TEST_P(AesPathOfProcessorWithout, IsThePortableOne) {
  run_with_hidden_features(GetParam(), choose_path);
  expect_portable_path();
}

TEST_F(AesPathOfProcessor, IsItsOwnIfItLacksOtherFeaturesOnly) {
  run_with_hidden_features(~unsigned{bit_AES | bit_SSSE3}, choose_path);
  expect_processors_path();
}

TEST(AesPathOfPortable, UsesNoAesInstructions) {
  order_portable_path();
  expect_portable_path();
}

TEST_F(AesWay, IsTheSameForEveryKeyAndEveryMessage) {
  order_processors_path();
  Random random(50);
  for (const Function &function : kFunctions) {
    SCOPED_TRACE(function.name);
    const Trace of_zeros = trace(function, Bytes(16), Bytes(192));
    for (int i = 0; i < 4; i++) {  // the subkeys of four keys use the reduction in different ways
      const Bytes key = random.bytes(16);
      const Bytes bytes = random.bytes(192);
      EXPECT_EQ(trace(function, key, bytes).way, of_zeros.way);
    }
  }
}

#else

TEST(AesWay, IsTheSameForEveryKeyAndEveryMessage) { GTEST_SKIP() << "cannot be traced in this build"; }

#endif
