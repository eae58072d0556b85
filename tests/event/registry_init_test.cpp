// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_event_init: the state that it makes, its failures, and a second call.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/timer.h"

using namespace event_test;
using namespace tarn_test;

namespace {

int handler(uint16_t, mu_event_msg_t *) { return 0; }

const mu_timer_rec_t *timer_of(uint32_t id) {
  for (const mu_list_node_t *node = mu_list_first(timer_info.list); node != nullptr; node = mu_list_next(node)) {
    const auto *timer = static_cast<const mu_timer_rec_t *>(node->data);
    if (timer->id == id) return timer;
  }
  return nullptr;
}

void never(void *) {}

// The timer service runs already: mu_event_init makes no other lists than those of the event types.
class EventInitFailure : public testing::Test {
 protected:
  EventInitFailure() {
    mu_timer_add(0, nullptr, nullptr);
    clock_.settle();
  }

  static void fill_the_timer_service() {
    while (mu_timer_count() < MU_TIMER_MAX) mu_timer_add(1000, never, nullptr);
  }

  // Makes the lists of some types fail.
  struct FailingLists {
    explicit FailingLists(std::vector<bool> failing)
        : fails(std::move(failing)), malloc(libc::malloc, [this](size_t size) -> void * {
            if (size == sizeof(mu_list_t) && fails.at(made++)) return nullptr;
            return libc::malloc.real(size);
          }) {}
    const std::vector<bool> fails;
    size_t made = 0;
    const Replace<void *(size_t)> malloc;
  };

  VirtualClock clock_;
  Console console_;
};

}  // namespace

TEST(EventInit, TheStateIsAllZeroBeforeTheFirstCall) { EXPECT_EQ(bytes_of(glb_evt), all_zero()); }

TEST(EventInit, OfNoTypesChangesNothing) {
  EXPECT_EQ(mu_event_init(0, hook, handler), -1);
  EXPECT_EQ(bytes_of(glb_evt), all_zero());
  const Registry registry(3, hook, handler);
  const std::string before = state_bytes();
  const uint32_t timers = mu_timer_count();
  Console console;
  const HeapWatch heap;
  EXPECT_EQ(mu_event_init(0, nullptr, nullptr), -1);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(mu_timer_count(), timers);
  EXPECT_EQ(console.take(), "");
}

