// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The block cipher against FIPS 197: its examples, its tables, and every step of it.

#include <algorithm>
#include <type_traits>

#include "crypto/reference.h"

using namespace crypto_test;

static_assert(AES128_KEY_BYTES == 16 && AES128_BLOCK_BYTES == 16 && AES128_ROUND_KEYS_BYTES == 176);
static_assert(std::is_same_v<decltype(aes_key_schedule_128), void(const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes_encrypt_128), void(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes_decrypt_128), void(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes128_ecb_encrypt), mu_status_t(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes128_ecb_decrypt), mu_status_t(const uint8_t *, const uint8_t *, uint8_t *)>);

namespace {

class AesBlock : public OnEachPath {};
class AesKeySchedule : public OnEachPath {};
class AesTables : public OnEachPath {};
ON_EACH_PATH(AesBlock);
ON_EACH_PATH(AesKeySchedule);
ON_EACH_PATH(AesTables);

Bytes schedule(const Bytes &key) {
  Bytes round_keys(kRoundKeys, kMark);
  aes_key_schedule_128(key.data(), round_keys.data());
  return round_keys;
}

using Cipher = void (*)(const uint8_t *, const uint8_t *, uint8_t *);
using Ecb = mu_status_t (*)(const uint8_t *, const uint8_t *, uint8_t *);

Bytes run(Cipher cipher, const Bytes &round_keys, const Bytes &in) {
  Bytes out(kBlock, kMark);
  cipher(round_keys.data(), in.data(), out.data());
  return out;
}

Bytes run_ecb(Ecb ecb, const Bytes &key, const Bytes &in) {
  Bytes out(kBlock, kMark);
  EXPECT_EQ(ecb(key.data(), in.data(), out.data()), 0);
  return out;
}

Bytes encrypt(const Bytes &round_keys, const Bytes &in) { return run(aes_encrypt_128, round_keys, in); }
Bytes decrypt(const Bytes &round_keys, const Bytes &in) { return run(aes_decrypt_128, round_keys, in); }

// Both directions, each with its reference.
struct Direction {
  const char *name;
  Cipher cipher;
  Ecb ecb;
  Bytes (*reference)(const Bytes &round_keys, const Bytes &in);
};
constexpr Direction kDirections[] = {{"encrypt", aes_encrypt_128, aes128_ecb_encrypt, reference::encrypt},
                                     {"decrypt", aes_decrypt_128, aes128_ecb_decrypt, reference::decrypt}};

// The key schedule, the cipher and the ECB functions for one key and one block.
void expect_reference(const Bytes &key, const Bytes &block) {
  const Bytes w = reference::expand_key(key);
  ASSERT_EQ(schedule(key), w);
  for (const Direction &direction : kDirections) {
    SCOPED_TRACE(direction.name);
    const Bytes expected = direction.reference(w, block);
    ASSERT_EQ(run(direction.cipher, w, block), expected);
    ASSERT_EQ(run_ecb(direction.ecb, key, block), expected);
  }
}

// FIPS 197, appendix A.1: w0 to w43.
constexpr char kExampleKey[] = "2b7e151628aed2a6abf7158809cf4f3c";
constexpr char kExampleRoundKeys[] =
    "2b7e1516 28aed2a6 abf71588 09cf4f3c a0fafe17 88542cb1 23a33939 2a6c7605 "
    "f2c295f2 7a96b943 5935807a 7359f67f 3d80477d 4716fe3e 1e237e44 6d7a883b "
    "ef44a541 a8525b7f b671253b db0bad00 d4d1c6f8 7c839d87 caf2b8bc 11f915bc "
    "6d88a37a 110b3efd dbf98641 ca0093fd 4e54f70e 5f5fc9f3 84a64fb2 4ea6dc4f "
    "ead27321 b58dbad2 312bf560 7f8d292f ac7766f3 19fadc21 28d12941 575c006e "
    "d014f9a8 c9ee2589 e13f0cc8 b6630ca6";

// FIPS 197, figure 7.
constexpr uint8_t kFigure7[256] = {
    0x63, 0x7c, 0x77, 0x7b, 0xf2, 0x6b, 0x6f, 0xc5, 0x30, 0x01, 0x67, 0x2b, 0xfe, 0xd7, 0xab, 0x76,  //
    0xca, 0x82, 0xc9, 0x7d, 0xfa, 0x59, 0x47, 0xf0, 0xad, 0xd4, 0xa2, 0xaf, 0x9c, 0xa4, 0x72, 0xc0,  //
    0xb7, 0xfd, 0x93, 0x26, 0x36, 0x3f, 0xf7, 0xcc, 0x34, 0xa5, 0xe5, 0xf1, 0x71, 0xd8, 0x31, 0x15,  //
    0x04, 0xc7, 0x23, 0xc3, 0x18, 0x96, 0x05, 0x9a, 0x07, 0x12, 0x80, 0xe2, 0xeb, 0x27, 0xb2, 0x75,  //
    0x09, 0x83, 0x2c, 0x1a, 0x1b, 0x6e, 0x5a, 0xa0, 0x52, 0x3b, 0xd6, 0xb3, 0x29, 0xe3, 0x2f, 0x84,  //
    0x53, 0xd1, 0x00, 0xed, 0x20, 0xfc, 0xb1, 0x5b, 0x6a, 0xcb, 0xbe, 0x39, 0x4a, 0x4c, 0x58, 0xcf,  //
    0xd0, 0xef, 0xaa, 0xfb, 0x43, 0x4d, 0x33, 0x85, 0x45, 0xf9, 0x02, 0x7f, 0x50, 0x3c, 0x9f, 0xa8,  //
    0x51, 0xa3, 0x40, 0x8f, 0x92, 0x9d, 0x38, 0xf5, 0xbc, 0xb6, 0xda, 0x21, 0x10, 0xff, 0xf3, 0xd2,  //
    0xcd, 0x0c, 0x13, 0xec, 0x5f, 0x97, 0x44, 0x17, 0xc4, 0xa7, 0x7e, 0x3d, 0x64, 0x5d, 0x19, 0x73,  //
    0x60, 0x81, 0x4f, 0xdc, 0x22, 0x2a, 0x90, 0x88, 0x46, 0xee, 0xb8, 0x14, 0xde, 0x5e, 0x0b, 0xdb,  //
    0xe0, 0x32, 0x3a, 0x0a, 0x49, 0x06, 0x24, 0x5c, 0xc2, 0xd3, 0xac, 0x62, 0x91, 0x95, 0xe4, 0x79,  //
    0xe7, 0xc8, 0x37, 0x6d, 0x8d, 0xd5, 0x4e, 0xa9, 0x6c, 0x56, 0xf4, 0xea, 0x65, 0x7a, 0xae, 0x08,  //
    0xba, 0x78, 0x25, 0x2e, 0x1c, 0xa6, 0xb4, 0xc6, 0xe8, 0xdd, 0x74, 0x1f, 0x4b, 0xbd, 0x8b, 0x8a,  //
    0x70, 0x3e, 0xb5, 0x66, 0x48, 0x03, 0xf6, 0x0e, 0x61, 0x35, 0x57, 0xb9, 0x86, 0xc1, 0x1d, 0x9e,  //
    0xe1, 0xf8, 0x98, 0x11, 0x69, 0xd9, 0x8e, 0x94, 0x9b, 0x1e, 0x87, 0xe9, 0xce, 0x55, 0x28, 0xdf,  //
    0x8c, 0xa1, 0x89, 0x0d, 0xbf, 0xe6, 0x42, 0x68, 0x41, 0x99, 0x2d, 0x0f, 0xb0, 0x54, 0xbb, 0x16,
};

}  // namespace

