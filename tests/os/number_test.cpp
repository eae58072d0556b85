// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Numbers: strtoul under another name, and the division.

#include <climits>
#include <type_traits>

#include "os/fixture.h"

static_assert(std::is_same_v<decltype(&OS_STRTOUL), unsigned long (*)(const char *, char **, int)>);
static_assert(std::is_same_v<decltype(&OS_DO_DIV), void (*)(uint64_t, uint32_t, uint64_t *, uint32_t *)>);

// The expected values are those of the C standard.
TEST(OsStrtoul, IsLibcs) {
  const struct {
    const char *text;
    int base;
    unsigned long value;
    int used;
    int error;
  } kRows[] = {
      {"123", 10, 123, 3, 0},
      {" \t+42xyz", 10, 42, 5, 0},
      {"-1", 10, ULONG_MAX, 2, 0},
      {"0x1Fg", 0, 31, 4, 0},
      {" 0x1Fz", 16, 31, 5, 0},
      {"0x1F", 16, 31, 4, 0},
      {"0x1F", 10, 0, 1, 0},
      {"077", 0, 63, 3, 0},
      {"0779", 0, 63, 3, 0},
      {"zz", 36, 1295, 2, 0},
      {"1012", 2, 5, 3, 0},
      {"", 10, 0, 0, 0},
      {"  x", 10, 0, 0, 0},
      {"18446744073709551615", 10, ULONG_MAX, 20, 0},
      {"18446744073709551616", 10, ULONG_MAX, 20, ERANGE},
      {"99999999999999999999", 10, ULONG_MAX, 20, ERANGE},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.text);
    char *end = nullptr;
    errno = 0;
    EXPECT_EQ(OS_STRTOUL(row.text, &end, row.base), row.value);
    EXPECT_EQ(errno, row.error);
    EXPECT_EQ(end, row.text + row.used);
  }
}

TEST(OsStrtoul, RefusesABaseThatLibcRefuses) {
  for (const int base : {1, 37, -10}) {
    SCOPED_TRACE(base);
    errno = 0;
    const unsigned long own = strtoul("11", nullptr, base);
    const int own_error = errno;
    errno = 0;
    EXPECT_EQ(OS_STRTOUL("11", nullptr, base), own);
    EXPECT_EQ(errno, own_error);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(OsStrtoul, TheEndMayBeNull) { EXPECT_EQ(OS_STRTOUL("77 bottles", nullptr, 8), 63u); }

TEST(OsDoDiv, DividesUnsigned64By32BitsWithoutTrapping) {
  const struct {
    uint64_t dividend;
    uint32_t divisor;
    uint64_t quotient;
    uint32_t remainder;
  } kRows[] = {
      {1000000000007, 10, 100000000000, 7},
      {0, 5, 0, 0},
      {4, 5, 0, 4},
      {5, 5, 1, 0},
      {UINT64_MAX, 1, UINT64_MAX, 0},
      {UINT64_MAX, 2, 0x7FFFFFFFFFFFFFFF, 1},
      {0x8000000000000000, 3, 3074457345618258602, 2},
      {UINT32_MAX - 1u, UINT32_MAX, 0, UINT32_MAX - 1u},
      {UINT64_MAX, 0xFFFFFFFF, 0x100000001, 0},                  // 2^64 - 1 = (2^32 - 1) (2^32 + 1)
      {0xFFFFFFFE00000000, 0xFFFFFFFF, 0xFFFFFFFE, 0xFFFFFFFE},  // the largest remainder
      {0x123456789ABCDEF0, 0x80000000, 0x2468ACF1, 0x1ABCDEF0},
      // A zero divisor: quotient 0, and the dividend's low half as remainder.
      {4294967301, 0, 0, 5},
      {0, 0, 0, 0},
      {UINT64_MAX, 0, 0, 0xFFFFFFFF},
      {0x1234567800000000, 0, 0, 0},
      {0x00000001FEDCBA98, 0, 0, 0xFEDCBA98},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(testing::Message() << row.dividend << " / " << row.divisor);
    uint64_t quotient = 0x5555555555555555;
    uint32_t remainder[2] = {0x55555555, 0x55555555};
    OS_DO_DIV(row.dividend, row.divisor, &quotient, &remainder[0]);
    EXPECT_EQ(quotient, row.quotient);
    EXPECT_EQ(remainder[0], row.remainder);
    EXPECT_EQ(remainder[1], 0x55555555u);  // only 32 bits are stored
  }
}
