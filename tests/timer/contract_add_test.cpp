// What an add stores: intervals, records, ids, and the limit of 256.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "support/virtual_clock.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

using Add = uint32_t (*)(int, mu_timer_cb_t, void *);

constexpr char kFull[] = "Timer number exceed(256)\n";
constexpr int kLong = 1000000000;  // far beyond what any test lets pass

void ignore(void *) {}

// The service runs, its first scan has passed, and no timer exists: each scan from here on counts one tick.
class TimerAddContract : public testing::Test {
 protected:
  TimerAddContract() {
    mu_timer_add(0, nullptr, nullptr);
    clock_.scan();
  }

  static const mu_timer_rec_t *find(uint32_t id) {
    const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
    return node == nullptr ? nullptr : static_cast<const mu_timer_rec_t *>(node->data);
  }

  static std::vector<uint32_t> ids() {
    std::vector<uint32_t> found;
    for (const mu_list_node_t *node = mu_list_first(timer_info.list); node != nullptr; node = mu_list_next(node)) {
      found.push_back(static_cast<const mu_timer_rec_t *>(node->data)->id);
    }
    return found;
  }

  static void fill(uint32_t count) {
    for (uint32_t i = 0; i < count; i++) ASSERT_NE(mu_timer_add(kLong, ignore, nullptr), 0u);
  }

  VirtualClock clock_;
};

using TimerIdContract = TimerAddContract;
using TimerLimitContract = TimerAddContract;
using Ids = std::vector<uint32_t>;

}  // namespace

// ---- Records --------------------------------------------------------------------------------------------------------

// 1 for at most 10 ms, signed; else a tenth, truncated.
TEST_F(TimerAddContract, ConvertsMillisecondsToTicks) {
  const struct {
    int interval_ms;
    uint32_t ticks;
  } rows[] = {{0, 1},
              {1, 1},
              {5, 1},
              {9, 1},
              {10, 1},
              {11, 1},
              {15, 1},
              {19, 1},
              {20, 2},
              {29, 2},
              {30, 3},
              {99, 9},
              {100, 10},
              {-1, 1},
              {-7, 1},
              {-20, 1},
              {1000, 100},
              {INT_MIN, 1},
              {INT_MAX, 214748364}};
  for (const Add add : {mu_timer_add, mu_circle_timer_add}) {
    for (const auto &row : rows) {
      SCOPED_TRACE(testing::Message() << row.interval_ms << (add == mu_timer_add ? " ms, once" : " ms, circular"));
      const mu_timer_rec_t *timer = find(add(row.interval_ms, ignore, nullptr));
      ASSERT_NE(timer, nullptr);
      EXPECT_EQ(timer->interval, row.ticks);
      EXPECT_EQ(timer->remain, row.ticks);
    }
  }
}

TEST_F(TimerAddContract, StoresAWholeRecord) {
  for (const Add add : {mu_timer_add, mu_circle_timer_add}) {
    SCOPED_TRACE(add == mu_timer_add ? "once" : "circular");
    void *const arg = reinterpret_cast<void *>(UINT64_C(0xfedcba9876543210));
    const uint32_t id = add(250, ignore, arg);
    const mu_timer_rec_t *timer = find(id);
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval, 25u);
    EXPECT_EQ(timer->remain, 25u);
    EXPECT_EQ(timer->callback, ignore);
    EXPECT_EQ(timer->arg, arg);
    EXPECT_EQ(timer->type, add == mu_timer_add ? 0u : 1u);
    EXPECT_EQ(timer->id, id);
    EXPECT_EQ(timer->running, 0u);
    EXPECT_EQ(timer->deleted, 0u);
    EXPECT_EQ(timer->stopped, 0u);
    EXPECT_EQ(timer->drain, 0u);
  }
}

TEST_F(TimerAddContract, TakesANullArgument) {
  const mu_timer_rec_t *timer = find(mu_timer_add(250, ignore, nullptr));
  ASSERT_NE(timer, nullptr);
  EXPECT_EQ(timer->arg, nullptr);
}

TEST_F(TimerAddContract, AppendsInTheOrderOfTheAdds) {
  mu_timer_add(3000, ignore, nullptr);
  mu_circle_timer_add(1000, ignore, nullptr);
  mu_timer_add(2000, ignore, nullptr);
  EXPECT_EQ(ids(), (Ids{1, 2, 3}));
  EXPECT_EQ(mu_timer_count(), 3u);
}

TEST_F(TimerAddContract, TakesOneBlockForATimer) {
  const HeapWatch heap;
  mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(heap.live(), 1u);
}

TEST_F(TimerAddContract, RefusesANullCallbackSilentlyAndWithoutTheMutex) {
  Console console;
  mu_mutex_lock(timer_info.mutex);  // an add that took it would wait forever
  EXPECT_EQ(mu_timer_add(1000, nullptr, nullptr), 0u);
  EXPECT_EQ(mu_circle_timer_add(1000, nullptr, nullptr), 0u);
  mu_mutex_unlock(timer_info.mutex);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(timer_info.last_id, 0u);
}

