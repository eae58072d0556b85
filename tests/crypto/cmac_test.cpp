// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// AES-CMAC: the published examples, every kind of last block, the length of the tag, and the subkeys.

#include <array>
#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <type_traits>
#include <utility>

#include "crypto/reference.h"
#include "support/console.h"
#include "support/libc.h"

using namespace crypto_test;
using namespace tarn_test;

static_assert(AES128_CMAC_MAX_TAG == 16);
static_assert(std::is_same_v<decltype(aes128_cmac_compute),
                             mu_status_t(const uint8_t *, const uint8_t *, uint32_t, uint8_t, uint8_t *)>);
static_assert(std::is_same_v<decltype(generate_subkey), void(const uint8_t *, uint8_t *, uint8_t *)>);

namespace {

class Cmac : public OnEachPath {};
class CmacTagLength : public OnEachPath {};
class CmacSubkeys : public OnEachPath {};
ON_EACH_PATH(Cmac);
ON_EACH_PATH(CmacTagLength);
ON_EACH_PATH(CmacSubkeys);

// The key and the message of RFC 4493, section 4, and of SP 800-38B, appendix D.1. Their examples are prefixes of it.
constexpr char kKey[] = "2b7e151628aed2a6abf7158809cf4f3c";
constexpr char kMessage[] =
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
constexpr struct {
  const char *source;
  uint32_t msg_len;
  const char *tag;
} kExamples[] = {
    {"RFC 4493, example 1", 0, "bb1d6929e95937287fa37d129b756746"},
    {"RFC 4493, example 2", 16, "070a16b46b4d4144f79bdd9dd04a287c"},
    {"RFC 4493, example 3", 40, "dfa66747de9ae63030ca32611497c827"},
    {"RFC 4493, example 4", 64, "51f0bebf7e3b9d92fc49741779363cfe"},
    {"SP 800-38B (2016), AES-128, 20 bytes", 20, "7d85449ea6ea19c823a7bf78837dfade"},
};

// RFC 4493, section 4.
constexpr char kL[] = "7df76b0c1ab899b33e42f047b91b546f";
constexpr char kK1[] = "fbeed618357133667c85e08f7236a8de";
constexpr char kK2[] = "f7ddac306ae266ccf90bc11ee46d513b";

// The whole tag of the library.
Bytes tag_of(const Bytes &key, const Bytes &msg) {
  static const uint8_t nothing = 0;  // the data of an empty vector may be null
  Bytes tag(kBlock, kMark);
  const uint8_t *const data = msg.empty() ? &nothing : msg.data();
  EXPECT_EQ(aes128_cmac_compute(key.data(), data, static_cast<uint32_t>(msg.size()), 16, tag.data()), 0);
  return tag;
}

void expect_subkeys(const Bytes &key, const reference::Subkeys &expected) {
  Bytes k1(kBlock, kMark);
  Bytes k2(kBlock, kMark);
  generate_subkey(key.data(), k1.data(), k2.data());
  ASSERT_EQ(k1, expected.k1);
  ASSERT_EQ(k2, expected.k2);
}

}  // namespace

TEST(CmacReference, HasTheExamplesOfTheStandards) {
  const reference::Subkeys subkeys(from_hex(kKey));
  EXPECT_EQ(subkeys.l, from_hex(kL));
  EXPECT_EQ(subkeys.k1, from_hex(kK1));
  EXPECT_EQ(subkeys.k2, from_hex(kK2));
  for (const auto &example : kExamples) {
    SCOPED_TRACE(example.source);
    EXPECT_EQ(reference::cmac(from_hex(kKey), part(from_hex(kMessage), 0, example.msg_len)), from_hex(example.tag));
  }
}

// ---- Messages -------------------------------------------------------------------------------------------------------

TEST_P(Cmac, HasTheExamplesOfTheStandards) {
  for (const auto &example : kExamples) {
    SCOPED_TRACE(example.source);
    EXPECT_EQ(tag_of(from_hex(kKey), part(from_hex(kMessage), 0, example.msg_len)), from_hex(example.tag));
  }
}

