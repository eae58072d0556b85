// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The service in a child that fork made: only the parent has the thread.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

void count(void *counter) { (*static_cast<int *>(counter))++; }

int number_of_threads() {
  int number = 0;
  FILE *status = fopen("/proc/self/status", "re");
  for (char line[256]; fgets(line, sizeof line, status) != nullptr;) {
    if (sscanf(line, "Threads: %d", &number) == 1) break;
  }
  fclose(status);
  return number;
}

// What the child of a fork returns.
int in_child(int (*function)()) {
  const pid_t child = fork();
  if (child == 0) _exit(function());
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status);
}

enum { kAsDocumented = 0, kNotRunning, kNoTimer, kThreadsInTheChild };

// Whether the state in a child is as the header describes it.
int look_around() {
  if (timer_initialized != 1) return kNotRunning;
  int never = 0;
  if (mu_timer_add(10, count, &never) == 0) return kNoTimer;  // accepted
  return number_of_threads() == 1 ? kAsDocumented : kThreadsInTheChild;
}

}  // namespace

TEST(TimerFork, LeavesTheChildARunningServiceWithoutAThread) {
#if defined(TARN_EMULATED)
  GTEST_SKIP() << "in the emulator the child of a process with threads hangs";
#endif
  VirtualClock clock;
  int runs = 0;
  ASSERT_NE(mu_circle_timer_add(10, count, &runs), 0u);
  clock.scan();
  ASSERT_EQ(runs, 1);
  EXPECT_EQ(in_child(look_around), kAsDocumented);
}

TEST(TimerFork, StartsInAChildThatIsTheFirstToAddATimer) {
  const auto start_and_scan = [] {
    VirtualClock clock;
    int runs = 0;
    mu_circle_timer_add(10, count, &runs);
    clock.scan();
    return runs;
  };
  EXPECT_EQ(in_child(start_and_scan), 1);
}