// ---- The reference itself -------------------------------------------------------------------------------------------

TEST(AesReference, HasTheTablesOfTheStandard) {
  EXPECT_TRUE(std::equal(std::begin(kFigure7), std::end(kFigure7), reference::boxes().forward.begin()));
  EXPECT_EQ(reference::multiply(0x57, 0x83), 0xc1);  // section 4.2
  EXPECT_EQ(reference::multiply(0x57, 0x13), 0xfe);  // section 4.2.1
}

TEST(AesReference, HasTheExamplesOfTheStandards) {
  EXPECT_EQ(reference::expand_key(from_hex(kExampleKey)), from_hex(kExampleRoundKeys));
  for (const BlockExample &example : kBlockExamples) {
    SCOPED_TRACE(example.source);
    const Bytes w = reference::expand_key(from_hex(example.key));
    EXPECT_EQ(reference::encrypt(w, from_hex(example.plain)), from_hex(example.cipher));
    EXPECT_EQ(reference::decrypt(w, from_hex(example.cipher)), from_hex(example.plain));
  }
}

// ---- Blocks ---------------------------------------------------------------------------------------------------------

TEST_P(AesBlock, HasTheExamplesOfTheStandardsInBothDirections) {
  for (const BlockExample &example : kBlockExamples) {
    SCOPED_TRACE(example.source);
    const Bytes key = from_hex(example.key);
    EXPECT_EQ(encrypt(schedule(key), from_hex(example.plain)), from_hex(example.cipher));
    EXPECT_EQ(decrypt(schedule(key), from_hex(example.cipher)), from_hex(example.plain));
    EXPECT_EQ(run_ecb(aes128_ecb_encrypt, key, from_hex(example.plain)), from_hex(example.cipher));
    EXPECT_EQ(run_ecb(aes128_ecb_decrypt, key, from_hex(example.cipher)), from_hex(example.plain));
  }
}

