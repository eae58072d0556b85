// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Counters, settings, the table; with and without a configuration handler; and messages applied to the registry.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "event/subscribers.h"
#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"
#include "tarn/platform.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr int kTypes = 6;

// What the configuration handler was given, and what it answers.
struct Handled {
  uint16_t device_id;
  mu_event_msg_t msg;
};
std::vector<Handled> g_handled;
mu_event_msg_t g_answer;
bool g_answers;
int g_lock_tried;

int handle(uint16_t device_id, mu_event_msg_t *msg) {
  g_handled.push_back({device_id, *msg});
  g_lock_tried = mu_mutex_trylock(glb_evt.lock);
  if (g_lock_tried == 0) mu_mutex_unlock(glb_evt.lock);
  if (g_answers) *msg = g_answer;
  return -1;  // ignored
}

template <bool kWithHandler>
class EventConfiguration : public testing::Test {
 protected:
  EventConfiguration() {
    g_handled.clear();
    g_answers = false;
    mu_event_init(kTypes, nullptr, kWithHandler ? handle : nullptr);
    for (uint32_t type = 0; type < kTypes; type++) {
      glb_evt.events[type].count = 100 + type;
      glb_evt.events[type].suprs_cnt = 200 + type;
    }
    memcpy(before_, glb_evt.events, sizeof before_);
  }

  static mu_event_rec &event(int type) { return glb_evt.events[type]; }

  // Whether the table is as it was at the start, `type` left aside.
  bool is_unchanged(int type = -1) const {
    for (int i = 0; i < kTypes; i++) {
      if (i != type && memcmp(&before_[i], &glb_evt.events[i], sizeof before_[i]) != 0) return false;
    }
    return true;
  }

  VirtualClock clock_;
  mu_event_rec before_[kTypes];
};

using EventLocal = EventConfiguration<false>;
using EventCounterGet = EventLocal;
using EventCounterClear = EventLocal;
using EventSet = EventLocal;
using EventGet = EventLocal;
using EventDump = EventLocal;
using EventMessage = EventLocal;
using EventForwarded = EventConfiguration<true>;

// The one message that was handled, which must be `expected` in all of its 32 bytes.
void expect_handled(uint16_t device_id, const mu_event_msg_t &expected) {
  ASSERT_EQ(g_handled.size(), 1u);
  EXPECT_EQ(g_handled[0].device_id, device_id);
  EXPECT_EQ(memcmp(&g_handled[0].msg, &expected, 32), 0);
  g_handled.clear();
}

}  // namespace

// ---- On the table --------------------------------------------------------------------------------------------------

TEST_F(EventCounterGet, ReturnsMinusOneWithTheLocalValue) {
  uint32_t count = 0;
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 0), -1);
  EXPECT_EQ(count, 103u);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventCounterGet, ClearsTheCountAloneIfAsked) {
  for (uint32_t clear : {1u, 2u, 0x80000000u}) {
    event(3).count = 103;
    uint32_t count = 0;
    EXPECT_EQ(mu_event_counter_get(0, 3, &count, clear), -1);
    EXPECT_EQ(count, 103u);
    EXPECT_EQ(event(3).count, 0u);
    EXPECT_EQ(event(3).suprs_cnt, 203u);
  }
  EXPECT_TRUE(is_unchanged(3));
}

