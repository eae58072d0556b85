#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "tarn/os.h"

TEST(OsStrtoul, IsLibcs) {
  char *end = nullptr;
  const char text[] = " 0x1Fz";
  EXPECT_EQ(OS_STRTOUL(text, &end, 16), 31u);
  EXPECT_EQ(end, text + 5);
  EXPECT_EQ(OS_STRTOUL("077", nullptr, 0), 63u);
  EXPECT_EQ(OS_STRTOUL("-1", nullptr, 10), ULONG_MAX);
  errno = 0;
  EXPECT_EQ(OS_STRTOUL("99999999999999999999", nullptr, 10), ULONG_MAX);
  EXPECT_EQ(errno, ERANGE);
}

TEST(OsDoDiv, DividesWithoutTrapping) {
  struct Row {
    uint64_t dividend;
    uint32_t divisor;
    uint64_t quotient;
    uint32_t remainder;
  };
  constexpr Row kRows[] = {
      {1000000000007, 10, 100000000000, 7},
      {4294967301, 0, 0, 5},  // zero divisor: the low 32 bits are left
      {UINT64_MAX, 0, 0, UINT32_MAX},
      {0, 0, 0, 0},
      {UINT64_MAX, 1, UINT64_MAX, 0},
      {UINT64_MAX, UINT32_MAX, 4294967297, 0},  // (2^64 - 1) = (2^32 - 1)(2^32 + 1)
      {UINT32_MAX - 1u, UINT32_MAX, 0, UINT32_MAX - 1u},
  };
  for (const Row &row : kRows) {
    uint64_t quotient = 99;
    uint32_t remainder = 99;
    OS_DO_DIV(row.dividend, row.divisor, &quotient, &remainder);
    EXPECT_EQ(quotient, row.quotient) << row.dividend << '/' << row.divisor;
    EXPECT_EQ(remainder, row.remainder) << row.dividend << '/' << row.divisor;
  }
}

TEST(OsWorkQueue, AcceptsEverythingAndRunsNothing) {
  EXPECT_EQ(OS_WORKQUEUE_CREATE(nullptr, nullptr), 0);
  int touched = 0;
  EXPECT_EQ(OS_WORK_ADD(&touched, &touched, &touched), 0);
  OS_WORK_PROCESS_INTERNAL();
  OS_WORKQUEUE_DESTROY(&touched);
  EXPECT_EQ(touched, 0);
}
