// The block cipher against FIPS 197: its examples, its tables, and every step of it.

#include <algorithm>
#include <cstring>

#include "crypto/reference.h"
#include "tarn/crypto.h"

using namespace crypto_test;

namespace {

class AesBlock : public OnEachPath {};
class AesKeySchedule : public OnEachPath {};
class AesTables : public OnEachPath {};
ON_EACH_PATH(AesBlock);
ON_EACH_PATH(AesKeySchedule);
ON_EACH_PATH(AesTables);

Bytes schedule(const Bytes &key) {
  Bytes round_keys(AES128_ROUND_KEYS_BYTES, 0xA5);
  aes_key_schedule_128(key.data(), round_keys.data());
  return round_keys;
}

Bytes encrypt(const Bytes &round_keys, const Bytes &in) {
  Bytes out(16, 0xA5);
  aes_encrypt_128(round_keys.data(), in.data(), out.data());
  return out;
}

Bytes decrypt(const Bytes &round_keys, const Bytes &in) {
  Bytes out(16, 0xA5);
  aes_decrypt_128(round_keys.data(), in.data(), out.data());
  return out;
}

struct Example {
  const char *source, *key, *plain, *cipher;
};
constexpr Example kExamples[] = {
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

TEST(AesReference, HasTheTableOfTheStandard) {
  EXPECT_TRUE(std::equal(std::begin(kFigure7), std::end(kFigure7), reference::boxes().forward.begin()));
}

TEST(AesReference, HasTheExamplesOfTheStandard) {
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    const Bytes w = reference::expand_key(from_hex(example.key));
    EXPECT_EQ(reference::encrypt(w, from_hex(example.plain)), from_hex(example.cipher));
    EXPECT_EQ(reference::decrypt(w, from_hex(example.cipher)), from_hex(example.plain));
  }
}

TEST_P(AesBlock, EnciphersTheExamplesOfTheStandards) {
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    Bytes out(16);
    EXPECT_EQ(aes128_ecb_encrypt(from_hex(example.key).data(), from_hex(example.plain).data(), out.data()), 0);
    EXPECT_EQ(out, from_hex(example.cipher));
    EXPECT_EQ(encrypt(schedule(from_hex(example.key)), from_hex(example.plain)), from_hex(example.cipher));
  }
}

TEST_P(AesBlock, DeciphersTheExamplesOfTheStandards) {
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    Bytes out(16);
    EXPECT_EQ(aes128_ecb_decrypt(from_hex(example.key).data(), from_hex(example.cipher).data(), out.data()), 0);
    EXPECT_EQ(out, from_hex(example.plain));
    EXPECT_EQ(decrypt(schedule(from_hex(example.key)), from_hex(example.cipher)), from_hex(example.plain));
  }
}

TEST_P(AesBlock, AgreesWithTheReferenceForRandomKeysAndBlocks) {
  Random random(1);
  for (int i = 0; i < 200; i++) {
    SCOPED_TRACE(i);
    const Bytes key = random.bytes(16);
    const Bytes block = random.bytes(16);
    const Bytes w = reference::expand_key(key);
    ASSERT_EQ(schedule(key), w);
    ASSERT_EQ(encrypt(w, block), reference::encrypt(w, block));
    ASSERT_EQ(decrypt(w, block), reference::decrypt(w, block));
  }
}

// Round keys are taken as they come: no key needs to lie behind them.
TEST_P(AesBlock, AgreesWithTheReferenceForRoundKeysOfNoKey) {
  Random random(2);
  for (int i = 0; i < 200; i++) {
    SCOPED_TRACE(i);
    const Bytes round_keys = random.bytes(AES128_ROUND_KEYS_BYTES);
    const Bytes block = random.bytes(16);
    ASSERT_EQ(encrypt(round_keys, block), reference::encrypt(round_keys, block));
    ASSERT_EQ(decrypt(round_keys, block), reference::decrypt(round_keys, block));
  }
}

TEST_P(AesBlock, DecryptUndoesEncryptAndTheOtherWayRound) {
  Random random(3);
  for (int i = 0; i < 5000; i++) {
    SCOPED_TRACE(i);
    const Bytes round_keys = i % 2 == 0 ? schedule(random.bytes(16)) : random.bytes(AES128_ROUND_KEYS_BYTES);
    const Bytes block = random.bytes(16);
    ASSERT_EQ(decrypt(round_keys, encrypt(round_keys, block)), block);
    ASSERT_EQ(encrypt(round_keys, decrypt(round_keys, block)), block);
  }
}

TEST_P(AesBlock, MayBeWorkedOnInPlace) {
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    const Bytes round_keys = schedule(from_hex(example.key));
    Bytes block = from_hex(example.plain);
    aes_encrypt_128(round_keys.data(), block.data(), block.data());
    EXPECT_EQ(block, from_hex(example.cipher));
    aes_decrypt_128(round_keys.data(), block.data(), block.data());
    EXPECT_EQ(block, from_hex(example.plain));
    EXPECT_EQ(aes128_ecb_encrypt(from_hex(example.key).data(), block.data(), block.data()), 0);
    EXPECT_EQ(block, from_hex(example.cipher));
    EXPECT_EQ(aes128_ecb_decrypt(from_hex(example.key).data(), block.data(), block.data()), 0);
    EXPECT_EQ(block, from_hex(example.plain));
  }
}

