// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the OS layer: threads that wait, a check that nothing is printed, memory with old data.
#ifndef TARN_TESTS_OS_FIXTURE_H
#define TARN_TESTS_OS_FIXTURE_H

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "support/console.h"
#include "support/libc.h"
#include "tarn/os.h"

namespace tarn_test {

// Expects that nothing is printed in a scope: the layer never prints.
class Quiet {
 public:
  ~Quiet() { EXPECT_EQ(console_.take(), ""); }

 private:
  Console console_;
};

// Gives the library blocks full of old data, as a heap that has been in use does.
inline void *dirty_block(size_t size) {
  void *const block = libc::malloc.real(size);
  if (block != nullptr) memset(block, 0xA5, size);
  return block;
}

// A thread that calls something that may wait. An event that does not occur is a failure after a time limit, far above
// the delays of a busy machine.
class Waiter {
 public:
  explicit Waiter(std::function<void()> body)
      : thread_([this, body = std::move(body)] {
          tid_ = gettid();
          body();
          done_ = true;
        }) {}
  ~Waiter() { join(); }
  Waiter(const Waiter &) = delete;
  Waiter &operator=(const Waiter &) = delete;

  // Waits until the thread sleeps in the kernel: true. False when its body ends first or it never sleeps.
  bool sleeps() const {
    bool asleep = false;
    until([&] { return done_ || (asleep = is_asleep()); });
    return asleep;
  }

  // Sends SIGUSR1 whenever the thread sleeps, until its body ends: true. The thread may be seen asleep elsewhere, so
  // one signal may miss the wait. A wait that resumes is hit many times, and the result is false.
  bool ends_by_a_signal() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    for (int signals = 0; signals < 1000 && sleeps(); signals++) pthread_kill(thread_.native_handle(), SIGUSR1);
    return done_;
  }

  void join() {
    if (!thread_.joinable()) return;
    if (!until([this] { return done_.load(); })) {
      fprintf(stderr, "a thread never comes out of its wait\n");
      _exit(EXIT_FAILURE);  // it uses objects that this test would destroy
    }
    thread_.join();
  }

 private:
  bool is_asleep() const {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid_) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t name_end = line.rfind(')');
    return name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0;
  }

  template <typename Condition>
  static bool until(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::yield();
    }
    return true;
  }

  std::atomic<pid_t> tid_{0};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

}  // namespace tarn_test

#endif
