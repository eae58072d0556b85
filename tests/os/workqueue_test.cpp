// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The work queues, which are placeholders.

#include <type_traits>

#include "os/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_WORKQUEUE_CREATE), long (*)(void *, void *)>);
static_assert(std::is_same_v<decltype(&OS_WORK_ADD), long (*)(void *, void *, void *)>);
static_assert(std::is_same_v<decltype(&OS_WORKQUEUE_DESTROY), void (*)(void *)>);
static_assert(std::is_same_v<decltype(&OS_WORK_PROCESS_INTERNAL), void (*)()>);

TEST(OsWorkQueue, SucceedsAndNeverRunsTheWork) {
  static int runs = 0;
  int threads = 0;
  Replace create(libc::pthread_create, [&](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    threads++;
    return EAGAIN;
  });
  void (*const work)(void *) = [](void *) { runs++; };
  const Quiet quiet;
  HeapWatch heap;
  unsigned char queue[64];
  memset(queue, 0xA5, sizeof queue);
  char name[] = "work";
  EXPECT_EQ(OS_WORKQUEUE_CREATE(queue, name), 0);
  EXPECT_EQ(OS_WORK_ADD(queue, reinterpret_cast<void *>(work), name), 0);
  OS_WORK_PROCESS_INTERNAL();
  OS_WORKQUEUE_DESTROY(queue);
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(threads, 0);
  EXPECT_EQ(heap.live(), 0u);
  for (const unsigned char byte : queue) ASSERT_EQ(byte, 0xA5);
  EXPECT_STREQ(name, "work");
}

TEST(OsWorkQueue, IgnoresItsArguments) {
  for (void *const argument : {static_cast<void *>(nullptr), reinterpret_cast<void *>(8)}) {
    EXPECT_EQ(OS_WORKQUEUE_CREATE(argument, argument), 0);
    EXPECT_EQ(OS_WORK_ADD(argument, argument, argument), 0);
    OS_WORKQUEUE_DESTROY(argument);
  }
}
