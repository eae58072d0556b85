// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The start of the registry, its subscribers, and sending without suppression.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "event/subscribers.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr int kTypes = 8;

mu_event_state_t zero_state() {
  mu_event_state_t state;
  memset(&state, 0, sizeof state);
  return state;
}

bool is_zero() {
  const mu_event_state_t zero = zero_state();
  return memcmp(&glb_evt, &zero, sizeof zero) == 0;
}

int ignore_msg(uint16_t, mu_event_msg_t *) { return 0; }

// What a refused or failed init leaves behind is abandoned: the timer's list and mutex of a failed start.
void keep_abandoned() {
  static auto &abandoned = *new std::vector<const void *>;
  abandoned.push_back(timer_info.mutex);
  abandoned.push_back(timer_info.list);
}

class EventRegistry : public testing::Test {
 protected:
  EventRegistry() { mu_event_init(kTypes, hook, nullptr); }

  VirtualClock clock_;
};

using EventRegister = EventRegistry;
using EventDeregister = EventRegistry;
using EventSend = EventRegistry;
using EventAttach = EventRegistry;

}  // namespace

// ---- Before the start ----------------------------------------------------------------------------------------------

TEST(EventUninitialised, RefusesEveryCallButTheTwo) {
  Console console;
  mu_event_cfg_t cfg = {1, 2, 3};
  uint32_t count = 7;
  EXPECT_EQ(mu_event_register(0, 0, subscriber<'a'>), -1);
  EXPECT_EQ(mu_event_deregister(0, 0, subscriber<'a'>), -1);
  for (int type : {0, -1}) {
    EXPECT_EQ(mu_event_send(0, type, nullptr, 0), -1);
    EXPECT_EQ(mu_event_suprs_attach(type, released, suppressed, 0), -1);
    EXPECT_EQ(mu_event_set(0, type, &cfg), -1);
    EXPECT_EQ(mu_event_get(0, type, &cfg), -1);
  }
  EXPECT_EQ(mu_event_counter_get(0, 0, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 0), -1);
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  mu_event_poll();
  EXPECT_TRUE(is_zero());
  EXPECT_EQ(cfg.suprs_en * 100 + cfg.threshold * 10 + cfg.period, 123u);
  EXPECT_EQ(take_calls(), "");
  EXPECT_EQ(console.take(), "");
}

TEST(EventUninitialised, DumpsATableWithoutRows) {
  Console console;
  mu_event_dump();
  EXPECT_EQ(console.take(), std::string(63, '=') + "\n" +
                                "Type Count      Suprs-en Suprs-s Suprs-cnt Threshold Period(ms)  \n" +
                                std::string(63, '-') + "\n\n");
}

// ---- The start -----------------------------------------------------------------------------------------------------

TEST(EventInit, MakesTheStateAndTheTable) {
  VirtualClock clock;
  Console console;
  EXPECT_EQ(mu_event_init(3, hook, ignore_msg), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.max_event_num, 3);
  EXPECT_NE(glb_evt.lock, nullptr);
  EXPECT_EQ(glb_evt.send_hook, hook);
  EXPECT_EQ(glb_evt.cfg_handler, ignore_msg);
  for (int i = 0; i < 3; i++) {
    mu_event_rec expected;
    memset(&expected, 0, sizeof expected);
    expected.cb_list = glb_evt.events[i].cb_list;
    EXPECT_EQ(memcmp(&glb_evt.events[i], &expected, sizeof expected), 0) << i;
    EXPECT_EQ(expected.cb_list->data_size, 16u);
    EXPECT_EQ(expected.cb_list->count, 0u);
    EXPECT_EQ(expected.cb_list->cmp, mu_event_compare);
  }
  EXPECT_NE(glb_evt.events[0].cb_list, glb_evt.events[1].cb_list);
}

TEST(EventInit, StartsACircularTimerThatPolls) {
  VirtualClock clock;
  mu_event_init(1, nullptr, nullptr);
  EXPECT_EQ(mu_timer_count(), 1u);
  const auto &timer = *static_cast<mu_timer_rec_t *>(mu_list_first(timer_info.list)->data);
  EXPECT_EQ(timer.id, glb_evt.poll_timer);
  EXPECT_EQ(timer.type, 1u);
  EXPECT_EQ(timer.interval, 50u);  // ticks of 10 ms
  EXPECT_EQ(timer.callback, reinterpret_cast<mu_timer_cb_t>(mu_event_poll));
  EXPECT_EQ(timer.arg, nullptr);
}

