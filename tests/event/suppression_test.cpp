// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Suppression, poll by poll: by calling mu_event_poll, and through the polling timer on the virtual clock.

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "event/subscribers.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr int kType = 3;
constexpr uint64_t kCookie = 0xFEDCBA9876543210;

// A type with suppression callbacks, seen by the send hook; its events are told apart by nothing.
class EventSuppression : public testing::Test {
 protected:
  EventSuppression() {
    mu_event_init(5, hook, nullptr);
    attach(kType, released, suppressed, kCookie);
    clock_.scan();  // past the scan that counts the age of the clock, which polls
  }

  void configure(uint32_t threshold, uint32_t period_ms) {
    suppress_above(kType, threshold, period_ms);
    take_calls();
  }

  static mu_event_rec &event() { return glb_evt.events[kType]; }

  static mu_status_t send() { return mu_event_send(1, kType, nullptr, 0); }

  static void poll(int count = 1) {
    for (int i = 0; i < count; i++) mu_event_poll();
  }

  VirtualClock clock_;
};

// The worked case: threshold 3, period 1000 ms, so 100 polls. `poll(n)` lets n polls happen.
void run_worked_case(const std::function<void(int)> &poll) {
  const mu_event_rec &event = glb_evt.events[kType];
  const auto send = [] { return mu_event_send(1, kType, nullptr, 0); };
  for (int i = 1; i <= 3; i++) EXPECT_EQ(send(), 0) << i;
  EXPECT_EQ(take_calls(), "hhh");
  EXPECT_EQ(event.count, 3u);
  EXPECT_EQ(send(), -1);  // the fourth
  ASSERT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(g_calls[0].reserved, kCookie);
  EXPECT_EQ(take_calls(), "-");
  EXPECT_EQ(event.suprs_cnt, 1u);
  EXPECT_EQ(event.suprs_s, 1u);
  EXPECT_EQ(send(), -1);  // the fifth
  EXPECT_EQ(event.suprs_cnt, 2u);
  poll(99);
  EXPECT_EQ(take_calls(), "");
  EXPECT_EQ(event.suprs_s, 1u);
  EXPECT_EQ(event.tick, 99u);
  poll(1);
  ASSERT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(g_calls[0].reserved, kCookie);
  EXPECT_EQ(take_calls(), "+");
  EXPECT_EQ(event.suprs_s, 0u);
  EXPECT_EQ(event.tick, 100u) << "not reset";
  EXPECT_EQ(event.period_cnt, 3u) << "not reset";
  EXPECT_EQ(send(), -1);  // the sixth, before the next poll
  EXPECT_EQ(take_calls(), "-");
  EXPECT_EQ(event.suprs_cnt, 3u);
  poll(1);
  EXPECT_EQ(take_calls(), "+");
  EXPECT_EQ(event.tick, 101u);
  poll(1);  // a whole interval without an occurrence: a new window
  EXPECT_EQ(take_calls(), "");
  EXPECT_EQ(event.tick, 0u);
  EXPECT_EQ(event.period_cnt, 0u);
  for (int i = 1; i <= 3; i++) EXPECT_EQ(send(), 0) << i;
  EXPECT_EQ(send(), -1);
  EXPECT_EQ(take_calls(), "hhh-");
  EXPECT_EQ(event.count, 6u);
  EXPECT_EQ(event.suprs_cnt, 4u);
}

}  // namespace

TEST_F(EventSuppression, RunsTheWorkedCaseToItsEnd) {
  configure(3, 1000);
  run_worked_case([](int count) { poll(count); });
}

TEST_F(EventSuppression, RunsTheWorkedCaseOnThePollingTimer) {
  configure(3, 1000);
  const int64_t start = clock_.now_ms();
  run_worked_case([this](int count) { clock_.run_ms(int64_t{500} * count); });
  EXPECT_EQ(clock_.now_ms() - start, 51000) << "102 polls of 500 ms";
}

TEST_F(EventSuppression, OnThePollingTimerAPollIsDueEvery500Ms) {
  configure(3, 1000);
  for (uint32_t polls = 1; polls <= 5; polls++) {
    clock_.run_ms(499);
    EXPECT_EQ(event().tick, polls - 1);
    clock_.run_ms(1);
    EXPECT_EQ(event().tick, polls);
  }
}

TEST_F(EventSuppression, AWindowThatIsNotFullEndsWithItsPeriod) {
  configure(3, 40);  // 4 polls
  send();
  send();
  poll(3);
  EXPECT_EQ(event().period_cnt, 2u);
  EXPECT_EQ(event().tick, 3u);
  poll();
  EXPECT_EQ(event().period_cnt, 0u);
  EXPECT_EQ(event().tick, 0u);
  EXPECT_EQ(event().count, 2u);
  EXPECT_EQ(take_calls(), "hh") << "and no callback tells of it";
}

TEST_F(EventSuppression, AFullWindowThatNothingCrossedEndsTheSameWay) {
  configure(3, 20);
  for (int i = 0; i < 3; i++) EXPECT_EQ(send(), 0);
  poll(2);
  EXPECT_EQ(event().suprs_s, 0u);
  EXPECT_EQ(event().period_cnt, 0u);
  EXPECT_EQ(take_calls(), "hhh");
}

