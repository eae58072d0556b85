// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Time under the control of the test.
//
// While a VirtualClock lives, the clocks that the library reads stand still, and a thread of the library that sleeps
// (in select, on no descriptors) sleeps until the test wakes it:
//
//   VirtualClock clock;
//   mu_timer_add(20, callback, nullptr);
//   clock.scan();  // the timer thread wakes from its 10 ms, scans once, and sleeps again
//
// A sleep of the test's own thread advances the clocks and returns. Nothing waits in real time.
//
// Only one in a process: a thread that sleeps on a clock never wakes on another. CTest runs each test in a separate
// process.
#ifndef TARN_TESTS_SUPPORT_VIRTUAL_CLOCK_H
#define TARN_TESTS_SUPPORT_VIRTUAL_CLOCK_H

#include <cstdint>
#include <memory>

#include "support/libc.h"

namespace tarn_test {

class VirtualClock {
 public:
  // 2026-01-02 03:04:05 UTC, where the wall clock starts.
  static constexpr time_t kStart = 1767323045;

  // `age_ms`: the first time of the monotonic clock.
  explicit VirtualClock(int64_t age_ms = 1000000);
  ~VirtualClock();

  // The monotonic clock, in ms.
  int64_t now_ms() const;

  // Sets only the wall clock.
  void set_wall(time_t seconds, int64_t microseconds = 0);

  // Lets time pass without waking a thread, as when a callback or a busy machine takes that long.
  void pass_ms(int64_t ms);

  // Waits until every thread of the library sleeps.
  void settle();

  // Advances the clocks to the earliest end of a sleep and wakes that thread, without waiting for it.
  void wake_next();

  // Wakes the next thread and waits until it sleeps again, `count` times. If the timer thread is the only one, these
  // are its scans.
  void scan(int count = 1);

  // Lets `ms` pass and wakes each thread whose sleep ends in that time, one after another.
  void run_ms(int64_t ms);

 private:
  struct State;
  State *const state_;  // outlives the clock: a thread may sleep on it until the process ends
  Replace<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_;
  Replace<int(clockid_t, timespec *)> clock_gettime_;
  Replace<int(timeval *, void *)> gettimeofday_;
  Replace<time_t(time_t *)> time_;
  Replace<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> pthread_create_;
};

}  // namespace tarn_test

#endif
