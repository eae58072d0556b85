// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The checksum of an image: values computed by hand, sums that wrap, and the plain loop of RFC 1071.

#include "startup_cfg/fixture.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

uint32_t library_checksum(const Bytes &bytes) {
  return tlv_crc_calc(Guarded(bytes).bytes(), static_cast<int32_t>(bytes.size()));
}

}  // namespace

// ---- Worked by hand -------------------------------------------------------------------------------------------------

TEST(TlvCrcCalc, GivesTheValuesWorkedByHand) {
  const struct {
    const char *why;
    Bytes bytes;
    uint32_t result;
  } rows[] = {
      {"one word", {0x12, 0x34}, 0xFFFFEDCB},                                           // ~0x1234
      {"a single byte is the high byte of a word", {0x12}, 0xFFFFEDFF},                 // ~0x1200
      {"an odd last byte is the high byte of a word", {0x00, 0x01, 0x02}, 0xFFFFFDFE},  // ~(0x0001 + 0x0200)
      {"words are big-endian", {0x00, 0x01}, 0xFFFFFFFE},
      {"the carry comes back in", {0xFF, 0xFF, 0x00, 0x01}, 0xFFFFFFFE},  // 0x10000 folds to 1
      {"a full sum stays full", {0xFF, 0xFF}, 0xFFFF0000},
      {"two full words fold to a full one", {0xFF, 0xFF, 0xFF, 0xFF}, 0xFFFF0000},  // 0x1FFFE folds to 0xFFFF
      {"zeros", {0, 0, 0, 0, 0}, 0xFFFFFFFF},
      // RFC 1071, section 3: the sum of these is 0x2DDF0, which folds to 0xDDF2.
      {"the example of RFC 1071", {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7}, 0xFFFF220D},
      // 0xDDF2 - 0xF6F7 + 0xF600, with the end-around carry.
      {"and without its last byte", {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6}, ~0xDCFBu},
      // 0x8473 + 0x9458 = 0x118CB, folded 0x18CC.
      {"a blank image", {0x84, 0x73, 0x94, 0x58, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0xFFFFE733},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(library_checksum(row.bytes), row.result);
  }
}

TEST(TlvCrcCalc, OfNoBytesIsAllOnesAndANegativeLengthCountsAsNone) {
  const Guarded nothing(0);
  for (const int32_t len : {0, -1, -2, -16, -65536, INT32_MIN + 1, INT32_MIN}) {
    SCOPED_TRACE(len);
    EXPECT_EQ(tlv_crc_calc(nothing.bytes(), len), 0xFFFFFFFFu);
  }
}

TEST(TlvCrcCalc, PrintsAndAllocatesNothing) {
  const Guarded data(Bytes(1001, 0x5A));
  data.protect(PROT_READ);
  Console console;
  const FailingMalloc mallocs(1, 0);
  tlv_crc_calc(data.bytes(), 1001);
  EXPECT_EQ(mallocs.seen(), 0);
  EXPECT_EQ(console.take(), "");
}

// ---- The sum wraps at 2^32 ------------------------------------------------------------------------------------------

// n words of 0xFFFF sum to n x 65535. A sum that has wrapped w times lacks w x 2^32, and 2^32 = 1 (mod 65535): the
// folded sum is 0xFFFF - w, its complement w.
TEST(TlvCrcCalcWrap, LosesOneForEachWrapOfASumOfFullWords) {
  const std::pair<size_t, uint32_t> rows[] = {
      {131072, 0},
      {131074, 0},             // 65537 x 65535 = 2^32 - 1: the fullest sum
      {131076, 1},             // the next word wraps
      {size_t{130} << 10, 1},  // 66560 x 65535 = 4362009600 = 1.02 x 2^32
      {size_t{200} << 10, 1},  // 102400 x 65535 = 6710784000 = 1.56 x 2^32
      {size_t{300} << 10, 2},  // 153600 x 65535 = 10066176000 = 2.34 x 2^32
      {262148, 1},             // 131074 x 65535 = 2 x (2^32 - 1): one wrap short of two
      {262150, 2},
      {size_t{16} << 20, 127},  // 8388608 x 65535 = 127.998 x 2^32
  };
  for (const auto &[bytes, wraps] : rows) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(library_checksum(Bytes(bytes, 0xFF)), 0xFFFF0000u + wraps);
  }
}