TEST_F(EventSuppression, AThresholdOfZeroDropsTheFirst) {
  configure(0, 1000);
  EXPECT_EQ(send(), -1);
  EXPECT_EQ(take_calls(), "-");
  EXPECT_EQ(event().count, 0u);
  EXPECT_EQ(event().suprs_cnt, 1u);
}

TEST_F(EventSuppression, ThresholdsAreUnsigned) {
  configure(0x80000000, 1000);
  event().period_cnt = 0x7FFFFFFF;
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(event().period_cnt, 0x80000000u);
  EXPECT_EQ(send(), -1);
}

TEST_F(EventSuppression, PeriodsAreUnsigned) {
  configure(1, 1000);
  event().period = 0x80000001;
  event().tick = 0x7FFFFFFF;
  event().period_cnt = 1;
  poll();
  EXPECT_EQ(event().tick, 0x80000000u);
  poll();
  EXPECT_EQ(event().tick, 0u);
  EXPECT_EQ(event().period_cnt, 0u);
}

// The longest stream: an occurrence in every interval. Release and renewed suppression alternate, and nothing passes.
TEST_F(EventSuppression, AlternatesUnderASteadyStream) {
  configure(1, 20);
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(send(), -1);
  poll();
  EXPECT_EQ(send(), -1);
  EXPECT_EQ(take_calls(), "h-");
  for (int i = 0; i < 50; i++) {
    poll();
    EXPECT_EQ(take_calls(), "+") << i;
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(take_calls(), "-") << i;
  }
  EXPECT_EQ(event().count, 1u);
  EXPECT_EQ(event().suprs_cnt, 52u);
  poll(2);  // the second one follows on an interval without an occurrence
  EXPECT_EQ(take_calls(), "+");
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(take_calls(), "h");
}

TEST_F(EventSuppression, WithoutCallbacksTellsNobody) {
  attach(kType, nullptr, nullptr);
  configure(1, 10);
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(send(), -1);
  EXPECT_EQ(event().suprs_s, 1u);
  poll();
  EXPECT_EQ(event().suprs_s, 0u);
  suppress_above(kType, 1, 10);
  EXPECT_EQ(take_calls(), "h");
}

TEST_F(EventSuppression, SwitchedOffDeliversAndStaysAsItIs) {
  configure(1, 40);
  send();
  send();
  poll();
  const mu_event_cfg_t off = {0, 1, 40};
  mu_event_set(0, kType, &off);
  EXPECT_EQ(take_calls(), "h-+");
  EXPECT_EQ(send(), 0);
  poll(10);
  EXPECT_EQ(event().tick, 1u) << "polls count for types with suppression alone";
  EXPECT_EQ(event().suprs_s, 1u);
  EXPECT_EQ(event().period_cnt, 2u);
  configure(1, 40);
  EXPECT_EQ(send(), -1) << "the suppression goes on where it was";
  poll(3);
  EXPECT_EQ(take_calls(), "+");
}

TEST_F(EventSuppression, AShorterPeriodEndsItAtTheNextPoll) {
  configure(1, 1000);
  send();
  send();
  poll(50);
  configure(1, 20);
  EXPECT_EQ(event().suprs_cnt, 0u);
  poll();
  EXPECT_EQ(take_calls(), "+");
}

TEST_F(EventSuppression, OfOneTypeLeavesTheOthersAlone) {
  mu_event_register(0, 2, subscriber<'a'>);
  suppress_above(2, 2, 20);
  configure(0, 1000);
  send();
  EXPECT_EQ(mu_event_send(0, 2, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "-ha");
  poll();
  EXPECT_EQ(glb_evt.events[2].tick, 1u);
  EXPECT_EQ(event().tick, 1u);
  EXPECT_EQ(glb_evt.events[4].tick, 0u);
  poll();
  EXPECT_EQ(glb_evt.events[2].period_cnt, 0u);
  EXPECT_EQ(event().suprs_s, 1u);
}

TEST_F(EventSuppression, CallsItsCallbacksUnderTheLock) {
  static int tried[2];
  static uint8_t suprs_s[2];
  attach(
      kType,
      [](uint64_t) {
        tried[0] = mu_mutex_trylock(glb_evt.lock);
        suprs_s[0] = glb_evt.events[kType].suprs_s;
      },
      [](uint64_t) {
        tried[1] = mu_mutex_trylock(glb_evt.lock);
        suprs_s[1] = glb_evt.events[kType].suprs_s;
      });
  suppress_above(kType, 0, 10);
  EXPECT_EQ(tried[0], EBUSY) << "set";
  send();
  EXPECT_EQ(tried[1], EBUSY);
  EXPECT_EQ(suprs_s[1], 0u) << "told before the type is marked";
  tried[0] = 0;
  poll();
  EXPECT_EQ(tried[0], EBUSY);
  EXPECT_EQ(suprs_s[0], 0u) << "told when the mark is gone";
}
