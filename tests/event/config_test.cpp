// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Counters and settings of the table, without a configuration handler.

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

#include "event/fixture.h"

using namespace event_test;

namespace {

class EventConfiguration : public testing::Test {
 protected:
  EventConfiguration() {
    for (int i = 0; i < 3; i++) {
      const auto n = static_cast<uint32_t>(i);
      rec(i).count = 100 + n;
      rec(i).suprs_cnt = 200 + n;
      rec(i).period_cnt = 300 + n;
      rec(i).tick = 400 + n;
    }
  }

  // The bytes of a record after `change`.
  static std::string with(mu_event_rec record, const std::function<void(mu_event_rec &)> &change) {
    change(record);
    return bytes_of(record);
  }

  Registry registry_{3, hook};
};

using EventCounterGet = EventConfiguration;
using EventCounterClear = EventConfiguration;
using EventSet = EventConfiguration;
using EventGet = EventConfiguration;

}  // namespace

// ---- Counters -------------------------------------------------------------------------------------------------------

TEST_F(EventCounterGet, ReturnsMinusOneWithTheLocalValue) {
  for (const uint32_t value : {0u, 101u, UINT32_MAX}) {
    rec(1).count = value;
    const std::string before = state_bytes();
    uint32_t count = 9;
    EXPECT_EQ(mu_event_counter_get(0, 1, &count, 0), -1);
    EXPECT_EQ(count, value);
    EXPECT_EQ(state_bytes(), before);
  }
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventCounterGet, ClearsOnlyTheCountAndOnlyWhenAsked) {
  for (const uint32_t clear : {1u, 2u, 256u, 0x10000u, 0x80000000u}) {
    SCOPED_TRACE(clear);
    rec(1).count = 55;
    const std::string expected = with(rec(1), [](mu_event_rec &record) { record.count = 0; });
    const std::string others = bytes_of(rec(0)) + bytes_of(rec(2));
    uint32_t count = 9;
    EXPECT_EQ(mu_event_counter_get(0, 1, &count, clear), -1);
    EXPECT_EQ(count, 55u);
    EXPECT_EQ(bytes_of(rec(1)), expected);
    EXPECT_EQ(bytes_of(rec(0)) + bytes_of(rec(2)), others);
  }
}

TEST_F(EventCounterGet, StoresZeroForATypeOutOfRange) {
  const std::string before = state_bytes();
  for (const uint32_t type : {3u, 4u, 0x80000000u, UINT32_MAX}) {
    uint32_t count = 9;
    EXPECT_EQ(mu_event_counter_get(0, type, &count, 1), -1) << type;
    EXPECT_EQ(count, 0u) << type;
  }
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventCounterClear, SetsBothCountersToZero) {
  const std::string expected = with(rec(1), [](mu_event_rec &record) { record.count = record.suprs_cnt = 0; });
  const std::string others = bytes_of(rec(0)) + bytes_of(rec(2));
  EXPECT_EQ(mu_event_counter_clear(0, 1), 0);
  EXPECT_EQ(bytes_of(rec(1)), expected);
  EXPECT_EQ(bytes_of(rec(0)) + bytes_of(rec(2)), others);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventCounterClear, RefusesATypeOutOfRangeUnsigned) {
  const std::string before = state_bytes();
  for (const uint32_t type : {3u, 0x80000000u, UINT32_MAX}) EXPECT_EQ(mu_event_counter_clear(0, type), -1) << type;
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventCounterClear, AllSetsBothCountersOfEveryTypeToZero) {
  std::string expected;
  for (int i = 0; i < 3; i++) {
    expected += with(rec(i), [](mu_event_rec &record) { record.count = record.suprs_cnt = 0; });
  }
  EXPECT_EQ(mu_event_counter_clear_all(9), 0);
  EXPECT_EQ(bytes_of(rec(0)) + bytes_of(rec(1)) + bytes_of(rec(2)), expected);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventCounterClear, DoesNotEndASuppression) {
  configure(1, 1, 0, 1000);
  send(1);
  mu_event_counter_clear(0, 1);
  EXPECT_EQ(rec(1).suprs_s, 1);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
}

// ---- Settings -------------------------------------------------------------------------------------------------------

