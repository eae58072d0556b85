// Bit arrays, in memory that ends where the array ends and begins where it begins.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "containers/fenced.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

constexpr uint32_t kNone = 0xffffffff;
constexpr Fenced::End kEnds[] = {Fenced::kFront, Fenced::kBack};

size_t bytes_for(int nbits) { return (static_cast<size_t>(nbits) + 7) / 8; }

// A set of bits as truth values, turned to bytes by place: eight at a time, the first the most significant.
using Bits = std::vector<bool>;

void store(const Bits &bits, uint8_t *bytes) {
  for (size_t i = 0; i < bits.size(); i += 8) {
    unsigned value = 0;
    for (size_t j = i; j < i + 8; j++) value = value * 2 + (j < bits.size() && bits[j] ? 1 : 0);
    bytes[i / 8] = static_cast<uint8_t>(value);
  }
}

uint32_t first_of(const Bits &bits, bool value) {
  for (size_t i = 0; i < bits.size(); i++) {
    if (bits[i] == value) return static_cast<uint32_t>(i);
  }
  return kNone;
}

// Asks for the first clear bit and the first set one of `bits`, with the rest of the last byte as given.
void expect_found(const Bits &bits, const uint8_t *bytes) {
  const auto nbits = static_cast<int>(bits.size());
  EXPECT_EQ(mu_bit_get_0(bytes, nbits), first_of(bits, false));
  EXPECT_EQ(mu_bit_get_1(bytes, nbits), first_of(bits, true));
  EXPECT_EQ(mu_bit_tst_all(bytes, static_cast<uint32_t>(nbits)), first_of(bits, false) == kNone ? 1 : 0);
}

}  // namespace

// ---- One bit --------------------------------------------------------------------------------------------------------

TEST(BitContract, CountsFromTheMostSignificantBitOfByte0) {
  uint8_t bits[2] = {};
  EXPECT_EQ(mu_bit_set(bits, 0), 0);
  EXPECT_EQ(bits[0], 0x80);
  EXPECT_EQ(bits[1], 0x00);
  EXPECT_EQ(mu_bit_set(bits, 9), 0);
  EXPECT_EQ(bits[0], 0x80);
  EXPECT_EQ(bits[1], 0x40);
}

TEST(BitContract, HasTheMaskOfEachPlaceInAByte) {
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

TEST(BitContract, ChangesOneBitOfAnyArray) {
  std::mt19937 random(7);
  for (int round = 0; round < 50; round++) {
    uint8_t bytes[9];
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random());
    for (int n = 0; n < 72; n++) {
      const auto mask = static_cast<uint8_t>(1u << (7 - n % 8));
      EXPECT_EQ(mu_bit_tst(bytes, n), (bytes[n / 8] & mask) == 0 ? 0 : 1);
      uint8_t expected[9];
      memcpy(expected, bytes, sizeof expected);
      expected[n / 8] |= mask;
      EXPECT_EQ(mu_bit_set(bytes, n), 0);
      EXPECT_EQ(memcmp(bytes, expected, sizeof bytes), 0) << "set " << n;
      EXPECT_EQ(mu_bit_tst(bytes, n), 1);
      expected[n / 8] ^= mask;
      EXPECT_EQ(mu_bit_clr(bytes, n), 0);
      EXPECT_EQ(memcmp(bytes, expected, sizeof bytes), 0) << "cleared " << n;
      EXPECT_EQ(mu_bit_tst(bytes, n), 0);
      if (random() % 2 == 0) bytes[n / 8] |= mask;
    }
  }
}

TEST(BitContract, SettingASetBitAndClearingAClearOneChangeNothing) {
  for (int n = 0; n < 16; n++) {
    uint8_t ones[2] = {0xff, 0xff};
    uint8_t zeros[2] = {0, 0};
    EXPECT_EQ(mu_bit_set(ones, n), 0);
    EXPECT_EQ(mu_bit_clr(zeros, n), 0);
    EXPECT_EQ(ones[n / 8], 0xff);
    EXPECT_EQ(zeros[n / 8], 0x00);
  }
}

TEST(BitContract, StaysInTheBytesOfTheArray) {
  for (const Fenced::End end : kEnds) {
    for (int size = 1; size <= 9; size++) {
      const Fenced memory(static_cast<size_t>(size), end);
      for (int n = 0; n < 8 * size; n++) {
        mu_bit_set(memory.bytes(), n);
        EXPECT_EQ(mu_bit_tst(memory.bytes(), n), 1);
        mu_bit_clr(memory.bytes(), n);
        EXPECT_EQ(mu_bit_tst(memory.bytes(), n), 0);
      }
    }
  }
}

