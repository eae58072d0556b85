// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bit arrays against a naive model, which keeps a byte for each bit.
//
// The arrays are directly before or after a page without access: a read or write beyond the bytes of the bits ends the
// test.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "containers/fixture.h"
#include "support/console.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

constexpr uint32_t kNone = 0xffffffff;
constexpr size_t kLongest = 200;

using Bits = std::vector<uint8_t>;  // each 0 or 1

constexpr size_t bytes_for(size_t nbits) { return (nbits + 7) / 8; }

// Writes the bits to the bytes at `array`; the unused bits of the last byte become `rest`. As in the definition, bit 0
// is the most significant bit of byte 0.
void store(const Bits &bits, bool rest, uint8_t *array) {
  unsigned value = 0;
  for (size_t bit = 0; bit < bytes_for(bits.size()) * 8; bit++) {
    value = value * 2 + (bit < bits.size() ? bits[bit] : rest);
    if (bit % 8 != 7) continue;
    array[bit / 8] = static_cast<uint8_t>(value);
    value = 0;
  }
}

uint32_t first(const Bits &bits, bool value) {
  const auto found = std::find(bits.begin(), bits.end(), value);
  return found == bits.end() ? kNone : static_cast<uint32_t>(found - bits.begin());
}

// All three searches, with bits after the array that would match, and with bits that would not.
void expect_found(uint8_t *array, const Bits &bits) {
  const auto nbits = static_cast<uint32_t>(bits.size());
  const uint32_t first_clear = first(bits, false);
  for (const bool rest : {false, true}) {
    store(bits, rest, array);
    ASSERT_EQ(mu_bit_get_0(array, static_cast<int>(nbits)), first_clear) << nbits << " bits";
    ASSERT_EQ(mu_bit_get_1(array, static_cast<int>(nbits)), first(bits, true)) << nbits << " bits";
    ASSERT_EQ(mu_bit_tst_all(array, nbits), first_clear == kNone ? 1 : 0) << nbits << " bits";
  }
}

// On average, one of `common` bits differs from the others.
Bits random_bits(Random &random, size_t nbits, uint64_t common = 2, bool background = false) {
  Bits bits(nbits);
  for (size_t bit = 0; bit < nbits; bit++) bits[bit] = background != (random.below(common) == 0);
  return bits;
}

}  // namespace

// ---- One bit --------------------------------------------------------------------------------------------------------

TEST(BitSetAndClr, CountFromTheMostSignificantBitOfByteZero) {
  constexpr uint8_t kMasks[] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
  for (int n = 0; n < 24; n++) {
    SCOPED_TRACE(n);
    uint8_t set[3] = {};
    uint8_t cleared[3] = {0xff, 0xff, 0xff};
    EXPECT_EQ(mu_bit_set(set, n), 0);
    EXPECT_EQ(mu_bit_clr(cleared, n), 0);
    for (int byte = 0; byte < 3; byte++) {
      const int mask = byte == n / 8 ? kMasks[n % 8] : 0;
      EXPECT_EQ(set[byte], mask);
      EXPECT_EQ(cleared[byte], 0xff ^ mask);
    }
  }
}

TEST(BitSetAndClr, ChangeThatBitOnlyWhateverItWas) {
  Random random(1);
  for (const Guarded::End end : kEnds) {
    for (const size_t bytes : {1u, 2u, 7u, 8u, 9u, 25u}) {
      const Guarded array(bytes, end);
      Bits model = random_bits(random, 8 * bytes);
      store(model, false, array.bytes());
      std::vector<uint8_t> expected(bytes);
      for (int n = 0; n < static_cast<int>(8 * bytes); n++) {
        for (const bool value : {true, true, false, false, random.chance(500)}) {
          EXPECT_EQ(value ? mu_bit_set(array.bytes(), n) : mu_bit_clr(array.bytes(), n), 0);
          EXPECT_EQ(mu_bit_tst(array.bytes(), n), value ? 1 : 0);
          model[static_cast<size_t>(n)] = value;
          store(model, false, expected.data());
          ASSERT_EQ(memcmp(array.bytes(), expected.data(), bytes), 0) << "bit " << n << " to " << value;
        }
      }
    }
  }
}

