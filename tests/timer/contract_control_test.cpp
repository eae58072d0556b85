// Deleting, stopping, starting and re-arming between scans.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

using Body = std::function<void()>;

constexpr int kLong = 1000000000;
constexpr char kNoDelete[] = "Oops: Delete an invalid timer!!\r\n";
constexpr char kNoStop[] = "Oops: Stop an invalid timer!!\r\n";

void run(void *body) { (*static_cast<Body *>(body))(); }

void ignore(void *) {}

// The service runs and its first scan has passed: each scan from here on counts one tick.
class TimerControlContract : public testing::Test {
 protected:
  TimerControlContract() {
    mu_timer_add(0, nullptr, nullptr);
    clock_.scan();
  }

  static mu_timer_rec_t *find(uint32_t id) {
    const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
    return node == nullptr ? nullptr : static_cast<mu_timer_rec_t *>(node->data);
  }

  VirtualClock clock_;
  int runs_ = 0;
  Body count_ = [this] { runs_++; };
};

using TimerDelContract = TimerControlContract;
using TimerStopContract = TimerControlContract;
using TimerStartAgainContract = TimerControlContract;
using TimerRestartContract = TimerControlContract;

}  // namespace

// ---- Delete ---------------------------------------------------------------------------------------------------------

TEST_F(TimerDelContract, MarksTheTimerAndLeavesItsRemovalToTheNextScan) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  EXPECT_EQ(mu_timer_del(id), 0u);
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(find(id)->deleted, 1u);
  EXPECT_EQ(find(id)->stopped, 0u);
  EXPECT_EQ(find(id)->remain, 100u);
  EXPECT_EQ(mu_timer_count(), 1u);
  clock_.scan();
  EXPECT_EQ(find(id), nullptr);
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerDelContract, KeepsADueTimerFromFiring) {
  for (const auto add : {mu_timer_add, mu_circle_timer_add}) {
    const uint32_t id = add(10, run, &count_);
    mu_timer_del(id);
    clock_.scan(3);
  }
  EXPECT_EQ(runs_, 0);
  EXPECT_EQ(timer_info.expired, 0u);
}

TEST_F(TimerDelContract, FindsATwiceDeletedTimerUntilItIsGone) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  Console console;
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(console.take(), "");
  clock_.scan();
  EXPECT_EQ(mu_timer_del(id), 0u);
  EXPECT_EQ(console.take(), kNoDelete);
}

TEST_F(TimerDelContract, TellsOfAnUnknownId) {
  mu_timer_add(1000, ignore, nullptr);
  for (const uint32_t id : {0u, 2u, UINT32_MAX}) {
    SCOPED_TRACE(id);
    Console console;
    EXPECT_EQ(mu_timer_del(id), 0u);
    EXPECT_EQ(console.take(), kNoDelete);
  }
  EXPECT_EQ(find(1)->deleted, 0u);
}

TEST_F(TimerDelContract, TakesPrecedenceOverAStop) {
  const uint32_t first = mu_timer_add(1000, ignore, nullptr);
  const uint32_t second = mu_timer_add(1000, ignore, nullptr);
  Console console;
  mu_timer_stop(first);
  mu_timer_del(first);
  mu_timer_del(second);
  mu_timer_stop(second);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(find(second)->stopped, 1u);
  EXPECT_EQ(find(second)->deleted, 1u);
  clock_.scan();
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerDelContract, MeansTheFirstTimerOfThatId) {
  const uint32_t id = mu_timer_add(1000, ignore, nullptr);
  mu_timer_rec_t twin = *find(id);
  mu_list_add(timer_info.list, &twin);
  const auto *second = static_cast<const mu_timer_rec_t *>(mu_list_last(timer_info.list)->data);
  mu_timer_del(id);
  mu_timer_stop(id);
  EXPECT_EQ(find(id)->deleted, 1u);
  EXPECT_EQ(find(id)->stopped, 1u);
  EXPECT_EQ(second->deleted, 0u);
  EXPECT_EQ(second->stopped, 0u);
}

// ---- Stop -----------------------------------------------------------------------------------------------------------

