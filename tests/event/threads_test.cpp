// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Many threads at once. What must hold afterwards is checked here; that the calls do not race is for the thread
// sanitizer to see.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "event/subscribers.h"
#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr size_t kSenders = 8;
constexpr int kOccurrences = 2000;  // of each sender
constexpr int kTypes = 4;
constexpr int kStorm = 1;  // with suppression
constexpr int kAttached = 2;
constexpr int kCrowded = 3;  // with subscribers that come and go

// Plain: the lock guards them.
uint32_t g_hooked[kTypes];
uint32_t g_heard;
uint32_t g_begun;
uint32_t g_ended;

int count_hooked(uint16_t, uint32_t type, void *, uint32_t) { return static_cast<int>(++g_hooked[type]); }
int steady(uint16_t, uint32_t, void *, uint32_t, uint64_t) { return static_cast<int>(++g_heard); }
int passing(uint16_t, uint32_t, void *, uint32_t, uint64_t) { return 0; }

}  // namespace

// Eight senders, one thread that polls and one that registers, beside the polling timer; the table is printed and
// counters are read meanwhile.
TEST(EventThreads, CountEveryOccurrenceOnce) {
  VirtualClock clock;
  Console console;
  mu_event_init(kTypes, count_hooked, nullptr);
  attach(
      kAttached, [](uint64_t) { g_ended++; }, [](uint64_t) { g_begun++; });
  suppress_above(kAttached, 20, 10);
  suppress_above(kStorm, 20, 10);
  g_ended = 0;
  mu_event_register(0, kCrowded, steady);

  std::atomic<size_t> running{kSenders};
  std::atomic<bool> begun{false};  // so that nobody is done before the last one is there
  std::array<std::array<uint32_t, kTypes>, kSenders> delivered{};
  std::array<std::array<uint32_t, kTypes>, kSenders> dropped{};
  std::vector<std::thread> threads;
  for (size_t sender = 0; sender < kSenders; sender++) {
    threads.emplace_back([&, sender] {
      while (!begun) std::this_thread::yield();
      for (int i = 0; i < kOccurrences; i++) {
        const int type = i % kTypes;
        auto &counters = mu_event_send(0, type, nullptr, 0) == 0 ? delivered[sender] : dropped[sender];
        counters[static_cast<size_t>(type)]++;
      }
      running--;
    });
  }
  threads.emplace_back([&] {
    while (running > 0) mu_event_poll();
  });
  threads.emplace_back([&] {
    while (running > 0) {
      mu_event_register(0, kCrowded, passing);
      uint32_t count = 0;
      mu_event_counter_get(0, kStorm, &count, 0);
      mu_event_cfg_t cfg = {};
      mu_event_get(0, kStorm, &cfg);
      mu_event_deregister(0, kCrowded, passing);
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < 20; i++) mu_event_dump();
  });
  begun = true;
  while (running > 0) clock.run_ms(500);
  for (std::thread &thread : threads) thread.join();
  console.take();

  for (int type = 0; type < kTypes; type++) {
    uint32_t sum_delivered = 0;
    uint32_t sum_dropped = 0;
    for (size_t sender = 0; sender < kSenders; sender++) {
      sum_delivered += delivered[sender][static_cast<size_t>(type)];
      sum_dropped += dropped[sender][static_cast<size_t>(type)];
    }
    const mu_event_rec &event = glb_evt.events[type];
    EXPECT_EQ(sum_delivered + sum_dropped, kSenders * kOccurrences / kTypes) << type;
    EXPECT_EQ(event.count, sum_delivered) << type;
    EXPECT_EQ(event.suprs_cnt, sum_dropped) << type;
    EXPECT_EQ(g_hooked[type], sum_delivered) << type;
  }
  EXPECT_EQ(g_heard, kSenders * kOccurrences / kTypes);
  EXPECT_EQ(g_begun - g_ended, glb_evt.events[kAttached].suprs_s) << "begin and end alternate";
  EXPECT_EQ(mu_list_count(glb_evt.events[kCrowded].cb_list), 1u);
}

// An attach takes no lock: senders meanwhile find the type before it or after it.
TEST(EventThreads, AttachWhileOthersSend) {
  VirtualClock clock;
  mu_event_init(kTypes, nullptr, nullptr);
  mu_event_register(0, kAttached, passing);
  std::atomic<bool> runs{true};
  const auto send_on = [&] {
    while (runs) mu_event_send(0, kAttached, nullptr, 0);
  };
  std::thread threads[] = {std::thread(send_on), std::thread(send_on)};
  for (int i = 0; i < 50; i++) {
    EXPECT_EQ(attach(kAttached, released, suppressed, 1), 0);
    mu_event_poll();
  }
  runs = false;
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(glb_evt.events[kAttached].cb_list, nullptr);
}
