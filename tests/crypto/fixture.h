// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of cryptography: bytes in hexadecimal, blocks of every kind, guarded buffers, and the choice of a
// path.
#ifndef TARN_TESTS_CRYPTO_FIXTURE_H
#define TARN_TESTS_CRYPTO_FIXTURE_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/single_step.h"
#include "support/guarded.h"
#include "support/random.h"
#include "tarn/crypto.h"

namespace crypto_test {

using tarn_test::Guarded;
using tarn_test::Random;
using Bytes = std::vector<uint8_t>;

constexpr size_t kBlock = 16;
constexpr size_t kRoundKeys = 176;
constexpr uint8_t kMark = 0xa5;  // of bytes that have not been written

constexpr Guarded::End kEnds[] = {Guarded::kFront, Guarded::kBack};

// ---- Bytes ----------------------------------------------------------------------------------------------------------

// From digits as the standards print them; blanks between them are ignored.
inline Bytes from_hex(std::string_view digits) {
  std::string packed;
  for (const char c : digits) {
    if (c != ' ') packed += c;
  }
  Bytes bytes;
  for (size_t i = 0; i + 1 < packed.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(packed.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

inline Bytes part(const Bytes &whole, size_t at, size_t size) {
  const auto first = whole.begin() + static_cast<std::ptrdiff_t>(at);
  return {first, first + static_cast<std::ptrdiff_t>(size)};
}

inline Bytes exclusive_or(Bytes a, const Bytes &b) {
  for (size_t i = 0; i < a.size(); i++) a[i] ^= b.at(i);
  return a;
}

// 00 01 02 ...
inline Bytes counted(size_t count, unsigned from = 0) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; i++) bytes[i] = static_cast<uint8_t>(from + i);
  return bytes;
}

// Zeros, ones, every single bit, then random ones: 16 bytes each, for keys and for blocks.
inline std::vector<Bytes> blocks_of_every_kind(uint64_t seed) {
  std::vector<Bytes> all = {Bytes(kBlock, 0x00), Bytes(kBlock, 0xff)};
  for (size_t bit = 0; bit < 8 * kBlock; bit++) {
    Bytes one(kBlock);
    one[bit / 8] = static_cast<uint8_t>(0x80 >> bit % 8);
    all.push_back(one);
  }
  Random random(seed);
  for (int i = 0; i < 200; i++) all.push_back(random.bytes(kBlock));
  return all;
}

// ---- Published values -----------------------------------------------------------------------------------------------

struct BlockExample {
  const char *source, *key, *plain, *cipher;
};
constexpr BlockExample kBlockExamples[] = {
    {"FIPS 197, appendix B", "2b7e151628aed2a6abf7158809cf4f3c", "3243f6a8885a308d313198a2e0370734",
     "3925841d02dc09fbdc118597196a0b32"},
    {"FIPS 197, appendix C.1", "000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
     "69c4e0d86a7b0430d8cdb78070b4c55a"},
    {"SP 800-38A, F.1.1, block 1", "2b7e151628aed2a6abf7158809cf4f3c", "6bc1bee22e409f96e93d7e117393172a",
     "3ad77bb40d7a3660a89ecaf32466ef97"},
    {"SP 800-38A, F.1.1, block 2", "2b7e151628aed2a6abf7158809cf4f3c", "ae2d8a571e03ac9c9eb76fac45af8e51",
     "f5d3d58503b9699de785895a96fdbaaf"},
    {"SP 800-38A, F.1.1, block 3", "2b7e151628aed2a6abf7158809cf4f3c", "30c81c46a35ce411e5fbc1191a0a52ef",
     "43b1cd7f598ece23881b00e3ed030688"},
    {"SP 800-38A, F.1.1, block 4", "2b7e151628aed2a6abf7158809cf4f3c", "f69f2445df4f9b17ad2b417be66c3710",
     "7b0c785e27e8ad3f8223207104725dd4"},
};

// ---- Guarded buffers ------------------------------------------------------------------------------------------------

// Read-only bytes; bytes outside them cannot be read.
class Sealed : public Guarded {
 public:
  Sealed(const Bytes &content, End end) : Guarded(content, end) { protect(PROT_READ); }
};

inline Bytes content_of(const Guarded &guarded) { return {guarded.bytes(), guarded.bytes() + guarded.size()}; }

// ---- The path -------------------------------------------------------------------------------------------------------

// The path is chosen at the first use in a process, from the features that the processor reports. Each test has its own
// process. For the portable path, a test hides the AES instructions from the library and lets it choose.

// For 64-bit Arm: whether the interposed getauxval (path_test.cpp) names the instructions.
inline std::atomic<bool> g_hides_instructions{false};

inline void choose_path() {
  uint8_t block[kBlock] = {};
  aes128_ecb_encrypt(block, block, block);
}

inline void order_portable_path() {
  g_hides_instructions = true;
#if defined(__x86_64__)
  run_with_hidden_features(bit_AES, choose_path);
#else
  choose_path();
#endif
}

inline void order_processors_path() { choose_path(); }

// A test that runs on the portable path and, if there is one, on the processor's own.
class OnEachPath : public testing::TestWithParam<const char *> {
 protected:
  OnEachPath() {
    if (std::string_view(GetParam()) == "portable") {
      order_portable_path();
    } else {
      order_processors_path();
    }
  }
};

#define ON_EACH_PATH(suite)                                                             \
  INSTANTIATE_TEST_SUITE_P(OnEachPath, suite, testing::Values("portable", "processor"), \
                           [](const auto &path) { return std::string(path.param); })

}  // namespace crypto_test

#endif
