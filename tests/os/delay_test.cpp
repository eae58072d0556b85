// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The two delays.

#include <type_traits>
#include <vector>

#include "os/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_DELAY), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&OS_SLEEP), void (*)(uint32_t)>);

namespace {

// The select calls that the library makes, each answered at once.
class Selects {
 public:
  explicit Selects(int error = 0)
      : select_(libc::select, [this, error](int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
          EXPECT_EQ(count, 1);
          EXPECT_TRUE(read == nullptr && write == nullptr && except == nullptr);
          timeouts_.push_back(*timeout);
          if (error == 0) return 0;
          errno = error;
          return -1;
        }) {}

  // Expects that there was one, with that timeout.
  void expect_one(time_t seconds, suseconds_t microseconds) const {
    ASSERT_EQ(timeouts_.size(), 1u);
    EXPECT_EQ(timeouts_[0].tv_sec, seconds);
    EXPECT_EQ(timeouts_[0].tv_usec, microseconds);
  }
  size_t count() const { return timeouts_.size(); }

 private:
  std::vector<timeval> timeouts_;
  Replace<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_;
};

struct Row {
  uint32_t argument;
  time_t seconds;
  suseconds_t microseconds;
};

}  // namespace

TEST(OsDelay, WaitsInOneSelectWithoutDescriptors) {
  constexpr Row kRows[] = {
      {0, 0, 0},  // also makes the call
      {1, 0, 1},       {999999, 0, 999999},        {1000000, 1, 0},
      {1000001, 1, 1}, {2147483648, 2147, 483648}, {4294967295, 4294, 967295},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.argument);
    const Selects selects;
    OS_DELAY(row.argument);
    selects.expect_one(row.seconds, row.microseconds);
  }
}

TEST(OsDelay, ASignalEndsIt) {
  const Selects selects(EINTR);
  OS_DELAY(5000000);
  selects.expect_one(5, 0);
}

TEST(OsSleep, WaitsMillisecondsInOneSelect) {
  constexpr Row kRows[] = {
      {1, 0, 1000}, {10, 0, 10000}, {999, 0, 999000}, {1000, 1, 0}, {1500, 1, 500000},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.argument);
    const Selects selects;
    OS_SLEEP(row.argument);
    selects.expect_one(row.seconds, row.microseconds);
  }
}

TEST(OsSleep, WrapsAbove4294967Milliseconds) {
  constexpr Row kRows[] = {
      {4294967, 4294, 967000},     // the largest that does not wrap
      {4294968, 0, 704},           // 4294968000 - 2^32
      {5000000, 705, 32704},       // 5000000000 - 2^32: about 705 s
      {536870912, 0, 0},           // 125 * 2^32: the product is 0, but the argument is not, so the call is made
      {4294967295, 4294, 966296},  // -1 * 1000
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.argument);
    const Selects selects;
    OS_SLEEP(row.argument);
    selects.expect_one(row.seconds, row.microseconds);
  }
}

TEST(OsSleep, ZeroMakesNoSystemCall) {
  const Selects selects;
  OS_SLEEP(0);
  EXPECT_EQ(selects.count(), 0u);
}

TEST(OsSleep, ASignalEndsIt) {
  const Selects selects(EINTR);
  OS_SLEEP(5000);
  selects.expect_one(5, 0);
}
