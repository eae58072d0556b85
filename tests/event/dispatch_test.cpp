// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Sending without suppression: who is called, in which order, and what is counted.

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

class EventSend : public testing::Test {
 protected:
  Registry registry_{3, hook};
};

}  // namespace

TEST_F(EventSend, RefusesATypeBeyondTheTable) {
  const std::string before = state_bytes();
  for (const int type : {3, 4, 1000, INT_MAX}) EXPECT_EQ(send(type), -1) << type;
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventSend, CallsTheHookThenTheSubscribersInOrder) {
  for (const mu_event_cb_t cb : {subscriber<2>, subscriber<3>, subscriber<1>}) mu_event_register(0, 2, cb);
  int data = 0;
  EXPECT_EQ(mu_event_send(0xfffe, 2, &data, 0xdeadbeef), 0);
  EXPECT_EQ(
      take_journal(),
      (Journal{hook_line(0xfffe, 2, &data, 0xdeadbeef), subscriber_line(2, 0xfffe, 2, &data, 0xdeadbeef),
               subscriber_line(3, 0xfffe, 2, &data, 0xdeadbeef), subscriber_line(1, 0xfffe, 2, &data, 0xdeadbeef)}));
}

TEST_F(EventSend, PassesNoDataUnchanged) {
  mu_event_register(0, 0, subscriber<1>);
  EXPECT_EQ(mu_event_send(0, 0, nullptr, UINT32_MAX), 0);
  EXPECT_EQ(take_journal(),
            (Journal{hook_line(0, 0, nullptr, UINT32_MAX), subscriber_line(1, 0, 0, nullptr, UINT32_MAX)}));
}

TEST_F(EventSend, SucceedsWithoutSubscribers) {
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{hook_line(0, 1, nullptr, 0)});
  EXPECT_EQ(rec(1).count, 1u);
}

TEST(EventSendDelivery, WithoutAHookCallsOnlyTheSubscribers) {
  const Registry registry(1);
  mu_event_register(0, 0, subscriber<1>);
  EXPECT_EQ(send(0), 0);
  EXPECT_EQ(take_journal(), Journal{subscriber_line(1, 0, 0, nullptr, 0)});
}

TEST_F(EventSend, CallsNoSubscriberOfAnotherType) {
  mu_event_register(0, 0, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{hook_line(0, 1, nullptr, 0), subscriber_line(2, 0, 1, nullptr, 0)}));
  EXPECT_EQ(rec(0).count, 0u);
  EXPECT_EQ(rec(1).count, 1u);
  EXPECT_EQ(rec(2).count, 0u);
}

TEST_F(EventSend, SkipsElementsWithoutACallback) {
  add_by_hand(1, nullptr);
  add_by_hand(1, subscriber<1>);
  add_by_hand(1, nullptr);
  add_by_hand(1, subscriber<2>);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{hook_line(0, 1, nullptr, 0), subscriber_line(1, 0, 1, nullptr, 0),
                                     subscriber_line(2, 0, 1, nullptr, 0)}));
}

TEST_F(EventSend, ReadsNeitherTheFlagNorTheStoredTypes) {
  mu_event_subscriber_t element = {};
  element.type = 77;
  element.cb = subscriber<1>;
  mu_list_add(rec(1).cb_list, &element);
  rec(1).type = 78;
  EXPECT_EQ(rec(1).registered, 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{hook_line(0, 1, nullptr, 0), subscriber_line(1, 0, 1, nullptr, 0)}));
}

TEST_F(EventSend, CountsAlsoWithSuppressionOff) {
  for (int i = 0; i < 5; i++) EXPECT_EQ(send(1), 0);
  EXPECT_EQ(rec(1).count, 5u);
  EXPECT_EQ(rec(1).period_cnt, 5u);
  EXPECT_EQ(rec(1).suprs_cnt, 0u);
  EXPECT_EQ(rec(1).tick, 0u);
}

TEST_F(EventSend, CountsModulo32Bits) {
  rec(1).count = UINT32_MAX;
  rec(1).period_cnt = UINT32_MAX;
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(rec(1).count, 0u);
  EXPECT_EQ(rec(1).period_cnt, 0u);
}

TEST(EventSendDelivery, CountsAfterTheLastSubscriber) {
  const Registry registry(1, [](uint16_t, uint32_t, void *, uint32_t) {
    g_journal.push_back(line("hook %u %u", rec(0).count, rec(0).period_cnt));
    return 0;
  });
  mu_event_register(0, 0, [](uint16_t, uint32_t, void *, uint32_t, uint64_t) {
    g_journal.push_back(line("subscriber %u %u", rec(0).count, rec(0).period_cnt));
    return 0;
  });
  send(0);
  send(0);
  EXPECT_EQ(take_journal(), (Journal{"hook 0 0", "subscriber 0 0", "hook 1 1", "subscriber 1 1"}));
}

TEST(EventSendDelivery, HoldsTheLockDuringHookAndSubscribers) {
  const Registry registry(1, [](uint16_t, uint32_t, void *, uint32_t) {
    g_journal.push_back(lock_is_held() ? "hook held" : "hook free");
    return 0;
  });
  mu_event_register(0, 0, [](uint16_t, uint32_t, void *, uint32_t, uint64_t) {
    g_journal.push_back(lock_is_held() ? "subscriber held" : "subscriber free");
    return 0;
  });
  send(0);
  EXPECT_EQ(take_journal(), (Journal{"hook held", "subscriber held"}));
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventSend, AllocatesAndPrintsNothing) {
  for (const mu_event_cb_t cb : {subscriber<1>, subscriber<2>, subscriber<3>}) mu_event_register(0, 1, cb);
  Console console;
  {
    const FailingMalloc failing(1, 1000000);
    for (int i = 0; i < 3; i++) EXPECT_EQ(send(1), 0);
    configure(1, 1, 4, 1000);
    EXPECT_EQ(send(1), 0);
    EXPECT_EQ(send(1), -1);
    EXPECT_EQ(send(1), -1);
    EXPECT_EQ(failing.seen(), 0);
  }
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(take_journal().size(), 16u);
}
