// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// pthread_cancel in the functions that wait: the waiting thread's destructors and cleanup handlers run.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>

#include "tarn/os.h"
#include "tarn/platform.h"

namespace {

// Marks of the clean-up of a cancelled thread.
struct Traces {
  std::atomic<bool> is_about_to_wait{false};
  std::atomic<bool> was_destroyed{false};
  std::atomic<bool> was_handled{false};
  std::atomic<bool> came_back{false};
  std::function<void()> wait;
};

struct NotesItsEnd {
  Traces *traces;
  ~NotesItsEnd() { traces->was_destroyed = true; }
};

void note_handled(void *traces) { static_cast<Traces *>(traces)->was_handled = true; }

void *wait_with_cleanup(void *arg) {
  auto *traces = static_cast<Traces *>(arg);
  const NotesItsEnd object{traces};
  pthread_cleanup_push(note_handled, traces);
  traces->is_about_to_wait = true;
  traces->wait();
  traces->came_back = true;
  pthread_cleanup_pop(0);
  return nullptr;
}

struct Wait {
  const char *name;
  std::function<void()> (*make)();
};

constexpr uint32_t kLong = 4000000;  // ms or microseconds: no test waits so long
constexpr uint32_t kMessageSize = 8;

// A queue without messages, or with as many as it holds. Removed from the system at the end.
long make_queue(bool is_full) {
  const std::string name = "tarn-cancel-" + std::to_string(getpid());
  long queue = -1;
  EXPECT_EQ(mu_queue_create(&queue, name.c_str(), 1, kMessageSize, 0), 0);
  mq_unlink(("/" + name).c_str());
  if (is_full) {
    EXPECT_EQ(mu_queue_put(queue, "message", kMessageSize), 0);
  }
  return queue;
}

std::function<void()> get() {
  const long queue = make_queue(false);
  return [queue] {
    char message[kMessageSize];
    uint32_t length = 0;
    mu_queue_get(queue, message, sizeof message, &length, 0);
  };
}

std::function<void()> put() {
  const long queue = make_queue(true);
  return [queue] { mu_queue_put(queue, "message", kMessageSize); };
}

template <int timeout_ms>
std::function<void()> wait_for_semaphore() {
  static mu_sem_t sem;
  EXPECT_EQ(mu_sem_init(&sem, "cancel", 0), 0);
  return [] { mu_sem_wait(sem, timeout_ms); };
}

// From a pipe whose other end never writes.
std::function<void()> read_pipe() {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return [from = ends[0]] {
    char byte;
    mu_file_read(from, &byte, 1);
  };
}

class CancelledIn : public testing::TestWithParam<Wait> {};

INSTANTIATE_TEST_SUITE_P(
    Waits, CancelledIn,
    testing::Values(Wait{"Sleep", [] { return std::function<void()>([] { mu_sleep(kLong); }); }},
                    Wait{"MillisecondDelay", [] { return std::function<void()>([] { mu_mdelay(kLong); }); }},
                    Wait{"MicrosecondDelay", [] { return std::function<void()>([] { mu_udelay(kLong * 1000u); }); }},
                    Wait{"OsSleep", [] { return std::function<void()>([] { OS_SLEEP(kLong); }); }},
                    Wait{"SemaphoreWait", wait_for_semaphore<-1>},
                    Wait{"TimedSemaphoreWait", wait_for_semaphore<4000000>}, Wait{"QueueGet", get},
                    Wait{"QueuePut", put}, Wait{"FileRead", read_pipe}),
    [](const auto &wait) { return std::string(wait.param.name); });

}  // namespace

// A thread that does not wait yet when it is cancelled ends as soon as it waits.
TEST_P(CancelledIn, RunsDestructorsAndCleanupHandlers) {
  Traces traces;
  traces.wait = GetParam().make();
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, wait_with_cleanup, &traces), 0);
  while (!traces.is_about_to_wait) sched_yield();
  ASSERT_EQ(pthread_cancel(thread), 0);
  void *result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_TRUE(traces.was_handled);
  EXPECT_TRUE(traces.was_destroyed);
  EXPECT_FALSE(traces.came_back);
}