TEST_P(Cmac, AgreesWithTheReferenceForEveryLengthTo300AndAroundMultiplesOfSixteen) {
  Random random(10);
  std::vector<size_t> lengths;
  for (size_t length = 0; length <= 300; length++) lengths.push_back(length);
  for (const size_t multiple : {512u, 1024u, 2048u, 4096u}) {
    for (const size_t length : {multiple - 1u, multiple, multiple + 1u}) lengths.push_back(length);
  }
  for (const size_t length : lengths) {
    const Bytes key = random.bytes(kBlock);
    const Bytes msg = random.bytes(length);
    ASSERT_EQ(tag_of(key, msg), reference::cmac(key, msg)) << length;
  }
}

// Lengths, and counts of blocks, above 16 bits. The reference's cipher would take long. This uses the library's, which
// the tests of blocks compare with the reference's.
TEST_P(Cmac, AgreesWithTheReferenceForALongMessage) {
  const auto library = [](const Bytes &round_keys, const Bytes &in) {
    Bytes out(kBlock);
    aes_encrypt_128(round_keys.data(), in.data(), out.data());
    return out;
  };
  Random random(11);
  const Bytes key = random.bytes(kBlock);
  const Bytes msg = random.bytes(1048591);
  for (const size_t length : {65536u, 65551u, 1048591u}) {
    const Bytes beginning = part(msg, 0, length);
    EXPECT_EQ(tag_of(key, beginning), reference::cmac(key, beginning, reference::standard_rb(), library)) << length;
  }
}

TEST_P(Cmac, AgreesWithTheReferenceForEveryKindOfKeyAndPlainMessages) {
  Random random(12);
  size_t length = 0;
  for (const Bytes &key : blocks_of_every_kind(13)) {
    const Bytes msg = random.bytes(length++ % 34);
    ASSERT_EQ(tag_of(key, msg), reference::cmac(key, msg)) << msg.size();
  }
  const Bytes key = random.bytes(kBlock);
  for (const unsigned value : {0x00u, 0x80u, 0xffu}) {
    for (length = 0; length <= 49; length++) {
      const Bytes msg(length, static_cast<uint8_t>(value));
      ASSERT_EQ(tag_of(key, msg), reference::cmac(key, msg)) << value << ' ' << length;
    }
  }
}

TEST_P(Cmac, TakesACompleteLastBlockWithK1AndAnIncompleteOneWithK2) {
  const Bytes key = from_hex(kKey);
  const Bytes w = reference::expand_key(key);
  const Bytes msg = from_hex(kMessage);
  const Bytes first_block = part(msg, 0, 16);
  const auto padded = [&msg](size_t at, size_t size) {
    Bytes block = part(msg, at, size);
    block.push_back(0x80);
    block.resize(kBlock);
    return exclusive_or(block, from_hex(kK2));
  };
  EXPECT_EQ(tag_of(key, {}), reference::encrypt(w, padded(0, 0)));
  EXPECT_EQ(tag_of(key, part(msg, 0, 15)), reference::encrypt(w, padded(0, 15)));
  EXPECT_EQ(tag_of(key, first_block), reference::encrypt(w, exclusive_or(first_block, from_hex(kK1))));
  const Bytes x = reference::encrypt(w, first_block);
  EXPECT_EQ(tag_of(key, part(msg, 0, 17)), reference::encrypt(w, exclusive_or(x, padded(16, 1))));
}

// Every bit counts, in a message with a padded last block and in one without.
TEST_P(Cmac, DependsOnEveryBitAndOnTheLength) {
  const Bytes key = Random(14).bytes(kBlock);
  std::set<Bytes> tags;
  size_t messages = 0;
  for (const size_t length : {31u, 32u, 33u}) {
    for (size_t bit = 0; bit <= 8 * length; bit++, messages++) {  // the last one: no bit is set
      Bytes msg(length);
      if (bit < 8 * length) msg[bit / 8] = static_cast<uint8_t>(0x80 >> bit % 8);
      tags.insert(tag_of(key, msg));
    }
  }
  EXPECT_EQ(tags.size(), messages);
}

// A message and the same message with its padding written out.
TEST_P(Cmac, DistinguishesPaddingFromAMessageThatEndsLikeIt) {
  Random random(15);
  const Bytes key = random.bytes(kBlock);
  for (size_t length = 0; length < 16; length++) {
    const Bytes msg = random.bytes(length);
    Bytes padded = msg;
    padded.push_back(0x80);
    padded.resize(kBlock);
    EXPECT_NE(tag_of(key, msg), tag_of(key, padded)) << length;
  }
}

