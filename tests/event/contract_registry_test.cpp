// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Subscribers and the delivery of occurrences.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

using Callbacks = std::vector<mu_event_cb_t>;

// Adds an element past mu_event_register.
void add_by_hand(int type, mu_event_cb_t cb) {
  mu_event_subscriber_t element = {};
  element.type = static_cast<uint32_t>(type);
  element.cb = cb;
  mu_list_add(rec(type).cb_list, &element);
}

class EventRegisterContract : public testing::Test {
 protected:
  Registry registry_{3};
};

using EventDeregisterContract = EventRegisterContract;

class EventSendContract : public testing::Test {
 protected:
  Registry registry_{3, hook};
};

class EventNegativeTypeContract : public testing::Test {
 protected:
  Registry registry_{3, hook};
  RecordsBeforeTheTable records_{4};
};

}  // namespace

// ---- Register -------------------------------------------------------------------------------------------------------

TEST_F(EventRegisterContract, RefusesANullCallback) {
  const std::string before = state_bytes();
  for (const uint32_t type : {0u, 2u, 3u, UINT32_MAX}) EXPECT_EQ(mu_event_register(0, type, nullptr), -1) << type;
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(subscribers_of(0), Callbacks{});
}

TEST_F(EventRegisterContract, ComparesTheTypeUnsigned) {
  const std::string before = state_bytes();
  const HeapWatch heap;
  for (const uint32_t type : {3u, 4u, 0x7fffffffu, 0x80000000u, static_cast<uint32_t>(-1)}) {
    EXPECT_EQ(mu_event_register(0, type, subscriber<1>), -1) << type;
  }
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventRegisterContract, TakesTheFirstAndTheLastType) {
  EXPECT_EQ(mu_event_register(0, 0, subscriber<1>), 0);
  EXPECT_EQ(mu_event_register(0, 2, subscriber<2>), 0);
  EXPECT_EQ(subscribers_of(0), Callbacks{subscriber<1>});
  EXPECT_EQ(subscribers_of(1), Callbacks{});
  EXPECT_EQ(subscribers_of(2), Callbacks{subscriber<2>});
}

TEST_F(EventRegisterContract, MarksTheTypeAndNothingElseOfIt) {
  const mu_event_rec before = rec(1);
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(rec(1).registered, 1);
  rec(1).registered = 0;
  EXPECT_EQ(bytes_of(rec(1)), bytes_of(before));
  EXPECT_EQ(rec(0).registered, 0);
  EXPECT_EQ(rec(2).registered, 0);
}

TEST_F(EventRegisterContract, StoresSixteenBytesOfTypeAndCallback) {
  mu_event_register(7, 2, subscriber<1>);
  mu_event_cb_t cb = subscriber<1>;
  const uint32_t type = 2;
  std::string expected(16, '\0');
  memcpy(&expected[0], &type, sizeof type);
  memcpy(&expected[8], &cb, sizeof cb);
  const mu_list_node_t *node = mu_list_first(rec(2).cb_list);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(std::string(static_cast<const char *>(node->data), 16), expected);
}

TEST_F(EventRegisterContract, KeepsTheOrderOfRegistration) {
  for (const mu_event_cb_t cb : {subscriber<3>, subscriber<1>, subscriber<4>, subscriber<2>}) {
    EXPECT_EQ(mu_event_register(0, 1, cb), 0);
  }
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<3>, subscriber<1>, subscriber<4>, subscriber<2>}));
}

TEST_F(EventRegisterContract, AddsAFunctionOnlyOnce) {
  mu_event_register(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  const HeapWatch heap;
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<2>), 0);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<1>, subscriber<2>}));
}

TEST_F(EventRegisterContract, DoesNotMarkTheTypeForAFunctionThatIsThere) {
  mu_event_register(0, 1, subscriber<1>);
  rec(1).registered = 0;
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 0);
}

TEST_F(EventRegisterContract, TakesOneFunctionForSeveralTypes) {
  for (const uint32_t type : {0u, 1u, 2u}) EXPECT_EQ(mu_event_register(0, type, subscriber<1>), 0);
  for (const int type : {0, 1, 2}) EXPECT_EQ(subscribers_of(type), Callbacks{subscriber<1>}) << type;
}