TEST(EventInit, FillsTheState) {
  Console console;
  const Registry registry(5, hook, handler);
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.max_event_num, 5);
  EXPECT_NE(glb_evt.lock, nullptr);
  EXPECT_FALSE(lock_is_held());
  EXPECT_EQ(glb_evt.send_hook, hook);
  EXPECT_EQ(glb_evt.cfg_handler, handler);
  EXPECT_NE(glb_evt.events, nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(EventInit, StoresANullHookAndANullHandler) {
  const Registry registry(1);
  EXPECT_EQ(glb_evt.send_hook, nullptr);
  EXPECT_EQ(glb_evt.cfg_handler, nullptr);
}

TEST(EventInit, MakesRecordsOfZerosWithAnEmptyList) {
  const Registry registry(40);
  for (int i = 0; i < 40; i++) {
    SCOPED_TRACE(i);
    mu_event_rec copy = rec(i);
    ASSERT_NE(copy.cb_list, nullptr);
    EXPECT_EQ(copy.cb_list->data_size, 16u);
    EXPECT_EQ(copy.cb_list->cmp, mu_event_compare);
    EXPECT_EQ(copy.cb_list->count, 0u);
    copy.cb_list = nullptr;
    EXPECT_EQ(bytes_of(copy), std::string(72, '\0'));
  }
}

TEST(EventInit, GivesEveryTypeAListOfItsOwn) {
  const Registry registry(2);
  EXPECT_NE(rec(0).cb_list, rec(1).cb_list);
}

TEST(EventInit, StartsACircularTimerOf500MillisecondsThatPolls) {
  const Registry registry(1);
  EXPECT_NE(glb_evt.poll_timer, 0u);
  const mu_timer_rec_t *timer = timer_of(glb_evt.poll_timer);
  ASSERT_NE(timer, nullptr);
  EXPECT_EQ(timer->interval, 50u);  // ticks of 10 ms
  EXPECT_EQ(timer->type, 1u);
  EXPECT_EQ(reinterpret_cast<void (*)()>(timer->callback), mu_event_poll);
  EXPECT_EQ(timer->arg, nullptr);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST(EventInit, Allocates72BytesForEachTypeUpTo2147483647) {
  std::vector<size_t> sizes;
  {
    const Replace none(libc::malloc, [&](size_t size) -> void * {
      sizes.push_back(size);
      return nullptr;
    });
    EXPECT_EQ(mu_event_init(1000, nullptr, nullptr), -1);
    EXPECT_EQ(mu_event_init(29826161, nullptr, nullptr), -1);
  }
  EXPECT_EQ(sizes, (std::vector<size_t>{72000, 2147483592}));
}

TEST(EventInit, RefusesATableAbove2147483647Bytes) {
  const Registry registry(3, hook, handler);
  keep_registry();
  // 59652324 * 72 is 32 modulo 2^32; 29826162 * 72 is the first product above 2^31 - 1.
  for (const int types : {-1, INT_MIN, INT_MIN + 1, -59652324, 29826162, 59652324, 59652328, INT_MAX}) {
    SCOPED_TRACE(types);
    glb_evt.send_hook = hook;
    const FailingMalloc none(1, 1000000);
    EXPECT_EQ(mu_event_init(types, hook, handler), -1);
    EXPECT_EQ(none.seen(), 0);
    EXPECT_EQ(bytes_of(glb_evt), all_zero());
  }
  EXPECT_EQ(send(0), -1);
}

TEST(EventInit, WithoutMemoryForTheTableLeavesAllZero) {
  const Registry registry(3, hook, handler);
  keep_registry();
  const uint32_t timers = mu_timer_count();
  Console console;
  {
    const FailingMalloc failing(1);
    EXPECT_EQ(mu_event_init(5, hook, handler), -1);
    EXPECT_EQ(failing.seen(), 1);
  }
  EXPECT_EQ(bytes_of(glb_evt), all_zero());
  EXPECT_EQ(mu_timer_count(), timers);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mu_event_register(0, 0, subscriber<1>), -1);
  EXPECT_EQ(send(0), -1);
  EXPECT_EQ(mu_event_init(2, nullptr, nullptr), 0);
}

TEST(EventInit, ClearsTheOldStateFirstAndSetsInitedLast) {
  const VirtualClock clock;
  mu_timer_add(0, nullptr, nullptr);
  glb_evt.inited = 1;
  glb_evt.poll_timer = 77;
  glb_evt.send_hook = hook;
  int allocations = 0;
  {
    const Replace seen(libc::malloc, [&](size_t size) {
      EXPECT_EQ(glb_evt.inited, 0u);
      if (allocations == 0) {
        EXPECT_EQ(bytes_of(glb_evt), all_zero());
      }
      allocations++;
      return libc::malloc.real(size);
    });
    EXPECT_EQ(mu_event_init(3, hook, handler), 0);
  }
  EXPECT_GE(allocations, 6) << "table, lock, timer, three lists";
  EXPECT_EQ(glb_evt.inited, 1u);
}

TEST(EventInit, ASecondCallStartsAnew) {
  Registry registry(3, hook, handler);
  mu_event_register(0, 1, subscriber<1>);
  const mu_event_state_t first = glb_evt;
  keep_registry();
  const HeapWatch heap;
  EXPECT_EQ(mu_event_init(2, nullptr, nullptr), 0);
  EXPECT_EQ(glb_evt.max_event_num, 2);
  EXPECT_NE(glb_evt.events, first.events);
  EXPECT_NE(glb_evt.lock, first.lock);
  EXPECT_NE(glb_evt.poll_timer, first.poll_timer);
  EXPECT_EQ(glb_evt.send_hook, nullptr);
  EXPECT_EQ(glb_evt.cfg_handler, nullptr);
  EXPECT_EQ(mu_timer_count(), 2u) << "the first timer continues";
  EXPECT_TRUE(heap.freed().empty());
  EXPECT_EQ(subscribers_of(1).size(), 0u);
  EXPECT_EQ(first.events[1].cb_list->count, 1u) << "the first table does not change";
  EXPECT_EQ(mu_event_send(0, 2, nullptr, 0), -1);

  // Both timers poll the second table.
  configure(0, 1, 3, 1000000);
  registry.clock.scan();  // the first scan runs every timer
  const uint32_t tick = rec(0).tick;
  registry.clock.run_ms(500);
  EXPECT_EQ(rec(0).tick, tick + 2);
}

TEST_F(EventInitFailure, ContinuesWithoutATimer) {
  fill_the_timer_service();
  EXPECT_EQ(mu_event_init(2, hook, handler), 0);
  EXPECT_EQ(console_.take(), "Timer number exceed(256)\nCreate event polling timer failed\n");
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.poll_timer, 0u);
  EXPECT_EQ(glb_evt.send_hook, hook);
  EXPECT_EQ(glb_evt.cfg_handler, handler);
  EXPECT_NE(rec(1).cb_list, nullptr);
  EXPECT_EQ(send(1), 0);
  take_journal();
}

