// AES-CMAC: the published examples, every kind of last block, truncation, and the exported steps.

#include <climits>
#include <cstring>

#include "crypto/protected_bytes.h"
#include "crypto/reference.h"
#include "support/console.h"
#include "tarn/crypto.h"

using namespace crypto_test;
using tarn_test::Console;

namespace {

class Cmac : public OnEachPath {};
class CmacSubkeys : public OnEachPath {};
ON_EACH_PATH(Cmac);
ON_EACH_PATH(CmacSubkeys);

// The key and the message of RFC 4493, section 4, and of SP 800-38B, appendix D.1. Their examples are beginnings of it.
const char kKey[] = "2b7e151628aed2a6abf7158809cf4f3c";
const char kMessage[] =
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";

struct Example {
  const char *source;
  uint32_t msg_len;
  const char *tag;
};
constexpr Example kExamples[] = {
    {"RFC 4493, example 1", 0, "bb1d6929e95937287fa37d129b756746"},
    {"RFC 4493, example 2", 16, "070a16b46b4d4144f79bdd9dd04a287c"},
    {"RFC 4493, example 3", 40, "dfa66747de9ae63030ca32611497c827"},
    {"RFC 4493, example 4", 64, "51f0bebf7e3b9d92fc49741779363cfe"},
    {"SP 800-38B (2016), AES-128, 20 bytes", 20, "7d85449ea6ea19c823a7bf78837dfade"},
};

Bytes tag_of(const Bytes &key, const uint8_t *msg, uint32_t msg_len, uint8_t tag_len = 16) {
  Bytes tag(16, 0xA5);
  EXPECT_EQ(aes128_cmac_compute(key.data(), msg, msg_len, tag_len, tag.data()), 0);
  return tag;
}

struct Subkeys {
  Bytes k1 = Bytes(16, 0xA5), k2 = Bytes(16, 0xA5);
};
Subkeys subkeys_of(const Bytes &key) {
  Subkeys subkeys;
  generate_subkey(key.data(), subkeys.k1.data(), subkeys.k2.data());
  return subkeys;
}

Bytes reference_l(const Bytes &key) { return reference::encrypt(reference::expand_key(key), Bytes(16)); }

}  // namespace

TEST(CmacReference, HasTheExamplesOfTheStandards) {
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    Bytes msg = from_hex(kMessage);
    msg.resize(example.msg_len);
    EXPECT_EQ(reference::cmac(from_hex(kKey), msg), from_hex(example.tag));
  }
}

TEST_P(Cmac, HasTheExamplesOfTheStandards) {
  const Bytes msg = from_hex(kMessage);
  for (const Example &example : kExamples) {
    SCOPED_TRACE(example.source);
    EXPECT_EQ(tag_of(from_hex(kKey), msg.data(), example.msg_len), from_hex(example.tag));
  }
}

TEST_P(Cmac, TruncatesTheExamplesToTheirFirstBytes) {
  const Bytes msg = from_hex(kMessage);
  for (const Example &example : kExamples) {
    for (uint8_t tag_len = 1; tag_len <= 16; tag_len++) {
      SCOPED_TRACE(std::string(example.source) + ", tag of " + std::to_string(tag_len));
      Bytes expected = from_hex(example.tag);
      expected.resize(tag_len);
      expected.resize(16, 0xA5);  // what stands behind the tag stays
      EXPECT_EQ(tag_of(from_hex(kKey), msg.data(), example.msg_len, tag_len), expected);
    }
  }
}

TEST_P(Cmac, AgreesWithTheReferenceForLengthsAroundManyBlocks) {
  Random random(10);
  for (uint32_t len = 0; len <= 100; len++) {
    SCOPED_TRACE(len);
    const Bytes key = random.bytes(16);
    const Bytes msg = random.bytes(len);
    ASSERT_EQ(tag_of(key, msg.data(), len), reference::cmac(key, msg));
  }
}

