// The pieces of a MAC that work on one block, and its constant.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <type_traits>

#include "crypto/contract_model.h"
#include "support/console.h"
#include "tarn/crypto.h"

using namespace crypto_contract;
using namespace tarn_test;

static_assert(std::is_same_v<decltype(xor_128), void(const uint8_t *, const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(leftshift_onebit), void(const uint8_t *, uint8_t *)>);
static_assert(std::is_same_v<decltype(padding), void(const uint8_t *, uint8_t *, int32_t)>);

namespace {

Bytes exclusive_or(const Bytes &a, const Bytes &b) {
  Bytes out(kBlock, 0xEE);
  xor_128(a.data(), b.data(), out.data());
  return out;
}

Bytes shift(const Bytes &in) {
  Bytes out(kBlock, 0xEE);
  leftshift_onebit(in.data(), out.data());
  return out;
}

Bytes pad(const Bytes &last, int32_t length) {
  Bytes out(kBlock, 0xEE);
  padding(last.data(), out.data(), length);
  return out;
}

// The three cases of a padded byte, for any length.
Bytes padded(const Bytes &last, int32_t length) {
  Bytes out(kBlock);
  for (int32_t j = 0; j < 16; j++) {
    if (j < length) {
      out[static_cast<size_t>(j)] = last[static_cast<size_t>(j)];
    } else if (j == length) {
      out[static_cast<size_t>(j)] = 0x80;
    }
  }
  return out;
}

}  // namespace

// ---- The constant ---------------------------------------------------------------------------------------------------

TEST(RbContract, IsFifteenZerosAnd0x87) { EXPECT_EQ(hex(const_Rb, sizeof const_Rb), hex(kRb)); }

TEST(RbContract, CanBeWritten) {
  for (uint8_t &byte : const_Rb) byte = static_cast<uint8_t>(byte ^ 0xFF);
  EXPECT_EQ(hex(const_Rb, sizeof const_Rb), "ffffffffffffffffffffffffffffff78");
  std::copy(kRb.begin(), kRb.end(), const_Rb);
}

// ---- XOR ------------------------------------------------------------------------------------------------------------

TEST(XorContract, CombinesEveryPairOfBytesInEveryPlace) {
  for (unsigned a = 0; a < 256; a++) {
    for (unsigned b = 0; b < 256; b += 16) {
      uint8_t left[kBlock];
      uint8_t right[kBlock];
      uint8_t out[kBlock];
      uint8_t expected[kBlock];
      for (unsigned i = 0; i < kBlock; i++) {
        left[i] = static_cast<uint8_t>(a + 5 * i);
        right[i] = static_cast<uint8_t>(b + i);
        expected[i] = static_cast<uint8_t>((left[i] | right[i]) - (left[i] & right[i]));
      }
      xor_128(left, right, out);
      ASSERT_EQ(memcmp(out, expected, kBlock), 0) << a << ' ' << b;
    }
  }
}

TEST(XorContract, KeepsEveryBitInItsPlace) {
  const Bytes zeros(kBlock);
  const Bytes ones(kBlock, 0xFF);
  for (const Bytes &block : telling_blocks(60)) {
    EXPECT_EQ(hex(exclusive_or(block, zeros)), hex(block));
    EXPECT_EQ(hex(exclusive_or(zeros, block)), hex(block));
    EXPECT_EQ(hex(exclusive_or(exclusive_or(block, ones), ones)), hex(block));
    EXPECT_EQ(hex(exclusive_or(block, block)), hex(zeros));
  }
}

TEST(XorContract, WritesOverEitherInputOrBoth) {
  Random random(61);
  const Bytes a = random(kBlock);
  const Bytes b = random(kBlock);
  Bytes block = a;
  xor_128(block.data(), b.data(), block.data());
  EXPECT_EQ(hex(block), hex(a ^ b));
  block = b;
  xor_128(a.data(), block.data(), block.data());
  EXPECT_EQ(hex(block), hex(a ^ b));
  block = a;
  xor_128(block.data(), block.data(), block.data());
  EXPECT_EQ(hex(block), hex(Bytes(kBlock)));
}

TEST(XorContract, TouchesNothingButItsBuffers) {
  Random random(62);
  const Bytes a = random(kBlock);
  const Bytes b = random(kBlock);
  for (const Edge edge : kEdges) {
    const Fenced left(a, edge);
    const Fenced right(b, edge);
    const Fenced out(Bytes(kBlock, 0xEE), edge);
    xor_128(left.sealed(), right.sealed(), out.data());
    EXPECT_EQ(hex(out.content()), hex(a ^ b));
  }
}

TEST(XorContract, TakesBuffersOfAnyAlignment) {
  Random random(63);
  const Bytes a = random(kBlock);
  const Bytes b = random(kBlock);
  for (size_t at = 0; at < kBlock * kBlock; at++) {
    alignas(16) uint8_t left[2 * kBlock];
    alignas(16) uint8_t right[2 * kBlock];
    alignas(16) uint8_t out[3 * kBlock];
    const size_t out_at = (at + at / 16) % 16 + 1;
    memset(out, 0xA5, sizeof out);
    std::copy(a.begin(), a.end(), left + at % 16);
    std::copy(b.begin(), b.end(), right + at / 16);
    xor_128(left + at % 16, right + at / 16, out + out_at);
    ASSERT_EQ(hex(out, sizeof out), hex(Bytes(out_at, 0xA5)) + hex(a ^ b) + hex(Bytes(32 - out_at, 0xA5))) << at;
  }
}

// ---- Shift ----------------------------------------------------------------------------------------------------------

TEST(ShiftContract, MovesEveryBitOnePlaceUp) {
  for (size_t bit = 0; bit < 8 * kBlock; bit++) {
    Bytes in(kBlock);
    Bytes expected(kBlock);
    in[bit / 8] = static_cast<uint8_t>(0x80 >> bit % 8);
    if (bit > 0) expected[(bit - 1) / 8] = static_cast<uint8_t>(0x80 >> (bit - 1) % 8);
    EXPECT_EQ(hex(shift(in)), hex(expected)) << bit;
  }
}

TEST(ShiftContract, DropsTheTopBitAndTakesInAZero) {
  EXPECT_EQ(hex(shift(Bytes(kBlock, 0xFF))), "fffffffffffffffffffffffffffffffe");
  EXPECT_EQ(hex(shift(Bytes(kBlock, 0x80))), "01010101010101010101010101010100");
  EXPECT_EQ(hex(shift(bytes("80000000000000000000000000000001"))), "00000000000000000000000000000002");
}

TEST(ShiftContract, ShiftsEveryKindOfBlock) {
  for (const Bytes &block : telling_blocks(64)) EXPECT_EQ(hex(shift(block)), hex(shifted(block)));
}

TEST(ShiftContract, WorksInPlace) {
  for (const Bytes &block : telling_blocks(65)) {
    Bytes both = block;
    leftshift_onebit(both.data(), both.data());
    EXPECT_EQ(hex(both), hex(shifted(block)));
  }
}

TEST(ShiftContract, TouchesNothingButItsBuffers) {
  const Bytes block = Random(66)(kBlock);
  for (const Edge edge : kEdges) {
    const Fenced in(block, edge);
    const Fenced out(Bytes(kBlock, 0xEE), edge);
    leftshift_onebit(in.sealed(), out.data());
    EXPECT_EQ(hex(out.content()), hex(shifted(block)));
  }
}

TEST(ShiftContract, TakesBuffersOfAnyAlignment) {
  const Bytes block = Random(67)(kBlock);
  for (size_t at = 0; at < kBlock * kBlock; at++) {
    alignas(16) uint8_t in[2 * kBlock];
    alignas(16) uint8_t out[3 * kBlock];
    const size_t out_at = at / 16 + 1;
    memset(out, 0xA5, sizeof out);
    std::copy(block.begin(), block.end(), in + at % 16);
    leftshift_onebit(in + at % 16, out + out_at);
    ASSERT_EQ(hex(out, sizeof out), hex(Bytes(out_at, 0xA5)) + hex(shifted(block)) + hex(Bytes(32 - out_at, 0xA5)))
        << at;
  }
}

// ---- Padding --------------------------------------------------------------------------------------------------------

TEST(PaddingContract, PutsABitAndZerosBehindTheBytes) {
  const Bytes last = bytes("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
  EXPECT_EQ(hex(pad(last, 0)), "80000000000000000000000000000000");
  EXPECT_EQ(hex(pad(last, 1)), "f0800000000000000000000000000000");
  EXPECT_EQ(hex(pad(last, 7)), "f0f1f2f3f4f5f6800000000000000000");
  EXPECT_EQ(hex(pad(last, 8)), "f0f1f2f3f4f5f6f78000000000000000");
  EXPECT_EQ(hex(pad(last, 15)), "f0f1f2f3f4f5f6f7f8f9fafbfcfdfe80");
}

TEST(PaddingContract, PadsEveryLength) {
  Random random(68);
  for (int32_t length = 0; length <= 15; length++) {
    const Bytes last = random(kBlock);
    EXPECT_EQ(hex(pad(last, length)), hex(padded(last, length))) << length;
  }
}

TEST(PaddingContract, CopiesAWholeBlockFromSixteenOn) {
  const Bytes last = Random(69)(kBlock);
  for (const int32_t length : {16, 17, 31, 32, 255, 256, 272, 65536, 65551, INT_MAX}) {
    EXPECT_EQ(hex(pad(last, length)), hex(last)) << length;
  }
}

TEST(PaddingContract, GivesZerosForANegativeLength) {
  const Bytes last = Random(70)(kBlock);
  for (const int32_t length : {-1, -2, -15, -16, -255, -256, -65536, INT_MIN}) {
    EXPECT_EQ(hex(pad(last, length)), hex(Bytes(kBlock))) << length;
  }
}

// No more of the block is read than there is, none of it for a length of 0 or less; sixteen bytes are written.
TEST(PaddingContract, TouchesNothingButItsBuffers) {
  Random random(71);
  for (int32_t length = -2; length <= 18; length++) {
    Bytes last = random(kBlock);
    const std::string expected = hex(padded(last, length));
    last.resize(length < 0 ? 0 : std::min(kBlock, static_cast<size_t>(length)));
    for (const Edge edge : kEdges) {
      const Fenced in(last, edge);
      const Fenced out(Bytes(kBlock, 0xEE), edge);
      padding(in.sealed(), out.data(), length);
      EXPECT_EQ(hex(out.content()), expected) << length;
    }
  }
}

TEST(PaddingContract, WorksInPlace) {
  Random random(72);
  for (int32_t length = -1; length <= 17; length++) {
    Bytes block = random(kBlock);
    const std::string expected = hex(padded(block, length));
    padding(block.data(), block.data(), length);
    EXPECT_EQ(hex(block), expected) << length;
  }
}

TEST(PaddingContract, TakesBuffersOfAnyAlignment) {
  const Bytes last = Random(73)(kBlock);
  for (size_t at = 0; at < kBlock * kBlock; at++) {
    alignas(16) uint8_t in[2 * kBlock];
    alignas(16) uint8_t out[3 * kBlock];
    const size_t out_at = at / 16 + 1;
    const auto length = static_cast<int32_t>(at % 16);
    memset(out, 0xA5, sizeof out);
    std::copy(last.begin(), last.end(), in + at % 16);
    padding(in + at % 16, out + out_at, length);
    ASSERT_EQ(hex(out, sizeof out),
              hex(Bytes(out_at, 0xA5)) + hex(padded(last, length)) + hex(Bytes(32 - out_at, 0xA5)))
        << at;
  }
}

TEST(PaddingContract, PrintsNothingForAnyLength) {
  const Bytes last = Random(74)(kBlock);
  Console console;
  for (const int32_t length : {INT_MIN, -1, 0, 15, 16, INT_MAX}) pad(last, length);
  EXPECT_EQ(console.take(), "");
}
