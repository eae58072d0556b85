// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The counter and configuration operations: on the table, and through a configuration handler.

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"
#include "support/heap.h"

using namespace event_test;
using namespace tarn_test;

namespace {

class EventConfigContract : public testing::Test {
 protected:
  EventConfigContract() {
    for (int i = 0; i < 3; i++) {
      const auto n = static_cast<uint32_t>(i);
      rec(i).count = 100 + n;
      rec(i).suprs_cnt = 200 + n;
      rec(i).period_cnt = 300 + n;
      rec(i).tick = 400 + n;
    }
  }

  // All of a record but what the caller names in `change`.
  static std::string with(mu_event_rec record, const std::function<void(mu_event_rec &)> &change) {
    change(record);
    return bytes_of(record);
  }

  Registry registry_{3, hook};
};

using EventCounterContract = EventConfigContract;

// The eight words of a message.
using Words = std::array<uint32_t, 8>;

struct Handled {
  uint16_t device;
  Words words;
  bool locked;
  bool operator==(const Handled &) const = default;
};

void PrintTo(const Handled &handled, std::ostream *out) {
  *out << "{device " << handled.device << (handled.locked ? " locked" : " unlocked");
  for (const uint32_t word : handled.words) *out << ' ' << word;
  *out << '}';
}

std::vector<Handled> g_handled;
std::function<void(Words &)> g_answer;

std::vector<Handled> take_handled() { return std::exchange(g_handled, {}); }

// Sees the message as 32 bytes, not through the header's structure.
int handle(uint16_t device_id, mu_event_msg_t *msg) {
  Words words;
  static_assert(sizeof words == 32);
  memcpy(words.data(), static_cast<const void *>(msg), sizeof words);
  g_handled.push_back({device_id, words, lock_is_held()});
  if (g_answer) g_answer(words);
  memcpy(static_cast<void *>(msg), words.data(), sizeof words);
  return -1;  // ignored
}

class EventHandlerContract : public testing::Test {
 protected:
  EventHandlerContract() {
    take_handled();
    attach(1, 5);
    for (int i = 0; i < 3; i++) {
      rec(i).count = 100;
      rec(i).suprs_cnt = 200;
    }
    before_ = state_bytes();
  }
  ~EventHandlerContract() override {
    g_answer = nullptr;
    EXPECT_EQ(state_bytes(), before_) << "with a handler no record is touched";
    EXPECT_EQ(take_journal(), Journal{}) << "nor is any callback called";
    EXPECT_EQ(console_.take(), "");
    EXPECT_FALSE(lock_is_held());
  }

  Registry registry_{3, hook, handle};
  std::string before_;
  Console console_;
};

using HandledList = std::vector<Handled>;

}  // namespace

// ---- Counters of the table ------------------------------------------------------------------------------------------