TEST_F(EventCounterGet, StoresZeroForATypeOutOfRange) {
  uint32_t count = 7;
  EXPECT_EQ(mu_event_counter_get(0, kTypes, &count, 1), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventCounterClear, SetsBothCountersToZero) {
  EXPECT_EQ(mu_event_counter_clear(0, 2), 0);
  EXPECT_EQ(event(2).count, 0u);
  EXPECT_EQ(event(2).suprs_cnt, 0u);
  EXPECT_TRUE(is_unchanged(2));
  EXPECT_EQ(mu_event_counter_clear(0, kTypes), -1);
}

TEST_F(EventCounterClear, OfAllLeavesTheRest) {
  event(1).period_cnt = 5;
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  for (int i = 0; i < kTypes; i++) {
    EXPECT_EQ(event(i).count, 0u);
    EXPECT_EQ(event(i).suprs_cnt, 0u);
  }
  EXPECT_EQ(event(1).period_cnt, 5u);
}

TEST_F(EventSet, KeepsThePeriodInUnitsOf10Ms) {
  // As configured, as kept, as reported: above 10 divided by 10, else 1.
  const std::tuple<uint32_t, uint32_t, uint32_t> rows[] = {{0, 1, 10},
                                                           {1, 1, 10},
                                                           {5, 1, 10},
                                                           {9, 1, 10},
                                                           {10, 1, 10},
                                                           {11, 1, 10},
                                                           {19, 1, 10},
                                                           {20, 2, 20},
                                                           {25, 2, 20},
                                                           {1000, 100, 1000},
                                                           {UINT32_MAX, 429496729, 4294967290}};
  for (const auto &[ms, kept, reported] : rows) {
    mu_event_cfg_t cfg = {1, 3, ms};
    EXPECT_EQ(mu_event_set(0, 4, &cfg), 0);
    EXPECT_EQ(event(4).period, kept) << ms;
    EXPECT_EQ(mu_event_get(0, 4, &cfg), 0);
    EXPECT_EQ(cfg.period, reported) << ms;
    EXPECT_EQ(cfg.threshold, 3u);
    EXPECT_EQ(cfg.suprs_en, 1u);
  }
}

TEST_F(EventSet, TakesAnyNonzeroValueAsOn) {
  for (uint32_t on : {1u, 2u, 256u, 0x80000000u}) {
    mu_event_cfg_t cfg = {on, UINT32_MAX, 10};
    mu_event_set(0, 4, &cfg);
    EXPECT_EQ(event(4).suprs_en, 1u) << on;
    mu_event_get(0, 4, &cfg);
    EXPECT_EQ(cfg.suprs_en, 1u) << on;
    EXPECT_EQ(cfg.threshold, UINT32_MAX);
  }
  mu_event_cfg_t cfg = {0, 0, 10};
  mu_event_set(0, 4, &cfg);
  EXPECT_EQ(event(4).suprs_en, 0u);
  cfg.suprs_en = 9;
  mu_event_get(0, 4, &cfg);
  EXPECT_EQ(cfg.suprs_en, 0u);
}

TEST_F(EventSet, LeavesTheStateOfTheWindowAlone) {
  mu_event_rec &rec = event(4);
  rec.suprs_s = 1;
  rec.period_cnt = 11;
  rec.tick = 12;
  mu_event_rec expected = rec;
  const mu_event_cfg_t cfg = {1, 3, 1000};
  EXPECT_EQ(mu_event_set(0, 4, &cfg), 0);
  expected.suprs_cnt = 0;
  expected.period = 100;
  expected.threshold = 3;
  expected.suprs_en = 1;
  EXPECT_EQ(memcmp(&rec, &expected, sizeof rec), 0);
  EXPECT_TRUE(is_unchanged(4));
}

TEST_F(EventSet, CallsTheReleaseCallbackBehindTheUpdate) {
  static mu_event_rec seen;
  attach(
      4,
      [](uint64_t cookie) {
        released(cookie);
        seen = glb_evt.events[4];
      },
      suppressed, 0xFFFFFFFFFFFFFFFE);
  const mu_event_cfg_t cfg = {1, 3, 1000};
  EXPECT_EQ(mu_event_set(0, 4, &cfg), 0);
  EXPECT_EQ(g_calls, (std::vector<Heard>{{'+', 0, 0, nullptr, 0, 0xFFFFFFFFFFFFFFFE}}));
  EXPECT_EQ(seen.period, 100u);
  EXPECT_EQ(seen.threshold, 3u);
  EXPECT_EQ(seen.suprs_en, 1u);
}

TEST_F(EventSet, RefusesANullConfigurationAndATypeOutOfRange) {
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_set(0, 4, nullptr), -1);
  EXPECT_EQ(mu_event_set(0, kTypes, &cfg), -1);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventGet, RefusesANullConfigurationAndATypeOutOfRange) {
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_get(0, 4, nullptr), -1);
  EXPECT_EQ(mu_event_get(0, kTypes, &cfg), -1);
  EXPECT_EQ(cfg.suprs_en * 100 + cfg.threshold * 10 + cfg.period, 123u);
}

TEST_F(EventDump, PrintsOneRowAType) {
  Console console;
  suppress_above(1, 3, 1000);
  event(1).suprs_cnt = 4;
  suppress_above(2, 0, 25);
  event(2).suprs_s = 1;
  event(2).suprs_cnt = 1234567890;
  event(3).suprs_s = 1;  // of no interest while suppression is off
  event(4).count = 4294967295;
  event(5).count = 12345678;
  mu_event_dump();
  // The columns are 4, 10, 8, 7, 9, 9 and 12 wide, a blank between them; the last is padded in the head line alone.
  EXPECT_EQ(console.take(),
            "===============================================================\n"
            "Type Count      Suprs-en Suprs-s Suprs-cnt Threshold Period(ms)  \n"
            "---------------------------------------------------------------\n"
            "0    100        Disable  -       -         -         -\n"
            "1    101        Enable   No      4         3         1000\n"
            "2    102        Enable   Yes     1234567890 0         20\n"
            "3    103        Disable  -       -         -         -\n"
            "4    -1         Disable  -       -         -         -\n"
            "5    12345678   Disable  -       -         -         -\n"
            "\n");
}

