// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The timer thread's name, which the daemon sets.

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

void nothing(void *) {}

std::string name_of(pthread_t thread) {
  char name[16] = "";
  EXPECT_EQ(pthread_getname_np(thread, name, sizeof name), 0);
  return name;
}

}  // namespace

// The event thread has no handle; its name comes from here.
TEST(TimerThreadName, IsThatOfTheThreadThatStartsTheService) {
  VirtualClock clock;
  ASSERT_EQ(pthread_setname_np(pthread_self(), "starter"), 0);
  mu_timer_add(10, nothing, nullptr);
  ASSERT_EQ(pthread_setname_np(pthread_self(), "daemon"), 0);
  clock.settle();
  EXPECT_EQ(name_of(timer_info.tid), "starter");
}

TEST(TimerThreadName, MayBeGivenByTheDaemon) {
  VirtualClock clock;
  mu_timer_add(10, nothing, nullptr);
  ASSERT_EQ(pthread_setname_np(timer_info.tid, "timers"), 0);
  clock.settle();
  EXPECT_EQ(name_of(timer_info.tid), "timers");
}
