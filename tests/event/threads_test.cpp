// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Many threads at once. The state afterwards is checked here; data races are found by the thread sanitizer.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "event/fixture.h"
#include "event/kernel.h"
#include "support/console.h"
#include "support/libc.h"
#include "support/virtual_clock.h"

using namespace event_test;
using namespace tarn_test;

namespace {

constexpr unsigned kSenders = 8;
constexpr uint32_t kRounds = 400;
constexpr int kTypes = 4;

// Not atomic: the lock of the registry guards them.
std::array<uint32_t, kTypes> g_hooked;
std::array<uint32_t, kTypes> g_called;
uint32_t g_inside;
uint32_t g_overlaps;
uint32_t g_wrong;
uint32_t g_suppressed;
uint32_t g_released;
uint32_t g_forwarded;

// The payload of an occurrence: its sender and its number.
struct Payload {
  uint32_t sender;
  uint32_t number;
};

std::array<uint32_t, kSenders> g_last;  // the number that a sender's latest occurrence had

int count_hook(uint16_t device_id, uint32_t type, void *data, uint32_t len) {
  if (g_inside++ != 0) g_overlaps++;
  const auto *payload = static_cast<const Payload *>(data);
  if (device_id != payload->sender || len != payload->number || type >= kTypes) g_wrong++;
  if (g_last[payload->sender] >= payload->number) g_wrong++;
  g_last[payload->sender] = payload->number;
  g_hooked[type]++;
  g_inside--;
  return 0;
}

int count_call(uint16_t, uint32_t type, void *, uint32_t, uint64_t) {
  if (g_inside++ != 0) g_overlaps++;
  g_called[type]++;
  g_inside--;
  return 0;
}

template <int>
int come_and_go(uint16_t, uint32_t, void *, uint32_t, uint64_t) {
  if (g_inside++ != 0) g_overlaps++;
  g_inside--;
  return 0;
}

void note_suppressed(uint64_t) {
  if (g_inside++ != 0) g_overlaps++;
  g_suppressed++;
  g_inside--;
}

void note_released(uint64_t) {
  if (g_inside++ != 0) g_overlaps++;
  g_released++;
  g_inside--;
}

int note_forwarded(uint16_t, mu_event_msg_t *msg) {
  g_forwarded++;
  msg->count = g_forwarded;
  return 0;
}

using Jobs = std::vector<std::function<void()>>;

// Runs the jobs, each in a thread of its own, which begins when the last of them is there. Stuck threads cannot be
// joined: they end the test program.
void run_together(const Jobs &jobs, const std::function<void()> &meanwhile = std::this_thread::yield) {
  std::atomic<size_t> here = 0;
  std::atomic<size_t> ended = 0;
  std::vector<std::thread> threads;
  for (const auto &job : jobs) {
    threads.emplace_back([&] {
      here++;
      while (here < jobs.size()) std::this_thread::yield();
      job();
      ended++;
    });
  }
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (ended < jobs.size()) {
    if (std::chrono::steady_clock::now() > limit) {
      ADD_FAILURE() << jobs.size() - ended << " threads are stuck";
      abort();
    }
    meanwhile();
  }
  for (std::thread &thread : threads) thread.join();
}

// How many occurrences of each type a sender sent, by their result.
struct Tally {
  std::array<uint32_t, kTypes> delivered = {};
  std::array<uint32_t, kTypes> dropped = {};
};

void send_all(unsigned sender, Tally &tally) {
  for (uint32_t number = 1; number <= kRounds; number++) {
    Payload payload = {sender, number};
    const unsigned type = number % kTypes;
    if (mu_event_send(static_cast<uint16_t>(sender), static_cast<int>(type), &payload, number) == 0) {
      tally.delivered[type]++;
    } else {
      tally.dropped[type]++;
    }
  }
}

}  // namespace

