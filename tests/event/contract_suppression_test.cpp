// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Suppression: how it begins, how it ends, and the windows that the poll counts.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

constexpr uint64_t kCookie = 0xfedcba9876543210;

// A registry with a hook, which stays when an attach loses the subscribers.
class EventSuppressionContract : public testing::Test {
 protected:
  EventSuppressionContract() { take_journal(); }

  // Attaches and configures a type; what that calls is not noted.
  static void suppress_type(int type, uint32_t threshold, uint32_t period_ms) {
    EXPECT_EQ(attach(type, kCookie), 0);
    EXPECT_EQ(configure(type, 1, threshold, period_ms), 0);
    EXPECT_EQ(take_journal(), Journal{release_line(kCookie)});
  }

  static void poll(int count = 1) {
    for (int i = 0; i < count; i++) mu_event_poll();
  }

  static std::string delivered(uint32_t type) { return hook_line(0, type, nullptr, 0); }

  Registry registry_{4, hook};
};

using EventAttachContract = EventSuppressionContract;
using EventPollContract = EventSuppressionContract;

const Journal kSuppress{suppress_line(kCookie)};
const Journal kRelease{release_line(kCookie)};

}  // namespace

// ---- Attach ---------------------------------------------------------------------------------------------------------

TEST_F(EventAttachContract, RefusesATypeBeyondTheTable) {
  const std::string before = state_bytes();
  for (const int type : {4, 5, INT32_MAX}) EXPECT_EQ(mu_event_suprs_attach(type, released, suppressed, 1), -1) << type;
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventAttachContract, RefusesOneCallbackAlone) {
  mu_event_register(0, 1, subscriber<1>);
  rec(1).count = 5;
  const std::string before = state_bytes();
  EXPECT_EQ(mu_event_suprs_attach(1, released, nullptr, 7), -1);
  EXPECT_EQ(mu_event_suprs_attach(1, nullptr, suppressed, 7), -1);
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventAttachContract, ResetsTheRecordAndStoresItsArguments) {
  keep(rec(2).cb_list);
  rec(2) = {1, 1, 1, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5, rec(2).cb_list, nullptr, nullptr, 0xa5, 0};
  EXPECT_EQ(attach(2, kCookie), 0);
  mu_event_rec expected = {};
  expected.type = 2;
  expected.release_cb = released;
  expected.suppress_cb = suppressed;
  expected.cookie = kCookie;
  EXPECT_EQ(bytes_of(rec(2)), bytes_of(expected));
  EXPECT_EQ(take_journal(), Journal{}) << "nobody is called";
}

TEST_F(EventAttachContract, TouchesNoOtherRecord) {
  const std::string before = bytes_of(rec(1)) + bytes_of(rec(3));
  attach(2, kCookie);
  EXPECT_EQ(bytes_of(rec(1)) + bytes_of(rec(3)), before);
}

TEST_F(EventAttachContract, TakesBothCallbacksNull) {
  attach(1, kCookie);
  EXPECT_EQ(attach(1, 9, nullptr, nullptr), 0);
  EXPECT_EQ(rec(1).release_cb, nullptr);
  EXPECT_EQ(rec(1).suppress_cb, nullptr);
  EXPECT_EQ(rec(1).cookie, 9u);
  configure(1, 1, 0, 10);
  EXPECT_EQ(send(1), -1);
  poll();
  EXPECT_EQ(rec(1).suprs_s, 0);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventAttachContract, WritesTheTypesNumberWhichNothingElseDoes) {
  mu_event_register(0, 3, subscriber<1>);
  configure(3, 1, 1, 10);
  send(3);
  poll();
  EXPECT_EQ(rec(3).type, 0u);
  attach(3, 0);
  EXPECT_EQ(rec(3).type, 3u);
  take_journal();
}

TEST_F(EventAttachContract, LosesTheSubscribers) {
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(attach(1, 0), 0);
  EXPECT_EQ(rec(1).registered, 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
  EXPECT_EQ(rec(1).count, 1u);
}

TEST_F(EventAttachContract, LeavesATypeThatTakesNoSubscribersAnyMore) {
  attach(1, 0);
  Console console;
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_EQ(rec(1).cb_list, nullptr);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 0);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventAttachContract, EndsASuppressionSilently) {
  suppress_type(1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), kSuppress);
  attach(1, kCookie);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
}