TEST_F(EventRegisterContract, IgnoresTheDevice) {
  EXPECT_EQ(mu_event_register(1, 0, subscriber<1>), 0);
  EXPECT_EQ(mu_event_register(2, 0, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(0).size(), 1u);
  EXPECT_EQ(mu_event_deregister(3, 0, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(0).size(), 0u);
}

TEST_F(EventRegisterContract, SucceedsAndMarksTheTypeWithoutMemory) {
  Console console;
  const FailingMalloc failing(1);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(failing.seen(), 1);
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_EQ(subscribers_of(1), Callbacks{});
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventRegisterContract, AddsUnderTheLock) {
  bool held = false;
  {
    const Replace malloc(libc::malloc, [&](size_t size) {
      held = lock_is_held();
      return libc::malloc.real(size);
    });
    mu_event_register(0, 1, subscriber<1>);
  }
  EXPECT_TRUE(held);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventRegisterContract, GivesTheLockBackOnEveryWay) {
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_FALSE(lock_is_held());
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_FALSE(lock_is_held());
  mu_event_register(0, 9, subscriber<1>);
  EXPECT_FALSE(lock_is_held());
}

// ---- Deregister -----------------------------------------------------------------------------------------------------

TEST_F(EventDeregisterContract, ComparesTheTypeUnsigned) {
  for (const uint32_t type : {3u, 0x80000000u, static_cast<uint32_t>(-1)}) {
    EXPECT_EQ(mu_event_deregister(0, type, subscriber<1>), -1) << type;
  }
}

TEST_F(EventDeregisterContract, RemovesTheFunctionAloneAndOfThatTypeAlone) {
  for (const mu_event_cb_t cb : {subscriber<1>, subscriber<2>, subscriber<3>}) {
    mu_event_register(0, 0, cb);
    mu_event_register(0, 1, cb);
  }
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<2>), 0);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<1>, subscriber<3>}));
  EXPECT_EQ(subscribers_of(0).size(), 3u);
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventDeregisterContract, ClearsTheMarkWithTheLastOne) {
  mu_event_register(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  mu_event_deregister(0, 1, subscriber<1>);
  EXPECT_EQ(rec(1).registered, 1);
  mu_event_deregister(0, 1, subscriber<2>);
  EXPECT_EQ(rec(1).registered, 0);
}

TEST_F(EventDeregisterContract, SucceedsForAFunctionThatIsNotThere) {
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  mu_event_register(0, 1, subscriber<2>);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(1), Callbacks{subscriber<2>});
  EXPECT_EQ(rec(1).registered, 1);
}

TEST_F(EventDeregisterContract, TakesANullCallback) {
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(mu_event_deregister(0, 1, nullptr), 0);
  EXPECT_EQ(subscribers_of(1), Callbacks{subscriber<1>});
  add_by_hand(1, nullptr);
  EXPECT_EQ(mu_event_deregister(0, 1, nullptr), 0);
  EXPECT_EQ(subscribers_of(1), Callbacks{subscriber<1>}) << "an element of that callback is one like others";
}

TEST_F(EventDeregisterContract, RemovesTheFirstOfSeveral) {
  for (const mu_event_cb_t cb : {subscriber<1>, subscriber<2>, subscriber<1>}) add_by_hand(1, cb);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<2>, subscriber<1>}));
}

// The mark follows the list, whoever was asked for.
TEST_F(EventDeregisterContract, ClearsTheMarkOfAnEmptyList) {
  {
    const FailingMalloc failing(1);
    mu_event_register(0, 1, subscriber<1>);
  }
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<2>), 0);
  EXPECT_EQ(rec(1).registered, 0);
}

TEST_F(EventDeregisterContract, AllowsToRegisterAgainAtTheEnd) {
  mu_event_register(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  mu_event_deregister(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<2>, subscriber<1>}));
}

// ---- Compare --------------------------------------------------------------------------------------------------------