TEST_F(TimerAddContract, GivesAnIdEvenWhenThereIsNoMemoryForTheTimer) {
  Console console;
  for (const Add add : {mu_timer_add, mu_circle_timer_add}) {
    const FailingMalloc failing(1);
    const uint32_t expected = timer_info.last_id + 1;
    EXPECT_EQ(add(1000, ignore, nullptr), expected);
    EXPECT_EQ(failing.seen(), 1);
    EXPECT_EQ(mu_timer_count(), 0u);
    EXPECT_EQ(timer_info.last_id, expected);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(mu_timer_del(expected), 0u);
    EXPECT_EQ(console.take(), "Oops: Delete an invalid timer!!\r\n");
  }
  EXPECT_EQ(mu_timer_add(1000, ignore, nullptr), 3u) << "the id of a timer that does not exist is used up";
}

// ---- Ids ------------------------------------------------------------------------------------------------------------

TEST_F(TimerIdContract, RunsFromOneForBothKinds) {
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 1u);
  EXPECT_EQ(mu_circle_timer_add(kLong, ignore, nullptr), 2u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 3u);
  EXPECT_EQ(timer_info.last_id, 3u);
}

TEST_F(TimerIdContract, IsNotUsedAgainSoonAfterItsTimerIsGone) {
  const uint32_t first = mu_timer_add(kLong, ignore, nullptr);
  mu_timer_del(first);
  clock_.scan();
  ASSERT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
}

TEST_F(TimerIdContract, WrapsToOneBehindTheLargest) {
  timer_info.last_id = UINT32_MAX - 1;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), UINT32_MAX);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 1u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
}

TEST_F(TimerIdContract, PassesOverIdsInUse) {
  fill(3);  // 1, 2, 3
  mu_timer_del(2);
  clock_.scan();  // leaves 1 and 3
  timer_info.last_id = UINT32_MAX;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 4u);
  EXPECT_EQ(ids(), (Ids{1, 3, 2, 4}));
}

TEST_F(TimerIdContract, PassesOverTimersThatAreStoppedOrWhoseDeletionIsPending) {
  fill(3);
  mu_timer_del(1);
  mu_timer_stop(2);
  timer_info.last_id = 0;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 4u);
}

TEST_F(TimerIdContract, StartsFromTheIdHandedOutLast) {
  timer_info.last_id = 41;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 42u);
}

// ---- The limit ------------------------------------------------------------------------------------------------------

TEST_F(TimerLimitContract, Is256Timers) {
  Console console;
  fill(255);
  EXPECT_EQ(mu_circle_timer_add(kLong, ignore, nullptr), 256u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), kFull);
  EXPECT_EQ(mu_circle_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), kFull);
  EXPECT_EQ(mu_timer_count(), 256u);
  EXPECT_EQ(timer_info.last_id, 256u) << "a refused add uses no id";
}

TEST_F(TimerLimitContract, CountsATimerWhoseDeletionIsPendingUntilTheNextScan) {
  fill(256);
  mu_timer_del(100);
  Console console;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), kFull);
  clock_.scan();
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 257u);
  EXPECT_EQ(console.take(), "");
}

TEST_F(TimerLimitContract, CountsStoppedTimers) {
  fill(256);
  mu_timer_stop(100);
  clock_.scan();
  Console console;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), kFull);
}

TEST_F(TimerLimitContract, LeavesTheMutexFreeAfterARefusal) {
  fill(256);
  Console console;
  mu_timer_add(kLong, ignore, nullptr);
  EXPECT_EQ(mu_mutex_trylock(timer_info.mutex), 0);
  mu_mutex_unlock(timer_info.mutex);
  console.take();
}

TEST_F(TimerLimitContract, StaysSilentForANullCallback) {
  fill(256);
  Console console;
  EXPECT_EQ(mu_timer_add(kLong, nullptr, nullptr), 0u);
  EXPECT_EQ(console.take(), "");
}

TEST_F(TimerLimitContract, IsTheNumberInTheState) {
  timer_info.max_num = 2;
  fill(2);
  Console console;
  EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 0u);
  EXPECT_EQ(console.take(), "Timer number exceed(2)\n");
}

// ---- The compare callback -------------------------------------------------------------------------------------------

TEST(TimerCompareContract, ComparesIdsAsUnsignedNumbers) {
  const struct {
    uint32_t own;
    uint32_t searched;
    int32_t result;
  } rows[] = {{1, 1, 0},
              {2, 1, 1},
              {1, 2, -1},
              {0, 0, 0},
              {0x80000000, 0x7fffffff, 1},
              {0x7fffffff, 0x80000000, -1},
              {UINT32_MAX, 0, 1},
              {0, UINT32_MAX, -1},
              {UINT32_MAX, UINT32_MAX, 0}};
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.own << " against " << row.searched);
    mu_timer_rec_t record;
    memset(&record, 0xee, sizeof record);  // nothing but the id matters
    record.id = row.own;
    EXPECT_EQ(mu_timer_compare(&record, &row.searched), row.result);
  }
}