TEST(EventThreads, DeliverDropAndCountEveryOccurrenceOnce) {
  Registry registry(kTypes, count_hook);
  Console console;
  for (const int type : {2, 3}) attach(type, 0, note_released, note_suppressed);
  mu_event_register(0, 0, count_call);
  mu_event_register(0, 1, count_call);
  configure(1, 1, 10, 20);
  configure(2, 1, 5, 10);
  g_released = 0;  // the configuration called it
  std::array<Tally, kSenders> tallies;
  Jobs jobs;
  for (unsigned sender = 0; sender < kSenders; sender++) {
    jobs.push_back([&, sender] { send_all(sender, tallies[sender]); });
  }
  jobs.push_back([] {
    for (uint32_t i = 0; i < kRounds; i++) mu_event_poll();
  });
  jobs.push_back([] {
    for (uint32_t i = 0; i < kRounds; i++) {
      uint32_t count = 0;
      EXPECT_EQ(mu_event_counter_get(0, 1, &count, 0), -1) << "the count was delivered";
      mu_event_cfg_t cfg = {};
      EXPECT_EQ(mu_event_get(0, 2, &cfg), 0);
      if (i % 20 == 0) mu_event_dump();
    }
  });
  jobs.push_back([] {
    for (uint32_t i = 0; i < kRounds; i++) {
      const uint32_t type = i % 2;
      EXPECT_EQ(mu_event_register(0, type, come_and_go<1>), 0);
      EXPECT_EQ(mu_event_register(0, type, come_and_go<2>), 0);
      EXPECT_EQ(mu_event_deregister(0, type, come_and_go<1>), 0);
      EXPECT_EQ(mu_event_deregister(0, type, come_and_go<2>), 0);
    }
  });
  run_together(jobs, [&] { registry.clock.scan(); });
  if (!HasFailure()) console.take();

  EXPECT_EQ(g_overlaps, 0u);
  EXPECT_EQ(g_wrong, 0u);
  for (int type = 0; type < kTypes; type++) {
    SCOPED_TRACE(type);
    const auto i = static_cast<size_t>(type);
    uint32_t delivered = 0;
    uint32_t dropped = 0;
    for (const Tally &tally : tallies) {
      delivered += tally.delivered[i];
      dropped += tally.dropped[i];
    }
    EXPECT_EQ(delivered + dropped, kSenders * kRounds / kTypes);
    EXPECT_EQ(rec(type).count, delivered);
    EXPECT_EQ(rec(type).suprs_cnt, dropped);
    EXPECT_EQ(g_hooked[i], delivered);
    EXPECT_EQ(g_called[i], type < 2 ? delivered : 0);
    if (type == 0 || type == 3) {
      EXPECT_EQ(dropped, 0u) << "its suppression is off";
    }
  }
  EXPECT_EQ(g_suppressed, g_released + rec(2).suprs_s) << "begin and end alternate";
  EXPECT_EQ(subscribers_of(0), std::vector<mu_event_cb_t>{count_call});
  EXPECT_EQ(rec(0).registered, 1);
}

TEST(EventThreads, ConfigureReadClearAndDumpWhileOthersSend) {
  Registry registry(kTypes);
  mu_event_register(0, 0, come_and_go<1>);
  Console console;
  Jobs jobs;
  for (unsigned sender = 0; sender < kSenders; sender++) {
    jobs.push_back([] {
      for (uint32_t number = 0; number < kRounds; number++) send(static_cast<int>(number % kTypes));
    });
  }
  std::array<uint32_t, kTypes> taken = {};
  jobs.push_back([&] {
    for (uint32_t i = 0; i < kRounds; i++) {
      uint32_t count = 0;
      mu_event_counter_get(0, 0, &count, 1);
      taken[0] += count;
    }
  });
  jobs.push_back([] {
    for (uint32_t i = 0; i < kRounds; i++) {
      EXPECT_EQ(configure(1, i % 2, i % 7, 1000 + 10 * (i % 2)), 0);
      mu_event_cfg_t cfg = {9, 9, 9};
      EXPECT_EQ(mu_event_get(0, 1, &cfg), 0);
      EXPECT_EQ(cfg.suprs_en, i % 2);
      EXPECT_EQ(cfg.threshold, i % 7);
      EXPECT_EQ(cfg.period, 1000 + 10 * (i % 2));
      mu_event_counter_clear(0, 1);
    }
  });
  jobs.push_back([] {
    for (uint32_t i = 0; i < kRounds / 20; i++) mu_event_dump();
  });
  run_together(jobs, [&] { registry.clock.scan(); });
  EXPECT_EQ(taken[0] + rec(0).count, kSenders * kRounds / kTypes) << "no occurrence is counted twice or lost";
  EXPECT_EQ(rec(2).count, kSenders * kRounds / kTypes);
  if (!HasFailure()) console.take();
}

TEST(EventThreads, ForwardOneAfterAnother) {
  const Registry registry(kTypes, nullptr, note_forwarded);
  constexpr uint32_t kCalls = 5;
  Jobs jobs;
  for (unsigned i = 0; i < kSenders; i++) {
    jobs.push_back([] {
      uint32_t last = 0;
      for (uint32_t round = 0; round < kRounds; round++) {
        mu_event_cfg_t cfg = {1, 2, 3};
        uint32_t count = 0;
        EXPECT_EQ(mu_event_counter_get(0, 0, &count, 0), 0);
        EXPECT_GT(count, last);
        last = count;
        mu_event_counter_clear(0, 1);
        mu_event_counter_clear_all(0);
        mu_event_set(0, 0, &cfg);
        mu_event_get(0, 0, &cfg);
      }
    });
  }
  run_together(jobs);
  EXPECT_EQ(g_forwarded, kSenders * kRounds * kCalls);
}