TEST(TlvCrcCalcWrap, FollowsTheSumAroundTwoToTheThirtyTwo) {
  const struct {
    const char *why;
    size_t full_bytes;
    Bytes rest;
    uint32_t result;
  } rows[] = {
      {"2^32 - 1 and 1: a sum of 0", 131074, {0x00, 0x01}, 0xFFFFFFFF},
      {"2^32 - 1 and 0x0100, by the odd last byte: 255", 131074, {0x01}, 0xFFFFFF00},
      {"0xFFFFFFFE folds to 0x1FFFD, and that to 0xFFFE", 131072, {0xFF, 0xFE}, 0xFFFF0001},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.why);
    Bytes bytes(row.full_bytes, 0xFF);
    bytes.insert(bytes.end(), row.rest.begin(), row.rest.end());
    EXPECT_EQ(library_checksum(bytes), row.result);
  }
}

// ---- Against the byte-pair loop -------------------------------------------------------------------------------------

namespace {

enum class Fill { kOnes, kRandom, kFirstOfEachPair, kSecondOfEachPair };

constexpr Fill kFills[] = {Fill::kOnes, Fill::kRandom, Fill::kFirstOfEachPair, Fill::kSecondOfEachPair};

uint8_t filler(Fill fill, size_t at, Random &random) {
  switch (fill) {
    case Fill::kOnes:
      return 0xFF;
    case Fill::kRandom:
      return random.byte();
    case Fill::kFirstOfEachPair:
      return at % 2 == 0 ? 0xFF : 0;
    case Fill::kSecondOfEachPair:
      return at % 2 == 1 ? 0xFF : 0;
  }
  return 0;
}

// For `size` bytes at the end of a heap block, `alignment` bytes after a multiple of 16. The bytes before them are
// neither all ones nor all zeros, so a read of them has an effect.
void expect_agreement(size_t size, size_t alignment, Fill fill, Random &random) {
  const std::unique_ptr<uint8_t[]> block(new uint8_t[alignment + size]);
  memset(block.get(), 0x3C, alignment);
  uint8_t *const data = &block[alignment];
  for (size_t i = 0; i < size; i++) data[i] = filler(fill, i, random);
  ASSERT_EQ(tlv_crc_calc(data, static_cast<int32_t>(size)), checksum(data, size))
      << size << " bytes at alignment " << alignment << ", fill " << static_cast<int>(fill);
}

void expect_agreement_between(size_t first, size_t last, std::span<const Fill> fills) {
  Random random(20240607);
  for (size_t size = first; size <= last; size++) {
    for (size_t alignment = 0; alignment < 16; alignment++) {
      for (const Fill fill : fills) ASSERT_NO_FATAL_FAILURE(expect_agreement(size, alignment, fill, random));
    }
  }
}

}  // namespace

TEST(TlvCrcCalcAgreement, HoldsForEveryShortLengthAtEveryAlignment) { expect_agreement_between(0, 700, kFills); }

TEST(TlvCrcCalcAgreement, HoldsAroundAPage) { expect_agreement_between(4096 - 40, 4096 + 40, kFills); }

TEST(TlvCrcCalcAgreement, HoldsAround64KiBAndAroundTheFirstWrap) {
  const std::span<const Fill> fills(kFills, 2);  // ones, and random
  expect_agreement_between(65536 - 5, 65536 + 5, fills);
  expect_agreement_between(131072 - 3, 131072 + 5, fills);
}

TEST(TlvCrcCalcAgreement, HoldsBeyondTheFirstWrap) {
  Random random(7);
  for (const size_t size : {131103u, 133120u, 133121u, 204800u, 204801u, 262143u, 262144u, 262145u, 307200u, 307201u,
                            524287u, 1048576u, 1048577u, 5000001u}) {
    for (const size_t alignment : {0u, 1u, 2u, 7u, 8u, 15u}) {
      for (const Fill fill : kFills) {
        if (size > 1000000 && alignment != 0 && alignment != 1) continue;
        ASSERT_NO_FATAL_FAILURE(expect_agreement(size, alignment, fill, random));
      }
    }
  }
}

TEST(TlvCrcCalcAgreement, HoldsAtRandomLengthsForDataNearTheWrap) {
  // Bytes mostly 0xFF: sums that pass 2^32 at random places in the data.
  Random random(99);
  for (int round = 0; round < 60; round++) {
    Bytes bytes(120000 + random.below(40000));
    for (uint8_t &byte : bytes) byte = random.below(16) == 0 ? random.byte() : uint8_t{0xFF};
    ASSERT_EQ(library_checksum(bytes), checksum(bytes.data(), bytes.size())) << "round " << round;
  }
}

TEST(TlvCrcCalcAgreement, HoldsForASingleByteAtEveryPlace) {
  for (const size_t size : {64u, 129u, 300u, 515u}) {
    Bytes bytes(size);
    for (size_t at = 0; at < size; at++) {
      bytes[at] = 0x81;
      ASSERT_EQ(library_checksum(bytes), checksum(bytes.data(), size)) << "byte " << at << " of " << size;
      bytes[at] = 0;
    }
  }
}