TEST_F(TimerStopContract, FreezesTheRemainingTicks) {
  const uint32_t id = mu_timer_add(50, run, &count_);
  clock_.scan(2);
  EXPECT_EQ(mu_timer_stop(id), 0u);
  EXPECT_EQ(find(id)->stopped, 1u);
  EXPECT_EQ(find(id)->deleted, 0u);
  clock_.scan(100);
  EXPECT_EQ(find(id)->remain, 3u);
  EXPECT_EQ(find(id)->interval, 5u);
  EXPECT_EQ(runs_, 0);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST_F(TimerStopContract, MayBeRepeated) {
  const uint32_t id = mu_circle_timer_add(50, run, &count_);
  Console console;
  EXPECT_EQ(mu_timer_stop(id), 0u);
  EXPECT_EQ(mu_timer_stop(id), 0u);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(find(id)->stopped, 1u);
}

TEST_F(TimerStopContract, TellsOfAnUnknownId) {
  mu_timer_add(1000, ignore, nullptr);
  for (const uint32_t id : {0u, 2u, UINT32_MAX}) {
    SCOPED_TRACE(id);
    Console console;
    EXPECT_EQ(mu_timer_stop(id), 0u);
    EXPECT_EQ(console.take(), kNoStop);
  }
  EXPECT_EQ(find(1)->stopped, 0u);
}

// ---- Start ----------------------------------------------------------------------------------------------------------

TEST_F(TimerStartAgainContract, ReloadsAStoppedTimerWithItsFullInterval) {
  const uint32_t id = mu_timer_add(50, run, &count_);
  clock_.scan(3);
  mu_timer_stop(id);
  clock_.scan();
  mu_timer_start(id);
  EXPECT_EQ(find(id)->remain, 5u);
  EXPECT_EQ(find(id)->stopped, 0u);
  clock_.scan(4);
  EXPECT_EQ(runs_, 0);
  clock_.scan();
  EXPECT_EQ(runs_, 1);
}

TEST_F(TimerStartAgainContract, ReloadsAnActiveTimer) {
  const uint32_t id = mu_circle_timer_add(50, run, &count_);
  for (int i = 0; i < 10; i++) {
    clock_.scan(4);
    mu_timer_start(id);
  }
  EXPECT_EQ(runs_, 0);
  EXPECT_EQ(find(id)->remain, 5u);
}

// Deliberate: a timer whose deletion is still pending comes back.
TEST_F(TimerStartAgainContract, BringsADeletedTimerBack) {
  const uint32_t id = mu_timer_add(50, run, &count_);
  clock_.scan(3);
  mu_timer_stop(id);
  mu_timer_del(id);
  mu_timer_start(id);
  EXPECT_EQ(find(id)->deleted, 0u);
  EXPECT_EQ(find(id)->stopped, 0u);
  EXPECT_EQ(find(id)->remain, 5u);
  clock_.scan(5);
  EXPECT_EQ(runs_, 1);
}

TEST_F(TimerStartAgainContract, IgnoresUnknownIdsSilently) {
  mu_timer_add(1000, ignore, nullptr);
  clock_.scan(10);
  Console console;
  for (const uint32_t id : {0u, 2u, UINT32_MAX}) {
    mu_timer_start(id);
    mu_timer_restart(id, 10);
  }
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(find(1)->remain, 90u);
  EXPECT_EQ(find(1)->interval, 100u);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST_F(TimerStartAgainContract, DoesNotReviveATimerThatIsGone) {
  const uint32_t id = mu_timer_add(10, run, &count_);
  clock_.scan();
  mu_timer_start(id);
  mu_timer_restart(id, 10);
  clock_.scan(5);
  EXPECT_EQ(runs_, 1);
  EXPECT_EQ(mu_timer_count(), 0u);
}

// ---- Restart --------------------------------------------------------------------------------------------------------

// Deliberate: unsigned, where the adds compare signed. What would be -1 there is 429496729 ticks here.
TEST_F(TimerRestartContract, ConvertsUnsignedMillisecondsToTicks) {
  const struct {
    uint32_t interval_ms;
    uint32_t ticks;
  } rows[] = {{0, 1},
              {1, 1},
              {10, 1},
              {11, 1},
              {15, 1},
              {19, 1},
              {20, 2},
              {1000, 100},
              {0x7fffffff, 214748364},
              {0x80000000, 214748364},
              {static_cast<uint32_t>(-7), 429496728},
              {UINT32_MAX, 429496729}};
  const uint32_t id = mu_timer_add(50, ignore, nullptr);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.interval_ms);
    mu_timer_restart(id, row.interval_ms);
    EXPECT_EQ(find(id)->interval, row.ticks);
    EXPECT_EQ(find(id)->remain, row.ticks);
  }
}

TEST_F(TimerRestartContract, ActivatesATimerInAnyState) {
  const struct {
    const char *name;
    void (*prepare)(uint32_t id);
  } rows[] = {{"active", [](uint32_t) {}},
              {"stopped", [](uint32_t id) { mu_timer_stop(id); }},
              {"deleted", [](uint32_t id) { mu_timer_del(id); }},
              {"both", [](uint32_t id) { mu_timer_del(id), mu_timer_stop(id); }}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    runs_ = 0;
    const uint32_t id = mu_timer_add(kLong, run, &count_);
    row.prepare(id);
    mu_timer_restart(id, 30);
    EXPECT_EQ(find(id)->deleted, 0u);
    EXPECT_EQ(find(id)->stopped, 0u);
    clock_.scan(2);
    EXPECT_EQ(runs_, 0);
    clock_.scan();
    EXPECT_EQ(runs_, 1);
  }
}

TEST_F(TimerRestartContract, GivesACircularTimerItsNewPeriod) {
  const uint32_t id = mu_circle_timer_add(kLong, run, &count_);
  mu_timer_restart(id, 20);
  clock_.scan(10);
  EXPECT_EQ(runs_, 5);
  EXPECT_EQ(find(id)->type, 1u);
}

TEST_F(TimerRestartContract, LeavesTheRestOfTheRecordAlone) {
  const uint32_t id = mu_circle_timer_add(50, run, &count_);
  find(id)->drain = 4;
  const mu_timer_rec_t before = *find(id);
  mu_timer_restart(id, 70);
  const mu_timer_rec_t &after = *find(id);
  EXPECT_EQ(after.callback, before.callback);
  EXPECT_EQ(after.arg, before.arg);
  EXPECT_EQ(after.type, 1u);
  EXPECT_EQ(after.id, id);
  EXPECT_EQ(after.running, 0u);
  EXPECT_EQ(after.drain, 4u);
}
