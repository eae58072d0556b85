// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Suppression: how it begins, how it ends, and the windows that mu_event_poll counts.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

constexpr uint64_t kCookie = 0xfedcba9876543210;
const Journal kSuppress{suppress_line(kCookie)};
const Journal kRelease{release_line(kCookie)};

// The send hook still sees the occurrences of a type that has lost its subscribers.
class EventSuppression : public testing::Test {
 protected:
  // Attaches the callbacks to a type and enables its suppression.
  static void suppress_type(int type, uint32_t threshold, uint32_t period_ms) {
    EXPECT_EQ(attach(type, kCookie), 0);
    EXPECT_EQ(configure(type, 1, threshold, period_ms), 0);
    EXPECT_EQ(take_journal(), Journal{release_line(kCookie)});
  }

  static void poll(int count = 1) {
    for (int i = 0; i < count; i++) mu_event_poll();
  }

  // The worked case: a threshold of 3, a period of 1000 ms, so 100 polls. `polls(n)` lets n polls happen.
  void run_worked_case(const std::function<void(int)> &polls) {
    suppress_type(1, 3, 1000);
    const mu_event_rec &record = rec(1);
    EXPECT_EQ(record.period, 100u);
    for (int i = 0; i < 3; i++) EXPECT_EQ(send(1), 0);
    EXPECT_EQ(take_journal(), (Journal{delivered(1), delivered(1), delivered(1)}));
    EXPECT_EQ(send(1), -1) << "the fourth";
    EXPECT_EQ(take_journal(), kSuppress);
    EXPECT_EQ(send(1), -1) << "the fifth";
    polls(99);
    EXPECT_EQ(take_journal(), Journal{});
    EXPECT_EQ(record.suprs_s, 1);
    EXPECT_EQ(record.tick, 99u);
    polls(1);
    EXPECT_EQ(take_journal(), kRelease);
    EXPECT_EQ(record.suprs_s, 0);
    EXPECT_EQ(record.tick, 100u) << "not reset";
    EXPECT_EQ(record.period_cnt, 3u) << "not reset";
    EXPECT_EQ(record.suprs_cnt, 2u);

    EXPECT_EQ(send(1), -1) << "before the next poll";
    EXPECT_EQ(take_journal(), kSuppress);
    EXPECT_EQ(record.suprs_cnt, 3u);
    polls(1);
    EXPECT_EQ(take_journal(), kRelease);
    EXPECT_EQ(record.tick, 101u);
    polls(1);
    EXPECT_EQ(take_journal(), Journal{}) << "an interval without an occurrence: a new window";
    EXPECT_EQ(record.tick, 0u);
    EXPECT_EQ(record.period_cnt, 0u);

    for (int i = 0; i < 3; i++) EXPECT_EQ(send(1), 0);
    EXPECT_EQ(send(1), -1);
    EXPECT_EQ(take_journal(), (Journal{delivered(1), delivered(1), delivered(1), suppress_line(kCookie)}));
    EXPECT_EQ(record.count, 6u);
    EXPECT_EQ(record.suprs_cnt, 4u);
  }

  static std::string delivered(uint32_t type) { return hook_line(0, type, nullptr, 0); }

  Registry registry_{4, hook};
};

using EventPoll = EventSuppression;

}  // namespace

// ---- Sending --------------------------------------------------------------------------------------------------------

TEST_F(EventSuppression, RunsTheWorkedCaseToItsEnd) {
  run_worked_case([](int count) { poll(count); });
}

TEST_F(EventSuppression, DeliversAsManyAsTheThresholdAndDropsTheNext) {
  suppress_type(1, 3, 1000);
  for (uint32_t i = 1; i <= 3; i++) {
    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(rec(1).count, i);
    EXPECT_EQ(rec(1).period_cnt, i);
    EXPECT_EQ(take_journal(), Journal{delivered(1)});
  }
  EXPECT_EQ(rec(1).suprs_s, 0);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), kSuppress);
  EXPECT_EQ(rec(1).suprs_s, 1);
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), Journal{}) << "only the first drop calls it";
  EXPECT_EQ(rec(1).suprs_cnt, 2u);
  EXPECT_EQ(rec(1).count, 3u);
  EXPECT_EQ(rec(1).period_cnt, 3u);
}

TEST_F(EventSuppression, DropsTheFirstWithAThresholdOfZero) {
  suppress_type(1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), kSuppress);
  EXPECT_EQ(rec(1).count, 0u);
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
}

TEST_F(EventSuppression, DropsForSubscribersToo) {
  mu_event_register(0, 1, subscriber<1>);
  configure(1, 1, 1, 1000);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), (Journal{delivered(1), subscriber_line(1, 0, 1, nullptr, 0)}));
  EXPECT_EQ(rec(1).suprs_cnt, 2u);
}

