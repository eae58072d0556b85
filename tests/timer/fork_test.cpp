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
  GTEST_SKIP() << "forks a process with threads, which the emulator does not carry through";
#endif
  VirtualClock clock;
  int runs = 0;
  ASSERT_NE(mu_circle_timer_add(10, count, &runs), 0u);
  clock.scan();
  ASSERT_EQ(runs, 1);
  const pid_t child = fork();
  if (child == 0) _exit(look_around());
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kAsDocumented);
}

TEST(TimerFork, StartsInAChildThatIsTheFirstToAddATimer) {
  const pid_t child = fork();
  if (child == 0) {
    VirtualClock clock;
    int runs = 0;
    mu_circle_timer_add(10, count, &runs);
    clock.scan();
    _exit(runs);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}
