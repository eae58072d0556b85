// AES-CMAC: messages, tags and subkeys, on both paths.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "crypto/contract_model.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/crypto.h"

using namespace crypto_contract;
using namespace tarn_test;

static_assert(AES128_CMAC_MAX_TAG == 16);
static_assert(std::is_same_v<decltype(aes128_cmac_compute),
                             mu_status_t(const uint8_t *, const uint8_t *, uint32_t, uint8_t, uint8_t *)>);
static_assert(std::is_same_v<decltype(generate_subkey), void(const uint8_t *, uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(const_Rb), uint8_t[16]>);  // it can be written

namespace {

// RFC 4493, section 4, and SP 800-38B's examples for AES-128: one key, and one message of which they take the
// beginning.
constexpr char kKey[] = "2b7e151628aed2a6abf7158809cf4f3c";
constexpr char kMessage[] =
    "6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51 "
    "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710";
constexpr struct {
  const char *source;
  size_t size;
  const char *tag;
} kKnown[] = {{"RFC 4493, example 1", 0, "bb1d6929e95937287fa37d129b756746"},
              {"RFC 4493, example 2", 16, "070a16b46b4d4144f79bdd9dd04a287c"},
              {"SP 800-38B, 20 bytes", 20, "7d85449ea6ea19c823a7bf78837dfade"},
              {"RFC 4493, example 3", 40, "dfa66747de9ae63030ca32611497c827"},
              {"RFC 4493, example 4", 64, "51f0bebf7e3b9d92fc49741779363cfe"}};

std::string parameter_error(unsigned tag_len) { return "parameter error!!val is :" + std::to_string(tag_len) + "\n"; }

// The whole tag of the library.
Bytes tag_of(const Bytes &key, const Bytes &message) {
  static const uint8_t nothing = 0;  // an empty vector may stand at null
  const uint8_t *const data = message.empty() ? &nothing : message.data();
  Bytes tag(kBlock);
  EXPECT_EQ(aes128_cmac_compute(key.data(), data, static_cast<uint32_t>(message.size()), 16, tag.data()), 0);
  return tag;
}

class CmacContract : public EitherPath {};
class CmacTagContract : public EitherPath {};
class CmacBufferContract : public EitherPath {};
class SubkeyContract : public EitherPath {};

INSTANTIATE_TEST_SUITE_P(Path, CmacContract, both_paths(), path_name);
INSTANTIATE_TEST_SUITE_P(Path, CmacTagContract, both_paths(), path_name);
INSTANTIATE_TEST_SUITE_P(Path, CmacBufferContract, both_paths(), path_name);
INSTANTIATE_TEST_SUITE_P(Path, SubkeyContract, both_paths(), path_name);

}  // namespace

// ---- The model itself -----------------------------------------------------------------------------------------------

TEST(CmacModelContract, GivesThePublishedValues) {
  const Subkeys subkeys(bytes(kKey));
  EXPECT_EQ(hex(subkeys.l), "7df76b0c1ab899b33e42f047b91b546f");  // RFC 4493, section 4
  EXPECT_EQ(hex(subkeys.k1), "fbeed618357133667c85e08f7236a8de");
  EXPECT_EQ(hex(subkeys.k2), "f7ddac306ae266ccf90bc11ee46d513b");
  for (const auto &known : kKnown) {
    SCOPED_TRACE(known.source);
    EXPECT_EQ(hex(cmac(bytes(kKey), part(bytes(kMessage), 0, known.size))), known.tag);
  }
}

// ---- Messages -------------------------------------------------------------------------------------------------------

TEST_P(CmacContract, GivesThePublishedTags) {
  for (const auto &known : kKnown) {
    SCOPED_TRACE(known.source);
    EXPECT_EQ(hex(tag_of(bytes(kKey), part(bytes(kMessage), 0, known.size))), known.tag);
  }
}

TEST_P(CmacContract, GivesTheModelsTagForEveryLengthTo300) {
  Random random(20);
  const Bytes key = random(kBlock);
  const Bytes message = random(300);
  for (size_t size = 0; size <= 300; size++) {
    const Bytes beginning = part(message, 0, size);
    ASSERT_EQ(hex(tag_of(key, beginning)), hex(cmac(key, beginning))) << size;
  }
}

TEST_P(CmacContract, GivesTheModelsTagAroundMultiplesOfSixteen) {
  Random random(21);
  for (const size_t multiple : {16u, 32u, 48u, 64u, 112u, 128u, 144u, 240u, 256u, 272u, 512u, 1024u, 2048u, 4096u}) {
    for (const size_t size : {multiple - 1u, multiple, multiple + 1u}) {
      const Bytes key = random(kBlock);
      const Bytes message = random(size);
      ASSERT_EQ(hex(tag_of(key, message)), hex(cmac(key, message))) << size;
    }
  }
}

// Lengths, and counts of blocks, that 16 bits do not hold. The model's cipher would take long: here it is the
// library's, which the tests of blocks compare with the model's.
TEST_P(CmacContract, GivesTheModelsTagForALongMessage) {
  const auto library = [](const Bytes &round_keys, const Bytes &in) {
    Bytes out(kBlock);
    aes_encrypt_128(round_keys.data(), in.data(), out.data());
    return out;
  };
  Random random(22);
  const Bytes key = random(kBlock);
  const Bytes message = random(1048591);
  for (const size_t size : {65536u, 65551u, 1048591u}) {
    const Bytes beginning = part(message, 0, size);
    EXPECT_EQ(hex(tag_of(key, beginning)), hex(cmac(key, beginning, kRb, library))) << size;
  }
}

TEST_P(CmacContract, GivesTheModelsTagForEveryKindOfKey) {
  Random random(23);
  size_t size = 0;
  for (const Bytes &key : telling_blocks(24)) {
    const Bytes message = random(size++ % 34);
    ASSERT_EQ(hex(tag_of(key, message)), hex(cmac(key, message))) << hex(key) << ' ' << message.size();
  }
}

TEST_P(CmacContract, GivesTheModelsTagForPlainMessages) {
  const Bytes key = Random(25)(kBlock);
  for (const uint8_t value : std::initializer_list<uint8_t>{0x00, 0x80, 0xFF}) {
    for (size_t size = 0; size <= 49; size++) {
      const Bytes message(size, value);
      ASSERT_EQ(hex(tag_of(key, message)), hex(cmac(key, message))) << int{value} << ' ' << size;
    }
  }
}

// Every bit counts, of a message with a padded last block and of one without.
TEST_P(CmacContract, DependsOnEveryBitAndOnTheLength) {
  const Bytes key = Random(26)(kBlock);
  std::set<std::string> tags;
  size_t messages = 0;
  for (const size_t size : {31u, 32u, 33u}) {
    Bytes message(size);
    tags.insert(hex(tag_of(key, message)));
    messages++;
    for (size_t bit = 0; bit < 8 * size; bit++) {
      message[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
      tags.insert(hex(tag_of(key, message)));
      messages++;
      message[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
    }
  }
  EXPECT_EQ(tags.size(), messages);
}

TEST_P(CmacContract, UsesK2AndPaddingForNoBytes) {
  const Bytes key = Random(27)(kBlock);
  const Subkeys subkeys(key);
  const Bytes last = bytes("80000000000000000000000000000000") ^ subkeys.k2;
  EXPECT_EQ(hex(tag_of(key, {})), hex(encipher(expand_key(key), last)));
}

TEST_P(CmacContract, UsesK2AndPaddingForFifteenBytes) {
  Random random(28);
  const Bytes key = random(kBlock);
  const Bytes message = random(15);
  const Subkeys subkeys(key);
  Bytes last = message;
  last.push_back(0x80);
  EXPECT_EQ(hex(tag_of(key, message)), hex(encipher(expand_key(key), last ^ subkeys.k2)));
}

TEST_P(CmacContract, UsesK1AndNoPaddingForSixteenBytes) {
  Random random(29);
  const Bytes key = random(kBlock);
  const Bytes message = random(16);
  const Subkeys subkeys(key);
  EXPECT_EQ(hex(tag_of(key, message)), hex(encipher(expand_key(key), message ^ subkeys.k1)));
}

TEST_P(CmacContract, UsesK2AndPaddingForSeventeenBytes) {
  Random random(30);
  const Bytes key = random(kBlock);
  const Bytes message = random(17);
  const Subkeys subkeys(key);
  const Bytes x = encipher(expand_key(key), part(message, 0, 16));
  Bytes last(kBlock);
  last[0] = message[16];
  last[1] = 0x80;
  EXPECT_EQ(hex(tag_of(key, message)), hex(encipher(expand_key(key), x ^ last ^ subkeys.k2)));
}

// A message and the same message with its padding written out.
TEST_P(CmacContract, TellsPaddingFromAMessageThatEndsLikeIt) {
  Random random(31);
  const Bytes key = random(kBlock);
  for (size_t size = 0; size < 16; size++) {
    const Bytes message = random(size);
    Bytes padded = message;
    padded.push_back(0x80);
    padded.resize(16);
    EXPECT_NE(hex(tag_of(key, message)), hex(tag_of(key, padded))) << size;
  }
}

// RFC 4493 step by step through the exported pieces: they are those of the whole.
TEST_P(CmacContract, IsWhatItsPiecesMake) {
  Random random(32);
  for (size_t size = 0; size <= 50; size++) {
    const Bytes key = random(kBlock);
    Bytes message = random(size);
    message.reserve(1);  // not null
    uint8_t k1[kBlock];
    uint8_t k2[kBlock];
    generate_subkey(key.data(), k1, k2);
    const size_t n = size == 0 ? 1 : (size + 15) / 16;
    const size_t rest = size - (n - 1) * 16;
    uint8_t last[kBlock];
    if (rest == 16) {
      xor_128(message.data() + (n - 1) * 16, k1, last);
    } else {
      padding(message.data() + (n - 1) * 16, last, static_cast<int32_t>(rest));
      xor_128(last, k2, last);
    }
    uint8_t x[kBlock] = {};
    for (size_t i = 0; i + 1 < n; i++) {
      xor_128(x, message.data() + i * 16, x);
      aes128_ecb_encrypt(key.data(), x, x);
    }
    xor_128(x, last, x);
    aes128_ecb_encrypt(key.data(), x, x);
    ASSERT_EQ(hex(tag_of(key, message)), hex(x, kBlock)) << size;
  }
}

// Blocks are counted in 32 bits: the count wraps to 0, and nothing of the message is read.
TEST_P(CmacContract, TakesAMessageOfMoreThan0xFFFFFFF0BytesForTheEmptyOne) {
  const Bytes key = Random(33)(kBlock);
  const std::string expected = hex(cmac(key, {}));
  const Fenced fence({}, Edge::kLast);
  for (uint32_t size = 0xFFFFFFF1u; size != 0; size++) {
    Bytes tag(kBlock);
    EXPECT_EQ(aes128_cmac_compute(key.data(), fence.forbidden(), size, 16, tag.data()), 0) << size;
    EXPECT_EQ(hex(tag), expected) << size;
  }
}

TEST_P(CmacContract, KeepsNothingFromOneMessageToTheNext) {
  Random random(34);
  const Bytes keys[] = {random(kBlock), random(kBlock)};
  const Bytes messages[] = {random(40), random(16), {}};
  for (int i = 0; i < 12; i++) {
    const Bytes &key = keys[i % 2];
    const Bytes &message = messages[i % 3];
    EXPECT_EQ(hex(tag_of(key, message)), hex(cmac(key, message))) << i;
  }
}

// Their first calls are the first of the process.
TEST_P(CmacContract, ServesManyThreadsAtOnce) {
  constexpr size_t kThreads = 6;
  Random random(35);
  std::vector<std::pair<Bytes, Bytes>> work;  // key, message
  std::vector<std::string> expected;
  for (size_t i = 0; i < kThreads; i++) {
    work.emplace_back(random(kBlock), random(13 * i));
    expected.push_back(hex(cmac(work[i].first, work[i].second)));
  }
  std::atomic<size_t> ready{0};
  std::vector<std::string> wrong(kThreads);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; i++) {
    threads.emplace_back([&, i] {
      ready++;
      while (ready < kThreads) std::this_thread::yield();
      for (int round = 0; round < 100; round++) {
        const std::string got = hex(tag_of(work[i].first, work[i].second));
        if (got != expected[i]) wrong[i] = got;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  for (size_t i = 0; i < kThreads; i++) EXPECT_EQ(wrong[i], "") << i;
}

// ---- Tags -----------------------------------------------------------------------------------------------------------

TEST_P(CmacTagContract, CutsTheTagToItsFirstBytes) {
  Random random(36);
  const Bytes key = random(kBlock);
  for (const size_t size : {0u, 5u, 16u, 31u, 32u, 40u}) {
    Bytes message = random(size);
    message.reserve(1);  // not null
    const Bytes whole = cmac(key, message);
    for (uint8_t tag_len = 1; tag_len <= 16; tag_len++) {
      Bytes tag(32, 0xA5);
      EXPECT_EQ(aes128_cmac_compute(key.data(), message.data(), static_cast<uint32_t>(size), tag_len, tag.data() + 8),
                0);
      EXPECT_EQ(hex(tag), hex(Bytes(8, 0xA5)) + hex(part(whole, 0, tag_len)) + hex(Bytes(24u - tag_len, 0xA5)))
          << size << ' ' << int{tag_len};
    }
  }
}

TEST_P(CmacTagContract, FourBytesOfThePublishedTags) {
  for (const auto &known : kKnown) {
    SCOPED_TRACE(known.source);
    uint8_t tag[4];
    const Bytes message = bytes(kMessage);
    EXPECT_EQ(
        aes128_cmac_compute(bytes(kKey).data(), message.data(), static_cast<uint32_t>(known.size), sizeof tag, tag), 0);
    EXPECT_EQ(hex(tag, sizeof tag), std::string(known.tag, 8));
  }
}

TEST_P(CmacTagContract, RefusesEveryOtherLengthAndTouchesNothing) {
  const Fenced fence({}, Edge::kLast);
  uint8_t *const forbidden = fence.forbidden();
  for (unsigned tag_len = 0; tag_len < 256; tag_len++) {
    if (tag_len >= 1 && tag_len <= 16) continue;
    Console console;
    const mu_status_t status = aes128_cmac_compute(forbidden, forbidden, 20, static_cast<uint8_t>(tag_len), forbidden);
    const std::string printed = console.take();
    EXPECT_EQ(status, 2) << tag_len;
    EXPECT_EQ(printed, parameter_error(tag_len));
  }
}

TEST_P(CmacTagContract, LeavesTheTagAloneForABadLength) {
  Random random(37);
  const Bytes key = random(kBlock);
  const Bytes message = random(40);
  for (const uint8_t tag_len : std::initializer_list<uint8_t>{0, 17, 255}) {
    Bytes tag(300, 0xA5);
    Console console;
    const mu_status_t status = aes128_cmac_compute(key.data(), message.data(), 40, tag_len, tag.data());
    const std::string printed = console.take();
    EXPECT_EQ(status, 2);
    EXPECT_EQ(printed, parameter_error(tag_len));
    EXPECT_EQ(hex(tag), hex(Bytes(300, 0xA5)));
  }
}

TEST_P(CmacTagContract, WorksAfterABadLength) {
  Random random(38);
  const Bytes key = random(kBlock);
  const Bytes message = random(23);
  uint8_t tag[kBlock];
  {
    const Console console;
    EXPECT_EQ(aes128_cmac_compute(key.data(), message.data(), 23, 0, tag), 2);
  }
  EXPECT_EQ(hex(tag_of(key, message)), hex(cmac(key, message)));
}

TEST_P(CmacTagContract, PrintsAndAllocatesNothingForAGoodLength) {
  Random random(39);
  const Bytes key = random(kBlock);
  const Bytes message = random(1000);
  uint8_t tag[kBlock];
  const FailingMalloc no_memory(1, 1000);
  Console console;
  for (uint8_t tag_len = 1; tag_len <= 16; tag_len++) {
    EXPECT_EQ(aes128_cmac_compute(key.data(), message.data(), 1000, tag_len, tag), 0);
  }
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(no_memory.seen(), 0);
}

// ---- Buffers --------------------------------------------------------------------------------------------------------

// Not a byte before the message or behind it is read, none of it is written; so the key; of the tag `tag_len` bytes are
// written.
TEST_P(CmacBufferContract, TouchesNothingButItsBuffers) {
  Random random(40);
  const Bytes key = random(kBlock);
  for (size_t size = 0; size <= 80; size++) {
    const Bytes message = random(size);
    const size_t tag_len = size % 16 + 1;
    const std::string expected = hex(part(cmac(key, message), 0, tag_len));
    for (const Edge edge : kEdges) {
      const Fenced fenced_key(key, edge);
      const Fenced in(message, edge);
      const Fenced tag(Bytes(tag_len, 0xEE), edge);
      ASSERT_EQ(aes128_cmac_compute(fenced_key.sealed(), in.sealed(), static_cast<uint32_t>(size),
                                    static_cast<uint8_t>(tag_len), tag.data()),
                0);
      ASSERT_EQ(hex(tag.content()), expected) << size;
    }
  }
}

// Messages of several pages.
TEST_P(CmacBufferContract, ReadsALongMessageToItsLastByte) {
  Random random(41);
  const Bytes key = random(kBlock);
  for (const size_t size : {4095u, 4096u, 4097u, 8209u}) {
    const Bytes message = random(size);
    const std::string expected = hex(cmac(key, message));
    for (const Edge edge : kEdges) {
      const Fenced in(message, edge);
      uint8_t tag[kBlock];
      EXPECT_EQ(aes128_cmac_compute(key.data(), in.sealed(), static_cast<uint32_t>(size), 16, tag), 0);
      EXPECT_EQ(hex(tag, kBlock), expected) << size;
    }
  }
}

TEST_P(CmacBufferContract, ReadsNothingOfAnEmptyMessage) {
  const Bytes key = Random(42)(kBlock);
  const Fenced fence({}, Edge::kLast);
  uint8_t tag[kBlock];
  EXPECT_EQ(aes128_cmac_compute(key.data(), fence.forbidden(), 0, 16, tag), 0);
  EXPECT_EQ(hex(tag, kBlock), hex(cmac(key, {})));
}

TEST_P(CmacBufferContract, TakesAMessageOfAnyAlignment) {
  Random random(43);
  const Bytes key = random(kBlock);
  for (const size_t size : {1u, 15u, 16u, 17u, 48u, 100u}) {
    const Bytes message = random(size);
    const std::string expected = hex(cmac(key, message));
    for (size_t at = 0; at < 64; at++) {
      alignas(64) uint8_t room[192];
      uint8_t tag[kBlock];
      std::copy(message.begin(), message.end(), room + at);
      ASSERT_EQ(aes128_cmac_compute(key.data(), room + at, static_cast<uint32_t>(size), 16, tag), 0);
      ASSERT_EQ(hex(tag, kBlock), expected) << size << ' ' << at;
    }
  }
}

TEST_P(CmacBufferContract, TakesAKeyAndATagOfAnyAlignment) {
  Random random(44);
  const Bytes key = random(kBlock);
  const Bytes message = random(40);
  const std::string expected = hex(cmac(key, message));
  for (size_t key_at = 0; key_at < 16; key_at++) {
    for (size_t tag_at = 0; tag_at < 16; tag_at++) {
      alignas(16) uint8_t keys[2 * kBlock];
      alignas(16) uint8_t tag[2 * kBlock];
      std::copy(key.begin(), key.end(), keys + key_at);
      ASSERT_EQ(aes128_cmac_compute(keys + key_at, message.data(), 40, 16, tag + tag_at), 0);
      ASSERT_EQ(hex(tag + tag_at, kBlock), expected) << key_at << ' ' << tag_at;
    }
  }
}

TEST_P(CmacBufferContract, WritesTheTagOverAnyPartOfTheMessage) {
  Random random(45);
  const Bytes key = random(kBlock);
  for (const size_t size : {16u, 33u, 48u}) {
    const Bytes message = random(size);
    const Bytes whole = cmac(key, message);
    for (const size_t tag_len : {1u, 4u, 16u}) {
      for (size_t at = 0; at + tag_len <= size; at++) {
        Bytes both = message;
        ASSERT_EQ(aes128_cmac_compute(key.data(), both.data(), static_cast<uint32_t>(size),
                                      static_cast<uint8_t>(tag_len), both.data() + at),
                  0);
        Bytes expected = message;
        std::copy_n(whole.begin(), tag_len, expected.begin() + static_cast<std::ptrdiff_t>(at));
        ASSERT_EQ(hex(both), hex(expected)) << size << ' ' << tag_len << ' ' << at;
      }
    }
  }
}

TEST_P(CmacBufferContract, WritesTheTagOverAnyPartOfTheKey) {
  Random random(46);
  const Bytes key = random(kBlock);
  const Bytes message = random(33);
  const Bytes whole = cmac(key, message);
  for (size_t tag_len = 1; tag_len <= 16; tag_len++) {
    for (size_t at = 0; at + tag_len <= kBlock; at++) {
      Bytes both = key;
      ASSERT_EQ(aes128_cmac_compute(both.data(), message.data(), 33, static_cast<uint8_t>(tag_len), both.data() + at),
                0);
      Bytes expected = key;
      std::copy_n(whole.begin(), tag_len, expected.begin() + static_cast<std::ptrdiff_t>(at));
      ASSERT_EQ(hex(both), hex(expected)) << tag_len << ' ' << at;
    }
  }
}

// ---- Subkeys --------------------------------------------------------------------------------------------------------

TEST_P(SubkeyContract, GivesThePublishedSubkeys) {
  uint8_t k1[kBlock];
  uint8_t k2[kBlock];
  generate_subkey(bytes(kKey).data(), k1, k2);
  EXPECT_EQ(hex(k1, kBlock), "fbeed618357133667c85e08f7236a8de");
  EXPECT_EQ(hex(k2, kBlock), "f7ddac306ae266ccf90bc11ee46d513b");
}

// The top bits of L and of K1 decide: each of the four cases is met.
TEST_P(SubkeyContract, GivesTheModelsSubkeysForEveryKindOfKey) {
  std::set<std::pair<bool, bool>> cases;
  for (const Bytes &key : telling_blocks(47)) {
    const Subkeys subkeys(key);
    cases.emplace(bit_of(subkeys.l, 0), bit_of(subkeys.k1, 0));
    uint8_t k1[kBlock];
    uint8_t k2[kBlock];
    generate_subkey(key.data(), k1, k2);
    ASSERT_EQ(hex(k1, kBlock), hex(subkeys.k1)) << hex(key);
    ASSERT_EQ(hex(k2, kBlock), hex(subkeys.k2)) << hex(key);
  }
  EXPECT_EQ(cases.size(), 4u);
}

TEST_P(SubkeyContract, TouchesNothingButItsBuffers) {
  const Bytes key = Random(48)(kBlock);
  const Subkeys subkeys(key);
  for (const Edge edge : kEdges) {
    const Fenced in(key, edge);
    const Fenced k1(Bytes(kBlock, 0xEE), edge);
    const Fenced k2(Bytes(kBlock, 0xEE), edge);
    generate_subkey(in.sealed(), k1.data(), k2.data());
    EXPECT_EQ(hex(k1.content()), hex(subkeys.k1));
    EXPECT_EQ(hex(k2.content()), hex(subkeys.k2));
  }
}

TEST_P(SubkeyContract, TakesBuffersOfAnyAlignment) {
  const Bytes key = Random(49)(kBlock);
  const Subkeys subkeys(key);
  const std::string expected = hex(subkeys.k1) + "a5" + hex(subkeys.k2);
  for (size_t key_at = 0; key_at < 16; key_at++) {
    for (size_t out_at = 0; out_at < 16; out_at++) {
      alignas(16) uint8_t in[2 * kBlock];
      alignas(16) uint8_t out[4 * kBlock];
      memset(out, 0xA5, sizeof out);
      std::copy(key.begin(), key.end(), in + key_at);
      generate_subkey(in + key_at, out + out_at, out + out_at + kBlock + 1);
      ASSERT_EQ(hex(out, sizeof out), hex(Bytes(out_at, 0xA5)) + expected + hex(Bytes(31 - out_at, 0xA5)))
          << key_at << ' ' << out_at;
    }
  }
}

TEST_P(SubkeyContract, LeavesTheConstantAlone) {
  Random random(50);
  for (int i = 0; i < 20; i++) {
    uint8_t k1[kBlock];
    uint8_t k2[kBlock];
    generate_subkey(random(kBlock).data(), k1, k2);
    tag_of(random(kBlock), random(20));
  }
  EXPECT_EQ(hex(const_Rb, kBlock), "00000000000000000000000000000087");
}

// Written data decides, all sixteen bytes of it, for subkeys and for tags.
TEST_P(SubkeyContract, DerivesFromWhatStandsInTheConstant) {
  Random random(51);
  std::set<std::pair<bool, bool>> cases;
  for (int i = 0; i < 40; i++) {
    const Bytes rb = random(kBlock);
    std::copy(rb.begin(), rb.end(), const_Rb);
    const Bytes key = random(kBlock);
    const Subkeys subkeys(key, rb);
    cases.emplace(bit_of(subkeys.l, 0), bit_of(subkeys.k1, 0));
    uint8_t k1[kBlock];
    uint8_t k2[kBlock];
    generate_subkey(key.data(), k1, k2);
    EXPECT_EQ(hex(k1, kBlock), hex(subkeys.k1));
    EXPECT_EQ(hex(k2, kBlock), hex(subkeys.k2));
    for (const size_t size : {0u, 16u, 21u}) {
      const Bytes message = random(size);
      EXPECT_EQ(hex(tag_of(key, message)), hex(cmac(key, message, rb))) << size;
    }
  }
  std::copy(kRb.begin(), kRb.end(), const_Rb);
  EXPECT_EQ(cases.size(), 4u);
}

TEST_P(SubkeyContract, PrintsAndAllocatesNothing) {
  const Bytes key = Random(52)(kBlock);
  uint8_t k1[kBlock];
  uint8_t k2[kBlock];
  const FailingMalloc no_memory(1, 1000);
  Console console;
  generate_subkey(key.data(), k1, k2);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(no_memory.seen(), 0);
}
