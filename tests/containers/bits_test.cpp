// Bit arrays against a naive model, which keeps a byte for each bit.
//
// The arrays stand right before a page that may not be touched, or right behind one: a byte read beyond what the bits
// need ends the test.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <random>
#include <vector>

#include "tarn/containers.h"

namespace {

constexpr size_t kLongest = 200;

using Bits = std::vector<uint8_t>;  // each 0 or 1

// A page between two pages that may not be touched.
class GuardedPage {
 public:
  GuardedPage()
      : size_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        pages_(static_cast<uint8_t *>(
            mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))) {
    EXPECT_NE(static_cast<void *>(pages_), MAP_FAILED);
    EXPECT_EQ(mprotect(begin(), size_, PROT_READ | PROT_WRITE), 0);
  }
  ~GuardedPage() { munmap(pages_, 3 * size_); }
  GuardedPage(const GuardedPage &) = delete;
  GuardedPage &operator=(const GuardedPage &) = delete;

  uint8_t *begin() const { return pages_ + size_; }
  uint8_t *end() const { return pages_ + 2 * size_; }

 private:
  size_t size_;
  uint8_t *pages_;
};

constexpr size_t bytes_for(size_t nbits) { return (nbits + 7) / 8; }

// Writes the bits to the bytes at `array`; what is left of the last byte becomes `rest`. By the definition: bit 0 is
// the most significant bit of byte 0.
void write(uint8_t *array, const Bits &bits, bool rest) {
  int value = 0;
  for (size_t bit = 0; bit < bytes_for(bits.size()) * 8; bit++) {
    value = value * 2 + (bit < bits.size() ? bits[bit] : rest);
    if (bit % 8 != 7) continue;
    array[bit / 8] = static_cast<uint8_t>(value);
    value = 0;
  }
}

uint32_t first(const Bits &bits, bool value) {
  const auto found = std::find(bits.begin(), bits.end(), value);
  return found == bits.end() ? 0xFFFFFFFF : static_cast<uint32_t>(found - bits.begin());
}

// All three searches, with bits behind the array that would match, and with some that would not.
void expect_found(uint8_t *array, const Bits &bits) {
  const auto nbits = static_cast<uint32_t>(bits.size());
  const uint32_t first_clear = first(bits, false);
  const uint32_t first_set = first(bits, true);
  for (const bool rest : {false, true}) {
    write(array, bits, rest);
    ASSERT_EQ(mu_bit_get_0(array, static_cast<int>(nbits)), first_clear) << nbits << " bits";
    ASSERT_EQ(mu_bit_get_1(array, static_cast<int>(nbits)), first_set) << nbits << " bits";
    ASSERT_EQ(mu_bit_tst_all(array, nbits), first_clear == 0xFFFFFFFF ? 1 : 0) << nbits << " bits";
  }
}

