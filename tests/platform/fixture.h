// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the wrappers.
#ifndef TARN_TESTS_PLATFORM_FIXTURE_H
#define TARN_TESTS_PLATFORM_FIXTURE_H

#include <type_traits>
#include <vector>

#include "os/fixture.h"
#include "support/heap.h"
#include "tarn/platform.h"

namespace tarn_test {

inline int from_another_thread(const std::function<int()> &call) {
  int result = -2;
  std::thread([&] { result = call(); }).join();
  return result;
}

// Expects that an init call whose memory runs out stores a null handle and returns 1.
template <typename Handle, typename Init>
void expect_null_without_memory(Init init) {
  const Quiet quiet;
  FailingMalloc no_memory(1);
  auto handle = reinterpret_cast<Handle>(16);  // not a handle, to see it replaced
  EXPECT_EQ(init(&handle), 1);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
}

}  // namespace tarn_test

#endif