// RFC 4493 step by step through the exported pieces: the result equals that of the whole function.
TEST_P(Cmac, IsWhatItsPiecesMake) {
  Random random(16);
  for (size_t length = 0; length <= 50; length++) {
    const Bytes key = random.bytes(kBlock);
    Bytes msg = random.bytes(length);
    msg.reserve(1);  // not null
    uint8_t k1[kBlock];
    uint8_t k2[kBlock];
    generate_subkey(key.data(), k1, k2);
    const size_t n = length == 0 ? 1 : (length + 15) / 16;
    const size_t rest = length - (n - 1) * 16;
    uint8_t last[kBlock];
    if (rest == 16) {
      xor_128(msg.data() + (n - 1) * 16, k1, last);
    } else {
      padding(msg.data() + (n - 1) * 16, last, static_cast<int32_t>(rest));
      xor_128(last, k2, last);
    }
    Bytes x(kBlock);
    for (size_t i = 0; i < n; i++) {
      xor_128(x.data(), i + 1 < n ? msg.data() + i * 16 : last, x.data());
      aes128_ecb_encrypt(key.data(), x.data(), x.data());
    }
    ASSERT_EQ(tag_of(key, msg), x) << length;
  }
}

// 0xFFFFFFF1 bytes and 15 are 0 in 32 bits: no block. Nothing of the message is read.
TEST_P(Cmac, TakesAMessageWhoseBlockCountWrapsForTheEmptyOne) {
  const Guarded nothing(0);
  for (uint32_t length = 0xfffffff1; length != 0; length++) {
    Bytes tag(kBlock);
    EXPECT_EQ(aes128_cmac_compute(from_hex(kKey).data(), nothing.bytes(), length, 16, tag.data()), 0);
    EXPECT_EQ(tag, from_hex(kExamples[0].tag)) << length;
  }
}

TEST_P(Cmac, KeepsNothingFromOneMessageToTheNext) {
  Random random(17);
  const Bytes keys[] = {random.bytes(kBlock), random.bytes(kBlock)};
  const Bytes messages[] = {random.bytes(40), random.bytes(16), {}};
  for (size_t i = 0; i < 12; i++) {
    EXPECT_EQ(tag_of(keys[i % 2], messages[i % 3]), reference::cmac(keys[i % 2], messages[i % 3])) << i;
  }
}

// Their first calls are the first of the process: many threads choose the path at once.
TEST_P(Cmac, ServesManyThreadsAtOnce) {
  constexpr size_t kThreads = 8;
  Random random(18);
  std::vector<std::pair<Bytes, Bytes>> work;  // key, message
  std::vector<Bytes> expected;
  for (size_t i = 0; i < kThreads; i++) {
    work.emplace_back(random.bytes(kBlock), random.bytes(13 * i));
    expected.push_back(reference::cmac(work[i].first, work[i].second));
  }
  std::atomic<size_t> ready{0};
  std::array<int, kThreads> right{};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; i++) {
    threads.emplace_back([&, i] {
      ready++;
      while (ready < kThreads) std::this_thread::yield();
      for (int round = 0; round < 100; round++) right[i] += tag_of(work[i].first, work[i].second) == expected[i];
    });
  }
  for (std::thread &thread : threads) thread.join();
  for (const int times : right) EXPECT_EQ(times, 100);
}

TEST_P(Cmac, MayPutTheTagOverAnyPartOfTheMessageOrOfTheKey) {
  Random random(19);
  const Bytes key = random.bytes(kBlock);
  for (const size_t length : {16u, 33u, 48u}) {
    const Bytes msg = random.bytes(length);
    const Bytes tag = reference::cmac(key, msg);
    for (size_t tag_len = 1; tag_len <= 16; tag_len++) {
      for (const bool over_key : {false, true}) {
        const Bytes &before = over_key ? key : msg;
        for (size_t at = 0; at + tag_len <= before.size(); at++) {
          Bytes both = before;
          ASSERT_EQ(aes128_cmac_compute(over_key ? both.data() : key.data(), over_key ? msg.data() : both.data(),
                                        static_cast<uint32_t>(length), static_cast<uint8_t>(tag_len), both.data() + at),
                    0);
          Bytes expected = before;
          std::copy_n(tag.begin(), tag_len, expected.begin() + static_cast<std::ptrdiff_t>(at));
          ASSERT_EQ(both, expected) << length << ' ' << tag_len << ' ' << at;
        }
      }
    }
  }
}