TEST(EventCompareContract, OrdersByTheLeadingTypeUnsigned) {
  struct Row {
    uint32_t a, b;
    int32_t result;
  };
  for (const Row &row : {Row{0, 0, 0}, Row{1, 0, 1}, Row{0, 1, -1}, Row{0x80000000, 1, 1}, Row{1, 0x80000000, -1},
                         Row{UINT32_MAX, 0, 1}, Row{0, UINT32_MAX, -1}, Row{UINT32_MAX, UINT32_MAX, 0},
                         Row{0x100, 0x200, -1}, Row{0x0001ff00, 0x00020000, -1}}) {
    SCOPED_TRACE(testing::Message() << row.a << " and " << row.b);
    mu_event_subscriber_t a = {};
    mu_event_subscriber_t b = {};
    a.type = row.a;
    a.cb = subscriber<1>;
    b.type = row.b;
    EXPECT_EQ(mu_event_compare(&a, &b), row.result);
    EXPECT_EQ(mu_event_compare(&row.a, &row.b), row.result) << "no byte behind the type is read";
  }
}

// ---- Send -----------------------------------------------------------------------------------------------------------

TEST_F(EventSendContract, RefusesATypeBeyondTheTable) {
  const std::string before = state_bytes();
  for (const int type : {3, 4, 1000, INT_MAX}) EXPECT_EQ(send(type), -1) << type;
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventSendContract, CallsTheHookThenTheSubscribersInOrder) {
  for (const mu_event_cb_t cb : {subscriber<2>, subscriber<3>, subscriber<1>}) mu_event_register(0, 2, cb);
  int data = 0;
  EXPECT_EQ(mu_event_send(0xfffe, 2, &data, 0xdeadbeef), 0);
  EXPECT_EQ(take_journal(),
            (Journal{hook_line(0xfffe, 2, &data, 0xdeadbeef), subscriber_line(2, 0xfffe, 2, &data, 0xdeadbeef, 0),
                     subscriber_line(3, 0xfffe, 2, &data, 0xdeadbeef, 0),
                     subscriber_line(1, 0xfffe, 2, &data, 0xdeadbeef, 0)}));
}

TEST_F(EventSendContract, PassesNoDataAsItIs) {
  mu_event_register(0, 0, subscriber<1>);
  EXPECT_EQ(mu_event_send(0, 0, nullptr, UINT32_MAX), 0);
  EXPECT_EQ(take_journal(),
            (Journal{hook_line(0, 0, nullptr, UINT32_MAX), subscriber_line(1, 0, 0, nullptr, UINT32_MAX)}));
}

TEST_F(EventSendContract, SucceedsWithNobodyListening) {
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{hook_line(0, 1, nullptr, 0)});
  EXPECT_EQ(rec(1).count, 1u);
}

TEST(EventSendWithoutHookContract, CallsTheSubscribersAlone) {
  const Registry registry(1);
  mu_event_register(0, 0, subscriber<1>);
  EXPECT_EQ(send(0), 0);
  EXPECT_EQ(take_journal(), Journal{subscriber_line(1, 0, 0, nullptr, 0)});
}

TEST_F(EventSendContract, CallsNobodyOfAnotherType) {
  mu_event_register(0, 0, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{hook_line(0, 1, nullptr, 0), subscriber_line(2, 0, 1, nullptr, 0)}));
  EXPECT_EQ(rec(0).count, 0u);
  EXPECT_EQ(rec(1).count, 1u);
  EXPECT_EQ(rec(2).count, 0u);
}

TEST_F(EventSendContract, SkipsAnElementWithoutACallback) {
  add_by_hand(1, subscriber<1>);
  add_by_hand(1, nullptr);
  add_by_hand(1, subscriber<2>);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{hook_line(0, 1, nullptr, 0), subscriber_line(1, 0, 1, nullptr, 0),
                                     subscriber_line(2, 0, 1, nullptr, 0)}));
}

