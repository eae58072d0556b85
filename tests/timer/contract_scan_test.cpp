// The scan: the ticks that it counts, when it comes, and how it runs a callback.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "support/virtual_clock.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

using Ids = std::vector<uint32_t>;
using Body = std::function<void()>;

void run(void *body) { (*static_cast<Body *>(body))(); }

void ignore(void *) {}

const mu_timer_rec_t *find(uint32_t id) {
  const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
  return node == nullptr ? nullptr : static_cast<const mu_timer_rec_t *>(node->data);
}

uint32_t remain(uint32_t id) { return find(id)->remain; }

// The service runs, and its first scan has passed at tick 101 of the clock: each scan from here on counts one tick.
class TimerScanContract : public testing::Test {
 protected:
  TimerScanContract() {
    mu_timer_add(0, nullptr, nullptr);
    clock_.scan();
  }

  // A callback that notes its timer's name.
  Body note(uint32_t name) {
    return [this, name] { fired_.push_back(name); };
  }

  VirtualClock clock_{1000};
  Ids fired_;
};

}  // namespace

// ---- The first scan -------------------------------------------------------------------------------------------------

// At age 5000 ms the first scan takes place at tick 501 and counts all 501.
TEST(TimerFirstScanContract, CountsTheWholeAgeOfTheClock) {
  VirtualClock clock(5000);
  Ids fired;
  Body equal = [&] { fired.push_back(501); };
  Body beyond = [&] { fired.push_back(502); };
  mu_timer_add(5010, run, &equal);
  const uint32_t later = mu_timer_add(5020, run, &beyond);
  clock.scan();
  EXPECT_EQ(fired, Ids{501});
  ASSERT_NE(find(later), nullptr);
  EXPECT_EQ(remain(later), 1u);
  EXPECT_EQ(timer_info.last_tick, 501u);
  clock.scan();
  EXPECT_EQ(fired, (Ids{501, 502}));
}

TEST(TimerFirstScanContract, ReloadsACircularTimerThatRanOutAtOnce) {
  VirtualClock clock(5000);
  int runs = 0;
  Body count = [&] { runs++; };
  const uint32_t id = mu_circle_timer_add(30, run, &count);
  clock.scan();
  EXPECT_EQ(runs, 1) << "overshot by 498 ticks, run once";
  EXPECT_EQ(remain(id), 3u);
}

// Tick 2^32 + 6: cut to 32 bits it would be 6 and fire nothing.
TEST(TimerFirstScanContract, CountsIn64Bits) {
  VirtualClock clock(((INT64_C(1) << 32) + 5) * 10);
  int runs = 0;
  Body count = [&] { runs++; };
  mu_timer_add(1000, run, &count);
  mu_timer_restart(mu_timer_add(1000, run, &count), UINT32_MAX);
  clock.scan();
  EXPECT_EQ(runs, 2);
  EXPECT_EQ(timer_info.last_tick, (UINT64_C(1) << 32) + 6);
}

// ---- Elapsed ticks --------------------------------------------------------------------------------------------------

TEST_F(TimerScanContract, ComesTenMillisecondsAfterTheEndOfTheOneBefore) {
  Body slow = [this] { clock_.pass_ms(35); };
  mu_timer_add(20, run, &slow);
  EXPECT_EQ(clock_.now_ms(), 1010);
  clock_.scan();
  EXPECT_EQ(clock_.now_ms(), 1020);
  clock_.scan();
  EXPECT_EQ(clock_.now_ms(), 1030 + 35);
  clock_.scan();
  EXPECT_EQ(clock_.now_ms(), 1065 + 10);
}

TEST_F(TimerScanContract, CountsTheTicksSinceTheEndOfTheOneBefore) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(remain(id), 99u);
  clock_.scan(4);
  EXPECT_EQ(remain(id), 95u);
}

TEST_F(TimerScanContract, CountsTimeThatALateWakeUpLost) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  clock_.pass_ms(300);  // 30 ticks, the sleep of one tick among them
  clock_.scan();
  EXPECT_EQ(remain(id), 70u);
}

TEST_F(TimerScanContract, StoresTheTickAtItsEnd) {
  EXPECT_EQ(timer_info.last_tick, 101u);
  clock_.scan();
  EXPECT_EQ(timer_info.last_tick, 102u);
  Body slow = [this] { clock_.pass_ms(70); };
  mu_timer_add(10, run, &slow);
  clock_.scan();
  EXPECT_EQ(timer_info.last_tick, 103u + 7);
}

// A scan that falls on the same tick as the one before it counts nothing.
TEST(TimerScanTickContract, CountsTickBoundariesAndNotMilliseconds) {
  VirtualClock clock(1004);
  mu_timer_add(0, nullptr, nullptr);
  clock.scan();  // at 1014 ms: tick 101
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  clock.pass_ms(19);  // 1033
  clock.scan();
  EXPECT_EQ(timer_info.last_tick, 103u);
  EXPECT_EQ(remain(id), 98u);
}

TEST_F(TimerScanContract, RunsATimerWhoseRemainEqualsTheElapsedTicks) {
  Body body = note(1);
  mu_timer_add(30, run, &body);
  clock_.scan(2);
  EXPECT_EQ(fired_, Ids{});
  EXPECT_EQ(remain(1), 1u);
  clock_.scan();
  EXPECT_EQ(fired_, Ids{1});
}