TEST_F(EventConfiguration, RefusesANullPointer) {
  const std::string before = state_bytes();
  for (const int type : {0, 3, -1}) {
    EXPECT_EQ(mu_event_set(0, type, nullptr), -1) << type;
    EXPECT_EQ(mu_event_get(0, type, nullptr), -1) << type;
  }
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventConfiguration, RefusesATypeBeyondTheTable) {
  const std::string before = state_bytes();
  mu_event_cfg_t cfg = {1, 2, 3};
  for (const int type : {3, 4, INT_MAX}) {
    EXPECT_EQ(mu_event_set(0, type, &cfg), -1) << type;
    EXPECT_EQ(mu_event_get(0, type, &cfg), -1) << type;
  }
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 2, 3}));
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventSet, ChangesFourFieldsOfTheRecord) {
  attach(1, 7);
  rec(1).registered = 1;
  rec(1).suprs_s = 1;
  rec(1).count = 101;
  rec(1).suprs_cnt = 201;
  rec(1).period_cnt = 301;
  rec(1).tick = 401;
  const std::string expected = with(rec(1), [](mu_event_rec &record) {
    record.suprs_cnt = 0;
    record.period = 123;
    record.threshold = 0xdeadbeef;
    record.suprs_en = 1;
  });
  const std::string others = bytes_of(rec(0)) + bytes_of(rec(2));
  EXPECT_EQ(configure(1, 1, 0xdeadbeef, 1239), 0);
  EXPECT_EQ(bytes_of(rec(1)), expected);
  EXPECT_EQ(bytes_of(rec(0)) + bytes_of(rec(2)), others);
  EXPECT_FALSE(lock_is_held());
  take_journal();
}

TEST_F(EventSet, KeepsThePeriodInUnitsOf10Ms) {
  struct Row {
    uint32_t set, kept, reported;
  };
  for (const Row &row :
       {Row{0, 1, 10}, Row{1, 1, 10}, Row{5, 1, 10}, Row{9, 1, 10}, Row{10, 1, 10}, Row{11, 1, 10}, Row{19, 1, 10},
        Row{20, 2, 20}, Row{25, 2, 20}, Row{29, 2, 20}, Row{1000, 100, 1000}, Row{0x7fffffff, 214748364, 2147483640},
        Row{0x80000000, 214748364, 2147483640}, Row{UINT32_MAX, 429496729, 4294967290}}) {
    SCOPED_TRACE(row.set);
    EXPECT_EQ(configure(1, 1, 3, row.set), 0);
    EXPECT_EQ(rec(1).period, row.kept);
    mu_event_cfg_t cfg = {9, 9, 9};
    EXPECT_EQ(mu_event_get(0, 1, &cfg), 0);
    EXPECT_EQ(cfg.suprs_en, 1u);
    EXPECT_EQ(cfg.threshold, 3u);
    EXPECT_EQ(cfg.period, row.reported);
  }
}

TEST_F(EventSet, TakesAnyNonzeroValueAsOn) {
  for (const uint32_t on : {1u, 2u, 255u, 256u, 0x10000u, 0x80000000u}) {
    SCOPED_TRACE(on);
    configure(1, 0, 3, 10);
    EXPECT_EQ(rec(1).suprs_en, 0);
    mu_event_cfg_t cfg = {9, 9, 9};
    mu_event_get(0, 1, &cfg);
    EXPECT_EQ(cfg.suprs_en, 0u);
    configure(1, on, UINT32_MAX, 10);
    EXPECT_EQ(rec(1).suprs_en, 1);
    mu_event_get(0, 1, &cfg);
    EXPECT_EQ(cfg.suprs_en, 1u);
    EXPECT_EQ(cfg.threshold, UINT32_MAX);
  }
}

TEST_F(EventGet, ReportsZerosOfATypeThatWasNeverSet) {
  mu_event_cfg_t cfg = {9, 9, 9};
  const std::string before = state_bytes();
  EXPECT_EQ(mu_event_get(0, 2, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{0, 0, 0}));
  EXPECT_EQ(state_bytes(), before);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventSet, CallsTheReleaseCallbackLastWithTheLockHeld) {
  attach(1, 0xfedcba9876543210, [](uint64_t cookie) {
    g_journal.push_back(line("%" PRIx64 ": en %d suprs_cnt %u threshold %u period %u %s", cookie, rec(1).suprs_en,
                             rec(1).suprs_cnt, rec(1).threshold, rec(1).period, lock_is_held() ? "held" : "free"));
  });
  rec(1).suprs_cnt = 9;
  EXPECT_EQ(configure(1, 1, 3, 40), 0);
  EXPECT_EQ(take_journal(), Journal{"fedcba9876543210: en 1 suprs_cnt 0 threshold 3 period 4 held"})
      << "also for a type that is not suppressed";
  EXPECT_EQ(configure(1, 0, 4, 50), 0);
  EXPECT_EQ(take_journal(), Journal{"fedcba9876543210: en 0 suprs_cnt 0 threshold 4 period 5 held"});
}

TEST_F(EventSet, CallsNothingWithoutACallback) {
  EXPECT_EQ(configure(1, 1, 3, 40), 0);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventGet, CallsNothing) {
  attach(1, 7);
  mu_event_cfg_t cfg;
  EXPECT_EQ(mu_event_get(0, 1, &cfg), 0);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventSet, DoesNotEndASuppression) {
  attach(1, 7);
  configure(1, 1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  configure(1, 1, 100, 1000);
  take_journal();
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), Journal{});
}