TEST_F(EventCounterContract, GetDeliversTheCountAndMinusOne) {
  const std::string before = state_bytes();
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0, 1, &count, 0), -1);
  EXPECT_EQ(count, 101u);
  EXPECT_EQ(state_bytes(), before);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventCounterContract, GetClearsTheCountAloneWhenAsked) {
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

TEST_F(EventCounterContract, GetDeliversAllThirtyTwoBits) {
  rec(2).count = UINT32_MAX;
  uint32_t count = 0;
  mu_event_counter_get(0, 2, &count, 0);
  EXPECT_EQ(count, UINT32_MAX);
}

TEST_F(EventCounterContract, GetStoresZeroForATypeOutOfRange) {
  const std::string before = state_bytes();
  for (const uint32_t type : {3u, 4u, 0x80000000u, UINT32_MAX}) {
    uint32_t count = 9;
    EXPECT_EQ(mu_event_counter_get(0, type, &count, 1), -1) << type;
    EXPECT_EQ(count, 0u) << type;
  }
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventCounterContract, ClearSetsBothCountersOfTheTypeToZero) {
  const std::string expected = with(rec(1), [](mu_event_rec &record) { record.count = record.suprs_cnt = 0; });
  const std::string others = bytes_of(rec(0)) + bytes_of(rec(2));
  EXPECT_EQ(mu_event_counter_clear(0, 1), 0);
  EXPECT_EQ(bytes_of(rec(1)), expected);
  EXPECT_EQ(bytes_of(rec(0)) + bytes_of(rec(2)), others);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventCounterContract, ClearComparesTheTypeUnsigned) {
  const std::string before = state_bytes();
  for (const uint32_t type : {3u, 0x80000000u, UINT32_MAX}) EXPECT_EQ(mu_event_counter_clear(0, type), -1) << type;
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventCounterContract, ClearAllSetsBothCountersOfEveryTypeToZero) {
  std::string expected;
  for (int i = 0; i < 3; i++) {
    expected += with(rec(i), [](mu_event_rec &record) { record.count = record.suprs_cnt = 0; });
  }
  EXPECT_EQ(mu_event_counter_clear_all(9), 0);
  EXPECT_EQ(bytes_of(rec(0)) + bytes_of(rec(1)) + bytes_of(rec(2)), expected);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventCounterContract, ClearDoesNotEndASuppression) {
  configure(1, 1, 0, 1000);
  send(1);
  mu_event_counter_clear(0, 1);
  EXPECT_EQ(rec(1).suprs_s, 1);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
}

// ---- Configuration of the table -------------------------------------------------------------------------------------

TEST_F(EventConfigContract, RefusesANullConfiguration) {
  const std::string before = state_bytes();
  for (const int type : {0, 3, -1}) {
    EXPECT_EQ(mu_event_set(0, type, nullptr), -1) << type;
    EXPECT_EQ(mu_event_get(0, type, nullptr), -1) << type;
  }
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventConfigContract, RefusesATypeBeyondTheTable) {
  const std::string before = state_bytes();
  mu_event_cfg_t cfg = {1, 2, 3};
  for (const int type : {3, 4, INT_MAX}) {
    EXPECT_EQ(mu_event_set(0, type, &cfg), -1) << type;
    EXPECT_EQ(mu_event_get(0, type, &cfg), -1) << type;
  }
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 2, 3}));
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventConfigContract, SetChangesFourFieldsAndNoOther) {
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

TEST_F(EventConfigContract, KeepsThePeriodInTensOfMillisecondsAndReportsItSo) {
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

TEST_F(EventConfigContract, TakesAnyNonzeroAsOn) {
  for (const uint32_t on : {1u, 2u, 255u, 256u, 0x10000u, 0x80000000u}) {
    SCOPED_TRACE(on);
    configure(1, 0, 3, 10);
    EXPECT_EQ(rec(1).suprs_en, 0);
    mu_event_cfg_t cfg = {9, 9, 9};
    mu_event_get(0, 1, &cfg);
    EXPECT_EQ(cfg.suprs_en, 0u);
    configure(1, on, 3, 10);
    EXPECT_EQ(rec(1).suprs_en, 1);
    mu_event_get(0, 1, &cfg);
    EXPECT_EQ(cfg.suprs_en, 1u);
  }
}

TEST_F(EventConfigContract, GetReportsATypeThatWasNeverSet) {
  mu_event_cfg_t cfg = {9, 9, 9};
  const std::string before = state_bytes();
  EXPECT_EQ(mu_event_get(0, 2, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{0, 0, 0}));
  EXPECT_EQ(state_bytes(), before);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventConfigContract, SetCallsTheReleaseCallbackLastWithTheLockHeld) {
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

TEST_F(EventConfigContract, SetCallsNobodyWithoutACallback) {
  EXPECT_EQ(configure(1, 1, 3, 40), 0);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventConfigContract, GetCallsNobody) {
  attach(1, 7);
  mu_event_cfg_t cfg;
  EXPECT_EQ(mu_event_get(0, 1, &cfg), 0);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventConfigContract, SetLeavesASuppressionOn) {
  attach(1, 7);
  configure(1, 1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  configure(1, 1, 100, 1000);
  take_journal();
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), Journal{});
}

// ---- With a handler -------------------------------------------------------------------------------------------------

TEST_F(EventHandlerContract, IsSentACounterGet) {
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0xabcd, 2, &count, 0xdeadbeef), 0);
  EXPECT_EQ(take_handled(), (HandledList{{0xabcd, {0, 2, 0, 0, 0, 0, 0, 0xdeadbeef}, true}}));
  EXPECT_EQ(count, 0u) << "the handler answered nothing";
  EXPECT_EQ(mu_event_counter_get(0xffff, 0, &count, 0), 0);
  EXPECT_EQ(take_handled(), (HandledList{{0xffff, {0, 0, 0, 0, 0, 0, 0, 0}, true}}));
}

TEST_F(EventHandlerContract, AnswersACounterGet) {
  g_answer = [](Words &words) { words = {91, 92, 93, 94, 95, 96, 97, 98}; };
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0, 1, &count, 1), 0);
  EXPECT_EQ(count, 97u);
}

TEST_F(EventHandlerContract, IsSentACounterClear) {
  EXPECT_EQ(mu_event_counter_clear(3, 2), 0);
  EXPECT_EQ(take_handled(), (HandledList{{3, {1, 2, 0, 0, 0, 0, 0, 0}, true}}));
}

