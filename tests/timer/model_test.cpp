// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The service against a model of it: the same long random series of calls, made between scans, from callbacks and from
// another thread while callbacks run, must leave the same timers, statistics, results, messages and callbacks.

#include "timer/model.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/console.h"
#include "support/libc.h"

using namespace tarn_test;
using namespace tarn_test::timer_model;

namespace {

// ---- The service ----------------------------------------------------------------------------------------------------

// A second thread that makes calls.
class AnotherThread {
 public:
  ~AnotherThread() {
    run(nullptr);
    thread_.join();
  }

  // Returns when `job` has run; a null job ends the thread.
  void run(std::function<void()> job) {
    std::unique_lock lock(mutex_);
    job_ = std::move(job);
    waiting_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !waiting_; });
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (bool ended = false; !ended;) {
      changed_.wait(lock, [this] { return waiting_; });
      ended = !job_;
      if (job_) job_();
      waiting_ = false;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::function<void()> job_;
  bool waiting_ = false;
  std::thread thread_{[this] { work(); }};
};

class Service : public World {
 public:
  Service() {
    instance_ = this;
    mu_timer_add(0, nullptr, nullptr);
    clock_.settle();
  }

  void scan() { clock_.scan(); }
  void set_last_id(uint32_t id) { timer_info.last_id = id; }
  std::string take_output() { return console_.take(); }

  static std::vector<Row> rows() {
    std::vector<Row> found;
    for (const mu_list_node_t *node = mu_list_first(timer_info.list); node != nullptr; node = mu_list_next(node)) {
      const auto &timer = *static_cast<const mu_timer_rec_t *>(node->data);
      found.push_back({timer.interval, timer.remain, number(timer.callback), reinterpret_cast<uint64_t>(timer.arg),
                       timer.type, timer.id, timer.running, timer.deleted, timer.stopped, timer.drain});
    }
    return found;
  }

  Totals totals() const {
    return {timer_info.max_num,
            timer_info.last_id,
            timer_info.last_drain,
            timer_info.max_drain,
            number(timer_info.max_drain_cb),
            timer_info.last_tick,
            timer_info.expired,
            clock_.now_ms()};
  }

 private:
  template <size_t Number>
  static void callback(void *arg) {
    last_called_ = Number;
    instance_->fire(reinterpret_cast<uint64_t>(arg));
  }

  static size_t number(mu_timer_cb_t callback) {
    return static_cast<size_t>(std::find(std::begin(kCallback), std::end(kCallback), callback) - std::begin(kCallback));
  }

  uint64_t act(const Action &action, uint32_t id, size_t serial) override {
    if (!action.by_another_thread) return call(action, id, serial);
    uint64_t result = 0;
    another_.run([&] { result = call(action, id, serial); });
    return result;
  }

  uint64_t call(const Action &action, uint32_t id, size_t serial) {
    switch (action.kind) {
      case Kind::kAdd:
      case Kind::kAddCircle:
        return add(action, serial);
      case Kind::kDel:
        return mu_timer_del(id);
      case Kind::kStop:
        return mu_timer_stop(id);
      case Kind::kStart:
        mu_timer_start(id);
        return 0;
      case Kind::kRestart:
        mu_timer_restart(id, static_cast<uint32_t>(action.ms));
        return 0;
      case Kind::kCount:
        return mu_timer_count();
      case Kind::kPass:
        clock_.pass_ms(action.ms);
        return 0;
      case Kind::kFire:
        break;
    }
    return 0;
  }

  static uint64_t add(const Action &action, size_t serial) {
    const auto add_timer = action.kind == Kind::kAdd ? mu_timer_add : mu_circle_timer_add;
    const auto ms = static_cast<int32_t>(action.ms);
    // A serial number as a pointer: never dereferenced.
    void *const arg = reinterpret_cast<void *>(serial);  // NOLINT(performance-no-int-to-ptr)
    if (!action.no_memory) return add_timer(ms, kCallback[serial % kCallbacks], arg);
    const FailingMalloc failing(1);
    return add_timer(ms, kCallback[serial % kCallbacks], arg);
  }

  static constexpr mu_timer_cb_t kCallback[kCallbacks] = {callback<0>, callback<1>, callback<2>, callback<3>};
  static inline Service *instance_;
  static inline volatile size_t last_called_;  // keeps the callbacks from being folded into one
  VirtualClock clock_{kAge};
  Console console_;
  AnotherThread another_;
};

// ---- The comparison -------------------------------------------------------------------------------------------------

struct Profile {
  const char *name;
  uint64_t seed;
  int steps;
  unsigned adds_per_mille;   // of the calls between scans
  unsigned scans_per_mille;  // of the steps
  int64_t extra_ms;          // added to each interval: large ones fill the list
};

void PrintTo(const Profile &profile, std::ostream *out) { *out << profile.name; }

class TimerModel : public testing::TestWithParam<Profile> {
 protected:
  void step(Random &random) {
    const Profile &profile = GetParam();
    if (random.chance(profile.scans_per_mille)) {
      service_.scan();
      model_.scan();
    } else if (random.chance(4)) {
      const uint32_t id = UINT32_MAX - static_cast<uint32_t>(random.below(8));
      service_.set_last_id(id);
      model_.set_last_id(id);
    } else {
      Action action = some_action(random, model_.ids.size());
      if (random.chance(profile.adds_per_mille)) action.kind = random.chance(600) ? Kind::kAdd : Kind::kAddCircle;
      action.no_memory = random.chance(20);
      if (action.kind != Kind::kPass) action.ms += profile.extra_ms;
      service_.perform(action);
      model_.perform(action);
    }
  }

  void compare() {
    const std::vector<Row> rows = Service::rows();
    most_ = std::max(most_, rows.size());
    ASSERT_EQ(service_.journal, model_.journal);
    ASSERT_EQ(rows, model_.rows());
    ASSERT_EQ(service_.totals(), model_.totals());
    ASSERT_EQ(mu_list_count(timer_info.list), rows.size());
    ASSERT_EQ(service_.take_output(), model_.take_output());
    service_.journal.clear();
    model_.journal.clear();
  }

  Service service_;
  Model model_;
  size_t most_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Random, TimerModel,
                         testing::Values(Profile{"Mixed", 1, 6000, 350, 400, 0}, Profile{"Busy", 2, 4000, 500, 600, 0},
                                         Profile{"Idle", 3, 4000, 150, 800, 0},
                                         Profile{"Crowded", 4, 4000, 700, 100, 2000}),
                         [](const auto &profile) { return std::string(profile.param.name); });

}  // namespace

TEST_P(TimerModel, AgreesWithTheServiceAfterEveryStep) {
  service_.seed = model_.seed = GetParam().seed * 1000003;
  Random random(GetParam().seed);
  for (int number = 0; number < GetParam().steps; number++) {
    SCOPED_TRACE(testing::Message() << "step " << number);
    step(random);
    compare();
    if (HasFatalFailure()) return;
  }
  // The series reached the interesting cases.
  EXPECT_GT(model_.fired, 300u);
  EXPECT_GT(model_.totals().max_drain, 0u);
  EXPECT_EQ(service_.fired, timer_info.expired);
  if (GetParam().extra_ms > 0) {
    EXPECT_EQ(most_, kLimit);
  }
}
