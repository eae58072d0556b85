// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Tables of many sizes: what every function does for module ids inside, just after, and beyond the table.

#include <algorithm>

#include "log/fixture.h"

using namespace tarn_test;

namespace {

int g_hook_calls;

}  // namespace

// Each test has one table; its modules are "m0", "m1", ...
class LogTable : public Log, public testing::WithParamInterface<unsigned> {
 protected:
  LogTable() { init(size_); }

  const unsigned size_ = GetParam();
  const unsigned kept_ = size_ & 0xFF;  // a byte holds this much of the count
};

TEST_P(LogTable, KeepsTheLowByteOfTheCount) {
  EXPECT_EQ(ctrl->module_num, kept_);
  EXPECT_EQ(ctrl->inited, 1);
  ASSERT_NE(ctrl->modules, nullptr);
  for (unsigned i = 0; i < kept_; i++) {
    ASSERT_EQ("m" + std::to_string(i), ctrl->modules[i].name);
    ASSERT_EQ(ctrl->modules[i].record_level, 4);
    ASSERT_EQ(ctrl->modules[i].print_level, 4);
    ASSERT_EQ(ctrl->modules[i].enable, 1);
  }
}

TEST_P(LogTable, LogsForItsIdsDropsTheNextAndReportsTheRest) {
  for (unsigned id = 0; id <= 255; id++) {
    SCOPED_TRACE(id);
    const uint32_t system = ctrl->sys_idx;
    const uint32_t user = ctrl->usr_idx;
    const bool logs = id < kept_;
    Console console;
    mup_log_msg(0, static_cast<uint8_t>(id), MUP_LOG_ERROR, 3, "text");
    if (logs) {
      const mup_log_rec &record = id <= 15 ? ctrl->sys_ring[system] : ctrl->usr_ring[user];
      EXPECT_EQ(record.module, id);
      EXPECT_STREQ(record.text, "text");
      EXPECT_EQ(console.take(), "[m" + std::to_string(id) + "-Error: 3]: text\r\n");
    } else if (id == kept_) {
      EXPECT_EQ(console.take(), "");  // accepted, and dropped
    } else {
      EXPECT_EQ(console.take(), "unknow module id:" + std::to_string(id) + "\r\n");
    }
    EXPECT_EQ(ctrl->sys_idx, system + (logs && id <= 15 ? 1 : 0));
    EXPECT_EQ(ctrl->usr_idx, user + (logs && id > 15 ? 1 : 0));
  }
}

TEST_P(LogTable, FindsItsModulesByNameAndNoOther) {
  Console console;
  for (unsigned i = 0; i <= size_ + 1; i++) {
    SCOPED_TRACE(i);
    const std::string name = "m" + std::to_string(i);
    uint8_t value = 77;
    EXPECT_EQ(mup_log_level_set(0, name.c_str(), MUP_LOG_SET_RECORD, 7), i < kept_ ? 0 : 2);
    EXPECT_EQ(mup_log_level_get(0, name.c_str(), MUP_LOG_SET_RECORD, &value), i < kept_ ? 0 : 2);
    EXPECT_EQ(value, i < kept_ ? 7 : 77);
  }
  uint8_t value = 77;
  EXPECT_EQ(mup_log_level_set(0, "", MUP_LOG_SET_RECORD, 7), 2);  // no name is found after the table
  EXPECT_EQ(mup_log_level_get(0, "", MUP_LOG_SET_RECORD, &value), 2);
  EXPECT_EQ(console.take(), "");
}

TEST_P(LogTable, SwitchesThoseIdsOfTheFixedRangesThatItHas) {
  ctrl->level_hook = [](uint8_t, uint8_t, uint8_t) { g_hook_calls++; };
  Console console;
  EXPECT_EQ(mup_log_set(0), 0);
  EXPECT_EQ(g_hook_calls, static_cast<int>(std::min(kept_, 21u)));
  for (unsigned i = 0; i < kept_; i++) ASSERT_EQ(ctrl->modules[i].enable, i <= 20 ? 0 : 1) << i;

  g_hook_calls = 0;
  EXPECT_EQ(mup_log_usr_set(1), 0);
  EXPECT_EQ(g_hook_calls, kept_ <= 16 ? 0 : static_cast<int>(std::min(kept_, 20u)) - 16);
  for (unsigned i = 0; i < kept_; i++) {
    ASSERT_EQ(ctrl->modules[i].enable, i > 20 || (i >= 16 && i <= 19) ? 1 : 0) << i;
  }
  EXPECT_EQ(console.take(), "");
}

TEST_P(LogTable, TheIdAfterTheTableStaysSilentWhateverIsSwitched) {
  Console console;
  for (const int on : {1, 0, 1}) {
    EXPECT_EQ(mup_log_set(on), 0);
    EXPECT_EQ(mup_log_usr_set(on), 0);
    mup_log_msg(0, static_cast<uint8_t>(kept_), MUP_LOG_OFF, 0, "text");
  }
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(ctrl->sys_idx, 0u);
  EXPECT_EQ(ctrl->usr_idx, 0u);
}

TEST_P(LogTable, ShowsTheNamesOfItsModulesAndNoOther) {
  for (unsigned id = 0; id <= 255; id++) {
    SCOPED_TRACE(id);
    mup_log_rec record = {};
    record.module = static_cast<uint8_t>(id);
    record.level = MUP_LOG_ERROR;
    record.text[0] = 't';
    char text[512];
    mu_log2str(&record, text, sizeof text);
    EXPECT_EQ("[01/01-00:00:00]-[Error]" + (id < kept_ ? "m" + std::to_string(id) : "") + ": t\r\n", text);
  }
}

INSTANTIATE_TEST_SUITE_P(Modules, LogTable, testing::Values(0u, 1u, 15u, 16u, 18u, 20u, 21u, 255u, 256u, 300u),
                         testing::PrintToStringParamName());