// What is passed is the type that was sent, not the one that the element holds.
TEST_F(EventSendContract, DoesNotLookAtTheMarkNorAtTheElementsType) {
  mu_event_subscriber_t element = {};
  element.type = 77;
  element.cb = subscriber<1>;
  mu_list_add(rec(1).cb_list, &element);
  rec(1).type = 78;
  EXPECT_EQ(rec(1).registered, 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), (Journal{hook_line(0, 1, nullptr, 0), subscriber_line(1, 0, 1, nullptr, 0)}));
}

TEST_F(EventSendContract, CountsWithSuppressionOffToo) {
  for (int i = 0; i < 5; i++) EXPECT_EQ(send(1), 0);
  EXPECT_EQ(rec(1).count, 5u);
  EXPECT_EQ(rec(1).period_cnt, 5u);
  EXPECT_EQ(rec(1).suprs_cnt, 0u);
  EXPECT_EQ(rec(1).tick, 0u);
}

TEST_F(EventSendContract, CountsModulo32Bits) {
  rec(1).count = UINT32_MAX;
  rec(1).period_cnt = UINT32_MAX;
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(rec(1).count, 0u);
  EXPECT_EQ(rec(1).period_cnt, 0u);
}

TEST(EventSendWhileDeliveringContract, CountsAfterTheLastSubscriber) {
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

TEST(EventSendWhileDeliveringContract, HoldsTheLock) {
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

TEST_F(EventSendContract, AllocatesAndPrintsNothing) {
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

// ---- Negative types -------------------------------------------------------------------------------------------------

TEST_F(EventNegativeTypeContract, AreDeliveredFromTheRecordsBeforeTheTable) {
  mu_event_subscriber_t element = {};
  element.cb = subscriber<1>;
  mu_list_add(rec(-1).cb_list, &element);
  EXPECT_EQ(send(-1), 0);
  EXPECT_EQ(send(-4), 0);
  EXPECT_EQ(take_journal(),
            (Journal{hook_line(0, UINT32_MAX, nullptr, 0), subscriber_line(1, 0, UINT32_MAX, nullptr, 0),
                     hook_line(0, UINT32_MAX - 3, nullptr, 0)}));
  EXPECT_EQ(rec(-1).count, 1u);
  EXPECT_EQ(rec(-2).count, 0u);
  EXPECT_EQ(rec(-4).count, 1u);
}

TEST_F(EventNegativeTypeContract, PassTheSignedChecks) {
  EXPECT_EQ(attach(-2, 5), 0);
  EXPECT_EQ(rec(-2).type, static_cast<uint32_t>(-2));
  EXPECT_EQ(rec(-2).cookie, 5u);
  EXPECT_EQ(configure(-2, 1, 3, 250), 0);
  EXPECT_EQ(rec(-2).period, 25u);
  EXPECT_EQ(rec(-2).threshold, 3u);
  EXPECT_EQ(take_journal(), Journal{release_line(5)});
  mu_event_cfg_t cfg = {};
  EXPECT_EQ(mu_event_get(0, -2, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 3, 250}));
}

TEST_F(EventNegativeTypeContract, FailTheUnsignedChecks) {
  rec(-1).count = 5;
  rec(-1).suprs_cnt = 6;
  const std::string before = bytes_of(rec(-1));
  const auto type = static_cast<uint32_t>(-1);
  uint32_t count = 9;
  EXPECT_EQ(mu_event_register(0, type, subscriber<1>), -1);
  EXPECT_EQ(mu_event_deregister(0, type, subscriber<1>), -1);
  EXPECT_EQ(mu_event_counter_get(0, type, &count, 1), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, type), -1);
  EXPECT_EQ(bytes_of(rec(-1)), before);
  EXPECT_EQ(subscribers_of(-1), Callbacks{});
}

TEST_F(EventNegativeTypeContract, AreNeitherPolledNorClearedWithAll) {
  configure(-1, 1, 3, 10);
  rec(-1).count = 5;
  mu_event_poll();
  mu_event_counter_clear_all(0);
  EXPECT_EQ(rec(-1).tick, 0u);
  EXPECT_EQ(rec(-1).count, 5u);
}
