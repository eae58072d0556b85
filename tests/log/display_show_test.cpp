// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_show: prints and clears the system ring.

#include <climits>
#include <memory>

#include "log/fixture.h"

using namespace tarn_test;

namespace {

class LogShow : public InitedLog {
 protected:
  VirtualClock clock;
};

// VirtualClock::kStart as a record shows it.
constexpr const char *kStartShown = "[01/02-03:04:05]";

// What mup_log_show prints for the messages of log_numbers of module 0.
std::string shown_numbers(int first, int last) {
  std::string lines;
  for (int i = first; i < last; i++) {
    lines += std::string(kStartShown) + "-[Error]m0: N " + std::to_string(i) + "\r\n";
  }
  return lines;
}

std::string shown() {
  Console console;
  EXPECT_EQ(mup_log_show(0, 0), 0);
  return console.take();
}

}  // namespace

TEST_F(LogShow, PrintsEachRecordAsItsDisplayText) {
  EXPECT_EQ(shown(), "");
  mup_log_msg(0, 0, MUP_LOG_ALERT, MUP_LOG_NOPRINT, "first");
  clock.set_wall(1709251199);  // 2024-02-29 23:59:59 UTC
  ASSERT_EQ(mup_log_level_set(0, "m15", MUP_LOG_SET_PRINT, 0), 0);
  mup_log_msg(0, 15, MUP_LOG_ERROR, 77, "second");
  EXPECT_EQ(shown(), "[01/02-03:04:05]-[Alert]m0: first\r\n[02/29-23:59:59]-[Error 77]m15: second\r\n");
}

TEST_F(LogShow, PrintsTheLongestRecordWhole) {
  memcpy(ctrl->modules[0].name, "fifteen letters", MUP_LOG_NAME_SIZE);
  ctrl->modules[0].print_level = 0;
  const std::string text(255, 'x');
  mup_log_msg(0, 0, MUP_LOG_EMERGENCY, INT32_MIN, "%s", text.c_str());
  EXPECT_EQ(shown(), std::string(kStartShown) + "-[Emergency -2147483648]fifteen letters: " + text + "\r\n");
}

TEST_F(LogShow, PrintsOldestFirstAfterEveryWrap) {
  int logged = 0;
  for (const int count : {1, 1023, 1024, 1025, 1500, 2048, 2049}) {
    SCOPED_TRACE(count);
    log_numbers(0, logged, count);
    logged = count;
    EXPECT_EQ(shown(), shown_numbers(count < 1024 ? 0 : count - 1024, count));
  }
}

TEST_F(LogShow, StartsAtTheWriteSlotAndSkipsEmptySlots) {
  ctrl->sys_idx = 1000;
  log_numbers(0, 0, 30);  // slots 1000 to 1023, then 0 to 5
  EXPECT_EQ(ctrl->sys_idx, 6u);
  EXPECT_EQ(shown(), shown_numbers(0, 30));
  ctrl->sys_ring[1023].text[0] = '\0';
  EXPECT_EQ(shown(), shown_numbers(0, 23) + shown_numbers(24, 30));
  ctrl->sys_idx = 1001;  // the walk begins and ends within the messages
  EXPECT_EQ(shown(), shown_numbers(1, 23) + shown_numbers(24, 30) + shown_numbers(0, 1));
}

TEST_F(LogShow, AnEmptyMessageTakesASlotAndIsNotShown) {
  log_numbers(0, 0, 1);
  ctrl->dirty = 0;
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%s", "");
  EXPECT_EQ(ctrl->sys_idx, 2u);
  EXPECT_EQ(ctrl->dirty, 1);
  log_numbers(0, 1, 2);
  EXPECT_EQ(shown(), shown_numbers(0, 2));
}

TEST_F(LogShow, NeverShowsTheUserRing) {
  log_numbers(16, 0, 600);
  EXPECT_EQ(shown(), "");
  EXPECT_NE(ctrl->usr_ring[0].text[0], '\0');
}

TEST_F(LogShow, ShowingChangesNothing) {
  log_numbers(0, 0, 1030);
  log_numbers(16, 0, 5);
  ctrl->dirty = 0;
  const auto before = std::make_unique<mup_log_ctrl>(*ctrl);
  shown();
  EXPECT_EQ(memcmp(ctrl, before.get(), sizeof *before), 0);
}

TEST_F(LogShow, ClearingEmptiesTheTextsAndRestartsTheSystemRing) {
  mup_log_msg(0, 3, MUP_LOG_ALERT, MUP_LOG_NOPRINT, "%0300d", 1);
  log_numbers(0, 0, 1030);
  log_numbers(16, 0, 5);
  ctrl->dirty = 0;
  const auto before = std::make_unique<mup_log_ctrl>(*ctrl);
  Console console;
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(ctrl->sys_idx, 0u);
  EXPECT_EQ(ctrl->dirty, 1);
  for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) {
    ASSERT_EQ(std::string(ctrl->sys_ring[i].text, MUP_LOG_TEXT_SIZE), std::string(MUP_LOG_TEXT_SIZE, '\0')) << i;
    // Only the text is zeroed: an empty text makes an empty slot.
    ASSERT_EQ(ctrl->sys_ring[i].level, before->sys_ring[i].level) << i;
    ASSERT_EQ(ctrl->sys_ring[i].time, before->sys_ring[i].time) << i;
  }
  EXPECT_EQ(ctrl->usr_idx, 5u);
  EXPECT_EQ(memcmp(ctrl->usr_ring, before->usr_ring, sizeof ctrl->usr_ring), 0);
  EXPECT_EQ(shown(), "");

  log_numbers(0, 0, 3);
  EXPECT_STREQ(ctrl->sys_ring[0].text, "N 0");
  EXPECT_EQ(shown(), shown_numbers(0, 3));
}

TEST_F(LogShow, EveryNonzeroValueClears) {
  for (const int clear : {1, 2, -1, 256, 65536, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(clear);
    log_numbers(0, 0, 2);
    ctrl->dirty = 0;
    Console console;
    EXPECT_EQ(mup_log_show(0, clear), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_STREQ(ctrl->sys_ring[0].text, "");
    EXPECT_STREQ(ctrl->sys_ring[1].text, "");
    EXPECT_EQ(ctrl->sys_idx, 0u);
    EXPECT_EQ(ctrl->dirty, 1);
  }
}

TEST_F(LogShow, ClearingAnEmptyRingRestartsAndMarksItToo) {
  ctrl->sys_idx = 9;
  ctrl->dirty = 0x82;
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(ctrl->sys_idx, 0u);
  EXPECT_EQ(ctrl->dirty, 0x83);
}
