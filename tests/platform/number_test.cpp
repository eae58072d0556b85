// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The division under the platform's name.

#include "platform/fixture.h"

static_assert(std::is_same_v<decltype(&mu_div), void (*)(uint64_t, uint32_t, uint64_t *, uint32_t *)>);

TEST(MuDiv, Divides) {
  const struct {
    uint64_t dividend;
    uint32_t divisor;
    uint64_t quotient;
    uint32_t remainder;
  } kRows[] = {
      {1000000000007, 10, 100000000000, 7},
      {UINT64_MAX, 0xFFFFFFFF, 0x100000001, 0},
      {4294967301, 0, 0, 5},  // zero divisor: the low half is the remainder
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.dividend);
    uint64_t quotient = 1;
    uint32_t remainder[2] = {1, 0x55555555};
    mu_div(row.dividend, row.divisor, &quotient, &remainder[0]);
    EXPECT_EQ(quotient, row.quotient);
    EXPECT_EQ(remainder[0], row.remainder);
    EXPECT_EQ(remainder[1], 0x55555555u);
  }
}