TEST_P(Cmac, TakesACompleteLastBlockWithK1AndAnIncompleteOneWithK2) {
  const Bytes key = from_hex(kKey);
  const Bytes w = reference::expand_key(key);
  const Bytes msg = from_hex(kMessage);
  // The subkeys of RFC 4493, section 4.
  const Bytes k1 = from_hex("fbeed618357133667c85e08f7236a8de");
  const Bytes k2 = from_hex("f7ddac306ae266ccf90bc11ee46d513b");
  const Bytes block(msg.begin(), msg.begin() + 16);

  EXPECT_EQ(tag_of(key, msg.data(), 16), reference::encrypt(w, reference::exclusive_or(block, k1)));

  Bytes of_15(msg.begin(), msg.begin() + 15);
  of_15.push_back(0x80);
  EXPECT_EQ(tag_of(key, msg.data(), 15), reference::encrypt(w, reference::exclusive_or(of_15, k2)));

  Bytes last_of_17{msg[16], 0x80};
  last_of_17.resize(16);
  const Bytes x = reference::encrypt(w, block);
  EXPECT_EQ(tag_of(key, msg.data(), 17),
            reference::encrypt(w, reference::exclusive_or(reference::exclusive_or(last_of_17, k2), x)));
}

TEST_P(Cmac, ReadsNothingBehindTheMessageAndWritesNothingBehindTheTag) {
  const Bytes key = from_hex(kKey);
  const Bytes whole = from_hex(kMessage);
  ProtectedBytes room_for_msg(64);
  ProtectedBytes room_for_tag(16);
  for (uint32_t len = 0; len <= 64; len++) {
    SCOPED_TRACE(len);
    const Bytes msg(whole.begin(), whole.begin() + len);
    Bytes expected = reference::cmac(key, msg);
    const auto tag_len = static_cast<uint8_t>(len % 16 + 1);
    expected.resize(tag_len);
    uint8_t *const tag = room_for_tag.last(tag_len);
    ASSERT_EQ(aes128_cmac_compute(key.data(), room_for_msg.put(msg), len, tag_len, tag), 0);
    ASSERT_EQ(Bytes(tag, tag + tag_len), expected);
  }
}

TEST_P(Cmac, MayPutTheTagOverTheMessageOrTheKey) {
  const Bytes tag = from_hex(kExamples[2].tag);
  Bytes msg = from_hex(kMessage);
  Bytes key = from_hex(kKey);
  EXPECT_EQ(aes128_cmac_compute(key.data(), msg.data(), 40, 16, msg.data() + 20), 0);
  EXPECT_EQ(Bytes(msg.begin() + 20, msg.begin() + 36), tag);
  msg = from_hex(kMessage);
  EXPECT_EQ(aes128_cmac_compute(key.data(), msg.data(), 40, 16, key.data()), 0);
  EXPECT_EQ(key, tag);
}

TEST_P(Cmac, TakesAMessageAndAKeyAtAnyAddress) {
  const Bytes tag = from_hex(kExamples[3].tag);
  for (size_t offset = 0; offset < 16; offset++) {
    SCOPED_TRACE(offset);
    Bytes key(offset);
    Bytes msg(offset);
    for (const uint8_t byte : from_hex(kKey)) key.push_back(byte);
    for (const uint8_t byte : from_hex(kMessage)) msg.push_back(byte);
    Bytes out(offset + 16);
    EXPECT_EQ(aes128_cmac_compute(key.data() + offset, msg.data() + offset, 64, 16, out.data() + offset), 0);
    EXPECT_EQ(Bytes(out.begin() + static_cast<std::ptrdiff_t>(offset), out.end()), tag);
  }
}