TEST_F(EventHandlerContract, IsSentAClearOfAllCounters) {
  EXPECT_EQ(mu_event_counter_clear_all(0x1234), 0);
  EXPECT_EQ(take_handled(), (HandledList{{0x1234, {2, 0, 0, 0, 0, 0, 0, 0}, true}}));
}

TEST_F(EventHandlerContract, IsSentAConfigurationAsItIs) {
  g_answer = [](Words &words) { words.fill(7); };
  const mu_event_cfg_t cfg = {0x80000000, 0xdeadbeef, 25};
  EXPECT_EQ(mu_event_set(4, 1, &cfg), 0);
  EXPECT_EQ(take_handled(), (HandledList{{4, {3, 1, 0, 0x80000000, 0xdeadbeef, 25, 0, 0}, true}}));
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{0x80000000, 0xdeadbeef, 25}));
}

TEST_F(EventHandlerContract, IsSentTheCallersConfigurationForAGet) {
  mu_event_cfg_t cfg = {11, 12, 13};
  EXPECT_EQ(mu_event_get(5, 2, &cfg), 0);
  EXPECT_EQ(take_handled(), (HandledList{{5, {4, 2, 0, 11, 12, 13, 0, 0}, true}}));
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{11, 12, 13}));
}

TEST_F(EventHandlerContract, AnswersAGet) {
  g_answer = [](Words &words) { words = {91, 92, 93, 94, 95, 96, 97, 98}; };
  mu_event_cfg_t cfg = {11, 12, 13};
  EXPECT_EQ(mu_event_get(0, 2, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{94, 95, 96}));
}

TEST_F(EventHandlerContract, IsSentADumpWithoutTheLock) {
  mu_event_dump();
  EXPECT_EQ(take_handled(), (HandledList{{0, {5, 0, 0, 0, 0, 0, 0, 0}, false}}));
  EXPECT_EQ(console_.take(), "") << "no table is printed";
}

TEST_F(EventHandlerContract, IsSentNegativeTypesBySetAndGetAlone) {
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_set(0, -1, &cfg), 0);
  EXPECT_EQ(mu_event_get(0, INT_MIN, &cfg), 0);
  EXPECT_EQ(take_handled(),
            (HandledList{{0, {3, UINT32_MAX, 0, 1, 2, 3, 0, 0}, true}, {0, {4, 0x80000000, 0, 1, 2, 3, 0, 0}, true}}));
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0, UINT32_MAX, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, UINT32_MAX), -1);
  EXPECT_EQ(take_handled(), HandledList{});
}

TEST_F(EventHandlerContract, IsNotAskedForWhatIsRefused) {
  mu_event_cfg_t cfg = {1, 2, 3};
  uint32_t count = 9;
  EXPECT_EQ(mu_event_set(0, 3, &cfg), -1);
  EXPECT_EQ(mu_event_set(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_get(0, 3, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 3), -1);
  EXPECT_EQ(take_handled(), HandledList{});
}

// The other operations stay with the table.
TEST(EventHandlerOtherContract, DoesNotSeeRegistrationsOccurrencesAndPolls) {
  const Registry registry(2, hook, handle);
  take_handled();
  EXPECT_EQ(mu_event_register(0, 0, subscriber<1>), 0);
  EXPECT_EQ(send(0), 0);
  EXPECT_EQ(take_journal().size(), 2u);
  EXPECT_EQ(mu_event_deregister(0, 0, subscriber<1>), 0);
  EXPECT_EQ(attach(1, 7), 0);
  rec(1).suprs_en = 1;
  EXPECT_EQ(send(1), -1);
  mu_event_poll();
  EXPECT_EQ(take_journal(), (Journal{suppress_line(7), release_line(7)}));
  EXPECT_EQ(take_handled(), HandledList{});
}

TEST(EventHandlerOtherContract, IsSentTwoOperationsBeforeInitToo) {
  glb_evt.cfg_handler = handle;
  uint32_t count = 9;
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_counter_get(0, 0, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 0), -1);
  EXPECT_EQ(mu_event_set(0, 0, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, &cfg), -1);
  EXPECT_EQ(mu_event_counter_clear_all(8), 0);
  mu_event_dump();
  EXPECT_EQ(take_handled(), (HandledList{{8, {2, 0, 0, 0, 0, 0, 0, 0}, false}, {0, {5, 0, 0, 0, 0, 0, 0, 0}, false}}));
  glb_evt.cfg_handler = nullptr;
}
