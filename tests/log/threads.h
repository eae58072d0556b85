// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Threads that start together.
#ifndef TARN_TESTS_LOG_THREADS_H
#define TARN_TESTS_LOG_THREADS_H

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace tarn_test {

inline constexpr unsigned kThreads = 8;

// Runs each body on its own thread. They begin when the last thread has started.
inline void run_together(const std::vector<std::function<void()>> &bodies) {
  std::atomic<size_t> here = 0;
  std::vector<std::thread> threads;
  threads.reserve(bodies.size());
  for (const auto &body : bodies) {
    threads.emplace_back([&here, &bodies, &body] {
      here++;
      while (here < bodies.size()) std::this_thread::yield();
      body();
    });
  }
  for (std::thread &thread : threads) thread.join();
}

// Runs the body on kThreads threads, with the numbers 0 to kThreads - 1.
inline void run_threads(const std::function<void(unsigned)> &body) {
  std::vector<std::function<void()>> bodies;
  for (unsigned i = 0; i < kThreads; i++) bodies.emplace_back([&body, i] { body(i); });
  run_together(bodies);
}

}  // namespace tarn_test

#endif
