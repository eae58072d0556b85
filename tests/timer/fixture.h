// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the timer service.
#ifndef TARN_TESTS_TIMER_FIXTURE_H
#define TARN_TESTS_TIMER_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "support/virtual_clock.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

namespace tarn_test {

using Add = uint32_t (*)(int, mu_timer_cb_t, void *);
using Body = std::function<void()>;
using Ids = std::vector<uint32_t>;

inline constexpr Add kAdds[] = {mu_timer_add, mu_circle_timer_add};
inline constexpr int kLong = 1000000000;  // ms, far beyond what any test lets pass
inline constexpr uint32_t kUnknownIds[] = {0, 99, UINT32_MAX};

inline constexpr char kFull[] = "Timer number exceed(256)\n";
inline constexpr char kNoDelete[] = "Oops: Delete an invalid timer!!\r\n";
inline constexpr char kNoStop[] = "Oops: Stop an invalid timer!!\r\n";
inline constexpr char kTableHeader[] = "\r\nNo. Id.       Remain Interval Type    Drain Callback\r\n";

inline const char *name_of(Add add) { return add == mu_timer_add ? "once" : "circular"; }

inline void ignore(void *) {}

// A callback whose argument is the Body that it runs.
inline void run(void *body) { (*static_cast<Body *>(body))(); }

inline mu_timer_rec_t *find(uint32_t id) {
  const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
  return node == nullptr ? nullptr : static_cast<mu_timer_rec_t *>(node->data);
}

inline uint32_t remain(uint32_t id) { return find(id)->remain; }

inline Ids listed_ids() {
  Ids ids;
  for (const mu_list_node_t *node = mu_list_first(timer_info.list); node != nullptr; node = mu_list_next(node)) {
    ids.push_back(static_cast<const mu_timer_rec_t *>(node->data)->id);
  }
  return ids;
}

inline bool mutex_is_free() {
  if (mu_mutex_trylock(timer_info.mutex) != 0) return false;
  mu_mutex_unlock(timer_info.mutex);
  return true;
}

// Starts the service without a timer and runs the first scan, which counts the age of the clock.
inline void start_service(VirtualClock &clock) {
  mu_timer_add(0, nullptr, nullptr);
  clock.scan();
}

// A clock at 1000 ms, and timers that record their runs. The service is not started.
class Timers : public testing::Test {
 protected:
  // Adds a timer that runs `body`, which lives as long as the test.
  uint32_t add(Add how, int interval_ms, Body body) {
    bodies_.push_back(std::move(body));
    return how(interval_ms, run, &bodies_.back());
  }
  uint32_t once(int interval_ms, Body body) { return add(mu_timer_add, interval_ms, std::move(body)); }
  uint32_t circle(int interval_ms, Body body) { return add(mu_circle_timer_add, interval_ms, std::move(body)); }

  // The body of a callback that records its name and takes some time.
  Body note(char name, int64_t ms = 0) {
    return [this, name, ms] {
      fired_ += name;
      clock_.pass_ms(ms);
    };
  }

  // The names that `count` scans record.
  std::string scan(int count = 1) {
    fired_.clear();
    clock_.scan(count);
    return fired_;
  }

  VirtualClock clock_{1000};
  std::string fired_;
  std::deque<Body> bodies_;
};

// The service runs, and its first scan has passed at tick 101: each scan from here on counts one tick.
class StartedTimers : public Timers {
 protected:
  StartedTimers() { start_service(clock_); }
};

// A callback that waits until the test releases it.
class Held {
 public:
  void enter() {
    entered_.set_value();
    released_.get_future().wait();
  }
  void wait_until_entered() {
    const bool entered = entered_.get_future().wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    ASSERT_TRUE(entered) << "the callback does not run";
  }
  void release() { released_.set_value(); }

 private:
  std::promise<void> entered_;
  std::promise<void> released_;
};

}  // namespace tarn_test

#endif
