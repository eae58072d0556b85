// AES-128: key expansion and single blocks, on both paths.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "crypto/contract_model.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/crypto.h"

using namespace crypto_contract;
using namespace tarn_test;

static_assert(AES128_KEY_BYTES == 16 && AES128_BLOCK_BYTES == 16 && AES128_ROUND_KEYS_BYTES == 176);
static_assert(std::is_same_v<decltype(aes_key_schedule_128), void(const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes_encrypt_128), void(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes_decrypt_128), void(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes128_ecb_encrypt), mu_status_t(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(aes128_ecb_decrypt), mu_status_t(const uint8_t *, const uint8_t *, uint8_t *)>);

namespace {

struct KnownBlock {
  const char *source;
  const char *key;
  const char *plain;
  const char *cipher;
};

constexpr KnownBlock kKnown[] = {
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

constexpr char kExampleKey[] = "2b7e151628aed2a6abf7158809cf4f3c";

// FIPS 197, appendix A.1: w0 to w43.
constexpr char kExampleRoundKeys[] =
    "2b7e1516 28aed2a6 abf71588 09cf4f3c a0fafe17 88542cb1 23a33939 2a6c7605 "
    "f2c295f2 7a96b943 5935807a 7359f67f 3d80477d 4716fe3e 1e237e44 6d7a883b "
    "ef44a541 a8525b7f b671253b db0bad00 d4d1c6f8 7c839d87 caf2b8bc 11f915bc "
    "6d88a37a 110b3efd dbf98641 ca0093fd 4e54f70e 5f5fc9f3 84a64fb2 4ea6dc4f "
    "ead27321 b58dbad2 312bf560 7f8d292f ac7766f3 19fadc21 28d12941 575c006e "
    "d014f9a8 c9ee2589 e13f0cc8 b6630ca6";

Bytes schedule(const Bytes &key) {
  Bytes round_keys(kRoundKeys);
  aes_key_schedule_128(key.data(), round_keys.data());
  return round_keys;
}

using Direction = void (*)(const uint8_t *, const uint8_t *, uint8_t *);

Bytes run(Direction direction, const Bytes &round_keys, const Bytes &in) {
  Bytes out(kBlock);
  direction(round_keys.data(), in.data(), out.data());
  return out;
}

using Ecb = mu_status_t (*)(const uint8_t *, const uint8_t *, uint8_t *);

Bytes run_ecb(Ecb direction, const Bytes &key, const Bytes &in) {
  Bytes out(kBlock);
  EXPECT_EQ(direction(key.data(), in.data(), out.data()), 0);
  return out;
}

// Both directions of the cipher, each with its model.
const struct {
  const char *name;
  Direction cipher;
  Ecb ecb;
  Bytes (*model)(const Bytes &, const Bytes &);
} kDirections[] = {{"encrypt", aes_encrypt_128, aes128_ecb_encrypt, encipher},
                   {"decrypt", aes_decrypt_128, aes128_ecb_decrypt, decipher}};

class AesKeyContract : public EitherPath {};
class AesBlockContract : public EitherPath {};
class AesEcbContract : public EitherPath {};

INSTANTIATE_TEST_SUITE_P(Path, AesKeyContract, both_paths(), path_name);
INSTANTIATE_TEST_SUITE_P(Path, AesBlockContract, both_paths(), path_name);
INSTANTIATE_TEST_SUITE_P(Path, AesEcbContract, both_paths(), path_name);

}  // namespace

// ---- The model itself -----------------------------------------------------------------------------------------------

TEST(AesModelContract, GivesThePublishedValues) {
  EXPECT_EQ(substitution().forth[0x00], 0x63);
  EXPECT_EQ(substitution().forth[0x53], 0xED);  // FIPS 197, section 5.1.1
  EXPECT_EQ(product(0x57, 0x83), 0xC1);         // section 4.2
  EXPECT_EQ(product(0x57, 0x13), 0xFE);         // section 4.2.1
  EXPECT_EQ(hex(expand_key(bytes(kExampleKey))), hex(bytes(kExampleRoundKeys)));
  for (const KnownBlock &known : kKnown) {
    SCOPED_TRACE(known.source);
    const Bytes round_keys = expand_key(bytes(known.key));
    EXPECT_EQ(hex(encipher(round_keys, bytes(known.plain))), known.cipher);
    EXPECT_EQ(hex(decipher(round_keys, bytes(known.cipher))), known.plain);
  }
}

// ---- Key expansion --------------------------------------------------------------------------------------------------

TEST_P(AesKeyContract, ExpandsTheStandardsExample) {
  EXPECT_EQ(hex(schedule(bytes(kExampleKey))), hex(bytes(kExampleRoundKeys)));
}

TEST_P(AesKeyContract, ExpandsEveryKindOfKey) {
  for (const Bytes &key : telling_blocks(1)) ASSERT_EQ(hex(schedule(key)), hex(expand_key(key))) << hex(key);
}

TEST_P(AesKeyContract, BeginsWithTheKeyItself) {
  const Bytes key = Random(2)(kBlock);
  EXPECT_EQ(hex(part(schedule(key), 0, kBlock)), hex(key));
}

TEST_P(AesKeyContract, ReadsSixteenBytesAndWrites176) {
  const Bytes key = Random(3)(kBlock);
  for (const Edge edge : kEdges) {
    const Fenced in(key, edge);
    const Fenced out(Bytes(kRoundKeys, 0xEE), edge);
    aes_key_schedule_128(in.sealed(), out.data());
    EXPECT_EQ(hex(out.content()), hex(expand_key(key)));
  }
}

TEST_P(AesKeyContract, TakesBuffersOfAnyAlignment) {
  Random random(4);
  const Bytes key = random(kBlock);
  const std::string expected = hex(expand_key(key));
  for (size_t in_at = 0; in_at < 16; in_at++) {
    for (size_t out_at = 0; out_at < 16; out_at++) {
      alignas(16) uint8_t in[32];
      alignas(16) uint8_t out[208];
      memset(out, 0xA5, sizeof out);
      std::copy(key.begin(), key.end(), in + in_at);
      aes_key_schedule_128(in + in_at, out + out_at);
      ASSERT_EQ(hex(out, sizeof out), hex(Bytes(out_at, 0xA5)) + expected + hex(Bytes(32 - out_at, 0xA5)))
          << in_at << ' ' << out_at;
    }
  }
}

// ---- Blocks ---------------------------------------------------------------------------------------------------------

TEST_P(AesBlockContract, GivesThePublishedBlocksBothWays) {
  for (const KnownBlock &known : kKnown) {
    SCOPED_TRACE(known.source);
    const Bytes round_keys = schedule(bytes(known.key));
    EXPECT_EQ(hex(run(aes_encrypt_128, round_keys, bytes(known.plain))), known.cipher);
    EXPECT_EQ(hex(run(aes_decrypt_128, round_keys, bytes(known.cipher))), known.plain);
  }
}

TEST_P(AesBlockContract, GivesTheModelsBlockForEveryKindOfInput) {
  const Bytes round_keys = schedule(Random(5)(kBlock));
  for (const auto &direction : kDirections) {
    SCOPED_TRACE(direction.name);
    for (const Bytes &in : telling_blocks(6)) {
      ASSERT_EQ(hex(run(direction.cipher, round_keys, in)), hex(direction.model(round_keys, in))) << hex(in);
    }
  }
}

// Every value of a byte in every place, through all of the S-box and its inverse.
TEST_P(AesBlockContract, TakesEveryValueInEveryPlace) {
  const Bytes round_keys(kRoundKeys);  // zeros: a byte meets the S-box as it is
  for (const auto &direction : kDirections) {
    SCOPED_TRACE(direction.name);
    for (unsigned value = 0; value < 256; value++) {
      Bytes in(kBlock);
      for (size_t i = 0; i < kBlock; i++) in[i] = static_cast<uint8_t>(value + 17 * i);
      ASSERT_EQ(hex(run(direction.cipher, round_keys, in)), hex(direction.model(round_keys, in))) << hex(in);
    }
  }
}

// Any 176 bytes are round keys, those of no key too.
TEST_P(AesBlockContract, TakesRoundKeysOfNoKey) {
  Random random(7);
  std::vector<Bytes> all = {Bytes(kRoundKeys, 0x00), Bytes(kRoundKeys, 0xFF)};
  for (int i = 0; i < 60; i++) all.push_back(random(kRoundKeys));
  for (size_t round = 0; round < 11; round++) {  // one that stands out
    Bytes one(kRoundKeys);
    for (size_t i = 0; i < kBlock; i++) one[kBlock * round + i] = static_cast<uint8_t>(0x91 + i);
    all.push_back(one);
  }
  for (const Bytes &round_keys : all) {
    const Bytes in = random(kBlock);
    for (const auto &direction : kDirections) {
      ASSERT_EQ(hex(run(direction.cipher, round_keys, in)), hex(direction.model(round_keys, in))) << direction.name;
    }
  }
}

TEST_P(AesBlockContract, DecryptionUndoesEncryptionAndTheOtherWayRound) {
  Random random(8);
  for (int i = 0; i < 500; i++) {
    const Bytes round_keys = i % 2 == 0 ? schedule(random(kBlock)) : random(kRoundKeys);
    const Bytes in = random(kBlock);
    ASSERT_EQ(hex(run(aes_decrypt_128, round_keys, run(aes_encrypt_128, round_keys, in))), hex(in));
    ASSERT_EQ(hex(run(aes_encrypt_128, round_keys, run(aes_decrypt_128, round_keys, in))), hex(in));
  }
}

TEST_P(AesBlockContract, WorksInPlace) {
  Random random(9);
  for (const auto &direction : kDirections) {
    for (int i = 0; i < 50; i++) {
      const Bytes round_keys = random(kRoundKeys);
      Bytes block = random(kBlock);
      const std::string expected = hex(direction.model(round_keys, block));
      direction.cipher(round_keys.data(), block.data(), block.data());
      ASSERT_EQ(hex(block), expected) << direction.name;
    }
  }
}

TEST_P(AesBlockContract, TouchesNothingButItsBuffers) {
  Random random(10);
  const Bytes round_keys = random(kRoundKeys);
  const Bytes block = random(kBlock);
  for (const auto &direction : kDirections) {
    for (const Edge edge : kEdges) {
      const Fenced keys(round_keys, edge);
      const Fenced in(block, edge);
      const Fenced out(Bytes(kBlock, 0xEE), edge);
      direction.cipher(keys.sealed(), in.sealed(), out.data());
      EXPECT_EQ(hex(out.content()), hex(direction.model(round_keys, block))) << direction.name;
    }
  }
}

TEST_P(AesBlockContract, TakesBuffersOfAnyAlignment) {
  Random random(11);
  const Bytes round_keys = random(kRoundKeys);
  const Bytes block = random(kBlock);
  for (const auto &direction : kDirections) {
    const std::string expected = hex(direction.model(round_keys, block));
    for (size_t keys_at = 0; keys_at < 16; keys_at++) {
      for (size_t block_at = 0; block_at < 16; block_at++) {
        alignas(16) uint8_t keys[kRoundKeys + 16];
        alignas(16) uint8_t in[2 * kBlock];
        alignas(16) uint8_t out[3 * kBlock];
        const size_t out_at = (block_at + keys_at) % 16 + 1;
        memset(out, 0xA5, sizeof out);
        std::copy(round_keys.begin(), round_keys.end(), keys + keys_at);
        std::copy(block.begin(), block.end(), in + block_at);
        direction.cipher(keys + keys_at, in + block_at, out + out_at);
        ASSERT_EQ(hex(out, sizeof out), hex(Bytes(out_at, 0xA5)) + expected + hex(Bytes(32 - out_at, 0xA5)))
            << direction.name << ' ' << keys_at << ' ' << block_at;
      }
    }
  }
}

// ---- A key and a block ----------------------------------------------------------------------------------------------

TEST_P(AesEcbContract, GivesThePublishedBlocksBothWays) {
  for (const KnownBlock &known : kKnown) {
    SCOPED_TRACE(known.source);
    EXPECT_EQ(hex(run_ecb(aes128_ecb_encrypt, bytes(known.key), bytes(known.plain))), known.cipher);
    EXPECT_EQ(hex(run_ecb(aes128_ecb_decrypt, bytes(known.key), bytes(known.cipher))), known.plain);
  }
}

TEST_P(AesEcbContract, GivesTheModelsBlockForEveryKindOfKey) {
  Random random(12);
  for (const Bytes &key : telling_blocks(13)) {
    const Bytes round_keys = expand_key(key);
    const Bytes in = random(kBlock);
    for (const auto &direction : kDirections) {
      ASSERT_EQ(hex(run_ecb(direction.ecb, key, in)), hex(direction.model(round_keys, in)))
          << direction.name << ' ' << hex(key);
    }
  }
}

// No key is kept: calls under two keys take turns.
TEST_P(AesEcbContract, ForgetsTheKeyOfTheLastCall) {
  Random random(14);
  const Bytes keys[] = {random(kBlock), random(kBlock)};
  const Bytes in = random(kBlock);
  for (int i = 0; i < 8; i++) {
    const Bytes &key = keys[i / 2 % 2];
    const auto &direction = kDirections[i % 2];
    EXPECT_EQ(hex(run_ecb(direction.ecb, key, in)), hex(direction.model(expand_key(key), in))) << i;
  }
}

// The key that stands at an address now, not the one that stood there.
TEST_P(AesEcbContract, ReadsTheKeyAnew) {
  Random random(15);
  uint8_t key[kBlock];
  for (int i = 0; i < 4; i++) {
    const Bytes fresh = random(kBlock);
    const Bytes in = random(kBlock);
    std::copy(fresh.begin(), fresh.end(), key);
    Bytes out(kBlock);
    EXPECT_EQ(aes128_ecb_encrypt(key, in.data(), out.data()), 0);
    EXPECT_EQ(hex(out), hex(encipher(expand_key(fresh), in)));
  }
}

TEST_P(AesEcbContract, WritesOverItsInputItsKeyOrBoth) {
  Random random(16);
  for (const auto &direction : kDirections) {
    SCOPED_TRACE(direction.name);
    const Bytes key = random(kBlock);
    const Bytes in = random(kBlock);
    const std::string expected = hex(direction.model(expand_key(key), in));
    Bytes block = in;
    EXPECT_EQ(direction.ecb(key.data(), block.data(), block.data()), 0);
    EXPECT_EQ(hex(block), expected);
    block = key;
    EXPECT_EQ(direction.ecb(block.data(), in.data(), block.data()), 0);
    EXPECT_EQ(hex(block), expected);
    block = key;
    EXPECT_EQ(direction.ecb(block.data(), block.data(), block.data()), 0);
    EXPECT_EQ(hex(block), hex(direction.model(expand_key(key), key)));
  }
}

TEST_P(AesEcbContract, TouchesNothingButItsBuffers) {
  Random random(17);
  const Bytes key = random(kBlock);
  const Bytes block = random(kBlock);
  for (const auto &direction : kDirections) {
    for (const Edge edge : kEdges) {
      const Fenced fenced_key(key, edge);
      const Fenced in(block, edge);
      const Fenced out(Bytes(kBlock, 0xEE), edge);
      EXPECT_EQ(direction.ecb(fenced_key.sealed(), in.sealed(), out.data()), 0);
      EXPECT_EQ(hex(out.content()), hex(direction.model(expand_key(key), block))) << direction.name;
    }
  }
}

TEST_P(AesEcbContract, TakesBuffersOfAnyAlignment) {
  Random random(18);
  const Bytes key = random(kBlock);
  const Bytes block = random(kBlock);
  for (const auto &direction : kDirections) {
    const std::string expected = hex(direction.model(expand_key(key), block));
    for (size_t key_at = 0; key_at < 16; key_at++) {
      for (size_t block_at = 0; block_at < 16; block_at++) {
        alignas(16) uint8_t keys[2 * kBlock];
        alignas(16) uint8_t in[2 * kBlock];
        alignas(16) uint8_t out[3 * kBlock];
        const size_t out_at = (block_at + key_at) % 16 + 1;
        memset(out, 0xA5, sizeof out);
        std::copy(key.begin(), key.end(), keys + key_at);
        std::copy(block.begin(), block.end(), in + block_at);
        ASSERT_EQ(direction.ecb(keys + key_at, in + block_at, out + out_at), 0);
        ASSERT_EQ(hex(out, sizeof out), hex(Bytes(out_at, 0xA5)) + expected + hex(Bytes(32 - out_at, 0xA5)))
            << direction.name << ' ' << key_at << ' ' << block_at;
      }
    }
  }
}

TEST_P(AesEcbContract, PrintsAndAllocatesNothing) {
  const Bytes key = Random(19)(kBlock);
  const FailingMalloc no_memory(1, 1000);
  Console console;
  const Bytes round_keys = schedule(key);
  const Bytes out = run_ecb(aes128_ecb_encrypt, key, key);
  const Bytes back = run_ecb(aes128_ecb_decrypt, key, out);
  EXPECT_EQ(hex(run(aes_encrypt_128, round_keys, key)), hex(out));
  EXPECT_EQ(hex(run(aes_decrypt_128, round_keys, out)), hex(back));
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(no_memory.seen(), 0);
}
