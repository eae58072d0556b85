// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Many threads at once. What must hold afterwards is checked here; that the calls do not race is for the thread
// sanitizer to see.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "event/channel.h"
#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"
#include "support/virtual_clock.h"

using namespace event_test;
using namespace tarn_test;

namespace {

constexpr unsigned kSenders = 8;
constexpr uint32_t kRounds = 400;
constexpr int kTypes = 4;

// Plain: the registry's lock guards them.
std::array<uint32_t, kTypes> g_hooked;
std::array<uint32_t, kTypes> g_called;
uint32_t g_inside;
uint32_t g_overlaps;
uint32_t g_wrong;
uint32_t g_suppressed;
uint32_t g_released;
uint32_t g_forwarded;

// The payload of an occurrence: made of its sender and its number alone.
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

// Runs the jobs, each in a thread of its own, all of which wait for the last of them to be there.
void run_together(const Jobs &jobs, const std::function<void()> &meanwhile = nullptr) {
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
  while (meanwhile && ended < jobs.size()) meanwhile();
  for (std::thread &thread : threads) thread.join();
}

// What a sender sent of each type: with which result.
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

// An operation, and what it takes.
struct Operation {
  const char *name;
  std::function<void()> call;
};

const std::vector<Operation> &locking_operations() {
  static uint32_t count;
  static mu_event_cfg_t cfg;
  static const std::vector<Operation> operations = {
      {"register", [] { mu_event_register(0, 1, subscriber<1>); }},
      {"deregister", [] { mu_event_deregister(0, 1, subscriber<2>); }},
      {"send", [] { send(1); }},
      {"poll", [] { mu_event_poll(); }},
      {"counter get", [] { mu_event_counter_get(0, 1, &count, 1); }},
      {"counter clear", [] { mu_event_counter_clear(0, 1); }},
      {"clear all", [] { mu_event_counter_clear_all(0); }},
      {"set", [] { configure(1, 0, 0, 0); }},
      {"get", [] { mu_event_get(0, 1, &cfg); }},
  };
  return operations;
}

}  // namespace

TEST(EventThreadsContract, DeliverDropAndCountEveryOccurrenceOnce) {
  Registry registry(kTypes, count_hook);
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
      const uint32_t type = i % 2;
      EXPECT_EQ(mu_event_register(0, type, come_and_go<1>), 0);
      EXPECT_EQ(mu_event_register(0, type, come_and_go<2>), 0);
      EXPECT_EQ(mu_event_deregister(0, type, come_and_go<1>), 0);
      EXPECT_EQ(mu_event_deregister(0, type, come_and_go<2>), 0);
    }
  });
  run_together(jobs, [&] { registry.clock.scan(); });

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
  EXPECT_EQ(g_suppressed, g_released + rec(2).suprs_s);
  EXPECT_EQ(subscribers_of(0), std::vector<mu_event_cb_t>{count_call});
  EXPECT_EQ(rec(0).registered, 1);
}

TEST(EventThreadsContract, ConfigureReadClearAndDumpWhileOthersSend) {
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
  console.take();
}

TEST(EventThreadsContract, ForwardOneAfterAnother) {
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
TEST(EventThreadsContract, SendWhileTheRegistryIsMade) {
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
TEST(EventThreadsContract, AttachWhileOthersSendOtherTypes) {
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

// The event thread, the timer thread and others at once.
TEST(EventThreadsContract, SendWhileTheKernelSends) {
  Channel channel;
  EXPECT_EQ(mu_event_init(kTypes, nullptr, nullptr), 0);
  mu_event_register(0, 0, count_call);
  channel.start();
  Jobs jobs;
  for (unsigned i = 0; i < 4; i++) {
    jobs.push_back([] {
      for (uint32_t number = 0; number < kRounds; number++) EXPECT_EQ(send(0), 0);
    });
  }
  jobs.push_back([&] { channel.feed(std::vector<Round>(kRounds, arrives(datagram(1, 0, 0)))); });
  run_together(jobs);
  EXPECT_EQ(g_called[0], 5 * kRounds);
  EXPECT_EQ(rec(0).count, 5 * kRounds);
  EXPECT_EQ(g_overlaps, 0u);
}

// The device is opened by each call for itself.
TEST(EventThreadsContract, UseADescriptorOfTheirOwnForEveryCommand) {
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

// Each waits for the lock while another thread holds it. The loop gives a call that does not wait every chance to end.
TEST(EventLockContract, IsWaitedForByEveryOperationOfTheTable) {
  const Registry registry(2);
  for (const Operation &operation : locking_operations()) {
    SCOPED_TRACE(operation.name);
    std::atomic<bool> begun = false;
    std::atomic<bool> ended = false;
    mu_mutex_lock(glb_evt.lock);
    std::thread thread([&] {
      begun = true;
      operation.call();
      ended = true;
    });
    while (!begun) std::this_thread::yield();
    for (int i = 0; i < 2000; i++) std::this_thread::yield();
    EXPECT_FALSE(ended);
    mu_mutex_unlock(glb_evt.lock);
    thread.join();
    EXPECT_FALSE(lock_is_held());
  }
}

// The range is looked at before: what is refused does not wait.
TEST(EventLockContract, IsNotTakenForWhatIsRefused) {
  const Registry registry(2);
  uint32_t count = 9;
  mu_event_cfg_t cfg = {};
  mu_mutex_lock(glb_evt.lock);
  EXPECT_EQ(mu_event_register(0, 2, subscriber<1>), -1);
  EXPECT_EQ(mu_event_register(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_deregister(0, 2, subscriber<1>), -1);
  EXPECT_EQ(send(2), -1);
  EXPECT_EQ(mu_event_counter_get(0, 2, &count, 0), -1);
  EXPECT_EQ(mu_event_counter_clear(0, 2), -1);
  EXPECT_EQ(mu_event_set(0, 2, &cfg), -1);
  EXPECT_EQ(mu_event_set(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_get(0, 2, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, nullptr), -1);
  mu_mutex_unlock(glb_evt.lock);
}
