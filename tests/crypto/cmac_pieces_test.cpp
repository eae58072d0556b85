// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The pieces of a MAC that work on one block, and its constant.

#include <climits>
#include <type_traits>

#include "crypto/reference.h"

using namespace crypto_test;

static_assert(std::is_same_v<decltype(xor_128), void(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(leftshift_onebit), void(const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(padding), void(const uint8_t *, uint8_t *, int32_t)>);
static_assert(std::is_same_v<decltype(const_Rb), uint8_t[16]>);  // it can be written

namespace {

Bytes xored(const Bytes &a, const Bytes &b) {
  Bytes out(kBlock, kMark);
  xor_128(a.data(), b.data(), out.data());
  return out;
}

Bytes shifted(const Bytes &in) {
  Bytes out(kBlock, kMark);
  leftshift_onebit(in.data(), out.data());
  return out;
}

Bytes padded(const Bytes &last, int32_t length) {
  Bytes out(kBlock, kMark);
  padding(last.data(), out.data(), length);
  return out;
}

Bytes expected_padding(const Bytes &last, int32_t length) {
  Bytes out(kBlock);
  for (int32_t i = 0; i < 16; i++) {
    if (i < length) out[static_cast<size_t>(i)] = last[static_cast<size_t>(i)];
    if (i == length) out[static_cast<size_t>(i)] = 0x80;
  }
  return out;
}

}  // namespace

// ---- The constant ---------------------------------------------------------------------------------------------------

TEST(CmacConstant, IsFifteenZerosAnd87AndCanBeWritten) {
  EXPECT_EQ(Bytes(const_Rb, const_Rb + 16), from_hex("00000000000000000000000000000087"));
  for (uint8_t &byte : const_Rb) byte = static_cast<uint8_t>(byte ^ 0xff);
  EXPECT_EQ(Bytes(const_Rb, const_Rb + 16), from_hex("ffffffffffffffffffffffffffffff78"));
  for (uint8_t &byte : const_Rb) byte = static_cast<uint8_t>(byte ^ 0xff);
}

// ---- XOR ------------------------------------------------------------------------------------------------------------

TEST(Xor128, CombinesEveryPairOfBytesInEveryPlace) {
  for (unsigned a = 0; a < 256; a++) {
    for (unsigned b = 0; b < 256; b += 16) {
      Bytes left(kBlock);
      Bytes right(kBlock);
      Bytes expected(kBlock);
      for (size_t i = 0; i < kBlock; i++) {
        left[i] = static_cast<uint8_t>(a + 5 * i);
        right[i] = static_cast<uint8_t>(b + i);
        expected[i] = static_cast<uint8_t>((left[i] | right[i]) - (left[i] & right[i]));
      }
      ASSERT_EQ(xored(left, right), expected) << a << ' ' << b;
    }
  }
}

TEST(Xor128, KeepsEveryBitInItsPlace) {
  const Bytes zeros(kBlock);
  const Bytes ones(kBlock, 0xff);
  for (const Bytes &block : blocks_of_every_kind(30)) {
    EXPECT_EQ(xored(block, zeros), block);
    EXPECT_EQ(xored(zeros, block), block);
    EXPECT_EQ(xored(xored(block, ones), ones), block);
    EXPECT_EQ(xored(block, block), zeros);
  }
}

TEST(Xor128, MayBeWrittenOverEitherInputOrBoth) {
  Random random(31);
  for (int i = 0; i < 100; i++) {
    const Bytes a = random.bytes(kBlock);
    const Bytes b = random.bytes(kBlock);
    Bytes block = a;
    xor_128(block.data(), b.data(), block.data());
    EXPECT_EQ(block, exclusive_or(a, b));
    block = b;
    xor_128(a.data(), block.data(), block.data());
    EXPECT_EQ(block, exclusive_or(a, b));
    xor_128(block.data(), block.data(), block.data());
    EXPECT_EQ(block, Bytes(kBlock));
  }
}

// ---- Shift ----------------------------------------------------------------------------------------------------------

TEST(LeftShiftOneBit, MovesEachBitOneUpDropsTheTopAndTakesInAZero) {
  for (size_t bit = 0; bit < 128; bit++) {  // counted from the first byte's highest
    Bytes in(kBlock);
    Bytes expected(kBlock);
    in[bit / 8] = static_cast<uint8_t>(0x80 >> bit % 8);
    if (bit > 0) expected[(bit - 1) / 8] = static_cast<uint8_t>(0x80 >> (bit - 1) % 8);
    EXPECT_EQ(shifted(in), expected) << bit;
  }
  EXPECT_EQ(shifted(Bytes(kBlock, 0xff)), from_hex("fffffffffffffffffffffffffffffffe"));
  EXPECT_EQ(shifted(Bytes(kBlock, 0x80)), from_hex("01010101010101010101010101010100"));
  EXPECT_EQ(shifted(from_hex("80000000000000000000000000000001")), from_hex("00000000000000000000000000000002"));
}

TEST(LeftShiftOneBit, AgreesWithTheReferenceForEveryKindOfBlockAlsoInPlace) {
  for (const Bytes &block : blocks_of_every_kind(32)) {
    const Bytes expected = reference::doubled(block, Bytes(kBlock));  // no reduction
    EXPECT_EQ(shifted(block), expected);
    Bytes both = block;
    leftshift_onebit(both.data(), both.data());
    EXPECT_EQ(both, expected);
  }
}

// RFC 4493, section 4: L of the key there is 7df7...; its top bit is 0, so K1 is only the shift.
TEST(LeftShiftOneBit, MakesK1OfTheStandardInPlace) {
  Bytes block = from_hex("7df76b0c1ab899b33e42f047b91b546f");
  leftshift_onebit(block.data(), block.data());
  EXPECT_EQ(block, from_hex("fbeed618357133667c85e08f7236a8de"));
  leftshift_onebit(block.data(), block.data());
  EXPECT_EQ(block, from_hex("f7ddac306ae266ccf90bc11ee46d51bc"));  // K2 before its reduction by 87
}

// ---- Padding --------------------------------------------------------------------------------------------------------

TEST(CmacPadding, PutsABitAndZerosAfterTheBytes) {
  const Bytes last = counted(kBlock, 0xf0);
  EXPECT_EQ(padded(last, 0), from_hex("80000000000000000000000000000000"));
  EXPECT_EQ(padded(last, 1), from_hex("f0800000000000000000000000000000"));
  EXPECT_EQ(padded(last, 7), from_hex("f0f1f2f3f4f5f6800000000000000000"));
  EXPECT_EQ(padded(last, 8), from_hex("f0f1f2f3f4f5f6f78000000000000000"));
  EXPECT_EQ(padded(last, 15), from_hex("f0f1f2f3f4f5f6f7f8f9fafbfcfdfe80"));
}

TEST(CmacPadding, CopiesAWholeBlockFromSixteenOn) {
  const Bytes last = Random(33).bytes(kBlock);
  for (const int32_t length : {16, 17, 31, 32, 100, 255, 256, 272, 65536, 65551, INT_MAX}) {
    EXPECT_EQ(padded(last, length), last) << length;
  }
}

TEST(CmacPadding, GivesZerosForANegativeLength) {
  const Bytes last = Random(34).bytes(kBlock);
  for (const int32_t length : {-1, -2, -15, -16, -255, -256, -65536, INT_MIN}) {
    EXPECT_EQ(padded(last, length), Bytes(kBlock)) << length;
  }
}

// The bytes of the block after the length cannot be read; sixteen bytes are written.
TEST(CmacPadding, ReadsNoMoreThanTheLength) {
  Random random(35);
  for (int32_t length = -2; length <= 18; length++) {
    const Bytes last = random.bytes(kBlock);
    for (const Guarded::End end : kEnds) {
      const Sealed in(part(last, 0, static_cast<size_t>(std::clamp(length, 0, 16))), end);
      const Guarded out(Bytes(kBlock, kMark), end);
      padding(in.bytes(), out.bytes(), length);
      EXPECT_EQ(content_of(out), expected_padding(last, length)) << length;
    }
  }
}

TEST(CmacPadding, MayBeMadeInPlace) {
  Random random(36);
  for (int32_t length = -1; length <= 17; length++) {
    Bytes block = random.bytes(kBlock);
    const Bytes expected = expected_padding(block, length);
    padding(block.data(), block.data(), length);
    EXPECT_EQ(block, expected) << length;
  }
}
