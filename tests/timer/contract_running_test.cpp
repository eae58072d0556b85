// Calls from other threads and from callbacks while a callback runs.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

using Body = std::function<void()>;

constexpr int kLong = 1000000000;

void run(void *body) { (*static_cast<Body *>(body))(); }

void ignore(void *) {}

// A callback that stays inside until the test lets it go.
class Held {
 public:
  void enter() {
    entered_.set_value();
    released_.get_future().wait();
  }
  void wait_until_entered() { entered_.get_future().wait(); }
  void release() { released_.set_value(); }

 private:
  std::promise<void> entered_;
  std::promise<void> released_;
};

// The service runs and its first scan has passed: each scan from here on counts one tick.
class TimerRunningContract : public testing::Test {
 protected:
  TimerRunningContract() {
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

}  // namespace

TEST_F(TimerRunningContract, IsToldToOtherThreadsThatDeleteOrStop) {
  for (const auto call : {mu_timer_del, mu_timer_stop}) {
    for (const auto add : {mu_timer_add, mu_circle_timer_add}) {
      SCOPED_TRACE(testing::Message() << (call == mu_timer_del ? "delete, " : "stop, ")
                                      << (add == mu_timer_add ? "once" : "circular"));
      Held held;
      int runs = 0;
      Body body = [&] {
        if (runs++ == 0) held.enter();
      };
      const uint32_t id = add(10, run, &body);
      clock_.wake_next();
      held.wait_until_entered();
      EXPECT_EQ(call(id), 1u);
      EXPECT_EQ(call(id), 1u) << "again";
      uint32_t from_a_third_thread = 9;
      std::thread([&] { from_a_third_thread = call(id); }).join();
      EXPECT_EQ(from_a_third_thread, 1u);
      held.release();
      clock_.scan(5);
      EXPECT_EQ(runs, 1) << "it never fires again";
      const bool rests = call == mu_timer_stop && add == mu_circle_timer_add;
      EXPECT_EQ(mu_timer_count(), rests ? 1u : 0u);
      if (rests) {
        EXPECT_EQ(call(id), 0u) << "not running any more";
      }
      if (rests) mu_timer_del(id);
      clock_.scan();
    }
  }
}

TEST_F(TimerRunningContract, IsNotToldToTheTimerThread) {
  for (const auto call : {mu_timer_del, mu_timer_stop}) {
    SCOPED_TRACE(call == mu_timer_del ? "delete" : "stop");
    uint32_t id = 0;
    uint32_t result = 9;
    Body body = [&] { result = call(id); };
    id = mu_timer_add(10, run, &body);
    clock_.scan();
    EXPECT_EQ(result, 0u);
  }
}

TEST_F(TimerRunningContract, IsOfOneTimerAlone) {
  Held held;
  Body body = [&] { held.enter(); };
  mu_timer_add(10, run, &body);
  const uint32_t other = mu_timer_add(kLong, ignore, nullptr);
  clock_.wake_next();
  held.wait_until_entered();
  EXPECT_EQ(mu_timer_stop(other), 0u);
  EXPECT_EQ(mu_timer_del(other), 0u);
  held.release();
  clock_.settle();
}

TEST_F(TimerRunningContract, LeavesEveryFunctionToOtherThreads) {
  Held held;
  Body body = [&] { held.enter(); };
  const uint32_t id = mu_timer_add(10, run, &body);
  clock_.wake_next();
  held.wait_until_entered();
  EXPECT_EQ(mu_timer_count(), 1u) << "still in the list";
  const uint32_t added = mu_timer_add(kLong, ignore, nullptr);
  EXPECT_EQ(mu_timer_count(), 2u);
  mu_timer_start(added);
  {
    Console console;
    mu_timer_show();
    EXPECT_NE(console.take(), "");
  }
  mu_timer_restart(id, 70);  // brings the one-shot timer back, though its callback is not finished
  held.release();
  clock_.settle();
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(find(id)->remain, 7u);
  EXPECT_EQ(mu_timer_count(), 2u);
}

// A caller may hold a lock that a callback waits for: the service holds none of its own meanwhile.
TEST_F(TimerRunningContract, DoesNotCloseACircleOfLocks) {
  std::mutex own;
  Held held;
  Body body = [&] {
    held.enter();
    const std::lock_guard lock(own);
    runs_++;
  };
  const uint32_t id = mu_circle_timer_add(10, run, &body);
  {
    const std::lock_guard lock(own);
    clock_.wake_next();
    held.wait_until_entered();
    held.release();
    EXPECT_EQ(mu_timer_del(id), 1u);
    EXPECT_EQ(mu_timer_add(kLong, ignore, nullptr), 2u);
    EXPECT_EQ(mu_timer_count(), 2u);
  }
  clock_.scan();
  EXPECT_EQ(runs_, 1);
  EXPECT_EQ(mu_timer_count(), 1u);
}