// 0xFFFFFFF1 bytes and 15 are 0 in 32 bits: no block. Nothing of the message is read.
TEST_P(Cmac, TakesAMessageWhoseBlockCountWrapsForTheEmptyOne) {
  ProtectedBytes nothing(1);
  for (const uint32_t len : {0xFFFFFFF1u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(len);
    EXPECT_EQ(tag_of(from_hex(kKey), nothing.last(0), len), from_hex(kExamples[0].tag));
  }
}

TEST(CmacTagLength, OfNoneOrTooManyBytesIsRefused) {
  const Bytes key = from_hex(kKey);
  for (int tag_len = 0; tag_len <= 255; tag_len++) {
    if (tag_len >= 1 && tag_len <= 16) continue;
    SCOPED_TRACE(tag_len);
    Bytes tag(256, 0xA5);
    Console console;
    const mu_status_t status =
        aes128_cmac_compute(key.data(), key.data(), 16, static_cast<uint8_t>(tag_len), tag.data());
    const std::string text = console.take();
    EXPECT_EQ(status, 2);
    EXPECT_EQ(text, "parameter error!!val is :" + std::to_string(tag_len) + "\n");
    EXPECT_EQ(tag, Bytes(256, 0xA5));
  }
}

TEST(CmacTagLength, OfOneToSixteenBytesIsTakenInSilence) {
  const Bytes key = from_hex(kKey);
  for (uint8_t tag_len = 1; tag_len <= 16; tag_len++) {
    SCOPED_TRACE(int{tag_len});
    Bytes tag(16, 0xA5);
    Console console;
    const mu_status_t status = aes128_cmac_compute(key.data(), key.data(), 16, tag_len, tag.data());
    const std::string text = console.take();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text, "");
  }
}

// RFC 4493, section 4.
TEST_P(CmacSubkeys, AreThoseOfTheStandard) {
  const Subkeys subkeys = subkeys_of(from_hex(kKey));
  EXPECT_EQ(subkeys.k1, from_hex("fbeed618357133667c85e08f7236a8de"));
  EXPECT_EQ(subkeys.k2, from_hex("f7ddac306ae266ccf90bc11ee46d513b"));
}

// Whether the top bit of L and that of K1 are set: four cases.
TEST_P(CmacSubkeys, AreReducedAsTheTopBitsSay) {
  Random random(11);
  std::array<int, 4> seen{};
  for (int i = 0; i < 64; i++) {
    SCOPED_TRACE(i);
    const Bytes key = random.bytes(16);
    const Bytes l = reference_l(key);
    const Bytes k1 = reference::doubled(l, reference::standard_rb());
    const size_t top_bits = (l[0] >> 7) * size_t{2} + (k1[0] >> 7);
    seen[top_bits]++;
    const Subkeys subkeys = subkeys_of(key);
    ASSERT_EQ(subkeys.k1, k1);
    ASSERT_EQ(subkeys.k2, reference::doubled(k1, reference::standard_rb()));
  }
  for (const int count : seen) EXPECT_GT(count, 0);
}

TEST_P(CmacSubkeys, AreMadeFromConstRb) {
  Random random(12);
  const Bytes rb = random.bytes(16);
  memcpy(const_Rb, rb.data(), 16);
  for (int i = 0; i < 16; i++) {
    SCOPED_TRACE(i);
    const Bytes key = random.bytes(16);
    const Bytes k1 = reference::doubled(reference_l(key), rb);
    const Subkeys subkeys = subkeys_of(key);
    EXPECT_EQ(subkeys.k1, k1);
    EXPECT_EQ(subkeys.k2, reference::doubled(k1, rb));
    EXPECT_EQ(tag_of(key, rb.data(), 16), reference::cmac(key, rb, rb));
    EXPECT_EQ(tag_of(key, rb.data(), 15), reference::cmac(key, Bytes(rb.begin(), rb.end() - 1), rb));
  }
  EXPECT_EQ(Bytes(const_Rb, const_Rb + 16), rb);  // it is only read
}

TEST(CmacConstant, IsFifteenZerosAnd87) { EXPECT_EQ(Bytes(const_Rb, const_Rb + 16), reference::standard_rb()); }