TEST_P(AesBlock, AgreesWithTheReferenceForEveryKindOfKeyAndOfBlock) {
  Random random(1);
  for (const Bytes &one : blocks_of_every_kind(2)) {
    const Bytes other = random.bytes(kBlock);
    expect_reference(one, other);
    expect_reference(other, one);
    if (HasFatalFailure()) return;
  }
}

// Round keys are used unchanged: they need not come from a key.
TEST_P(AesBlock, AgreesWithTheReferenceForRoundKeysOfNoKey) {
  Random random(2);
  std::vector<Bytes> all = {Bytes(kRoundKeys, 0x00), Bytes(kRoundKeys, 0xff)};
  for (int i = 0; i < 200; i++) all.push_back(random.bytes(kRoundKeys));
  for (size_t round = 0; round < 11; round++) {  // one that differs from the others
    Bytes one(kRoundKeys);
    for (size_t i = 0; i < kBlock; i++) one[kBlock * round + i] = static_cast<uint8_t>(0x91 + i);
    all.push_back(one);
  }
  for (const Bytes &round_keys : all) {
    const Bytes block = random.bytes(kBlock);
    ASSERT_EQ(encrypt(round_keys, block), reference::encrypt(round_keys, block));
    ASSERT_EQ(decrypt(round_keys, block), reference::decrypt(round_keys, block));
  }
}

// Every value of a byte in every place, through all of the S-box and its inverse.
TEST_P(AesBlock, AgreesWithTheReferenceForEveryByteInEveryPlace) {
  const Bytes round_keys(kRoundKeys);  // zeros: a byte enters the S-box unchanged
  for (unsigned value = 0; value < 256; value++) {
    Bytes block(kBlock);
    for (size_t i = 0; i < kBlock; i++) block[i] = static_cast<uint8_t>(value + 17 * i);
    ASSERT_EQ(encrypt(round_keys, block), reference::encrypt(round_keys, block)) << value;
    ASSERT_EQ(decrypt(round_keys, block), reference::decrypt(round_keys, block)) << value;
  }
}

TEST_P(AesBlock, DecryptUndoesEncryptAndTheOtherWayRound) {
  Random random(3);
  for (int i = 0; i < 5000; i++) {
    SCOPED_TRACE(i);
    const Bytes round_keys = i % 2 == 0 ? schedule(random.bytes(kBlock)) : random.bytes(kRoundKeys);
    const Bytes block = random.bytes(kBlock);
    ASSERT_EQ(decrypt(round_keys, encrypt(round_keys, block)), block);
    ASSERT_EQ(encrypt(round_keys, decrypt(round_keys, block)), block);
  }
}