TEST(EventInitTimerFailure, ContinuesWithoutTheTimerThread) {
  const VirtualClock clock;
  Console console;
  const Replace refuse(libc::pthread_create,
                       [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  EXPECT_EQ(mu_event_init(2, nullptr, nullptr), 0);
  EXPECT_EQ(console.take(), "Timer number exceed(0)\nCreate event polling timer failed\n");
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.poll_timer, 0u);
  keep(timer_info.mutex);  // abandoned by the timer service's failed start
  keep(timer_info.list);
}

TEST_F(EventInitFailure, NamesEveryTypeWhoseListCouldNotBeMade) {
  const FailingLists failing({false, true, false, true, true});
  EXPECT_EQ(mu_event_init(5, nullptr, nullptr), 0);
  EXPECT_EQ(console_.take(),
            "Create event 1 cb_list failed\nCreate event 3 cb_list failed\nCreate event 4 cb_list failed\n");
  EXPECT_EQ(glb_evt.inited, 1u);
  for (int i = 0; i < 5; i++) {
    EXPECT_EQ(rec(i).cb_list == nullptr, failing.fails.at(static_cast<size_t>(i))) << i;
  }
}

TEST_F(EventInitFailure, ReportsTheTimerBeforeTheLists) {
  fill_the_timer_service();
  const FailingLists failing({true});
  EXPECT_EQ(mu_event_init(1, nullptr, nullptr), 0);
  EXPECT_EQ(console_.take(),
            "Timer number exceed(256)\nCreate event polling timer failed\nCreate event 0 cb_list failed\n");
}

TEST_F(EventInitFailure, ATypeWithoutAListAcceptsNoSubscribers) {
  {
    const FailingLists failing({true, false});
    EXPECT_EQ(mu_event_init(2, hook, nullptr), 0);
  }
  console_.take();
  EXPECT_EQ(mu_event_register(0, 0, subscriber<1>), 0);
  EXPECT_EQ(rec(0).registered, 1);
  EXPECT_EQ(rec(0).cb_list, nullptr);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<2>), 0);
  EXPECT_EQ(send(0), 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(),
            (Journal{hook_line(0, 0, nullptr, 0), hook_line(0, 1, nullptr, 0), subscriber_line(2, 0, 1, nullptr, 0)}));
  EXPECT_EQ(rec(0).count, 1u);
  EXPECT_EQ(mu_event_deregister(0, 0, subscriber<1>), 0);
  EXPECT_EQ(rec(0).registered, 0);
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventInitFailure, ContinuesWithoutALock) {
  {
    const FailingMalloc failing(2);  // the table is the first
    EXPECT_EQ(mu_event_init(2, hook, nullptr), 0);
  }
  EXPECT_EQ(glb_evt.lock, nullptr);
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(console_.take(), "");
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal().size(), 2u);
  EXPECT_EQ(configure(1, 1, 1, 10), 0);
  EXPECT_EQ(send(1), -1);
  mu_event_poll();
  EXPECT_EQ(rec(1).suprs_s, 0);
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 0);
}