TEST(BitTst, GivesOneOrZeroForEachBit) {
  Random random(2);
  for (size_t nbits = 1; nbits <= kLongest; nbits++) {
    const Bits model = random_bits(random, nbits);
    for (const Guarded::End end : kEnds) {
      const Guarded array(bytes_for(nbits), end);
      store(model, random.chance(500), array.bytes());
      for (size_t bit = 0; bit < nbits; bit++) {
        ASSERT_EQ(mu_bit_tst(array.bytes(), static_cast<int>(bit)), model[bit] ? 1 : 0) << bit << " of " << nbits;
      }
    }
  }
}

TEST(BitTst, ReachesTheLargestBitNumber) {
  const Guarded array(size_t{INT_MAX} / 8 + 1);  // 256 MiB, of which one page is used
  uint8_t &last_byte = array.bytes()[INT_MAX / 8];
  EXPECT_EQ(mu_bit_tst(array.bytes(), INT_MAX), 0);
  EXPECT_EQ(mu_bit_set(array.bytes(), INT_MAX), 0);
  EXPECT_EQ(last_byte, 0x01);
  EXPECT_EQ(mu_bit_tst(array.bytes(), INT_MAX), 1);
  EXPECT_EQ(mu_bit_tst(array.bytes(), INT_MAX - 1), 0);
  EXPECT_EQ(mu_bit_clr(array.bytes(), INT_MAX), 0);
  EXPECT_EQ(last_byte, 0x00);
}

// ---- Searches -------------------------------------------------------------------------------------------------------

