// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/virtual_clock.h"

#include <gtest/gtest.h>

#include "support/console.h"
#include "support/heap.h"
#include "support/sandbox.h"
#include "tarn/containers.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

TEST(VirtualClock, DrivesTheTimerThreadScanByScan) {
  VirtualClock clock;
  static int runs;
  mu_circle_timer_add(
      30, [](void *) { runs++; }, nullptr);
  clock.scan();
  EXPECT_EQ(runs, 1);  // the first scan counts the age of the clock
  clock.scan(2);
  EXPECT_EQ(runs, 1);
  clock.scan();
  EXPECT_EQ(runs, 2);
  clock.run_ms(300);
  EXPECT_EQ(runs, 12);
}

TEST(VirtualClock, ASleepOfTheTestsOwnThreadMovesTheClock) {
  VirtualClock clock(5000);
  mu_mdelay(1230);
  EXPECT_EQ(clock.now_ms(), 6230);
  EXPECT_EQ(mu_current_tick(), 623u);
}

TEST(FailingMalloc, FailsTheLibrarysAllocationsAlone) {
  FailingMalloc failing(2);
  void *own = malloc(10);
  EXPECT_NE(own, nullptr);
  free(own);
  void *first = mu_malloc(10);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(mu_malloc(10), nullptr);
  mu_free(first);
  EXPECT_EQ(failing.seen(), 2);
}

TEST(HeapWatch, FollowsTheLibrarysBlocks) {
  HeapWatch heap;
  mu_list_t *list = mu_list_create(4, nullptr);
  EXPECT_EQ(heap.live(), 1u);
  mu_list_destory(list);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed(), std::vector<void *>{list});
}

TEST(Console, TakesWhatIsPrintedToTheByte) {
  Console console;
  mu_printf("a\r\n%d", 7);
  EXPECT_EQ(console.take(), "a\r\n7");
  EXPECT_EQ(console.take(), "");
  mu_printf("b");
  EXPECT_EQ(console.take(), "b");
}