TEST(BitContract, ReachesTheGreatestBitNumber) {
  const Fenced memory(size_t{INT_MAX} / 8 + 1, Fenced::kBack);  // 256 MiB, of which a page is touched
  EXPECT_EQ(mu_bit_set(memory.bytes(), INT_MAX), 0);
  EXPECT_EQ(memory.bytes()[INT_MAX / 8], 0x01);
  EXPECT_EQ(mu_bit_tst(memory.bytes(), INT_MAX), 1);
  EXPECT_EQ(mu_bit_tst(memory.bytes(), INT_MAX - 1), 0);
  EXPECT_EQ(mu_bit_clr(memory.bytes(), INT_MAX), 0);
  EXPECT_EQ(memory.bytes()[INT_MAX / 8], 0x00);
}

// ---- The first bit of a kind ----------------------------------------------------------------------------------------

TEST(BitSearchContract, FindsTheOneClearBitOfForty) {
  uint8_t bits[5] = {0xff, 0xff, 0xff, 0xff, 0xff};
  EXPECT_EQ(mu_bit_get_0(bits, 40), kNone);
  EXPECT_EQ(static_cast<int>(mu_bit_get_0(bits, 40)), -1);
  mu_bit_clr(bits, 35);
  EXPECT_EQ(mu_bit_get_0(bits, 40), 35u);
}

TEST(BitSearchContract, FindsNoSetBitAmongZeros) {
  const uint8_t bits[12] = {};
  for (int nbits = 0; nbits <= 96; nbits++) EXPECT_EQ(mu_bit_get_1(bits, nbits), kNone) << nbits;
}

TEST(BitSearchContract, FindsNoClearBitAmongOnes) {
  uint8_t bits[12];
  memset(bits, 0xff, sizeof bits);
  for (int nbits = 0; nbits <= 96; nbits++) EXPECT_EQ(mu_bit_get_0(bits, nbits), kNone) << nbits;
}

TEST(BitSearchContract, FindsEachLoneBitAtEachLengthInExactlyItsBytes) {
  for (const Fenced::End end : kEnds) {
    for (int nbits = 1; nbits <= 100; nbits++) {
      const Fenced memory(bytes_for(nbits), end);
      for (int n = 0; n < nbits; n++) {
        for (const bool lone : {false, true}) {
          memset(memory.bytes(), lone ? 0x00 : 0xff, bytes_for(nbits));
          memory.bytes()[n / 8] ^= static_cast<uint8_t>(0x80 >> n % 8);
          const auto expected = static_cast<uint32_t>(n);
          ASSERT_EQ(lone ? mu_bit_get_1(memory.bytes(), nbits) : mu_bit_get_0(memory.bytes(), nbits), expected)
              << "of " << nbits << (lone ? ", set" : ", clear");
        }
      }
    }
  }
}