TEST_F(TimerScanContract, ChargesACallbacksTicksToTheTimersBehindItOnly) {
  Body slow = [this] { clock_.pass_ms(50); };
  const uint32_t before = mu_timer_add(1000, ignore, nullptr);
  mu_timer_add(10, run, &slow);
  const uint32_t behind = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(remain(before), 99u);
  EXPECT_EQ(remain(behind), 100u - 1 - 5);
}

TEST_F(TimerScanContract, RunsATimerThatACallbackBeforeItMadeDue) {
  Body slow = [this] {
    fired_.push_back(1);
    clock_.pass_ms(50);
  };
  Body due = note(2);
  Body not_due = note(3);
  mu_timer_add(10, run, &slow);
  mu_timer_add(60, run, &due);  // 1 tick and 5 of the callback
  mu_timer_add(70, run, &not_due);
  clock_.scan();
  EXPECT_EQ(fired_, (Ids{1, 2}));
  EXPECT_EQ(remain(3), 1u);
}

TEST_F(TimerScanContract, AddsUpTheTicksOfAllItsCallbacks) {
  Body three = [this] { clock_.pass_ms(30); };
  Body four = [this] { clock_.pass_ms(40); };
  mu_timer_add(10, run, &three);
  mu_timer_add(10, run, &four);
  const uint32_t behind = mu_timer_add(1000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(remain(behind), 100u - 1 - 3 - 4);
  EXPECT_EQ(timer_info.last_drain, 4u) << "of the latest callback alone";
}

// Deliberate: the latest callback's ticks are counted again by every scan until another callback runs.
TEST_F(TimerScanContract, CountsTheLatestCallbacksTicksAgainUntilAnotherRuns) {
  Body slow = [this] { clock_.pass_ms(30); };
  Body quick = [] {};
  mu_timer_add(10, run, &slow);
  const uint32_t id = mu_timer_add(10000, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(remain(id), 1000u - 4);
  clock_.scan();
  EXPECT_EQ(remain(id), 996u - 4);
  clock_.scan(5);
  EXPECT_EQ(remain(id), 992u - 5 * 4);
  EXPECT_EQ(timer_info.last_drain, 3u);
  mu_timer_add(10, run, &quick);
  clock_.scan();  // still starts with 3 ticks too many
  EXPECT_EQ(remain(id), 972u - 4);
  EXPECT_EQ(timer_info.last_drain, 0u);
  clock_.scan(3);
  EXPECT_EQ(remain(id), 968u - 3);
}

// ---- Expiry ---------------------------------------------------------------------------------------------------------

TEST_F(TimerScanContract, RunsCallbacksInListOrderOnTheTimerThreadWithTheirArguments) {
  static std::vector<void *> args;
  static long thread_id;
  const mu_timer_cb_t callback = [](void *arg) {
    args.push_back(arg);
    thread_id = syscall(SYS_gettid);
  };
  void *const first = reinterpret_cast<void *>(UINT64_C(0xfedcba9876543210));
  void *const second = &args;
  mu_timer_add(20, callback, first);
  mu_timer_add(10, callback, second);
  mu_timer_add(20, callback, nullptr);
  clock_.scan();
  EXPECT_EQ(args, std::vector<void *>{second});
  clock_.scan();
  EXPECT_EQ(args, (std::vector<void *>{second, first, nullptr}));
  EXPECT_EQ(thread_id, tmr_tid);
}

TEST_F(TimerScanContract, ShowsACallbackItsTimerAsRunningExpiredAndWithNothingRemaining) {
  static mu_timer_rec_t seen;
  static uint32_t expired;
  static int locked;
  for (const auto add : {mu_timer_add, mu_circle_timer_add}) {
    SCOPED_TRACE(add == mu_timer_add ? "once" : "circular");
    const uint32_t expired_before = timer_info.expired;
    const uint32_t id = add(
        20,
        [](void *) {
          locked = mu_mutex_trylock(timer_info.mutex);
          mu_mutex_unlock(timer_info.mutex);
          seen = *static_cast<const mu_timer_rec_t *>(mu_list_last(timer_info.list)->data);
          expired = timer_info.expired;
        },
        nullptr);
    clock_.scan(2);
    EXPECT_EQ(locked, 0) << "the mutex is free meanwhile";
    EXPECT_EQ(seen.id, id);
    EXPECT_EQ(seen.running, 1u);
    EXPECT_EQ(seen.remain, 0u);
    EXPECT_EQ(expired, expired_before + 1);
    if (add == mu_circle_timer_add) {
      EXPECT_EQ(find(id)->running, 0u);
    }
  }
}

TEST_F(TimerScanContract, LeavesTheMutexFree) {
  mu_timer_add(10, ignore, nullptr);
  clock_.scan();
  EXPECT_EQ(mu_mutex_trylock(timer_info.mutex), 0);
  mu_mutex_unlock(timer_info.mutex);
}

TEST_F(TimerScanContract, CountsEveryExpiry) {
  mu_circle_timer_add(20, ignore, nullptr);
  mu_timer_add(50, ignore, nullptr);
  clock_.scan(10);  // 5 of the circular timer, 1 of the other
  EXPECT_EQ(timer_info.expired, 6u);
}