// Senders find the registry either closed or whole.
TEST(EventThreads, SendWhileTheRegistryIsMade) {
  VirtualClock clock;
  std::atomic<uint32_t> delivered = 0;
  std::atomic<unsigned> sending = 0;
  Jobs jobs;
  for (unsigned i = 0; i < kSenders; i++) {
    jobs.push_back([&] {
      sending++;
      while (send(kTypes - 1) != 0) std::this_thread::yield();
      delivered++;
    });
  }
  jobs.push_back([&] {
    while (sending < kSenders) std::this_thread::yield();
    EXPECT_EQ(mu_event_init(kTypes, nullptr, nullptr), 0);
  });
  run_together(jobs);
  clock.settle();
  EXPECT_EQ(delivered, kSenders);
  EXPECT_EQ(rec(kTypes - 1).count, kSenders);
}

// An attach takes no lock; what goes on with other types is not disturbed.
TEST(EventThreads, AttachWhileOthersSendOtherTypes) {
  Registry registry(kTypes);
  keep(rec(3).cb_list);
  Jobs jobs;
  for (unsigned i = 0; i < kSenders; i++) {
    jobs.push_back([] {
      for (uint32_t number = 0; number < kRounds; number++) send(static_cast<int>(number % 3));
    });
  }
  jobs.push_back([] {
    for (uint32_t i = 0; i < kRounds; i++) {
      EXPECT_EQ(mu_event_suprs_attach(3, note_released, note_suppressed, i), 0);
    }
  });
  run_together(jobs);
  uint32_t sum = 0;
  for (int type = 0; type < 3; type++) sum += rec(type).count;
  EXPECT_EQ(sum, kSenders * kRounds);
  EXPECT_EQ(rec(3).cookie, kRounds - 1);
}

// Senders of the type itself find it before the attach or after it.
TEST(EventThreads, AttachWhileOthersSendTheType) {
  const Registry registry(kTypes);
  mu_event_register(0, 3, come_and_go<1>);
  std::atomic<bool> attaching = true;
  const auto send_on = [&] {
    while (attaching) send(3);
  };
  run_together({send_on, send_on, [&] {
                  for (uint32_t i = 0; i < 50; i++) {
                    EXPECT_EQ(attach(3, i, note_released, note_suppressed), 0);
                    mu_event_poll();
                  }
                  attaching = false;
                }});
  EXPECT_EQ(rec(3).cb_list, nullptr);
  EXPECT_EQ(rec(3).cookie, 49u);
}

// The event thread, the timer thread and others at once.
TEST(EventThreads, SendWhileTheKernelSends) {
  const Kernel kernel;
  EXPECT_EQ(mu_event_init(kTypes, nullptr, nullptr), 0);
  mu_event_register(0, 0, count_call);
  kernel.start();
  Jobs jobs;
  for (unsigned i = 0; i < 4; i++) {
    jobs.push_back([] {
      for (uint32_t number = 0; number < kRounds; number++) EXPECT_EQ(send(0), 0);
    });
  }
  jobs.push_back([&] { kernel.feed(std::vector<Round>(kRounds, arrives(datagram(1, 0, 0)))); });
  run_together(jobs);
  EXPECT_EQ(g_called[0], 5 * kRounds);
  EXPECT_EQ(rec(0).count, 5 * kRounds);
  EXPECT_EQ(g_overlaps, 0u);
}

// The device is opened by each call for itself.
TEST(EventThreads, UseADescriptorOfTheirOwnForEveryCommand) {
  constexpr int kCalls = kSenders * kRounds;
  static std::atomic<int> opened;
  static std::array<std::atomic<int>, kCalls + 1> used;
  static std::array<std::atomic<int>, kCalls + 1> closed;
  const Replace open(libc::open, [](const char *, int, mode_t) { return ++opened; });
  const Replace ioctl(libc::ioctl, [](int file, unsigned long, void *) {
    used.at(static_cast<size_t>(file))++;
    return file;
  });
  const Replace close(libc::close, [](int file) {
    closed.at(static_cast<size_t>(file))++;
    return 0;
  });
  run_together(Jobs(kSenders, [] {
    for (uint32_t i = 0; i < kRounds; i++) {
      mu_pal_hdr_t argument = {};
      const int file = mu_pal_ioctl(1, &argument);
      EXPECT_EQ(used.at(static_cast<size_t>(file)), 1);
      EXPECT_EQ(closed.at(static_cast<size_t>(file)), 1);
    }
  }));
  EXPECT_EQ(opened, kCalls);
}