TEST(EventInit, OfNoTypesChangesNothing) {
  VirtualClock clock;
  EXPECT_EQ(mu_event_init(0, hook, ignore_msg), -1);
  EXPECT_TRUE(is_zero());
  mu_event_init(2, hook, nullptr);
  const mu_event_state_t before = glb_evt;
  EXPECT_EQ(mu_event_init(0, nullptr, nullptr), -1);
  EXPECT_EQ(memcmp(&glb_evt, &before, sizeof before), 0);
  EXPECT_EQ(mu_event_send(0, 1, nullptr, 0), 0);
}

TEST(EventInit, WithoutMemoryForTheTableLeavesAllZero) {
  VirtualClock clock;
  Console console;
  {
    FailingMalloc no_memory(1);
    EXPECT_EQ(mu_event_init(2, hook, ignore_msg), -1);
    EXPECT_EQ(no_memory.seen(), 1);
  }
  EXPECT_TRUE(is_zero());
  EXPECT_EQ(timer_initialized, 0u);
  EXPECT_EQ(mu_event_init(2, hook, nullptr), 0);
  FailingMalloc no_memory(1);
  EXPECT_EQ(init_anew(2, hook, nullptr), -1);
  EXPECT_TRUE(is_zero()) << "the first table is gone by then";
  EXPECT_EQ(console.take(), "");
}

TEST(EventInit, RefusesATableAbove2147483647Bytes) {
  VirtualClock clock;
  const int most = 2147483647 / 72;
  // 59652324 * 72 is 32 more than 2^32: cut to 32 bits the table would be that small.
  for (int number : {-1, INT32_MIN, most + 1, 59652324, INT32_MAX}) {
    std::vector<size_t> sizes;
    Replace see(libc::malloc, [&](size_t size) -> void * {
      sizes.push_back(size);
      return nullptr;
    });
    EXPECT_EQ(mu_event_init(number, hook, nullptr), -1) << number;
    EXPECT_TRUE(is_zero()) << number;
    EXPECT_EQ(sizes, std::vector<size_t>{}) << number;
  }
  size_t asked = 0;
  Replace see(libc::malloc, [&](size_t size) -> void * {
    asked = size;
    return nullptr;
  });
  EXPECT_EQ(mu_event_init(most, hook, nullptr), -1);
  EXPECT_EQ(asked, 2147483592u);
}

TEST(EventInit, GoesOnWithoutALock) {
  VirtualClock clock;
  Console console;
  FailingMalloc no_memory(2);  // the table, the lock
  EXPECT_EQ(mu_event_init(2, nullptr, nullptr), 0);
  EXPECT_EQ(glb_evt.lock, nullptr);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<'a'>), 0);
  EXPECT_EQ(mu_event_send(0, 1, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "a");
  EXPECT_EQ(console.take(), "");
}

TEST(EventInit, GoesOnWithoutATimer) {
  VirtualClock clock;
  Console console;
  Replace refuse(libc::pthread_create,
                 [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  EXPECT_EQ(mu_event_init(2, hook, ignore_msg), 0);
  EXPECT_EQ(console.take(), "Timer number exceed(0)\nCreate event polling timer failed\n");
  EXPECT_EQ(glb_evt.poll_timer, 0u);
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.send_hook, hook);
  EXPECT_EQ(glb_evt.cfg_handler, ignore_msg);
  EXPECT_NE(glb_evt.events[1].cb_list, nullptr);
  keep_abandoned();
}

TEST(EventInit, GoesOnWithoutAList) {
  VirtualClock clock;
  mu_timer_add(0, nullptr, nullptr);  // starts the timer service: its allocations are not counted below
  Console console;
  FailingMalloc no_memory(5, 2);  // the table, the lock, the timer, the list of type 0; those of 1 and 2 fail
  EXPECT_EQ(mu_event_init(4, nullptr, nullptr), 0);
  EXPECT_EQ(console.take(), "Create event 1 cb_list failed\nCreate event 2 cb_list failed\n");
  EXPECT_NE(glb_evt.poll_timer, 0u);
  EXPECT_NE(glb_evt.events[0].cb_list, nullptr);
  EXPECT_EQ(glb_evt.events[1].cb_list, nullptr);
  EXPECT_EQ(glb_evt.events[2].cb_list, nullptr);
  EXPECT_NE(glb_evt.events[3].cb_list, nullptr);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<'a'>), 0);
  EXPECT_EQ(glb_evt.events[1].registered, 1u);
  EXPECT_EQ(mu_event_send(0, 1, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "");
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<'a'>), 0);
  EXPECT_EQ(glb_evt.events[1].registered, 0u);
}