TEST_P(AesBlock, MayReplaceTheKey) {
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    Bytes key = from_hex(example.key);
    EXPECT_EQ(aes128_ecb_encrypt(key.data(), from_hex(example.plain).data(), key.data()), 0);
    EXPECT_EQ(key, from_hex(example.cipher));
    key = from_hex(example.key);
    EXPECT_EQ(aes128_ecb_decrypt(key.data(), from_hex(example.cipher).data(), key.data()), 0);
    EXPECT_EQ(key, from_hex(example.plain));
  }
}

// All buffers at every offset from a multiple of 16, with bytes around the outputs that must stay.
TEST_P(AesBlock, TakesBuffersOfAnyAlignmentAndWritesNothingBesideThem) {
  const Example &example = kExamples[1];
  const Bytes key = from_hex(example.key);
  const Bytes plain = from_hex(example.plain);
  const Bytes cipher = from_hex(example.cipher);
  const Bytes w = reference::expand_key(key);
  for (size_t offset = 0; offset < 16; offset++) {
    SCOPED_TRACE(offset);
    struct alignas(16) Buffers {
      uint8_t key[32], in[32], out[48], round_keys[208];
    } buffers;
    memset(&buffers, 0xA5, sizeof buffers);
    uint8_t *const out = buffers.out + offset;
    uint8_t *const round_keys = buffers.round_keys + offset;
    memcpy(buffers.key + offset, key.data(), 16);
    memcpy(buffers.in + offset, plain.data(), 16);
    aes_key_schedule_128(buffers.key + offset, round_keys);
    EXPECT_EQ(Bytes(round_keys, round_keys + 176), w);
    EXPECT_EQ(Bytes(round_keys + 176, std::end(buffers.round_keys)), Bytes(32 - offset, 0xA5));
    aes_encrypt_128(round_keys, buffers.in + offset, out);
    EXPECT_EQ(Bytes(out, out + 16), cipher);
    EXPECT_EQ(Bytes(out + 16, std::end(buffers.out)), Bytes(32 - offset, 0xA5));
    memcpy(buffers.in + offset, cipher.data(), 16);
    aes_decrypt_128(round_keys, buffers.in + offset, out);
    EXPECT_EQ(Bytes(out, out + 16), plain);
    EXPECT_EQ(Bytes(out + 16, std::end(buffers.out)), Bytes(32 - offset, 0xA5));
    EXPECT_EQ(Bytes(std::begin(buffers.out), out), Bytes(offset, 0xA5));
    EXPECT_EQ(Bytes(std::begin(buffers.round_keys), round_keys), Bytes(offset, 0xA5));
  }
}

// FIPS 197, appendix A.1.
TEST_P(AesKeySchedule, ExpandsTheExampleOfTheStandard) {
  EXPECT_EQ(schedule(from_hex("2b7e151628aed2a6abf7158809cf4f3c")), from_hex("2b7e151628aed2a6abf7158809cf4f3c"
                                                                             "a0fafe1788542cb123a339392a6c7605"
                                                                             "f2c295f27a96b9435935807a7359f67f"
                                                                             "3d80477d4716fe3e1e237e446d7a883b"
                                                                             "ef44a541a8525b7fb671253bdb0bad00"
                                                                             "d4d1c6f87c839d87caf2b8bc11f915bc"
                                                                             "6d88a37a110b3efddbf98641ca0093fd"
                                                                             "4e54f70e5f5fc9f384a64fb24ea6dc4f"
                                                                             "ead27321b58dbad2312bf5607f8d292f"
                                                                             "ac7766f319fadc2128d12941575c006e"
                                                                             "d014f9a8c9ee2589e13f0cc8b6630ca6"));
}

// What the first word of each round key holds beyond SubWord(RotWord()) and the word before.
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

// The first word of round key 1 shows what the table holds for the last word of the key.
TEST_P(AesTables, HoldFigure7InTheKeySchedule) {
  for (unsigned a = 0; a < 256; a++) {
    SCOPED_TRACE(a);
    const auto at = [a](unsigned step) { return static_cast<uint8_t>(a + step); };
    Bytes key(16);
    for (size_t i = 0; i < 4; i++) key[12 + i] = at(static_cast<unsigned>(i));
    const Bytes w = schedule(key);
    EXPECT_EQ(w[16], kFigure7[at(1)] ^ 0x01);
    EXPECT_EQ(w[17], kFigure7[at(2)]);
    EXPECT_EQ(w[18], kFigure7[at(3)]);
    EXPECT_EQ(w[19], kFigure7[at(0)]);
  }
}

// With round keys of zeros a block of equal bytes stays one, for the rows of the matrices of MixColumns add up to 1:
// ten substitutions are left.
TEST_P(AesTables, HoldFigure7InTheCipherAndItsInverseInTheInverse) {
  const Bytes no_keys(AES128_ROUND_KEYS_BYTES);
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
