// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The lock of the registry: which calls wait for it.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "event/fixture.h"

using namespace event_test;

namespace {

// A call that takes the lock.
struct Operation {
  const char *name;
  std::function<void()> call;
};

const std::vector<Operation> &locking_operations() {
  static uint32_t count;
  static mu_event_cfg_t cfg;
  static const std::vector<Operation> operations = {
      {"register", [] { mu_event_register(0, 1, subscriber<1>); }},
      {"deregister", [] { mu_event_deregister(0, 1, subscriber<2>); }},
      {"send", [] { send(1); }},
      {"poll", [] { mu_event_poll(); }},
      {"counter get", [] { mu_event_counter_get(0, 1, &count, 1); }},
      {"counter clear", [] { mu_event_counter_clear(0, 1); }},
      {"clear all", [] { mu_event_counter_clear_all(0); }},
      {"set", [] { configure(1, 0, 0, 0); }},
      {"get", [] { mu_event_get(0, 1, &cfg); }},
  };
  return operations;
}

// A call on a thread of its own. A stuck thread cannot be joined: it ends the test program.
class Call {
 public:
  explicit Call(const std::function<void()> &call)
      : thread_([this, call] {
          begun_ = true;
          call();
          ended_.set_value();
        }) {
    while (!begun_) std::this_thread::yield();
  }
  ~Call() {
    if (ends_within(std::chrono::seconds(60))) thread_.join();
  }
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  bool ends_within(std::chrono::seconds time) const { return end_.wait_for(time) == std::future_status::ready; }

 private:
  std::atomic<bool> begun_ = false;
  std::promise<void> ended_;
  const std::future<void> end_ = ended_.get_future();
  std::thread thread_;
};

}  // namespace

// Each waits for the lock while another thread holds it. The loop gives a call that does not wait every chance to end.
TEST(EventLock, IsWaitedForByEveryOperationOfTheTable) {
  const Registry registry(2);
  for (const Operation &operation : locking_operations()) {
    SCOPED_TRACE(operation.name);
    mu_mutex_lock(glb_evt.lock);
    {
      const Call call(operation.call);
      for (int i = 0; i < 2000; i++) std::this_thread::yield();
      EXPECT_FALSE(call.ends_within(std::chrono::seconds(0)));
      mu_mutex_unlock(glb_evt.lock);
    }
    EXPECT_FALSE(lock_is_held());
  }
}

// The range is checked before: a call that is refused does not wait.
TEST(EventLock, IsNotTakenForWhatIsRefused) {
  const Registry registry(2);
  mu_mutex_lock(glb_evt.lock);
  {
    const Call call([] {
      uint32_t count = 9;
      mu_event_cfg_t cfg = {};
      EXPECT_EQ(mu_event_register(0, 2, subscriber<1>), -1);
      EXPECT_EQ(mu_event_register(0, 0, nullptr), -1);
      EXPECT_EQ(mu_event_deregister(0, 2, subscriber<1>), -1);
      EXPECT_EQ(send(2), -1);
      EXPECT_EQ(mu_event_counter_get(0, 2, &count, 0), -1);
      EXPECT_EQ(mu_event_counter_clear(0, 2), -1);
      EXPECT_EQ(mu_event_set(0, 2, &cfg), -1);
      EXPECT_EQ(mu_event_set(0, 0, nullptr), -1);
      EXPECT_EQ(mu_event_get(0, 2, &cfg), -1);
      EXPECT_EQ(mu_event_get(0, 0, nullptr), -1);
    });
    EXPECT_TRUE(call.ends_within(std::chrono::seconds(60)));
  }
  mu_mutex_unlock(glb_evt.lock);
}
