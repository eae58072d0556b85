// The run times of callbacks: of a timer, the latest, the longest.

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>

#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

VirtualClock *g_clock;

// Callbacks that can be told apart by address; the argument is their run time in ms.
template <int Number>
void take_ms(void *ms) {
  g_clock->pass_ms(*static_cast<const int *>(ms) + Number * 0);
  static volatile int runs;  // keeps the instances from being folded into one
  runs = runs + Number;
}

const mu_timer_rec_t *find(uint32_t id) {
  const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
  return node == nullptr ? nullptr : static_cast<const mu_timer_rec_t *>(node->data);
}

class TimerDrainContract : public testing::Test {
 protected:
  TimerDrainContract() {
    g_clock = &clock_;
    mu_timer_add(0, nullptr, nullptr);
    clock_.scan();
  }

  // Waits for the next run of a circular timer of one tick.
  void run_for(int ms) {
    ms_ = ms;
    clock_.scan();
  }

  VirtualClock clock_{1000};
  int ms_ = 0;
};

}  // namespace

TEST_F(TimerDrainContract, IsTheNumberOfTickBoundariesThatTheCallbackSpans) {
  const uint32_t id = mu_circle_timer_add(10, take_ms<1>, &ms_);
  run_for(30);
  EXPECT_EQ(find(id)->drain, 3u);
  EXPECT_EQ(timer_info.last_drain, 3u);
  EXPECT_EQ(timer_info.max_drain, 3u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<1>);
}

TEST_F(TimerDrainContract, IsTruncatedByTheTick) {
  const uint32_t id = mu_circle_timer_add(10, take_ms<1>, &ms_);
  run_for(9);  // from 1020 to 1029 ms
  EXPECT_EQ(find(id)->drain, 0u);
  run_for(1);  // from 1039 to 1040
  EXPECT_EQ(find(id)->drain, 1u);
}

TEST_F(TimerDrainContract, KeepsATimersLongestRunAndTheLatestRunOfAll) {
  const struct {
    int ms;
    uint32_t last;
    uint32_t longest;
  } rows[] = {{20, 2, 2}, {50, 5, 5}, {10, 1, 5}, {0, 0, 5}, {60, 6, 6}};
  const uint32_t id = mu_circle_timer_add(10, take_ms<1>, &ms_);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.ms);
    run_for(row.ms);
    EXPECT_EQ(timer_info.last_drain, row.last);
    EXPECT_EQ(find(id)->drain, row.longest);
    EXPECT_EQ(timer_info.max_drain, row.longest);
  }
}

TEST_F(TimerDrainContract, IsKeptForEachTimer) {
  static const int kMs[] = {20, 40, 0};
  uint32_t ids[std::size(kMs)];
  for (size_t i = 0; i < std::size(kMs); i++) {
    ids[i] = mu_circle_timer_add(10, take_ms<1>, const_cast<int *>(&kMs[i]));
  }
  clock_.scan();
  EXPECT_EQ(find(ids[0])->drain, 2u);
  EXPECT_EQ(find(ids[1])->drain, 4u);
  EXPECT_EQ(find(ids[2])->drain, 0u);
}

TEST_F(TimerDrainContract, NamesTheFirstCallbackOfTheLongestRun) {
  static int ms[] = {20, 40, 40, 50};
  mu_timer_add(10, take_ms<0>, &ms[0]);
  mu_timer_add(10, take_ms<1>, &ms[1]);
  mu_timer_add(10, take_ms<2>, &ms[2]);
  clock_.scan();
  EXPECT_EQ(timer_info.max_drain, 4u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<1>) << "an equal run does not take its place";
  mu_timer_add(10, take_ms<3>, &ms[3]);
  clock_.scan();
  EXPECT_EQ(timer_info.max_drain, 5u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<3>);
}

TEST_F(TimerDrainContract, OutlivesTheTimerInTheStatistics) {
  mu_timer_add(10, take_ms<1>, &ms_);
  run_for(30);
  ASSERT_EQ(mu_timer_count(), 0u);
  clock_.scan(3);
  EXPECT_EQ(timer_info.max_drain, 3u);
  EXPECT_EQ(timer_info.max_drain_cb, take_ms<1>);
}

TEST_F(TimerDrainContract, NamesNoCallbackWhileAllRunsAreShorterThanATick) {
  mu_circle_timer_add(10, take_ms<1>, &ms_);
  clock_.scan(5);
  EXPECT_EQ(timer_info.expired, 5u);
  EXPECT_EQ(timer_info.max_drain, 0u);
  EXPECT_EQ(timer_info.max_drain_cb, nullptr);
}

TEST_F(TimerDrainContract, SurvivesARestart) {
  const uint32_t id = mu_circle_timer_add(10, take_ms<1>, &ms_);
  run_for(30);
  mu_timer_restart(id, 500);
  mu_timer_stop(id);
  mu_timer_start(id);
  EXPECT_EQ(find(id)->drain, 3u);
}

// 2^32 + 3 ticks are 3 in 32 bits, for the statistics and for the timers behind.
TEST_F(TimerDrainContract, IsADifferenceOf32Bits) {
  static int64_t ms = ((INT64_C(1) << 32) + 3) * 10;
  mu_timer_add(
      10, [](void *) { g_clock->pass_ms(ms); }, nullptr);
  const uint32_t behind = mu_timer_add(1000, take_ms<1>, &ms_);
  clock_.scan();
  EXPECT_EQ(timer_info.last_drain, 3u);
  EXPECT_EQ(timer_info.max_drain, 3u);
  ASSERT_NE(find(behind), nullptr);
  EXPECT_EQ(find(behind)->remain, 100u - 1 - 3);
}