// ---- The length of the tag ------------------------------------------------------------------------------------------

TEST_P(CmacTagLength, OfOneToSixteenBytesGivesTheFirstBytesInSilence) {
  Random random(20);
  std::vector<std::pair<Bytes, Bytes>> rows;  // message, tag
  for (const auto &example : kExamples) {
    rows.emplace_back(part(from_hex(kMessage), 0, example.msg_len), from_hex(example.tag));
  }
  for (const size_t length : {5u, 31u, 32u}) {
    const Bytes msg = random.bytes(length);
    rows.emplace_back(msg, reference::cmac(from_hex(kKey), msg));
  }
  const FailingMalloc no_memory(1, 1000);
  for (auto &[msg, whole] : rows) {
    msg.reserve(1);  // not null
    for (uint8_t tag_len = 1; tag_len <= 16; tag_len++) {
      SCOPED_TRACE(testing::Message() << msg.size() << " bytes, tag of " << int{tag_len});
      Bytes tag(32, kMark);
      Bytes expected = tag;
      std::copy_n(whole.begin(), tag_len, expected.begin() + 8);  // the bytes around the tag do not change
      Console console;
      const mu_status_t status = aes128_cmac_compute(from_hex(kKey).data(), msg.data(),
                                                     static_cast<uint32_t>(msg.size()), tag_len, tag.data() + 8);
      const std::string text = console.take();
      EXPECT_EQ(status, 0);
      EXPECT_EQ(text, "");
      EXPECT_EQ(tag, expected);
    }
  }
  EXPECT_EQ(no_memory.seen(), 0);
}

TEST_P(CmacTagLength, OfNoneOrTooManyBytesIsRefusedAndNothingIsTouched) {
  const Guarded nothing(0);
  for (unsigned tag_len = 0; tag_len <= 255; tag_len++) {
    if (tag_len >= 1 && tag_len <= 16) continue;
    Console console;
    const mu_status_t status =
        aes128_cmac_compute(nothing.bytes(), nothing.bytes(), 20, static_cast<uint8_t>(tag_len), nothing.bytes());
    const std::string text = console.take();
    EXPECT_EQ(status, 2) << tag_len;
    EXPECT_EQ(text, "parameter error!!val is :" + std::to_string(tag_len) + "\n");
  }
  EXPECT_EQ(tag_of(from_hex(kKey), part(from_hex(kMessage), 0, 40)), from_hex(kExamples[2].tag)) << "works afterwards";
}

// ---- Subkeys --------------------------------------------------------------------------------------------------------

TEST_P(CmacSubkeys, AreThoseOfTheStandard) {
  Bytes k1(kBlock, kMark);
  Bytes k2(kBlock, kMark);
  generate_subkey(from_hex(kKey).data(), k1.data(), k2.data());
  EXPECT_EQ(k1, from_hex(kK1));
  EXPECT_EQ(k2, from_hex(kK2));
}

// Whether the top bit of L and that of K1 are set: four cases.
TEST_P(CmacSubkeys, AreReducedAsTheTopBitsSay) {
  std::set<int> cases;
  for (const Bytes &key : blocks_of_every_kind(21)) {
    const reference::Subkeys expected(key);
    cases.insert(expected.top_bits());
    expect_subkeys(key, expected);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(cases.size(), 4u);
}

// All sixteen bytes of the constant affect subkeys and tags. They are only read.
TEST_P(CmacSubkeys, AreMadeFromConstRb) {
  Random random(22);
  std::set<int> cases;
  for (int i = 0; i < 40; i++) {
    SCOPED_TRACE(i);
    const Bytes rb = i == 0 ? reference::standard_rb() : random.bytes(kBlock);
    std::copy(rb.begin(), rb.end(), const_Rb);
    const Bytes key = random.bytes(kBlock);
    const reference::Subkeys expected(key, rb);
    cases.insert(expected.top_bits());
    expect_subkeys(key, expected);
    for (const size_t length : {0u, 15u, 16u, 21u}) {
      const Bytes msg = random.bytes(length);
      EXPECT_EQ(tag_of(key, msg), reference::cmac(key, msg, rb)) << length;
    }
    EXPECT_EQ(Bytes(const_Rb, const_Rb + kBlock), rb);
  }
  EXPECT_EQ(cases.size(), 4u);
}
