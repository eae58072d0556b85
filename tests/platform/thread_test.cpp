// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Threads and the work queues under the platform's names.

#include "platform/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_thread_create),
                             long (*)(pthread_t *, const char *, mu_thread_entry_t, void *, uint32_t, int, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_workqueue_init), long (*)(void *, void *)>);
static_assert(std::is_same_v<decltype(&mu_work_add), long (*)(void *, void *, void *)>);
static_assert(std::is_same_v<decltype(&mu_workqueue_destroy), void (*)(void *)>);

namespace {

constexpr pthread_t kUntouched = 0x1122334455667788;

void *give_back(void *arg) { return arg; }

}  // namespace

TEST(MuThread, RunsTheEntryWithItsArgument) {
  int value = 0;
  pthread_t thread = {};
  ASSERT_EQ(mu_thread_create(&thread, "name", give_back, &value, 262144, 80, 7), 0);
  void *result = nullptr;
  EXPECT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, &value);
}

TEST(MuThread, PassesTheStackSizeDownAndFailsAsTheOsLayerDoes) {
  std::vector<size_t> asked;
  Replace set_size(libc::pthread_attr_setstacksize, [&](pthread_attr_t *, size_t size) {
    asked.push_back(size);
    return 0;
  });
  Replace refuse(libc::pthread_create,
                 [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  pthread_t thread = kUntouched;
  for (const uint32_t size : {0u, 8191u, 32768u, 70000u}) {
    EXPECT_EQ(mu_thread_create(&thread, "name", give_back, nullptr, size, 0, 0), -1);
  }
  EXPECT_EQ(asked, (std::vector<size_t>{8192, 8192, 32768, 70000}));
  EXPECT_EQ(thread, kUntouched);
}

TEST(MuThread, WithoutMemoryGivesMinusOne) {
  const Quiet quiet;
  FailingMalloc no_memory(1);
  pthread_t thread = kUntouched;
  EXPECT_EQ(mu_thread_create(&thread, "name", give_back, nullptr, 262144, 0, 0), -1);
  EXPECT_EQ(thread, kUntouched);
}

TEST(MuWorkQueue, SucceedsAndNeverRunsTheWork) {
  static int runs = 0;
  void (*const work)(void *) = [](void *) { runs++; };
  const Quiet quiet;
  char queue[] = "as it was";
  EXPECT_EQ(mu_workqueue_init(queue, queue), 0);
  EXPECT_EQ(mu_work_add(queue, reinterpret_cast<void *>(work), queue), 0);
  mu_workqueue_destroy(queue);
  EXPECT_EQ(mu_workqueue_init(nullptr, nullptr), 0);
  EXPECT_EQ(mu_work_add(nullptr, nullptr, nullptr), 0);
  mu_workqueue_destroy(nullptr);
  EXPECT_EQ(runs, 0);
  EXPECT_STREQ(queue, "as it was");
}
