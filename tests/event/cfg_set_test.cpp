// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The application of configuration messages to the registry.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"

using namespace event_test;
using namespace tarn_test;

namespace {

class EventCfgSet : public testing::Test {
 protected:
  EventCfgSet() {
    rec(2).count = 55;
    rec(2).suprs_cnt = 66;
    rec(1).count = 77;
    rec(1).suprs_cnt = 88;
  }

  // Applies a message; EXPECTs that no word of it changes but those that `change` names.
  static int apply(
      mu_event_msg_t msg, const std::function<void(mu_event_msg_t &)> &change = [](mu_event_msg_t &) {}) {
    mu_event_msg_t expected = msg;
    change(expected);
    const int result = event_cfg_set(7, &msg);
    EXPECT_EQ(bytes_of(msg), bytes_of(expected));
    return result;
  }

  Registry registry_{3};
  Console console_;
};

}  // namespace

TEST_F(EventCfgSet, RefusesANullMessage) { EXPECT_EQ(event_cfg_set(0, nullptr), -1); }

TEST_F(EventCfgSet, RefusesAnUnknownOperation) {
  const std::string before = state_bytes();
  for (const uint32_t op : {6u, 7u, 255u, 256u, 0x10000u, 0x7fffffffu, 0x80000000u, UINT32_MAX}) {
    EXPECT_EQ(apply({op, 2, 3, 4, 5, 6, 7, 8}), -1) << op;
  }
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventCfgSet, GetsACounter) {
  EXPECT_EQ(apply({0, 2, 3, 4, 5, 6, 7, 0}, [](mu_event_msg_t &msg) { msg.count = 55; }), -1);
  EXPECT_EQ(rec(2).count, 55u);
  EXPECT_EQ(apply({0, 2, 3, 4, 5, 6, 7, 8}, [](mu_event_msg_t &msg) { msg.count = 55; }), -1);
  EXPECT_EQ(rec(2).count, 0u);
  EXPECT_EQ(rec(2).suprs_cnt, 66u);
  EXPECT_EQ(rec(1).count, 77u);
}

TEST_F(EventCfgSet, SetsTheCountToZeroForATypeOutOfRange) {
  for (const uint32_t type : {3u, UINT32_MAX}) {
    EXPECT_EQ(apply({0, type, 3, 4, 5, 6, 7, 8}, [](mu_event_msg_t &msg) { msg.count = 0; }), -1) << type;
  }
}

TEST_F(EventCfgSet, ClearsACounter) {
  EXPECT_EQ(apply({1, 2, 3, 4, 5, 6, 7, 8}), 0);
  EXPECT_EQ(rec(2).count, 0u);
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
  EXPECT_EQ(rec(1).count, 77u) << "of another type";
  EXPECT_EQ(rec(1).suprs_cnt, 88u);
  EXPECT_EQ(apply({1, 3, 3, 4, 5, 6, 7, 8}), -1);
}

TEST_F(EventCfgSet, ClearsAllCounters) {
  EXPECT_EQ(apply({2, 99, 3, 4, 5, 6, 7, 8}), 0) << "the type has no meaning";
  for (const int type : {1, 2}) {
    EXPECT_EQ(rec(type).count, 0u) << type;
    EXPECT_EQ(rec(type).suprs_cnt, 0u) << type;
  }
}

TEST_F(EventCfgSet, SetsAConfiguration) {
  EXPECT_EQ(apply({3, 2, 3, 4, 5, 75, 7, 8}), 0);
  EXPECT_EQ(rec(2).suprs_en, 1);
  EXPECT_EQ(rec(2).threshold, 5u);
  EXPECT_EQ(rec(2).period, 7u) << "in units of 10 ms";
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
  EXPECT_EQ(apply({3, 3, 3, 4, 5, 60, 7, 8}), -1);
}

TEST_F(EventCfgSet, GetsAConfiguration) {
  configure(2, 1, 77, 25);
  EXPECT_EQ(apply({4, 2, 3, 4, 5, 6, 7, 8},
                  [](mu_event_msg_t &msg) {
                    msg.suprs_en = 1;
                    msg.threshold = 77;
                    msg.period = 20;
                  }),
            0);
  EXPECT_EQ(apply({4, 3, 3, 4, 5, 6, 7, 8}), -1);
}

TEST_F(EventCfgSet, Dumps) {
  EXPECT_EQ(apply({5, 99, 3, 4, 5, 6, 7, 8}), 0);
  const std::string text = console_.take();
  mu_event_dump();
  EXPECT_EQ(text, console_.take());
  EXPECT_EQ(text.substr(0, 64), std::string(63, '=') + '\n');
}

TEST_F(EventCfgSet, TakesNegativeTypesAsSetAndGetDo) {
  const RecordsBeforeTheTable records(2);
  EXPECT_EQ(apply({3, UINT32_MAX, 3, 4, 5, 60, 7, 8}), 0);
  EXPECT_EQ(rec(-1).threshold, 5u);
  EXPECT_EQ(apply({4, UINT32_MAX, 3, 0, 0, 0, 7, 8},
                  [](mu_event_msg_t &msg) {
                    msg.suprs_en = 1;
                    msg.threshold = 5;
                    msg.period = 60;
                  }),
            0);
  EXPECT_EQ(apply({1, UINT32_MAX, 3, 0, 0, 0, 7, 8}), -1);
}

TEST(EventCfgSetForwarding, PassesTheDeviceAndTheHandlersAnswer) {
  static std::vector<std::string> seen;
  const Registry registry(3, nullptr, [](uint16_t device_id, mu_event_msg_t *msg) {
    seen.push_back(line("device %u op %u", device_id, msg->op));
    msg->count = 99;
    return -1;
  });
  for (uint32_t op = 0; op < 6; op++) {
    mu_event_msg_t msg = {op, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(event_cfg_set(0xfedc, &msg), 0) << op;
    EXPECT_EQ(msg.count, op == 0 ? 99u : 7u) << op;
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"device 65244 op 0", "device 65244 op 1", "device 65244 op 2",
                                            "device 65244 op 3", "device 65244 op 4", "device 0 op 5"}));
}

TEST(EventCfgSetUninitialised, ReturnsWhatTheOperationsDo) {
  Console console;
  for (uint32_t op = 0; op < 6; op++) {
    mu_event_msg_t msg = {op, 0, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(event_cfg_set(0, &msg), op == 2 || op == 5 ? 0 : -1) << op;
    EXPECT_EQ(msg.count, op == 0 ? 0u : 7u) << op;
  }
}