TEST(BitSearchContract, GivesTheLowestOfSeveral) {
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

// A word may hold the answer in its length-limited rest too: what stands behind the length is of the other kind.
TEST(BitSearchContract, IgnoresTheBitsBehindTheLength) {
  for (int nbits = 0; nbits < 130; nbits++) {
    SCOPED_TRACE(nbits);
    uint8_t ones_then_zeros[17] = {};
    uint8_t zeros_then_ones[17];
    memset(zeros_then_ones, 0xff, sizeof zeros_then_ones);
    for (int n = 0; n < nbits; n++) {
      mu_bit_set(ones_then_zeros, n);
      mu_bit_clr(zeros_then_ones, n);
    }
    EXPECT_EQ(mu_bit_get_0(ones_then_zeros, nbits), kNone);
    EXPECT_EQ(mu_bit_get_1(zeros_then_ones, nbits), kNone);
    EXPECT_EQ(mu_bit_tst_all(ones_then_zeros, static_cast<uint32_t>(nbits)), 1);
    EXPECT_EQ(mu_bit_get_0(ones_then_zeros, nbits + 1), static_cast<uint32_t>(nbits));
    EXPECT_EQ(mu_bit_get_1(zeros_then_ones, nbits + 1), static_cast<uint32_t>(nbits));
    EXPECT_EQ(mu_bit_tst_all(ones_then_zeros, static_cast<uint32_t>(nbits) + 1), 0);
  }
}

TEST(BitSearchContract, WorksAtEveryAddress) {
  for (size_t offset = 0; offset < 16; offset++) {
    alignas(16) uint8_t room[32];
    for (int n = 0; n < 100; n++) {
      memset(room, 0xff, sizeof room);
      mu_bit_clr(room + offset, n);
      EXPECT_EQ(mu_bit_get_0(room + offset, 100), static_cast<uint32_t>(n)) << offset;
      memset(room, 0, sizeof room);
      mu_bit_set(room + offset, n);
      EXPECT_EQ(mu_bit_get_1(room + offset, 100), static_cast<uint32_t>(n)) << offset;
    }
  }
}

TEST(BitSearchContract, ReadsNothingForNoBits) {
  const Fenced closed(1, Fenced::kFront);
  closed.protect(PROT_NONE);
  EXPECT_EQ(mu_bit_get_0(closed.bytes(), 0), kNone);
  EXPECT_EQ(mu_bit_get_1(closed.bytes(), 0), kNone);
  EXPECT_EQ(mu_bit_tst_all(closed.bytes(), 0), 1);
}

TEST(BitSearchContract, TakesANegativeLengthForNone) {
  const Fenced closed(1, Fenced::kFront);
  closed.protect(PROT_NONE);
  for (const int nbits : {-1, -31, -32, -33, INT_MIN}) {
    SCOPED_TRACE(nbits);
    EXPECT_EQ(mu_bit_get_0(closed.bytes(), nbits), kNone);
    EXPECT_EQ(mu_bit_get_1(closed.bytes(), nbits), kNone);
  }
}

TEST(BitSearchContract, WritesNothing) {
  const Fenced memory(11, Fenced::kBack);
  memset(memory.bytes(), 0xff, 10);
  memory.protect(PROT_READ);
  EXPECT_EQ(mu_bit_get_0(memory.bytes(), 88), 80u);
  EXPECT_EQ(mu_bit_get_1(memory.bytes(), 88), 0u);
  EXPECT_EQ(mu_bit_tst(memory.bytes(), 80), 0);
  EXPECT_EQ(mu_bit_tst_all(memory.bytes(), 88), 0);
}

TEST(BitSearchContract, AgreesWithALookAtEachBitOfRandomArrays) {
  std::mt19937 random(11);
  for (int round = 0; round < 1000; round++) {
    const auto nbits = static_cast<size_t>(random() % 300);
    Bits bits(nbits);
    const bool common = random() % 2 == 0;  // mostly one value, so that long stretches are skipped
    for (size_t i = 0; i < nbits; i++) bits[i] = random() % 200 == 0 ? !common : common;
    const size_t offset = random() % 8;
    uint8_t bytes[48];
    memset(bytes, static_cast<int>(random() % 256), sizeof bytes);
    store(bits, bytes + offset);
    SCOPED_TRACE(testing::Message() << "round " << round);
    expect_found(bits, bytes + offset);
  }
}

// ---- All bits -------------------------------------------------------------------------------------------------------

TEST(BitAllContract, IsTrueForNoBits) {
  const uint8_t zero = 0;
  EXPECT_EQ(mu_bit_tst_all(&zero, 0), 1);
}

TEST(BitAllContract, MissesNoClearBit) {
  for (uint32_t nbits = 1; nbits <= 72; nbits++) {
    uint8_t bits[9];
    memset(bits, 0xff, sizeof bits);
    EXPECT_EQ(mu_bit_tst_all(bits, nbits), 1) << nbits;
    for (uint32_t n = 0; n < nbits; n++) {
      mu_bit_clr(bits, static_cast<int>(n));
      EXPECT_EQ(mu_bit_tst_all(bits, nbits), 0) << n << " of " << nbits;
      mu_bit_set(bits, static_cast<int>(n));
    }
  }
}

// The length is unsigned: from 2^31 on it must not turn into a negative one, which would count as none.
TEST(BitAllContract, SeesAClearBitOfAnArrayOf2To31BitsAndMore) {
  const Fenced zeros(size_t{1} << 29, Fenced::kFront);  // 512 MiB that nobody has touched
  for (const uint32_t nbits : {0x7fffffffu, 0x80000000u, 0x80000001u, 0xffffffffu}) {
    EXPECT_EQ(mu_bit_tst_all(zeros.bytes(), nbits), 0) << nbits;
  }
}

// ---- Both -----------------------------------------------------------------------------------------------------------

TEST(BitContract, AllocatesAndPrintsNothing) {
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
