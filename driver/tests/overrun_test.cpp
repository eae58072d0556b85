// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A storm that is faster than its receiver.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform.h"
#include "tarn/event.h"

using namespace driver_test;

namespace {

std::mutex gate;  // held by the test: the event thread waits
std::atomic<bool> at_gate;

int wait_at_gate(uint16_t, uint32_t, void *, uint32_t, uint64_t) {
  at_gate = true;
  const std::lock_guard<std::mutex> passing(gate);
  return 0;
}

// The number of occurrences of a storm, without repeated ones: a receive that fails because of an overrun sends the
// content of the buffer again.
size_t different(const std::vector<Occurrence> &all) {
  size_t count = 0;
  for (size_t i = 0; i < all.size(); i++)
    count += i == 0 || all[i].type != all[i - 1].type || all[i].data != all[i - 1].data;
  return count;
}

}  // namespace

TEST(DriverOverrun, IsCountedAndTheServiceGoesOn) {
  constexpr long kStorm = 20000;
  ASSERT_TRUE(start_channel());
  ASSERT_EQ(mu_event_register(0, 1, wait_at_gate), 0);
  const long sent = status_number("sent");
  const long overruns = status_number("overruns");
  {
    const std::lock_guard<std::mutex> closed(gate);
    ASSERT_EQ(control("event 1 0"), 0);
    ASSERT_TRUE(eventually([] { return at_gate.load(); }));
    ASSERT_EQ(control("storm 2 0 " + std::to_string(kStorm)), 0);
  }
  const long queued = status_number("sent") - sent;
  EXPECT_EQ(queued + status_number("overruns") - overruns, 1 + kStorm);
  EXPECT_GT(queued, 1);
  EXPECT_LT(queued, kStorm);  // the queue is shorter than the storm
  ASSERT_TRUE(eventually([queued] { return different(received()) >= static_cast<size_t>(queued); }));
  // The queue holds the first occurrences of the storm; the rest were lost.
  const std::vector<Occurrence> all = received();
  uint32_t number = 0;
  size_t first = 0;
  while (all[first].type != 2) first++;
  memcpy(&number, all[first].data.data(), 4);
  EXPECT_EQ(number, 0u);
  memcpy(&number, all.back().data.data(), 4);
  EXPECT_EQ(number, queued - 2);
  ASSERT_EQ(control("event 3 5 0102030405"), 0);
  ASSERT_TRUE(eventually([] { return received().back().type == 3; }));
  EXPECT_EQ(different(received()), static_cast<size_t>(queued) + 1);
  EXPECT_EQ(status_number("overruns") - overruns, kStorm - queued + 1);  // and no more of them
}
