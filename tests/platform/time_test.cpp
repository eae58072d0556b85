// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The clocks and delays under the platform's names.

#include "platform/fixture.h"
#include "support/virtual_clock.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_current_time), int64_t (*)()>);
static_assert(std::is_same_v<decltype(&mu_current_tick), uint64_t (*)()>);
static_assert(std::is_same_v<decltype(&mu_udelay), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_mdelay), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_sleep), void (*)(uint32_t)>);

namespace {

struct Wait {
  time_t seconds;
  suseconds_t microseconds;

  bool operator==(const Wait &) const = default;
};

void PrintTo(const Wait &wait, std::ostream *out) { *out << wait.seconds << " s " << wait.microseconds << " us"; }

// The waits that `delay(amount)` makes.
std::vector<Wait> waits_of(void (*delay)(uint32_t), uint32_t amount) {
  std::vector<Wait> waits;
  Replace select(libc::select, [&](int, fd_set *, fd_set *, fd_set *, timeval *timeout) {
    waits.push_back({timeout->tv_sec, timeout->tv_usec});
    return 0;
  });
  delay(amount);
  return waits;
}

}  // namespace

TEST(MuTime, ReadsTheClocks) {
  VirtualClock clock(123456);
  clock.set_wall(1185252801, 250000);  // 1.25 s after the private epoch
  EXPECT_EQ(mu_current_tick(), 12345u);
  EXPECT_EQ(mu_current_time(), 125);
  clock.set_wall(1185252799, 0);
  EXPECT_EQ(mu_current_tick(), 12345u);
  EXPECT_EQ(mu_current_time(), -100);
}

TEST(MuDelay, WaitsOnce) {
  const struct {
    const char *reason;
    void (*delay)(uint32_t);
    uint32_t amount;
    std::vector<Wait> waits;
  } kRows[] = {
      {"udelay 0 makes the call", mu_udelay, 0, {{0, 0}}},
      {"udelay 1", mu_udelay, 1, {{0, 1}}},
      {"udelay 1500000", mu_udelay, 1500000, {{1, 500000}}},
      {"udelay 2^32 - 1", mu_udelay, 4294967295, {{4294, 967295}}},
      {"mdelay 0 makes the call", mu_mdelay, 0, {{0, 0}}},
      {"mdelay 1", mu_mdelay, 1, {{0, 1000}}},
      {"mdelay 1500", mu_mdelay, 1500, {{1, 500000}}},
      {"mdelay 4294967 does not wrap", mu_mdelay, 4294967, {{4294, 967000}}},
      {"mdelay 4294968 wraps", mu_mdelay, 4294968, {{0, 704}}},
      {"mdelay 5000000 wraps", mu_mdelay, 5000000, {{705, 32704}}},
      {"sleep 0 does not", mu_sleep, 0, {}},
      {"sleep 1", mu_sleep, 1, {{0, 1000}}},
      {"sleep 1500", mu_sleep, 1500, {{1, 500000}}},
      {"sleep 4294968 wraps", mu_sleep, 4294968, {{0, 704}}},
      {"sleep 5000000 wraps", mu_sleep, 5000000, {{705, 32704}}},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.reason);
    EXPECT_EQ(waits_of(row.delay, row.amount), row.waits);
  }
}