// ---- Through a configuration handler -------------------------------------------------------------------------------

TEST_F(EventForwarded, CounterGetTakesTheHandlersCount) {
  g_answers = true;
  g_answer = {};
  g_answer.count = 4321;
  uint32_t count = 0;
  EXPECT_EQ(mu_event_counter_get(0xABCD, 3, &count, 7), 0);
  EXPECT_EQ(count, 4321u);
  expect_handled(
      0xABCD, {.op = 0, .type = 3, .reserved = 0, .suprs_en = 0, .threshold = 0, .period = 0, .count = 0, .clear = 7});
  EXPECT_EQ(g_lock_tried, EBUSY);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventForwarded, CounterGetWithoutAnAnswerGivesZero) {
  uint32_t count = 7;
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 1), 0);
  EXPECT_EQ(count, 0u);
}

TEST_F(EventForwarded, CounterClearsBecomeMessages) {
  EXPECT_EQ(mu_event_counter_clear(5, 3), 0);
  expect_handled(
      5, {.op = 1, .type = 3, .reserved = 0, .suprs_en = 0, .threshold = 0, .period = 0, .count = 0, .clear = 0});
  EXPECT_EQ(g_lock_tried, EBUSY);
  EXPECT_EQ(mu_event_counter_clear_all(6), 0);
  expect_handled(
      6, {.op = 2, .type = 0, .reserved = 0, .suprs_en = 0, .threshold = 0, .period = 0, .count = 0, .clear = 0});
  EXPECT_EQ(g_lock_tried, EBUSY);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventForwarded, SetPassesTheConfigurationAsItIs) {
  const mu_event_cfg_t cfg = {77, 3, 25};
  EXPECT_EQ(mu_event_set(5, 3, &cfg), 0);
  expect_handled(
      5, {.op = 3, .type = 3, .reserved = 0, .suprs_en = 77, .threshold = 3, .period = 25, .count = 0, .clear = 0});
  EXPECT_EQ(g_lock_tried, EBUSY);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventForwarded, SetCallsNoReleaseCallback) {
  event(3).release_cb = released;
  const mu_event_cfg_t cfg = {1, 3, 25};
  EXPECT_EQ(mu_event_set(5, 3, &cfg), 0);
  EXPECT_EQ(take_calls(), "");
}

TEST_F(EventForwarded, GetPassesTheCallersValuesAndTakesTheAnswer) {
  mu_event_cfg_t cfg = {11, 12, 13};
  EXPECT_EQ(mu_event_get(5, 3, &cfg), 0);
  expect_handled(
      5, {.op = 4, .type = 3, .reserved = 0, .suprs_en = 11, .threshold = 12, .period = 13, .count = 0, .clear = 0});
  EXPECT_EQ(cfg.suprs_en * 10000 + cfg.threshold * 100 + cfg.period, 111213u) << "no answer leaves them";
  g_answers = true;
  g_answer = {.op = 0, .type = 0, .reserved = 0, .suprs_en = 2, .threshold = 3, .period = 4, .count = 5, .clear = 6};
  EXPECT_EQ(mu_event_get(5, 3, &cfg), 0);
  EXPECT_EQ(cfg.suprs_en * 100 + cfg.threshold * 10 + cfg.period, 234u);
  EXPECT_EQ(g_lock_tried, EBUSY);
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventForwarded, DumpBecomesAMessageWithoutTheLock) {
  Console console;
  mu_event_dump();
  expect_handled(
      0, {.op = 5, .type = 0, .reserved = 0, .suprs_en = 0, .threshold = 0, .period = 0, .count = 0, .clear = 0});
  EXPECT_EQ(g_lock_tried, 0);
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventForwarded, NegativeTypesGoToTheHandler) {
  mu_event_cfg_t cfg = {};
  EXPECT_EQ(mu_event_set(0, -7, &cfg), 0);
  EXPECT_EQ(g_handled.at(0).msg.type, 4294967289u);
  EXPECT_EQ(mu_event_get(0, INT32_MIN, &cfg), 0);
  EXPECT_EQ(g_handled.at(1).msg.type, 0x80000000u);
}

TEST_F(EventForwarded, WhatIsRefusedIsNotForwarded) {
  mu_event_cfg_t cfg = {};
  uint32_t count = 7;
  EXPECT_EQ(mu_event_counter_get(0, kTypes, &count, 0), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, kTypes), -1);
  EXPECT_EQ(mu_event_set(0, kTypes, &cfg), -1);
  EXPECT_EQ(mu_event_set(0, 0, nullptr), -1);
  EXPECT_EQ(mu_event_get(0, kTypes, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, nullptr), -1);
  EXPECT_TRUE(g_handled.empty());
}