TEST_F(EventAttachContract, TakesNoLock) {
  mu_mutex_lock(glb_evt.lock);
  EXPECT_EQ(attach(1, 0), 0);
  mu_mutex_unlock(glb_evt.lock);
}

// ---- Send under suppression -----------------------------------------------------------------------------------------

TEST_F(EventSuppressionContract, DeliversAsManyAsTheThresholdAndDropsTheNext) {
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
  EXPECT_EQ(take_journal(), Journal{}) << "the callback is for the first drop";
  EXPECT_EQ(rec(1).suprs_cnt, 2u);
  EXPECT_EQ(rec(1).count, 3u);
  EXPECT_EQ(rec(1).period_cnt, 3u);
}

TEST_F(EventSuppressionContract, DropsTheFirstWithAThresholdOfZero) {
  suppress_type(1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), kSuppress);
  EXPECT_EQ(rec(1).count, 0u);
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
}

TEST_F(EventSuppressionContract, DropsForSubscribersToo) {
  mu_event_register(0, 1, subscriber<1>);
  configure(1, 1, 1, 1000);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), (Journal{delivered(1), subscriber_line(1, 0, 1, nullptr, 0)}));
  EXPECT_EQ(rec(1).suprs_cnt, 2u);
}

TEST_F(EventSuppressionContract, ComparesTheThresholdUnsigned) {
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

TEST_F(EventSuppressionContract, CountsWhatCameWhileItWasOff) {
  for (int i = 0; i < 5; i++) send(1);
  configure(1, 1, 3, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(rec(1).count, 5u);
  take_journal();
}

TEST_F(EventSuppressionContract, CountsNothingWhileItIsOff) {
  suppress_type(1, 1, 1000);
  send(1);
  send(1);
  EXPECT_EQ(rec(1).suprs_s, 1);
  configure(1, 0, 1, 1000);
  take_journal();
  EXPECT_EQ(send(1), 0) << "the state is not looked at";
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{delivered(1), delivered(1)}));
  EXPECT_EQ(rec(1).suprs_cnt, 0u);
  EXPECT_EQ(rec(1).suprs_s, 1);
  configure(1, 1, 100, 1000);
  take_journal();
  EXPECT_EQ(send(1), -1) << "on again, it is where it was";
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(rec(1).suprs_cnt, 1u);
}

TEST_F(EventSuppressionContract, IsATypesOwn) {
  suppress_type(1, 0, 1000);
  suppress_type(2, 1, 1000);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(send(2), 0);
  EXPECT_EQ(send(3), 0);
  EXPECT_EQ(rec(2).suprs_s, 0);
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
  take_journal();
}