TEST(CmacPadding, Is80AndZerosBehindTheMessage) {
  ProtectedBytes room(16);
  Random random(13);
  for (int32_t length = 0; length < 16; length++) {
    SCOPED_TRACE(length);
    const Bytes bytes = random.bytes(static_cast<size_t>(length));
    Bytes expected = bytes;
    expected.push_back(0x80);
    expected.resize(16);
    Bytes pad(18, 0xA5);
    padding(room.put(bytes), pad.data(), length);  // reads no more than `length` bytes
    EXPECT_EQ(Bytes(pad.begin(), pad.begin() + 16), expected);
    EXPECT_EQ(pad[16], 0xA5);
  }
}

TEST(CmacPadding, OfACompleteBlockOrMoreIsThatBlock) {
  ProtectedBytes room(16);
  Random random(14);
  for (const int32_t length : {16, 17, 100, INT_MAX}) {
    SCOPED_TRACE(length);
    const Bytes block = random.bytes(16);
    Bytes pad(16, 0xA5);
    padding(room.put(block), pad.data(), length);
    EXPECT_EQ(pad, block);
  }
}

TEST(CmacPadding, OfANegativeLengthIsZeros) {
  ProtectedBytes nothing(1);
  for (const int32_t length : {-1, -16, INT_MIN}) {
    SCOPED_TRACE(length);
    Bytes pad(16, 0xA5);
    padding(nothing.last(0), pad.data(), length);
    EXPECT_EQ(pad, Bytes(16));
  }
}

TEST(CmacPadding, MayBeMadeInPlace) {
  Bytes block = from_hex("00112233445566778899aabbccddeeff");
  padding(block.data(), block.data(), 5);
  EXPECT_EQ(block, from_hex("00112233448000000000000000000000"));
}

TEST(Xor128, IsThatOfEachByte) {
  Random random(15);
  for (int i = 0; i < 100; i++) {
    SCOPED_TRACE(i);
    const Bytes a = random.bytes(16);
    const Bytes b = random.bytes(16);
    const Bytes expected = reference::exclusive_or(a, b);
    Bytes out(18, 0xA5);
    xor_128(a.data(), b.data(), out.data() + 1);
    EXPECT_EQ(Bytes(out.begin() + 1, out.end() - 1), expected);
    EXPECT_EQ(out.front(), 0xA5);
    EXPECT_EQ(out.back(), 0xA5);
    Bytes in_a = a;
    xor_128(in_a.data(), b.data(), in_a.data());
    EXPECT_EQ(in_a, expected);
    Bytes in_b = b;
    xor_128(a.data(), in_b.data(), in_b.data());
    EXPECT_EQ(in_b, expected);
    xor_128(in_a.data(), in_a.data(), in_a.data());
    EXPECT_EQ(in_a, Bytes(16));
  }
}

TEST(LeftShiftOneBit, MovesEachBitOneUpAndDropsTheTop) {
  for (size_t bit = 0; bit < 128; bit++) {  // counted from the last byte's lowest
    SCOPED_TRACE(bit);
    Bytes in(16);
    Bytes expected(16);
    in[15 - bit / 8] = static_cast<uint8_t>(1 << (bit % 8));
    if (bit != 127) expected[15 - (bit + 1) / 8] = static_cast<uint8_t>(1 << ((bit + 1) % 8));
    Bytes out(18, 0xA5);
    leftshift_onebit(in.data(), out.data() + 1);
    EXPECT_EQ(Bytes(out.begin() + 1, out.end() - 1), expected);
    EXPECT_EQ(out.front(), 0xA5);
    EXPECT_EQ(out.back(), 0xA5);
  }
}

// RFC 4493, section 4: L of the key there is 7df7...; its top bit is 0, so K1 is the shift alone.
TEST(LeftShiftOneBit, MakesK1OfTheStandardInPlace) {
  Bytes block = from_hex("7df76b0c1ab899b33e42f047b91b546f");
  leftshift_onebit(block.data(), block.data());
  EXPECT_EQ(block, from_hex("fbeed618357133667c85e08f7236a8de"));
  leftshift_onebit(block.data(), block.data());
  EXPECT_EQ(block, from_hex("f7ddac306ae266ccf90bc11ee46d51bc"));  // K2 before its reduction by 87
}
