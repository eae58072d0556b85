// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/virtual_clock.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tarn_test {

namespace {

constexpr int64_t kNsPerUs = 1000;
constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kNsPerSecond = 1000000000;

struct Sleeper {
  int64_t deadline_ns;
  bool woken = false;
};

}  // namespace

struct VirtualClock::State {
  explicit State(int64_t age_ns) : monotonic_ns(age_ns) {}

  std::mutex mutex;
  std::condition_variable changed;
  const std::thread::id owner = std::this_thread::get_id();
  int64_t monotonic_ns;
  int64_t wall_ns = kStart * kNsPerSecond;
  int awake = 0;  // threads of the library that do not sleep
  std::vector<Sleeper *> sleepers;
  const State *const before = std::exchange(latest, this);  // keeps every state reachable: none of them leaks
  static inline const State *latest;

  void pass(int64_t ns) {
    monotonic_ns += ns;
    wall_ns += ns;
  }

  void sleep(int64_t ns) {
    std::unique_lock lock(mutex);
    if (std::this_thread::get_id() == owner) {
      pass(ns);
      return;
    }
    Sleeper self{monotonic_ns + ns};
    sleepers.push_back(&self);
    awake--;
    changed.notify_all();
    changed.wait(lock, [&] { return self.woken; });
  }

  // The sleeper whose sleep ends first; among equals, the one that began to sleep first.
  std::vector<Sleeper *>::iterator earliest() {
    return std::min_element(sleepers.begin(), sleepers.end(),
                            [](const Sleeper *a, const Sleeper *b) { return a->deadline_ns < b->deadline_ns; });
  }

  void wake(std::vector<Sleeper *>::iterator sleeper) {
    pass(std::max<int64_t>((*sleeper)->deadline_ns - monotonic_ns, 0));
    (*sleeper)->woken = true;
    sleepers.erase(sleeper);
    awake++;
    changed.notify_all();
  }

  void settle(std::unique_lock<std::mutex> &lock) {
    changed.wait(lock, [this] { return awake == 0; });
  }
};

namespace {

// A thread of the library: counted as awake from its creation to its end.
template <typename State>
struct Thread {
  State *state;
  void *(*entry)(void *);
  void *arg;

  static void *run(void *self) {
    const Thread thread = *static_cast<Thread *>(self);
    delete static_cast<Thread *>(self);
    void *result = thread.entry(thread.arg);
    thread.state->mutex.lock();
    thread.state->awake--;
    thread.state->changed.notify_all();
    thread.state->mutex.unlock();
    return result;
  }
};

}  // namespace

VirtualClock::VirtualClock(int64_t age_ms)
    : state_(new State(age_ms * kNsPerMs)),
      select_(libc::select,
              [state = state_](int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
                if (read != nullptr || write != nullptr || except != nullptr || timeout == nullptr) {
                  return libc::select.real(count, read, write, except, timeout);
                }
                state->sleep(timeout->tv_sec * kNsPerSecond + timeout->tv_usec * kNsPerUs);
                return 0;
              }),
      clock_gettime_(libc::clock_gettime,
                     [state = state_](clockid_t clock, timespec *now) {
                       if (clock != CLOCK_MONOTONIC) return libc::clock_gettime.real(clock, now);
                       std::lock_guard lock(state->mutex);
                       *now = {state->monotonic_ns / kNsPerSecond, state->monotonic_ns % kNsPerSecond};
                       return 0;
                     }),
      gettimeofday_(libc::gettimeofday,
                    [state = state_](timeval *now, void *) {
                      std::lock_guard lock(state->mutex);
                      *now = {state->wall_ns / kNsPerSecond, state->wall_ns % kNsPerSecond / kNsPerUs};
                      return 0;
                    }),
      time_(libc::time,
            [state = state_](time_t *now) {
              std::lock_guard lock(state->mutex);
              const time_t seconds = state->wall_ns / kNsPerSecond;
              if (now != nullptr) *now = seconds;
              return seconds;
            }),
      pthread_create_(libc::pthread_create, [state = state_](pthread_t *thread, const pthread_attr_t *attributes,
                                                             void *(*entry)(void *), void *arg) {
        using LibraryThread = Thread<State>;
        {
          std::lock_guard lock(state->mutex);
          state->awake++;
        }
        auto *start = new LibraryThread{state, entry, arg};
        const int error = libc::pthread_create.real(thread, attributes, LibraryThread::run, start);
        if (error != 0) {
          delete start;
          std::lock_guard lock(state->mutex);
          state->awake--;
        }
        return error;
      }) {}

VirtualClock::~VirtualClock() = default;

int64_t VirtualClock::now_ms() const {
  std::lock_guard lock(state_->mutex);
  return state_->monotonic_ns / kNsPerMs;
}

void VirtualClock::set_wall(time_t seconds, int64_t microseconds) {
  std::lock_guard lock(state_->mutex);
  state_->wall_ns = seconds * kNsPerSecond + microseconds * kNsPerUs;
}

void VirtualClock::pass_ms(int64_t ms) {
  std::lock_guard lock(state_->mutex);
  state_->pass(ms * kNsPerMs);
}

void VirtualClock::settle() {
  std::unique_lock lock(state_->mutex);
  state_->settle(lock);
}

void VirtualClock::wake_next() {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait(lock, [this] { return !state_->sleepers.empty(); });
  state_->wake(state_->earliest());
}

void VirtualClock::scan(int count) {
  std::unique_lock lock(state_->mutex);
  for (int i = 0; i < count; i++) {
    state_->settle(lock);
    state_->changed.wait(lock, [this] { return !state_->sleepers.empty(); });
    state_->wake(state_->earliest());
    state_->settle(lock);
  }
}

void VirtualClock::run_ms(int64_t ms) {
  std::unique_lock lock(state_->mutex);
  const int64_t end_ns = state_->monotonic_ns + ms * kNsPerMs;
  for (;;) {
    state_->settle(lock);
    const auto sleeper = state_->earliest();
    if (sleeper == state_->sleepers.end() || (*sleeper)->deadline_ns > end_ns) break;
    state_->wake(sleeper);
  }
  state_->pass(std::max<int64_t>(end_ns - state_->monotonic_ns, 0));
}

}  // namespace tarn_test
