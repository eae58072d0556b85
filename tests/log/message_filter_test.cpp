// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The messages that a module lets through: every pair of thresholds with every level, and every value of the flag.

#include "log/fixture.h"

using namespace tarn_test;

namespace {

struct Seen {
  std::string printed;
  uint32_t stored;  // records that the ring took
  bool dirty;
  int sent;
};

// Logs `text` without a line number.
Seen log_one(mup_log_ctrl *ctrl, uint8_t module, uint8_t level, const char *text) {
  int sent = 0;
  Replace<SendTo> sendto(libc::sendto, [&sent](int, const void *, size_t size, int, const sockaddr *, socklen_t) {
    sent++;
    return static_cast<ssize_t>(size);
  });
  ctrl->dirty = 0;
  const uint32_t &index = module <= 15 ? ctrl->sys_idx : ctrl->usr_idx;
  const uint32_t size = module <= 15 ? MUP_LOG_SYS_NUM : MUP_LOG_USR_NUM;
  const uint32_t before = index;
  Console console;
  mup_log_msg(0, module, level, 0, "%s", text);
  return {console.take(), (index + size - before) % size, ctrl->dirty != 0, sent};
}

class LogFilter : public InitedLog {
 protected:
  // All pairs of thresholds with all levels, on one module.
  void check_all_thresholds(uint8_t module, uint8_t remote_mode) const {
    ctrl->remote_mode = remote_mode;
    const std::string name = "m" + std::to_string(module);
    for (uint8_t print = 0; print <= 8; print++) {
      for (uint8_t record = 0; record <= 8; record++) {
        ASSERT_EQ(mup_log_level_set(0, name.c_str(), MUP_LOG_SET_PRINT, print), 0);
        ASSERT_EQ(mup_log_level_set(0, name.c_str(), MUP_LOG_SET_RECORD, record), 0);
        for (uint8_t level = 0; level <= 8; level++) {
          SCOPED_TRACE(testing::Message()
                       << "print " << int{print} << " record " << int{record} << " level " << int{level});
          const Seen seen = log_one(ctrl, module, level, "text");
          const bool kept = level <= record;
          const bool stored = kept && remote_mode != MUP_LOG_REMOTE_ONLY;
          EXPECT_EQ(seen.printed, level <= print ? "text\r\n" : "");
          EXPECT_EQ(seen.stored, stored ? 1u : 0u);
          EXPECT_EQ(seen.dirty, stored);
          EXPECT_EQ(seen.sent, kept && remote_mode != MUP_LOG_REMOTE_OFF ? 1 : 0);
        }
      }
    }
  }
};

}  // namespace

TEST_F(LogFilter, EveryThresholdLetsItsLevelsThroughToTheSystemRing) { check_all_thresholds(15, MUP_LOG_REMOTE_OFF); }

TEST_F(LogFilter, EveryThresholdLetsItsLevelsThroughToTheUserRing) { check_all_thresholds(16, MUP_LOG_REMOTE_OFF); }

TEST_F(LogFilter, OnlyTheRecordThresholdRulesForwarding) { check_all_thresholds(15, MUP_LOG_REMOTE_ONLY); }

TEST_F(LogFilter, OnlyTheRecordThresholdRulesForwardingAndStoring) {
  check_all_thresholds(16, MUP_LOG_REMOTE_AND_STORE);
}

TEST_F(LogFilter, TheMarkerTakesAMessageOffTheConsoleAtEveryThreshold) {
  for (uint8_t print = 0; print <= 8; print++) {
    for (uint8_t record = 0; record <= 8; record++) {
      ASSERT_EQ(mup_log_level_set(0, "m3", MUP_LOG_SET_PRINT, print), 0);
      ASSERT_EQ(mup_log_level_set(0, "m3", MUP_LOG_SET_RECORD, record), 0);
      for (uint8_t level = 0; level <= 8; level++) {
        SCOPED_TRACE(testing::Message() << "print " << int{print} << " record " << int{record} << " level "
                                        << int{level});
        const uint32_t before = ctrl->sys_idx;
        Console console;
        mup_log_msg(0, 3, level, MUP_LOG_NOPRINT, "text");
        EXPECT_EQ(console.take(), "");
        EXPECT_EQ(ctrl->sys_idx, level <= record ? (before + 1) % MUP_LOG_SYS_NUM : before);
      }
    }
  }
}

TEST_F(LogFilter, OnlyTheValueOneEnablesAModule) {
  for (unsigned value = 0; value <= 255; value++) {
    SCOPED_TRACE(value);
    ctrl->modules[2].enable = static_cast<uint8_t>(value);
    const Seen seen = log_one(ctrl, 2, MUP_LOG_OFF, "text");
    EXPECT_EQ(seen.printed, value == 1 ? "text\r\n" : "");
    EXPECT_EQ(seen.stored, value == 1 ? 1u : 0u);
  }
}

TEST_F(LogFilter, AModulesSettingsTouchNoOtherModule) {
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_ENABLE, 0), 0);
  ASSERT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_PRINT, 8), 0);
  ASSERT_EQ(mup_log_level_set(0, "m3", MUP_LOG_SET_RECORD, 8), 0);
  const struct {
    uint8_t module;
    uint8_t level;
    const char *printed;
    uint32_t stored;
  } rows[] = {
      {0, 4, "text\r\n", 1}, {0, 5, "", 0}, {1, 4, "", 0},         {2, 8, "text\r\n", 0},
      {3, 8, "", 1},         {4, 5, "", 0}, {4, 4, "text\r\n", 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << int{row.module} << ' ' << int{row.level});
    const Seen seen = log_one(ctrl, row.module, row.level, "text");
    EXPECT_EQ(seen.printed, row.printed);
    EXPECT_EQ(seen.stored, row.stored);
  }
}