TEST(EventInit, ASecondCallStartsAnew) {
  VirtualClock clock;
  mu_event_init(2, hook, nullptr);
  mu_event_register(0, 1, subscriber<'a'>);
  mu_event_send(0, 1, nullptr, 0);
  const mu_event_state_t first = glb_evt;
  HeapWatch heap;
  EXPECT_EQ(init_anew(5, nullptr, nullptr), 0);
  EXPECT_EQ(glb_evt.max_event_num, 5);
  EXPECT_NE(glb_evt.events, first.events);
  EXPECT_NE(glb_evt.lock, first.lock);
  EXPECT_NE(glb_evt.poll_timer, first.poll_timer);
  EXPECT_EQ(glb_evt.send_hook, nullptr);
  EXPECT_EQ(mu_timer_count(), 2u) << "the first timer runs on";
  EXPECT_TRUE(heap.freed().empty());
  take_calls();
  EXPECT_EQ(mu_event_send(0, 1, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "");
  EXPECT_EQ(glb_evt.events[1].count, 1u);
}

// ---- Subscribers ---------------------------------------------------------------------------------------------------

TEST_F(EventRegister, MakesAWholeElement) {
  EXPECT_EQ(mu_event_register(99, 5, subscriber<'a'>), 0);
  EXPECT_EQ(glb_evt.events[5].registered, 1u);
  ASSERT_EQ(mu_list_count(glb_evt.events[5].cb_list), 1u);
  mu_event_subscriber_t expected;
  memset(&expected, 0, sizeof expected);  // the padding too
  expected.type = 5;
  expected.cb = subscriber<'a'>;
  EXPECT_EQ(memcmp(mu_list_first(glb_evt.events[5].cb_list)->data, &expected, 16), 0);
  EXPECT_EQ(mu_list_count(glb_evt.events[4].cb_list), 0u);
}

TEST_F(EventRegister, AddsACallbackOnce) {
  for (uint16_t device_id : {uint16_t{0}, uint16_t{1}, uint16_t{2}})
    EXPECT_EQ(mu_event_register(device_id, 5, subscriber<'a'>), 0);
  EXPECT_EQ(mu_list_count(glb_evt.events[5].cb_list), 1u);
  EXPECT_EQ(mu_event_register(0, 6, subscriber<'a'>), 0);
  EXPECT_EQ(mu_list_count(glb_evt.events[6].cb_list), 1u) << "one a type";
}

TEST_F(EventRegister, RefusesANullCallbackAndATypeOutOfRange) {
  EXPECT_EQ(mu_event_register(0, 5, nullptr), -1);
  EXPECT_EQ(mu_event_register(0, kTypes, subscriber<'a'>), -1);
  EXPECT_EQ(mu_event_register(0, kTypes - 1, subscriber<'a'>), 0);
  for (int i = 0; i < kTypes - 1; i++) {
    EXPECT_EQ(glb_evt.events[i].registered, 0u);
    EXPECT_EQ(mu_list_count(glb_evt.events[i].cb_list), 0u);
  }
}

TEST_F(EventRegister, RefusesANegativeType) {
  EXPECT_EQ(mu_event_register(0, static_cast<uint32_t>(-1), subscriber<'a'>), -1);
  EXPECT_EQ(mu_event_deregister(0, static_cast<uint32_t>(-1), subscriber<'a'>), -1);
  uint32_t count = 1;
  EXPECT_EQ(mu_event_counter_get(0, 0x80000000, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 0x80000000), -1);
}

TEST_F(EventRegister, SucceedsWithoutAddingWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  EXPECT_EQ(mu_event_register(0, 5, subscriber<'a'>), 0);
  EXPECT_EQ(no_memory.seen(), 1);
  EXPECT_EQ(glb_evt.events[5].registered, 1u);
  EXPECT_EQ(mu_list_count(glb_evt.events[5].cb_list), 0u);
}

TEST_F(EventDeregister, RemovesTheCallbackAlone) {
  for (mu_event_cb_t cb : {subscriber<'a'>, subscriber<'b'>, subscriber<'c'>}) mu_event_register(0, 2, cb);
  EXPECT_EQ(mu_event_deregister(77, 2, subscriber<'b'>), 0);
  EXPECT_EQ(glb_evt.events[2].registered, 1u);
  mu_event_send(0, 2, nullptr, 0);
  EXPECT_EQ(take_calls(), "hac");
}

TEST_F(EventDeregister, TheLastOneClearsTheFlag) {
  mu_event_register(0, 2, subscriber<'a'>);
  mu_event_register(0, 2, subscriber<'b'>);
  mu_event_deregister(0, 2, subscriber<'a'>);
  EXPECT_EQ(glb_evt.events[2].registered, 1u);
  mu_event_deregister(0, 2, subscriber<'b'>);
  EXPECT_EQ(glb_evt.events[2].registered, 0u);
  EXPECT_EQ(mu_list_count(glb_evt.events[2].cb_list), 0u);
}

TEST_F(EventDeregister, OfACallbackThatIsNotThereSucceeds) {
  EXPECT_EQ(mu_event_deregister(0, 2, subscriber<'a'>), 0);
  EXPECT_EQ(mu_event_deregister(0, 2, nullptr), 0);
  mu_event_register(0, 2, subscriber<'a'>);
  EXPECT_EQ(mu_event_deregister(0, 2, subscriber<'b'>), 0);
  EXPECT_EQ(mu_event_deregister(0, 2, nullptr), 0);
  EXPECT_EQ(mu_event_deregister(0, 3, subscriber<'a'>), 0) << "that of another type";
  EXPECT_EQ(mu_list_count(glb_evt.events[2].cb_list), 1u);
  EXPECT_EQ(glb_evt.events[2].registered, 1u);
}

TEST_F(EventDeregister, RefusesATypeOutOfRange) { EXPECT_EQ(mu_event_deregister(0, kTypes, subscriber<'a'>), -1); }

TEST_F(EventDeregister, RemovesTheFirstOfTwoEqualOnes) {
  mu_event_register(0, 2, subscriber<'a'>);
  mu_event_register(0, 2, subscriber<'b'>);
  mu_list_add(glb_evt.events[2].cb_list, mu_list_first(glb_evt.events[2].cb_list)->data);
  mu_event_deregister(0, 2, subscriber<'a'>);
  mu_event_send(0, 2, nullptr, 0);
  EXPECT_EQ(take_calls(), "hba");
}

TEST(EventCompare, IsThreeWayAndUnsigned) {
  const std::tuple<uint32_t, uint32_t, int> rows[] = {
      {1, 1, 0}, {2, 1, 1}, {1, 2, -1}, {UINT32_MAX, 1, 1}, {1, UINT32_MAX, -1}, {0x80000000, 0x7FFFFFFF, 1}};
  for (const auto &[left, right, result] : rows) {
    const mu_event_subscriber_t a = {left, nullptr};
    const mu_event_subscriber_t b = {right, nullptr};
    EXPECT_EQ(mu_event_compare(&a, &b), result) << left << ' ' << right;
  }
}

// ---- Sending -------------------------------------------------------------------------------------------------------

TEST_F(EventSend, CallsTheHookThenTheSubscribersInTheirOrder) {
  for (mu_event_cb_t cb : {subscriber<'c'>, subscriber<'a'>, subscriber<'b'>}) mu_event_register(0, 2, cb);
  mu_event_register(0, 3, subscriber<'x'>);
  char data[10];
  EXPECT_EQ(mu_event_send(0xABCD, 2, data, 10), 0);
  const std::vector<Heard> expected = {{'h', 0xABCD, 2, data, 10},
                                       {'c', 0xABCD, 2, data, 10, 0},
                                       {'a', 0xABCD, 2, data, 10, 0},
                                       {'b', 0xABCD, 2, data, 10, 0}};
  EXPECT_EQ(g_calls, expected);
}

TEST_F(EventSend, PassesDataAndLengthUnseen) {
  mu_event_register(0, 2, subscriber<'a'>);
  EXPECT_EQ(mu_event_send(0, 2, nullptr, UINT32_MAX), 0);
  EXPECT_EQ(g_calls.back(), (Heard{'a', 0, 2, nullptr, UINT32_MAX, 0}));
}

TEST_F(EventSend, CountsAnOccurrenceThatNobodyHears) {
  EXPECT_EQ(mu_event_send(0, 0, nullptr, 0), 0);
  EXPECT_EQ(mu_event_send(0, 0, nullptr, 0), 0);
  EXPECT_EQ(glb_evt.events[0].count, 2u);
  EXPECT_EQ(glb_evt.events[0].period_cnt, 2u) << "without suppression too";
  EXPECT_EQ(glb_evt.events[1].count, 0u);
}

TEST_F(EventSend, CountsBehindTheSubscribers) {
  static uint32_t count_seen;
  static uint32_t period_cnt_seen;
  count_seen = period_cnt_seen = 99;
  mu_event_register(0, 2, [](uint16_t, uint32_t type, void *, uint32_t, uint64_t) {
    count_seen = glb_evt.events[type].count;
    period_cnt_seen = glb_evt.events[type].period_cnt;
    return 0;
  });
  mu_event_send(0, 2, nullptr, 0);
  EXPECT_EQ(count_seen, 0u);
  EXPECT_EQ(period_cnt_seen, 0u);
}

TEST_F(EventSend, HoldsTheLockMeanwhile) {
  static int tried;
  tried = 0;
  mu_event_register(0, 2, [](uint16_t, uint32_t, void *, uint32_t, uint64_t) {
    tried = mu_mutex_trylock(glb_evt.lock);
    return 0;
  });
  mu_event_send(0, 2, nullptr, 0);
  EXPECT_EQ(tried, EBUSY);
  EXPECT_EQ(mu_mutex_trylock(glb_evt.lock), 0) << "and gives it back";
  mu_mutex_unlock(glb_evt.lock);
}

TEST_F(EventSend, RefusesATypeOutOfRange) {
  EXPECT_EQ(mu_event_send(0, kTypes, nullptr, 0), -1);
  EXPECT_EQ(mu_event_send(0, INT32_MAX, nullptr, 0), -1);
  EXPECT_EQ(take_calls(), "");
  EXPECT_EQ(mu_event_send(0, kTypes - 1, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "h");
}

TEST_F(EventSend, PassesOverAnElementWithoutACallback) {
  mu_event_register(0, 2, subscriber<'a'>);
  mu_event_register(0, 2, subscriber<'b'>);
  static_cast<mu_event_subscriber_t *>(mu_list_first(glb_evt.events[2].cb_list)->data)->cb = nullptr;
  EXPECT_EQ(mu_event_send(0, 2, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "hb");
}

TEST_F(EventSend, AllocatesNothing) {
  mu_event_register(0, 2, subscriber<'a'>);
  FailingMalloc counted(1000);
  mu_event_send(0, 2, nullptr, 0);
  EXPECT_EQ(counted.seen(), 0);
}

// The table is moved into the middle of a larger one, so that there are records before it.
TEST_F(EventSend, ANegativeTypeAddressesTheRecordBeforeTheTable) {
  mu_event_rec larger[kTypes + 3] = {};
  mu_event_rec *const table = glb_evt.events;
  memcpy(larger + 3, table, sizeof(mu_event_rec) * kTypes);
  glb_evt.events = larger + 3;
  EXPECT_EQ(mu_event_send(4, -2, nullptr, 6), 0);
  EXPECT_EQ(g_calls, (std::vector<Heard>{{'h', 4, static_cast<uint32_t>(-2), nullptr, 6}}));
  EXPECT_EQ(larger[1].count, 1u);
  mu_event_cfg_t cfg = {1, 5, 70};
  EXPECT_EQ(mu_event_set(0, -1, &cfg), 0);
  EXPECT_EQ(larger[2].period, 7u);
  cfg = {};
  EXPECT_EQ(mu_event_get(0, -1, &cfg), 0);
  EXPECT_EQ(cfg.threshold, 5u);
  EXPECT_EQ(attach(-3, released, suppressed, 9), 0);
  EXPECT_EQ(larger[0].cookie, 9u);
  EXPECT_EQ(larger[0].type, static_cast<uint32_t>(-3));
  glb_evt.events = table;
}

// ---- Attaching -----------------------------------------------------------------------------------------------------

TEST_F(EventAttach, ResetsTheFirstPartOfTheRecord) {
  mu_event_register(0, 3, subscriber<'a'>);
  mu_event_rec &event = glb_evt.events[3];
  mu_list_t *list = event.cb_list;
  memset(&event, 0xEE, sizeof event);
  event.cb_list = list;
  EXPECT_EQ(attach(3, released, suppressed, 0x123456789ABCDEF0), 0);
  mu_event_rec expected;
  memset(&expected, 0, sizeof expected);
  expected.type = 3;
  expected.release_cb = released;
  expected.suppress_cb = suppressed;
  expected.cookie = 0x123456789ABCDEF0;
  expected.reserved = 0xEEEEEEEEEEEEEEEE;
  reinterpret_cast<char *>(&event)[3] = 0;  // padding: anything
  EXPECT_EQ(memcmp(&event, &expected, sizeof expected), 0);
}

TEST_F(EventAttach, TakesBothCallbacksOrNone) {
  EXPECT_EQ(attach(3, released, suppressed, 1), 0);
  const mu_event_rec before = glb_evt.events[3];
  EXPECT_EQ(attach(3, nullptr, suppressed, 2), -1);
  EXPECT_EQ(attach(3, released, nullptr, 2), -1);
  EXPECT_EQ(attach(kTypes, released, suppressed, 2), -1);
  EXPECT_EQ(memcmp(&glb_evt.events[3], &before, sizeof before), 0);
  EXPECT_EQ(attach(3, nullptr, nullptr, 2), 0);
  EXPECT_EQ(glb_evt.events[3].release_cb, nullptr);
  EXPECT_EQ(glb_evt.events[3].suppress_cb, nullptr);
  EXPECT_EQ(glb_evt.events[3].cookie, 2u);
}

TEST_F(EventAttach, LosesTheListOfSubscribers) {
  mu_event_register(0, 3, subscriber<'a'>);
  EXPECT_EQ(attach(3, released, suppressed), 0);
  EXPECT_EQ(glb_evt.events[3].cb_list, nullptr);
  EXPECT_EQ(mu_event_send(0, 3, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "h");
  EXPECT_EQ(mu_event_register(0, 3, subscriber<'b'>), 0);
  EXPECT_EQ(glb_evt.events[3].registered, 1u);
  EXPECT_EQ(glb_evt.events[3].cb_list, nullptr);
  EXPECT_EQ(mu_event_send(0, 3, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "h");
  EXPECT_EQ(mu_event_deregister(0, 3, subscriber<'b'>), 0);
  EXPECT_EQ(glb_evt.events[3].registered, 0u);
}

TEST_F(EventAttach, BeforeAnyRegistrationMakesNoDifference) {
  EXPECT_EQ(attach(3, nullptr, nullptr), 0);
  EXPECT_EQ(mu_event_register(0, 3, subscriber<'b'>), 0);
  EXPECT_EQ(mu_event_send(0, 3, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "h");
}

TEST_F(EventAttach, TakesNoLock) {
  mu_mutex_lock(glb_evt.lock);
  EXPECT_EQ(attach(3, released, suppressed), 0);
  Console console;
  mu_event_dump();  // nor does this
  EXPECT_NE(console.take(), "");
  mu_mutex_unlock(glb_evt.lock);
}