TEST_F(EventForwarded, SubscribersAndSendingStayLocal) {
  EXPECT_EQ(mu_event_register(0, 2, subscriber<'a'>), 0);
  EXPECT_EQ(mu_event_send(0, 2, nullptr, 0), 0);
  EXPECT_EQ(take_calls(), "a");
  EXPECT_EQ(event(2).count, 103u);
  EXPECT_TRUE(g_handled.empty());
}

// ---- Messages applied to the registry ------------------------------------------------------------------------------

TEST_F(EventMessage, OfNothingOrAnUnknownOperationIsRefused) {
  EXPECT_EQ(event_cfg_set(0, nullptr), -1);
  for (uint32_t op : {6u, 0x80000000u, UINT32_MAX}) {
    mu_event_msg_t msg = {};
    msg.op = op;
    const mu_event_msg_t before = msg;
    EXPECT_EQ(event_cfg_set(0, &msg), -1) << op;
    EXPECT_EQ(memcmp(&msg, &before, sizeof msg), 0);
  }
  EXPECT_TRUE(is_unchanged());
}

TEST_F(EventMessage, CounterGetFillsTheCountAndReturnsMinusOne) {
  mu_event_msg_t msg = {
      .op = 0, .type = 3, .reserved = 1, .suprs_en = 2, .threshold = 3, .period = 4, .count = 5, .clear = 0};
  mu_event_msg_t expected = msg;
  expected.count = 103;
  EXPECT_EQ(event_cfg_set(0, &msg), -1);
  EXPECT_EQ(memcmp(&msg, &expected, sizeof msg), 0);
  EXPECT_EQ(event(3).count, 103u);
  msg.clear = 1;
  EXPECT_EQ(event_cfg_set(0, &msg), -1);
  EXPECT_EQ(msg.count, 103u);
  EXPECT_EQ(event(3).count, 0u);
}

TEST_F(EventMessage, CounterClears) {
  mu_event_msg_t msg = {};
  msg.op = 1;
  msg.type = 3;
  EXPECT_EQ(event_cfg_set(0, &msg), 0);
  EXPECT_EQ(event(3).count + event(3).suprs_cnt, 0u);
  EXPECT_TRUE(is_unchanged(3));
  msg.type = kTypes;
  EXPECT_EQ(event_cfg_set(0, &msg), -1);
  msg.op = 2;
  EXPECT_EQ(event_cfg_set(0, &msg), 0);
  EXPECT_EQ(event(5).count + event(5).suprs_cnt, 0u);
}

TEST_F(EventMessage, SetsAndGetsTheConfiguration) {
  mu_event_msg_t msg = {
      .op = 3, .type = 3, .reserved = 1, .suprs_en = 9, .threshold = 8, .period = 75, .count = 5, .clear = 6};
  mu_event_msg_t expected = msg;
  EXPECT_EQ(event_cfg_set(0, &msg), 0);
  EXPECT_EQ(memcmp(&msg, &expected, sizeof msg), 0);
  EXPECT_EQ(event(3).suprs_en, 1u);
  EXPECT_EQ(event(3).threshold, 8u);
  EXPECT_EQ(event(3).period, 7u);
  msg.op = expected.op = 4;
  msg.threshold = 99;
  expected.suprs_en = 1;
  expected.period = 70;
  EXPECT_EQ(event_cfg_set(0, &msg), 0);
  EXPECT_EQ(memcmp(&msg, &expected, sizeof msg), 0);
  for (uint32_t op : {3u, 4u}) {
    msg.op = expected.op = op;
    msg.type = expected.type = kTypes;
    EXPECT_EQ(event_cfg_set(0, &msg), -1);
    EXPECT_EQ(memcmp(&msg, &expected, sizeof msg), 0);
  }
}

TEST_F(EventMessage, DumpPrintsTheTable) {
  Console console;
  mu_event_dump();
  const std::string table = console.take();
  mu_event_msg_t msg = {};
  msg.op = 5;
  msg.type = 99;
  EXPECT_EQ(event_cfg_set(7, &msg), 0);
  EXPECT_EQ(console.take(), table);
}

TEST_F(EventForwarded, MessagesAreForwardedAgain) {
  mu_event_msg_t msg = {};
  msg.op = 1;
  msg.type = 3;
  EXPECT_EQ(event_cfg_set(0x1234, &msg), 0);
  expect_handled(0x1234, msg);
}