TEST_P(AesBlock, MayBeWrittenOverItsInputItsKeyOrBoth) {
  Random random(4);
  for (int i = 0; i < 50; i++) {
    const Bytes key = random.bytes(kBlock);
    const Bytes in = random.bytes(kBlock);
    const Bytes w = reference::expand_key(key);
    const Bytes round_keys_of_no_key = random.bytes(kRoundKeys);
    for (const Direction &direction : kDirections) {
      SCOPED_TRACE(direction.name);
      for (const Bytes &round_keys : {w, round_keys_of_no_key}) {
        Bytes block = in;
        direction.cipher(round_keys.data(), block.data(), block.data());
        ASSERT_EQ(block, direction.reference(round_keys, in));
      }
      const Bytes expected = direction.reference(w, in);
      Bytes block = in;
      EXPECT_EQ(direction.ecb(key.data(), block.data(), block.data()), 0);
      ASSERT_EQ(block, expected);
      block = key;
      EXPECT_EQ(direction.ecb(block.data(), in.data(), block.data()), 0);
      ASSERT_EQ(block, expected);
      block = key;
      EXPECT_EQ(direction.ecb(block.data(), block.data(), block.data()), 0);
      ASSERT_EQ(block, direction.reference(w, key));
    }
  }
}

// Neither the key of the last call nor its address.
TEST_P(AesBlock, KeepsNoKeyFromOneCallToTheNext) {
  Random random(5);
  const Bytes keys[] = {random.bytes(kBlock), random.bytes(kBlock)};
  const Bytes in = random.bytes(kBlock);
  Bytes key(kBlock);
  for (size_t i = 0; i < 8; i++) {
    key = keys[i / 2 % 2];
    const Direction &direction = kDirections[i % 2];
    EXPECT_EQ(run_ecb(direction.ecb, key, in), direction.reference(reference::expand_key(key), in)) << i;
  }
}

// ---- Key schedule ---------------------------------------------------------------------------------------------------

TEST_P(AesKeySchedule, ExpandsTheExampleOfTheStandard) {
  EXPECT_EQ(schedule(from_hex(kExampleKey)), from_hex(kExampleRoundKeys));
}

// The part of each round key's first word besides SubWord(RotWord()) and the word before.
TEST_P(AesKeySchedule, HasTheRoundConstantsOfTheStandard) {
  constexpr uint8_t kConstants[10] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x1B, 0x36};
  const Bytes w = schedule(from_hex("000102030405060708090a0b0c0d0e0f"));
  for (size_t round = 1; round <= 10; round++) {
    SCOPED_TRACE(round);
    const uint8_t *before = &w[16 * round - 16];
    EXPECT_EQ(w[16 * round] ^ before[0] ^ kFigure7[before[13]], kConstants[round - 1]);
    EXPECT_EQ(w[16 * round + 1] ^ before[1] ^ kFigure7[before[14]], 0);
    EXPECT_EQ(w[16 * round + 2] ^ before[2] ^ kFigure7[before[15]], 0);
    EXPECT_EQ(w[16 * round + 3] ^ before[3] ^ kFigure7[before[12]], 0);
  }
}

// ---- Tables ---------------------------------------------------------------------------------------------------------

// The first word of round key 1 shows the table's entries for the last word of the key.
TEST_P(AesTables, HoldFigure7InTheKeySchedule) {
  for (unsigned a = 0; a < 256; a++) {
    SCOPED_TRACE(a);
    const auto at = [a](unsigned step) { return static_cast<uint8_t>(a + step); };
    Bytes key(kBlock);
    for (size_t i = 0; i < 4; i++) key[12 + i] = at(static_cast<unsigned>(i));
    const Bytes w = schedule(key);
    EXPECT_EQ(w[16], kFigure7[at(1)] ^ 0x01);
    EXPECT_EQ(w[17], kFigure7[at(2)]);
    EXPECT_EQ(w[18], kFigure7[at(3)]);
    EXPECT_EQ(w[19], kFigure7[at(0)]);
  }
}

// With round keys of zeros a block of equal bytes stays one, because the rows of the matrices of MixColumns add up to
// 1: only ten substitutions remain.
TEST_P(AesTables, HoldFigure7InTheCipherAndItsInverseInTheInverse) {
  const Bytes no_keys(kRoundKeys);
  for (unsigned a = 0; a < 256; a++) {
    SCOPED_TRACE(a);
    auto substituted = static_cast<uint8_t>(a);
    for (int i = 0; i < 10; i++) substituted = kFigure7[substituted];
    const Bytes before(16, static_cast<uint8_t>(a));
    const Bytes after(16, substituted);
    EXPECT_EQ(encrypt(no_keys, before), after);
    EXPECT_EQ(decrypt(no_keys, after), before);
  }
}