TEST_F(EventSuppression, ComparesTheThresholdUnsigned) {
  configure(1, 1, 0x80000000, 1000);
  EXPECT_EQ(send(1), 0);
  rec(1).period_cnt = 0x7fffffff;
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  configure(2, 1, 3, 1000);
  rec(2).period_cnt = UINT32_MAX;
  EXPECT_EQ(send(2), -1);
  take_journal();
}

TEST_F(EventSuppression, CountsTheOccurrencesThatCameWhileItWasOff) {
  for (int i = 0; i < 5; i++) send(1);
  configure(1, 1, 3, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(rec(1).count, 5u);
  take_journal();
}

TEST_F(EventSuppression, SwitchedOffDeliversAndKeepsItsState) {
  suppress_type(1, 1, 40);  // 4 polls
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  poll();
  configure(1, 0, 1, 40);
  take_journal();
  EXPECT_EQ(send(1), 0);
  poll(10);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
  EXPECT_EQ(rec(1).suprs_s, 1);
  EXPECT_EQ(rec(1).suprs_cnt, 0u);
  EXPECT_EQ(rec(1).tick, 1u) << "these polls were not counted";
  EXPECT_EQ(rec(1).period_cnt, 2u);
  configure(1, 1, 100, 40);
  take_journal();
  EXPECT_EQ(send(1), -1) << "still suppressed";
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
  poll(3);
  EXPECT_EQ(take_journal(), kRelease) << "in the fourth poll of the window";
}

TEST_F(EventSuppression, OfOneTypeDoesNotAffectTheOthers) {
  suppress_type(1, 0, 1000);
  suppress_type(2, 1, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(send(2), 0);
  EXPECT_EQ(send(3), 0);
  EXPECT_EQ(rec(2).suprs_s, 0);
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
  take_journal();
}

TEST_F(EventSuppression, CallsBackBeforeItChangesTheRecordWithTheLockHeld) {
  attach(1, kCookie, released, [](uint64_t cookie) {
    g_journal.push_back(line("%" PRIx64 ": suprs_s %d suprs_cnt %u %s", cookie, rec(1).suprs_s, rec(1).suprs_cnt,
                             lock_is_held() ? "held" : "free"));
  });
  configure(1, 1, 0, 1000);
  take_journal();
  send(1);
  EXPECT_EQ(take_journal(), Journal{"fedcba9876543210: suprs_s 0 suprs_cnt 0 held"});
  EXPECT_FALSE(lock_is_held());
  send(1);
  EXPECT_FALSE(lock_is_held());
}

// ---- Polling --------------------------------------------------------------------------------------------------------

TEST_F(EventPoll, CountsOnlyForTypesWithSuppressionOn) {
  configure(0, 1, 3, 1000);
  configure(3, 1, 3, 1000);
  poll(2);
  EXPECT_EQ(rec(0).tick, 2u);
  EXPECT_EQ(rec(1).tick, 0u);
  EXPECT_EQ(rec(2).tick, 0u);
  EXPECT_EQ(rec(3).tick, 2u) << "the last type too";
}

TEST_F(EventPoll, ChangesNothingOfATypeWhoseSuppressionIsOff) {
  rec(1).suprs_s = 1;
  rec(1).period_cnt = 5;
  const std::string before = state_bytes();
  poll(3);
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventPoll, BeginsANewWindowAfterThePeriod) {
  suppress_type(1, 3, 50);  // 5 polls
  send(1);
  send(1);
  for (uint32_t i = 1; i < 5; i++) {
    poll();
    EXPECT_EQ(rec(1).tick, i);
    EXPECT_EQ(rec(1).period_cnt, 2u);
  }
  poll();
  EXPECT_EQ(rec(1).tick, 0u);
  EXPECT_EQ(rec(1).period_cnt, 0u);
  EXPECT_EQ(rec(1).count, 2u);
  EXPECT_EQ(take_journal(), (Journal{delivered(1), delivered(1)})) << "nothing is released";
  for (int i = 0; i < 3; i++) EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  take_journal();
}

TEST_F(EventPoll, BeginsANewWindowEachTimeWithAPeriodOfOne) {
  suppress_type(1, 2, 10);
  for (int window = 0; window < 3; window++) {
    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(send(1), 0);
    poll();
    EXPECT_EQ(rec(1).period_cnt, 0u);
    EXPECT_EQ(rec(1).tick, 0u);
  }
  take_journal();
}

TEST_F(EventPoll, CountsFromTheBeginOfTheWindowNotOfTheSuppression) {
  suppress_type(1, 0, 1000);
  poll(40);
  EXPECT_EQ(send(1), -1);
  take_journal();
  poll(59);
  EXPECT_EQ(rec(1).suprs_s, 1);
  poll();
  EXPECT_EQ(rec(1).suprs_s, 0);
  EXPECT_EQ(take_journal(), kRelease);
}

TEST_F(EventSuppression, AlternatesUnderASteadyStream) {
  suppress_type(1, 2, 40);  // 4 polls
  send(1);
  send(1);
  EXPECT_EQ(send(1), -1);
  take_journal();
  poll(3);
  for (int i = 0; i < 50; i++) {
    poll();
    EXPECT_EQ(send(1), -1);
    EXPECT_EQ(send(1), -1);
    ASSERT_EQ(take_journal(), (Journal{release_line(kCookie), suppress_line(kCookie)})) << i;
  }
  EXPECT_EQ(rec(1).count, 2u);
  EXPECT_EQ(rec(1).suprs_cnt, 101u);
  poll();  // releases
  poll();  // one whole interval without an occurrence
  EXPECT_EQ(take_journal(), kRelease);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
}

TEST_F(EventPoll, ComparesTheTickUnsigned) {
  configure(1, 1, 1, 1000);
  rec(1).period = 0x80000000;
  rec(1).period_cnt = 5;
  poll();
  EXPECT_EQ(rec(1).period_cnt, 5u);
  rec(1).tick = 0x7fffffff;
  poll();
  EXPECT_EQ(rec(1).period_cnt, 0u);
  EXPECT_EQ(rec(1).tick, 0u);
  rec(1).period = 1;
  rec(1).tick = UINT32_MAX;
  rec(1).period_cnt = 5;
  poll();
  EXPECT_EQ(rec(1).tick, 0u);
  EXPECT_EQ(rec(1).period_cnt, 5u) << "the tick wrapped to 0, which is less than the period";
}

TEST_F(EventPoll, EndsTheWindowAtOnceAfterThePeriodWasShortened) {
  suppress_type(1, 1, 1000);
  send(1);
  poll(60);
  configure(1, 1, 1, 100);  // 10 polls
  EXPECT_EQ(rec(1).tick, 60u);
  EXPECT_EQ(rec(1).period_cnt, 1u);
  poll();
  EXPECT_EQ(rec(1).tick, 0u);
  EXPECT_EQ(rec(1).period_cnt, 0u);
  take_journal();
}

TEST_F(EventPoll, ReleasesAtOnceAfterThePeriodWasShortened) {
  suppress_type(1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  poll(50);
  configure(1, 1, 0, 20);  // 2 polls
  take_journal();
  poll();
  EXPECT_EQ(take_journal(), kRelease);
}

TEST_F(EventPoll, ReleasesTypesInTheirOrder) {
  for (const int type : {3, 0, 2}) {
    attach(type, static_cast<uint64_t>(type));
    configure(type, 1, 0, 10);
    send(type);
  }
  take_journal();
  poll();
  EXPECT_EQ(take_journal(), (Journal{release_line(0), release_line(2), release_line(3)}));
}

TEST_F(EventPoll, CallsBackAfterTheFlagIsClearedWithTheLockHeld) {
  attach(1, kCookie, [](uint64_t cookie) {
    g_journal.push_back(line("%" PRIx64 ": suprs_s %d %s", cookie, rec(1).suprs_s, lock_is_held() ? "held" : "free"));
  });
  configure(1, 1, 0, 10);
  send(1);
  take_journal();
  poll();
  EXPECT_EQ(take_journal(), Journal{"fedcba9876543210: suprs_s 0 held"});
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventPoll, AllocatesAndPrintsNothing) {
  suppress_type(1, 0, 10);
  Console console;
  {
    const FailingMalloc failing(1, 1000000);
    send(1);
    poll(3);
    EXPECT_EQ(failing.seen(), 0);
  }
  EXPECT_EQ(console.take(), "");
  take_journal();
}

// ---- The polling timer ----------------------------------------------------------------------------------------------

TEST_F(EventPoll, RunsEvery500MillisecondsOnTheTimer) {
  registry_.clock.scan();  // the first scan runs every timer
  configure(1, 1, 3, 1000000);
  for (uint32_t polls = 1; polls <= 5; polls++) {
    registry_.clock.run_ms(499);
    EXPECT_EQ(rec(1).tick, polls - 1);
    registry_.clock.run_ms(1);
    EXPECT_EQ(rec(1).tick, polls);
  }
}

// A period of 1000 ms lasts 50 s: 100 polls of 500 ms.
TEST_F(EventSuppression, RunsTheWorkedCaseOnThePollingTimer) {
  registry_.clock.scan();
  run_worked_case([this](int count) { registry_.clock.run_ms(int64_t{500} * count); });
}