TEST_F(EventSuppressionContract, CallsBackBeforeItIsMarkedAndCountedWithTheLockHeld) {
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

// ---- Poll -----------------------------------------------------------------------------------------------------------

TEST_F(EventPollContract, CountsForTypesWithSuppressionOnAlone) {
  configure(0, 1, 3, 1000);
  configure(3, 1, 3, 1000);
  poll(2);
  EXPECT_EQ(rec(0).tick, 2u);
  EXPECT_EQ(rec(1).tick, 0u);
  EXPECT_EQ(rec(2).tick, 0u);
  EXPECT_EQ(rec(3).tick, 2u) << "the last type too";
}

TEST_F(EventPollContract, LeavesATypeAloneWhoseSuppressionIsOff) {
  rec(1).suprs_s = 1;
  rec(1).period_cnt = 5;
  const std::string before = state_bytes();
  poll(3);
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventPollContract, BeginsANewWindowAfterThePeriod) {
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

TEST_F(EventPollContract, BeginsANewWindowEachTimeWithAPeriodOfOne) {
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

// A threshold of 3 and a period of 1000 ms, to the end.
TEST_F(EventPollContract, ReleasesAfterAHundredPollsOfOneSecond) {
  suppress_type(1, 3, 1000);
  EXPECT_EQ(rec(1).period, 100u);
  for (int i = 0; i < 3; i++) EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(send(1), -1);
  take_journal();
  poll(99);
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(rec(1).suprs_s, 1);
  EXPECT_EQ(rec(1).tick, 99u);
  poll();
  EXPECT_EQ(take_journal(), kRelease);
  EXPECT_EQ(rec(1).suprs_s, 0);
  EXPECT_EQ(rec(1).tick, 100u) << "not reset";
  EXPECT_EQ(rec(1).period_cnt, 3u) << "not reset";
  EXPECT_EQ(rec(1).suprs_cnt, 2u);

  EXPECT_EQ(send(1), -1) << "before the next poll";
  EXPECT_EQ(take_journal(), kSuppress);
  EXPECT_EQ(rec(1).suprs_cnt, 3u);
  poll();
  EXPECT_EQ(take_journal(), kRelease);
  EXPECT_EQ(rec(1).tick, 101u);
  poll();
  EXPECT_EQ(take_journal(), Journal{}) << "nothing came: a new window";
  EXPECT_EQ(rec(1).tick, 0u);
  EXPECT_EQ(rec(1).period_cnt, 0u);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(rec(1).count, 4u);
  take_journal();
}

TEST_F(EventPollContract, CountsFromTheWindowsBeginNotFromTheSuppressions) {
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

TEST_F(EventPollContract, AlternatesUnderASteadyStreamAndDeliversNothing) {
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

TEST_F(EventPollContract, ComparesTheTickUnsigned) {
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

// A shorter period that is set in the middle of a window counts from the window's begin.
TEST_F(EventPollContract, EndsTheWindowAtOnceWhenThePeriodWasShortened) {
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

TEST_F(EventPollContract, ReleasesTypesInTheirOrder) {
  for (const int type : {3, 0, 2}) {
    attach(type, static_cast<uint64_t>(type));
    configure(type, 1, 0, 10);
    send(type);
  }
  take_journal();
  poll();
  EXPECT_EQ(take_journal(), (Journal{release_line(0), release_line(2), release_line(3)}));
}

TEST_F(EventPollContract, CallsBackAfterTheMarkIsClearedWithTheLockHeld) {
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

TEST_F(EventPollContract, AllocatesAndPrintsNothing) {
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

// ---- The timer ------------------------------------------------------------------------------------------------------

TEST_F(EventPollContract, RunsEvery500MillisecondsOnTheTimer) {
  configure(1, 1, 3, 1000000);
  registry_.clock.scan();  // the first scan runs every timer
  EXPECT_EQ(rec(1).tick, 1u);
  registry_.clock.run_ms(490);
  EXPECT_EQ(rec(1).tick, 1u);
  registry_.clock.run_ms(10);
  EXPECT_EQ(rec(1).tick, 2u);
  registry_.clock.run_ms(5000);
  EXPECT_EQ(rec(1).tick, 12u);
}

// 1000 ms configured are 100 polls, so 50 s.
TEST_F(EventPollContract, HoldsASuppressionOfOneSecondForFiftySeconds) {
  registry_.clock.scan();
  suppress_type(1, 3, 1000);
  for (int i = 0; i < 3; i++) EXPECT_EQ(send(1), 0);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(send(1), -1);
  take_journal();
  registry_.clock.run_ms(49990);
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(rec(1).suprs_s, 1);
  registry_.clock.run_ms(10);
  EXPECT_EQ(take_journal(), kRelease);
  EXPECT_EQ(send(1), -1);
  EXPECT_EQ(take_journal(), kSuppress);
  registry_.clock.run_ms(500);
  EXPECT_EQ(take_journal(), kRelease);
  registry_.clock.run_ms(490);
  EXPECT_EQ(rec(1).period_cnt, 3u);
  registry_.clock.run_ms(10);
  EXPECT_EQ(rec(1).period_cnt, 0u);
  EXPECT_EQ(send(1), 0);
  take_journal();
}
