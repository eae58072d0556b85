// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Counters, settings and the dump with a configuration handler: which message each call becomes.

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"

using namespace event_test;
using namespace tarn_test;

namespace {

// The eight words of a message.
using Words = std::array<uint32_t, 8>;

struct Handled {
  uint16_t device;
  Words words;
  bool locked;
  bool operator==(const Handled &) const = default;
};

void PrintTo(const Handled &handled, std::ostream *out) {
  *out << "{device " << handled.device << (handled.locked ? " locked" : " unlocked");
  for (const uint32_t word : handled.words) *out << ' ' << word;
  *out << '}';
}

std::vector<Handled> g_handled;
std::function<void(Words &)> g_answer;

std::vector<Handled> take_handled() { return std::exchange(g_handled, {}); }

// Sees the message as 32 bytes, not through the header's structure.
int handle(uint16_t device_id, mu_event_msg_t *msg) {
  Words words;
  static_assert(sizeof words == 32);
  memcpy(words.data(), static_cast<const void *>(msg), sizeof words);
  g_handled.push_back({device_id, words, lock_is_held()});
  if (g_answer) g_answer(words);
  memcpy(static_cast<void *>(msg), words.data(), sizeof words);
  return -1;  // ignored
}

class EventForwarded : public testing::Test {
 protected:
  EventForwarded() {
    take_handled();
    attach(1, 5);
    for (int i = 0; i < 3; i++) {
      rec(i).count = 100;
      rec(i).suprs_cnt = 200;
    }
    before_ = state_bytes();
  }
  ~EventForwarded() override {
    g_answer = nullptr;
    EXPECT_EQ(state_bytes(), before_) << "with a handler no record changes";
    EXPECT_EQ(take_journal(), Journal{}) << "and no callback is called";
    EXPECT_EQ(console_.take(), "");
    EXPECT_FALSE(lock_is_held());
  }

  Registry registry_{3, hook, handle};
  std::string before_;
  Console console_;
};

using HandledList = std::vector<Handled>;

}  // namespace

TEST_F(EventForwarded, CounterGetBecomesAMessage) {
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0xabcd, 2, &count, 0xdeadbeef), 0);
  EXPECT_EQ(take_handled(), (HandledList{{0xabcd, {0, 2, 0, 0, 0, 0, 0, 0xdeadbeef}, true}}));
  EXPECT_EQ(count, 0u) << "the handler answered nothing";
  EXPECT_EQ(mu_event_counter_get(0xffff, 0, &count, 0), 0);
  EXPECT_EQ(take_handled(), (HandledList{{0xffff, {0, 0, 0, 0, 0, 0, 0, 0}, true}}));
}

TEST_F(EventForwarded, CounterGetReturnsTheHandlersCount) {
  g_answer = [](Words &words) { words = {91, 92, 93, 94, 95, 96, 97, 98}; };
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0, 1, &count, 1), 0);
  EXPECT_EQ(count, 97u);
}

TEST_F(EventForwarded, CounterClearBecomesAMessage) {
  EXPECT_EQ(mu_event_counter_clear(3, 2), 0);
  EXPECT_EQ(take_handled(), (HandledList{{3, {1, 2, 0, 0, 0, 0, 0, 0}, true}}));
}

TEST_F(EventForwarded, CounterClearAllBecomesAMessage) {
  EXPECT_EQ(mu_event_counter_clear_all(0x1234), 0);
  EXPECT_EQ(take_handled(), (HandledList{{0x1234, {2, 0, 0, 0, 0, 0, 0, 0}, true}}));
}

TEST_F(EventForwarded, SetPassesTheConfigurationUnchanged) {
  g_answer = [](Words &words) { words.fill(7); };
  const mu_event_cfg_t cfg = {0x80000000, 0xdeadbeef, 25};
  EXPECT_EQ(mu_event_set(4, 1, &cfg), 0);
  EXPECT_EQ(take_handled(), (HandledList{{4, {3, 1, 0, 0x80000000, 0xdeadbeef, 25, 0, 0}, true}}));
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{0x80000000, 0xdeadbeef, 25}));
}

TEST_F(EventForwarded, GetPassesTheCallersConfiguration) {
  mu_event_cfg_t cfg = {11, 12, 13};
  EXPECT_EQ(mu_event_get(5, 2, &cfg), 0);
  EXPECT_EQ(take_handled(), (HandledList{{5, {4, 2, 0, 11, 12, 13, 0, 0}, true}}));
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{11, 12, 13}));
}

TEST_F(EventForwarded, GetReturnsTheHandlersConfiguration) {
  g_answer = [](Words &words) { words = {91, 92, 93, 94, 95, 96, 97, 98}; };
  mu_event_cfg_t cfg = {11, 12, 13};
  EXPECT_EQ(mu_event_get(0, 2, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{94, 95, 96}));
}

TEST_F(EventForwarded, DumpIsSentWithoutTheLock) {
  mu_event_dump();
  EXPECT_EQ(take_handled(), (HandledList{{0, {5, 0, 0, 0, 0, 0, 0, 0}, false}}));
  EXPECT_EQ(console_.take(), "") << "no table is printed";
}

TEST_F(EventForwarded, OnlySetAndGetForwardNegativeTypes) {
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_set(0, -1, &cfg), 0);
  EXPECT_EQ(mu_event_get(0, INT_MIN, &cfg), 0);
  EXPECT_EQ(take_handled(),
            (HandledList{{0, {3, UINT32_MAX, 0, 1, 2, 3, 0, 0}, true}, {0, {4, 0x80000000, 0, 1, 2, 3, 0, 0}, true}}));
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(0, UINT32_MAX, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, UINT32_MAX), -1);
  EXPECT_EQ(take_handled(), HandledList{});
}

TEST_F(EventForwarded, WhatIsRefusedIsNotForwarded) {
  mu_event_cfg_t cfg = {1, 2, 3};
  uint32_t count = 9;
  EXPECT_EQ(mu_event_set(0, 3, &cfg), -1);
  EXPECT_EQ(mu_event_set(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_get(0, 3, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 3), -1);
  EXPECT_EQ(take_handled(), HandledList{});
}

TEST(EventNotForwarded, RegistrationSendingAttachAndPollUseTheTable) {
  const Registry registry(2, hook, handle);
  take_handled();
  EXPECT_EQ(mu_event_register(0, 0, subscriber<1>), 0);
  EXPECT_EQ(send(0), 0);
  EXPECT_EQ(take_journal().size(), 2u);
  EXPECT_EQ(mu_event_deregister(0, 0, subscriber<1>), 0);
  EXPECT_EQ(attach(1, 7), 0);
  rec(1).suprs_en = 1;
  EXPECT_EQ(send(1), -1);
  mu_event_poll();
  EXPECT_EQ(take_journal(), (Journal{suppress_line(7), release_line(7)}));
  EXPECT_EQ(take_handled(), HandledList{});
}

TEST(EventForwardedUninitialised, ClearAllAndDumpAreForwarded) {
  glb_evt.cfg_handler = handle;
  uint32_t count = 9;
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_counter_get(0, 0, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 0), -1);
  EXPECT_EQ(mu_event_set(0, 0, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, &cfg), -1);
  EXPECT_EQ(mu_event_counter_clear_all(8), 0);
  mu_event_dump();
  EXPECT_EQ(take_handled(), (HandledList{{8, {2, 0, 0, 0, 0, 0, 0, 0}, false}, {0, {5, 0, 0, 0, 0, 0, 0, 0}, false}}));
  glb_evt.cfg_handler = nullptr;
}