// Arrays of every length up to kLongest in which one bit differs from all others, each in turn, or none.
template <typename Visit>
void for_each_single_bit(Visit visit) {
  for (size_t nbits = 0; nbits <= kLongest; nbits++) {
    for (const bool background : {false, true}) {
      Bits bits(nbits, background);
      visit(bits);
      for (uint8_t &odd : bits) {
        odd = !background;
        visit(bits);
        odd = background;
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

}  // namespace

TEST(BitSet, CountsFromTheMostSignificantBitOfByteZero) {
  constexpr std::array<uint8_t, 8> kMasks = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
  for (int n = 0; n < 16; n++) {
    SCOPED_TRACE(n);
    std::array<uint8_t, 2> bits{};
    EXPECT_EQ(mu_bit_set(bits.data(), n), 0);
    EXPECT_EQ(bits[0], n < 8 ? kMasks[static_cast<size_t>(n)] : 0);
    EXPECT_EQ(bits[1], n < 8 ? 0 : kMasks[static_cast<size_t>(n - 8)]);
  }
}

TEST(BitSetAndClr, ChangeThatBitAloneWhateverItWas) {
  std::mt19937 random(1);
  const GuardedPage page;
  uint8_t *const array = page.end() - bytes_for(kLongest);
  Bits model(kLongest);
  for (size_t bit = 0; bit < kLongest; bit++) model[bit] = random() % 2 != 0;
  write(array, model, false);
  std::array<uint8_t, bytes_for(kLongest)> expected{};
  for (int n = 0; n < static_cast<int>(kLongest); n++) {
    for (const bool value : {true, true, false, false, true}) {
      EXPECT_EQ(value ? mu_bit_set(array, n) : mu_bit_clr(array, n), 0);
      model[static_cast<size_t>(n)] = value;
      write(expected.data(), model, false);
      ASSERT_TRUE(std::equal(expected.begin(), expected.end(), array)) << "bit " << n << " to " << value;
    }
  }
}

TEST(BitTst, GivesOneOrZeroForEachBit) {
  std::mt19937 random(2);
  const GuardedPage page;
  for (size_t nbits = 1; nbits <= kLongest; nbits++) {
    Bits model(nbits);
    for (size_t bit = 0; bit < nbits; bit++) model[bit] = random() % 2 != 0;
    uint8_t *const array = page.end() - bytes_for(nbits);
    write(array, model, random() % 2 != 0);
    for (size_t bit = 0; bit < nbits; bit++) {
      ASSERT_EQ(mu_bit_tst(array, static_cast<int>(bit)), model[bit] ? 1 : 0) << bit << " of " << nbits;
    }
  }
}

TEST(BitTst, ReachesTheLargestBitNumber) {
  constexpr size_t kBytes = size_t{1} << 28;  // of which two pages are touched
  void *const memory =
      mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto *const bits = static_cast<uint8_t *>(memory);
  EXPECT_EQ(mu_bit_tst(bits, INT_MAX), 0);
  EXPECT_EQ(mu_bit_set(bits, INT_MAX), 0);
  EXPECT_EQ(bits[kBytes - 1], 0x01);
  EXPECT_EQ(mu_bit_tst(bits, INT_MAX), 1);
  EXPECT_EQ(mu_bit_clr(bits, INT_MAX), 0);
  EXPECT_EQ(bits[kBytes - 1], 0x00);
  munmap(memory, kBytes);
}

TEST(BitSearch, FindsASingleBitAtEachPlaceOfEachLengthBeforeForbiddenMemory) {
  const GuardedPage page;
  for_each_single_bit([&](const Bits &bits) { expect_found(page.end() - bytes_for(bits.size()), bits); });
}

TEST(BitSearch, FindsASingleBitAtEachPlaceOfEachLengthBehindForbiddenMemory) {
  const GuardedPage page;
  for_each_single_bit([&](const Bits &bits) { expect_found(page.begin(), bits); });
}

TEST(BitSearch, FindsTheLowestOfSeveralAtEachAddress) {
  std::mt19937 random(3);
  const GuardedPage page;
  for (size_t nbits = 0; nbits <= kLongest; nbits++) {
    for (size_t offset = 0; offset < 8; offset++) {
      for (const unsigned common : {2u, 16u, 128u}) {  // of so many bits, one differs from the others
        for (const bool background : {false, true}) {
          Bits bits(nbits);
          for (size_t bit = 0; bit < nbits; bit++) bits[bit] = background != (random() % common == 0);
          expect_found(page.begin() + offset, bits);
        }
      }
    }
  }
}

TEST(BitSearch, TouchesNothingForAnArrayWithoutBits) {
  const GuardedPage page;
  EXPECT_EQ(mu_bit_get_0(page.end(), 0), 0xFFFFFFFF);
  EXPECT_EQ(mu_bit_get_1(page.end(), 0), 0xFFFFFFFF);
  EXPECT_EQ(mu_bit_tst_all(page.end(), 0), 1);
}

TEST(BitSearch, CountsANegativeLengthAsZero) {
  const GuardedPage page;
  for (const int nbits : {-1, -32, INT_MIN}) {
    SCOPED_TRACE(nbits);
    EXPECT_EQ(mu_bit_get_0(page.end(), nbits), 0xFFFFFFFF);
    EXPECT_EQ(mu_bit_get_1(page.end(), nbits), 0xFFFFFFFF);
  }
}

TEST(BitSearch, GivesAllOnesWhenThereIsNoSuchBit) {
  EXPECT_EQ(MU_BIT_NONE, 0xFFFFFFFF);
  const std::array<uint8_t, 5> ones = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const std::array<uint8_t, 5> zeros = {};
  EXPECT_EQ(static_cast<int>(mu_bit_get_0(ones.data(), 40)), -1);
  EXPECT_EQ(static_cast<int>(mu_bit_get_1(zeros.data(), 40)), -1);
}

TEST(BitSearch, FindsABitBehindTheWholeWords) {
  std::array<uint8_t, 5> bits = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(mu_bit_get_0(bits.data(), 40), MU_BIT_NONE);
  mu_bit_clr(bits.data(), 35);
  EXPECT_EQ(mu_bit_get_0(bits.data(), 40), 35u);
}

// A length that an int could not hold is still a length.
TEST(BitTstAll, TakesLengthsFrom31BitsOn) {
  constexpr std::array<uint8_t, 8> kFirstBitsClear = {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(mu_bit_tst_all(kFirstBitsClear.data(), 0x80000000), 0);
  EXPECT_EQ(mu_bit_tst_all(kFirstBitsClear.data(), 0xFFFFFFFF), 0);
}