// Arrays of every length up to kLongest, in which one bit, each in turn, or no bit differs from all others.
TEST(BitSearch, FindsASingleBitAtEachPlaceOfEachLengthInExactlyItsBytes) {
  for (const Guarded::End end : kEnds) {
    for (size_t nbits = 0; nbits <= kLongest; nbits++) {
      const Guarded array(bytes_for(nbits), end);
      for (const bool background : {false, true}) {
        Bits bits(nbits, background);
        expect_found(array.bytes(), bits);
        for (size_t bit = 0; bit < nbits; bit++) {
          bits[bit] = !background;
          expect_found(array.bytes(), bits);
          bits[bit] = background;
        }
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST(BitSearch, FindsTheLowestOfEachPair) {
  for (int low = 0; low < 70; low++) {
    for (int high = low + 1; high < 70; high++) {
      uint8_t clear[9];
      uint8_t set[9] = {};
      memset(clear, 0xff, sizeof clear);
      for (const int n : {low, high}) {
        mu_bit_clr(clear, n);
        mu_bit_set(set, n);
      }
      EXPECT_EQ(mu_bit_get_0(clear, 70), static_cast<uint32_t>(low)) << high;
      EXPECT_EQ(mu_bit_get_1(set, 70), static_cast<uint32_t>(low)) << high;
    }
  }
}

// The bytes around the array are random too.
TEST(BitSearch, FindsTheLowestOfSeveralAtEachAddress) {
  Random random(3);
  alignas(16) uint8_t room[64];
  for (size_t nbits = 0; nbits <= 300; nbits++) {
    for (size_t offset = 0; offset < 16; offset++) {
      for (uint8_t &byte : room) byte = random.byte();
      for (const uint64_t common : {2u, 16u, 128u}) {
        expect_found(room + offset, random_bits(random, nbits, common, random.chance(500)));
      }
    }
  }
}

// Bytes far after the array are not read either.
TEST(BitSearch, IgnoresTheBitsAfterTheLength) {
  for (size_t nbits = 0; nbits < 130; nbits++) {
    SCOPED_TRACE(nbits);
    for (const bool value : {false, true}) {
      Bits bits(136, !value);
      std::fill_n(bits.begin(), nbits, value);
      uint8_t bytes[17];
      store(bits, !value, bytes);
      const auto search = value ? mu_bit_get_0 : mu_bit_get_1;
      EXPECT_EQ(search(bytes, static_cast<int>(nbits)), kNone);
      EXPECT_EQ(search(bytes, static_cast<int>(nbits) + 1), nbits);
      EXPECT_EQ(mu_bit_tst_all(bytes, static_cast<uint32_t>(nbits)), value || nbits == 0 ? 1 : 0);
      EXPECT_EQ(mu_bit_tst_all(bytes, static_cast<uint32_t>(nbits) + 1), !value && nbits == 0 ? 1 : 0);
    }
  }
}

TEST(BitSearch, TouchesNothingForAnArrayWithoutBits) {
  const Guarded closed(1);
  closed.protect(PROT_NONE);
  for (const int nbits : {0, -1, -31, -32, -33, INT_MIN}) {  // a negative length counts as 0
    SCOPED_TRACE(nbits);
    EXPECT_EQ(mu_bit_get_0(closed.bytes(), nbits), kNone);
    EXPECT_EQ(mu_bit_get_1(closed.bytes(), nbits), kNone);
  }
  EXPECT_EQ(mu_bit_tst_all(closed.bytes(), 0), 1);
}

TEST(BitSearch, GivesAllOnesWhenThereIsNoSuchBit) {
  EXPECT_EQ(MU_BIT_NONE, kNone);
  uint8_t ones[5] = {0xff, 0xff, 0xff, 0xff, 0xff};
  const uint8_t zeros[5] = {};
  EXPECT_EQ(static_cast<int>(mu_bit_get_0(ones, 40)), -1);
  EXPECT_EQ(static_cast<int>(mu_bit_get_1(zeros, 40)), -1);
  mu_bit_clr(ones, 35);
  EXPECT_EQ(mu_bit_get_0(ones, 40), 35u);
}

TEST(BitSearch, WritesNothing) {
  const Guarded memory(11);
  memset(memory.bytes(), 0xff, 10);
  memory.protect(PROT_READ);
  EXPECT_EQ(mu_bit_get_0(memory.bytes(), 88), 80u);
  EXPECT_EQ(mu_bit_get_1(memory.bytes(), 88), 0u);
  EXPECT_EQ(mu_bit_tst(memory.bytes(), 80), 0);
  EXPECT_EQ(mu_bit_tst_all(memory.bytes(), 88), 0);
}

// The length is unsigned: from 2^31 on it must not turn into a negative one, which would count as 0.
TEST(BitTstAll, SeesAClearBitOfAnArrayOf2To31BitsAndMore) {
  const Guarded zeros(size_t{1} << 29, Guarded::kFront);  // 512 MiB, of which one page is used
  for (const uint8_t first_byte : {uint8_t{0x00}, uint8_t{0x7f}}) {
    zeros.bytes()[0] = first_byte;
    for (const uint32_t nbits : {0x7fffffffu, 0x80000000u, 0x80000001u, 0xffffffffu}) {
      EXPECT_EQ(mu_bit_tst_all(zeros.bytes(), nbits), 0) << nbits;
    }
  }
}

TEST(BitOperations, AllocateAndPrintNothing) {
  Console console;
  const FailingMalloc no_memory(1, 1000);
  uint8_t bits[5] = {};
  mu_bit_set(bits, 39);
  EXPECT_EQ(mu_bit_get_1(bits, 40), 39u);
  EXPECT_EQ(mu_bit_get_0(bits, 40), 0u);
  EXPECT_EQ(mu_bit_tst_all(bits, 40), 0);
  EXPECT_EQ(mu_bit_tst(bits, 39), 1);
  mu_bit_clr(bits, 39);
  EXPECT_EQ(no_memory.seen(), 0);
  EXPECT_EQ(console.take(), "");
}
