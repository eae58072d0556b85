#include <gtest/gtest.h>

#include <random>

#include "startup_cfg/contract_reference.h"
#include "support/console.h"
#include "support/libc.h"

using namespace tarn_reference;
using tarn_test::Console;

namespace {

uint32_t library_checksum(const Bytes &bytes) { return tlv_crc_calc(bytes.data(), static_cast<int32_t>(bytes.size())); }

// ---- Worked by hand -------------------------------------------------------------------------------------------------

TEST(ChecksumContract, GivesTheValuesWorkedByHand) {
  struct Row {
    const char *why;
    Bytes bytes;
    uint32_t result;
  };
  const Row rows[] = {
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
      // 0x8473 + 0x9458 = 0x118CB, folded 0x18CC.
      {"a blank image", {0x84, 0x73, 0x94, 0x58, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0xFFFFE733},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(library_checksum(row.bytes), row.result);
  }
}

TEST(ChecksumContract, OfNoBytesIsAllOnes) {
  const Bytes byte(1, 0x55);
  EXPECT_EQ(tlv_crc_calc(byte.data(), 0), 0xFFFFFFFFu);
}

TEST(ChecksumContract, TakesANegativeLengthForZero) {
  const Bytes byte(1, 0x55);
  for (const int32_t len : {-1, -2, -16, -65536, INT32_MIN + 1, INT32_MIN}) {
    SCOPED_TRACE(len);
    EXPECT_EQ(tlv_crc_calc(byte.data(), len), 0xFFFFFFFFu);
  }
}

TEST(ChecksumContract, PrintsAndAllocatesNothingAndLeavesTheDataAlone) {
  const Bytes bytes(1001, 0x5A);
  const Bytes before(1001, 0x5A);
  Console console;
  tarn_test::FailingMalloc mallocs(1, 0);
  library_checksum(bytes);
  EXPECT_EQ(mallocs.seen(), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(bytes, before);
}

// ---- The sum wraps at 2^32 ------------------------------------------------------------------------------------------

// n words of 0xFFFF sum to n x 65535. A sum that has wrapped w times lacks w x 2^32, and 2^32 = 1 (mod 65535): the
// folded sum is 0xFFFF - w, its complement w.
TEST(ChecksumWrapContract, LosesOneForEachWrapOfASumOfFullWords) {
  struct Row {
    size_t bytes;
    uint32_t wraps;
  };
  const Row rows[] = {
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
  for (const Row &row : rows) {
    SCOPED_TRACE(row.bytes);
    EXPECT_EQ(library_checksum(Bytes(row.bytes, 0xFF)), 0xFFFF0000u + row.wraps);
  }
}

TEST(ChecksumWrapContract, GivesAllOnesForASumOfExactlyTwoToTheThirtyTwo) {
  Bytes bytes(131074, 0xFF);  // 2^32 - 1
  bytes.insert(bytes.end(), {0x00, 0x01});
  EXPECT_EQ(library_checksum(bytes), 0xFFFFFFFFu);
}

TEST(ChecksumWrapContract, WrapsByTheOddLastByteToo) {
  Bytes bytes(131074, 0xFF);  // 2^32 - 1, then 0x0100 makes 255
  bytes.push_back(0x01);
  EXPECT_EQ(library_checksum(bytes), 0xFFFFFF00u);
}

TEST(ChecksumWrapContract, FoldsTwiceWhereTheFirstFoldCarries) {
  // 65536 words of 0xFFFF and one of 0xFFFE: 0xFFFFFFFE, which folds to 0x1FFFD, which folds to 0xFFFE.
  Bytes bytes(131072, 0xFF);
  bytes.insert(bytes.end(), {0xFF, 0xFE});
  EXPECT_EQ(library_checksum(bytes), 0xFFFF0001u);
}

// ---- Against the byte-pair loop -------------------------------------------------------------------------------------

enum class Fill { kOnes, kRandom, kFirstOfEachPair, kSecondOfEachPair };

class DataAtAlignment {
 public:
  // `size` bytes at the end of a heap block, `alignment` bytes behind a multiple of 16. What stands before them is
  // neither all ones nor all zeros, so that reading it shows.
  DataAtAlignment(size_t size, size_t alignment, Fill fill, std::mt19937 &random)
      : block_(new uint8_t[alignment + size]), data_(&block_[alignment]), size_(size) {
    memset(block_.get(), 0x3C, alignment);
    for (size_t i = 0; i < size; i++) {
      switch (fill) {
        case Fill::kOnes:
          data_[i] = 0xFF;
          break;
        case Fill::kRandom:
          data_[i] = static_cast<uint8_t>(random());
          break;
        case Fill::kFirstOfEachPair:
          data_[i] = i % 2 == 0 ? 0xFF : 0;
          break;
        case Fill::kSecondOfEachPair:
          data_[i] = i % 2 == 1 ? 0xFF : 0;
          break;
      }
    }
  }
  uint32_t by_the_loop() const { return checksum(data_, size_); }
  uint32_t by_the_library() const { return tlv_crc_calc(data_, static_cast<int32_t>(size_)); }

 private:
  std::unique_ptr<uint8_t[]> block_;
  uint8_t *data_;
  size_t size_;
};

constexpr Fill kFills[] = {Fill::kOnes, Fill::kRandom, Fill::kFirstOfEachPair, Fill::kSecondOfEachPair};

// Says the first few differences, not thousands.
void expect_agreement(size_t first, size_t last, std::initializer_list<Fill> fills) {
  std::mt19937 random(20240607);
  for (size_t size = first; size <= last; size++) {
    for (size_t alignment = 0; alignment < 16; alignment++) {
      for (const Fill fill : fills) {
        const DataAtAlignment data(size, alignment, fill, random);
        ASSERT_EQ(data.by_the_library(), data.by_the_loop())
            << size << " bytes at alignment " << alignment << ", fill " << static_cast<int>(fill);
      }
    }
  }
}

TEST(ChecksumDifferentialContract, AgreesForEveryShortLengthAtEveryAlignment) {
  expect_agreement(0, 700, {Fill::kOnes, Fill::kRandom, Fill::kFirstOfEachPair, Fill::kSecondOfEachPair});
}

TEST(ChecksumDifferentialContract, AgreesAroundAPage) { expect_agreement(4096 - 40, 4096 + 40, {Fill::kRandom}); }

TEST(ChecksumDifferentialContract, AgreesAroundSixtyFourKibibytes) {
  expect_agreement(65536 - 5, 65536 + 5, {Fill::kRandom, Fill::kOnes});
}

TEST(ChecksumDifferentialContract, AgreesAroundTheFirstWrap) {
  expect_agreement(131072 - 3, 131072 + 5, {Fill::kRandom, Fill::kOnes});
}

TEST(ChecksumDifferentialContract, AgreesBeyondTheFirstWrap) {
  std::mt19937 random(7);
  for (const size_t size : {131103u, 133120u, 133121u, 204800u, 204801u, 262143u, 262144u, 262145u, 307200u, 307201u,
                            524287u, 1048576u, 1048577u, 5000001u}) {
    for (const size_t alignment : {0u, 1u, 2u, 7u, 8u, 15u}) {
      for (const Fill fill : kFills) {
        if (size > 1000000 && alignment != 0 && alignment != 1) continue;
        const DataAtAlignment data(size, alignment, fill, random);
        ASSERT_EQ(data.by_the_library(), data.by_the_loop())
            << size << " bytes at alignment " << alignment << ", fill " << static_cast<int>(fill);
      }
    }
  }
}

TEST(ChecksumDifferentialContract, AgreesAtRandomLengthsForDataNearTheWrap) {
  // Bytes mostly 0xFF: sums that pass 2^32 at random places in the data.
  std::mt19937 random(99);
  for (int round = 0; round < 60; round++) {
    Bytes bytes(120000 + random() % 40000);
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random() % 16 == 0 ? random() : 0xFF);
    ASSERT_EQ(library_checksum(bytes), checksum(bytes.data(), bytes.size())) << "round " << round;
  }
}

TEST(ChecksumDifferentialContract, AgreesForASingleByteAtEveryPlace) {
  for (const size_t size : {64u, 129u, 300u, 515u}) {
    Bytes bytes(size);
    for (size_t at = 0; at < size; at++) {
      bytes[at] = 0x81;
      ASSERT_EQ(library_checksum(bytes), checksum(bytes.data(), size)) << "byte " << at << " of " << size;
      bytes[at] = 0;
    }
  }
}

}  // namespace
