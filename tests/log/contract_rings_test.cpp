// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The two rings: which messages they take, how they wrap, and how mup_log_show prints and clears the system ring.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "support/console.h"
#include "support/virtual_clock.h"
#include "tarn/log.h"

using namespace tarn_test;

namespace {

// VirtualClock::kStart as a record shows it.
constexpr const char *kStartShown = "[01/02-03:04:05]";

// Initialises the log with modules "m0" to "m20".
mup_log_ctrl *start() {
  std::string table;
  for (unsigned i = 0; i < 21; i++) {
    std::string field = "m" + std::to_string(i);
    field.resize(MUP_LOG_NAME_SIZE);
    table += field;
  }
  EXPECT_EQ(mup_log_init(0, 21, table.c_str()), 0);
  return mup_log_ctrl_get();
}

// Logs the messages "N first", ..., "N last - 1" without showing them.
void log_numbers(uint8_t module, int first, int last) {
  for (int i = first; i < last; i++) mup_log_msg(0, module, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "N %d", i);
}

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

TEST(LogRingsContract, ModulesUpTo15AreSystemModulesAndTheOthersUserModules) {
  mup_log_ctrl *ctrl = start();
  uint32_t system = 0;
  uint32_t user = 0;
  for (uint8_t module = 0; module <= 20; module++) {
    SCOPED_TRACE(int{module});
    ctrl->dirty = 0;
    mup_log_msg(0, module, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
    if (module <= 15) {
      EXPECT_EQ(ctrl->sys_ring[system].module, module);
      system++;
      EXPECT_EQ(ctrl->dirty, 1);
    } else {
      EXPECT_EQ(ctrl->usr_ring[user].module, module);
      user++;
      EXPECT_EQ(ctrl->dirty, 2);
    }
    EXPECT_EQ(ctrl->sys_idx, system);
    EXPECT_EQ(ctrl->usr_idx, user);
  }
}

TEST(LogRingsContract, AMessageAddsItsDirtyBitToTheOthers) {
  mup_log_ctrl *ctrl = start();
  ctrl->dirty = 0x80;
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  EXPECT_EQ(ctrl->dirty, 0x82);
  mup_log_msg(0, 15, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  EXPECT_EQ(ctrl->dirty, 0x83);
}

TEST(LogRingsContract, TheSystemRingKeepsTheLast1024Messages) {
  const mup_log_ctrl *ctrl = start();
  for (int count = 1; count <= 2 * 1024 + 3; count++) {
    log_numbers(0, count - 1, count);
    ASSERT_EQ(ctrl->sys_idx, static_cast<uint32_t>(count) % 1024);
    ASSERT_EQ("N " + std::to_string(count - 1), ctrl->sys_ring[(count - 1) % 1024].text);
    // The slot that comes next holds the oldest message, once the ring is full.
    ASSERT_EQ(count < 1024 ? "" : "N " + std::to_string(count - 1024), ctrl->sys_ring[count % 1024].text);
  }
  EXPECT_EQ(ctrl->usr_idx, 0u);
  for (const mup_log_rec &record : ctrl->usr_ring) ASSERT_STREQ(record.text, "");
}

TEST(LogRingsContract, TheUserRingKeepsTheLast512Messages) {
  const mup_log_ctrl *ctrl = start();
  for (int count = 1; count <= 2 * 512 + 3; count++) {
    log_numbers(16, count - 1, count);
    ASSERT_EQ(ctrl->usr_idx, static_cast<uint32_t>(count) % 512);
    ASSERT_EQ("N " + std::to_string(count - 1), ctrl->usr_ring[(count - 1) % 512].text);
    ASSERT_EQ(count < 512 ? "" : "N " + std::to_string(count - 512), ctrl->usr_ring[count % 512].text);
  }
  EXPECT_EQ(ctrl->sys_idx, 0u);
  for (const mup_log_rec &record : ctrl->sys_ring) ASSERT_STREQ(record.text, "");
}

TEST(LogRingsContract, BothRingsWrapSideBySide) {
  const mup_log_ctrl *ctrl = start();
  for (int i = 0; i < 3000; i++) {
    log_numbers(15, i, i + 1);
    log_numbers(20, i, i + 1);
  }
  EXPECT_EQ(ctrl->sys_idx, 3000u % 1024);
  EXPECT_EQ(ctrl->usr_idx, 3000u % 512);
  for (int i = 3000 - 1024; i < 3000; i++) {
    ASSERT_EQ("N " + std::to_string(i), ctrl->sys_ring[i % 1024].text);
    ASSERT_EQ(ctrl->sys_ring[i % 1024].module, 15);
  }
  for (int i = 3000 - 512; i < 3000; i++) {
    ASSERT_EQ("N " + std::to_string(i), ctrl->usr_ring[i % 512].text);
    ASSERT_EQ(ctrl->usr_ring[i % 512].module, 20);
  }
}

TEST(LogRingsContract, AShortTextLeavesNothingOfTheLongOneBeforeIt) {
  mup_log_ctrl *ctrl = start();
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%0300d", 1);
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%0300d", 1);
  ctrl->sys_idx = 0;
  ctrl->usr_idx = 0;
  log_numbers(0, 7, 8);
  log_numbers(16, 7, 8);
  std::string expected = "N 7";
  expected.resize(MUP_LOG_TEXT_SIZE);
  EXPECT_EQ(std::string(ctrl->sys_ring[0].text, MUP_LOG_TEXT_SIZE), expected);
  EXPECT_EQ(std::string(ctrl->usr_ring[0].text, MUP_LOG_TEXT_SIZE), expected);
}

TEST(LogShowContract, BeforeInitDoesNothing) {
  Console console;
  EXPECT_EQ(mup_log_show(0, 0), 0);
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mup_log_ctrl_get()->dirty, 0);
}

TEST(LogShowContract, PrintsEachRecordAsItsDisplayText) {
  VirtualClock clock;
  start();
  EXPECT_EQ(shown(), "");
  mup_log_msg(0, 0, MUP_LOG_ALERT, MUP_LOG_NOPRINT, "first");
  clock.set_wall(1709251199);  // 2024-02-29 23:59:59 UTC
  ASSERT_EQ(mup_log_level_set(0, "m15", MUP_LOG_SET_PRINT, 0), 0);
  mup_log_msg(0, 15, MUP_LOG_ERROR, 77, "second");
  EXPECT_EQ(shown(), "[01/02-03:04:05]-[Alert]m0: first\r\n[02/29-23:59:59]-[Error 77]m15: second\r\n");
}

TEST(LogShowContract, PrintsTheLongestRecordWhole) {
  VirtualClock clock;
  mup_log_ctrl *ctrl = start();
  memcpy(ctrl->modules[0].name, "fifteen letters", MUP_LOG_NAME_SIZE);
  ctrl->modules[0].print_level = 0;
  const std::string text(255, 'x');
  mup_log_msg(0, 0, MUP_LOG_EMERGENCY, INT32_MIN, "%s", text.c_str());
  EXPECT_EQ(shown(), std::string(kStartShown) + "-[Emergency -2147483648]fifteen letters: " + text + "\r\n");
}

TEST(LogShowContract, PrintsOldestFirstAfterEveryWrap) {
  VirtualClock clock;
  start();
  int logged = 0;
  for (const int count : {1, 1023, 1024, 1025, 1500, 2048, 2049}) {
    SCOPED_TRACE(count);
    log_numbers(0, logged, count);
    logged = count;
    EXPECT_EQ(shown(), shown_numbers(count < 1024 ? 0 : count - 1024, count));
  }
}

TEST(LogShowContract, StartsAtTheWriteSlotAndSkipsEmptySlots) {
  VirtualClock clock;
  mup_log_ctrl *ctrl = start();
  ctrl->sys_idx = 1000;
  log_numbers(0, 0, 30);  // slots 1000 to 1023, then 0 to 5
  EXPECT_EQ(ctrl->sys_idx, 6u);
  EXPECT_EQ(shown(), shown_numbers(0, 30));
  ctrl->sys_ring[1023].text[0] = '\0';
  EXPECT_EQ(shown(), shown_numbers(0, 23) + shown_numbers(24, 30));
  ctrl->sys_idx = 1001;  // the walk begins and ends within the messages
  EXPECT_EQ(shown(), shown_numbers(1, 23) + shown_numbers(24, 30) + shown_numbers(0, 1));
}

TEST(LogShowContract, AnEmptyMessageTakesASlotAndIsNotShown) {
  VirtualClock clock;
  mup_log_ctrl *ctrl = start();
  log_numbers(0, 0, 1);
  ctrl->dirty = 0;
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%s", "");
  EXPECT_EQ(ctrl->sys_idx, 2u);
  EXPECT_EQ(ctrl->dirty, 1);
  log_numbers(0, 1, 2);
  EXPECT_EQ(shown(), shown_numbers(0, 2));
}

TEST(LogShowContract, NeverShowsTheUserRing) {
  const mup_log_ctrl *ctrl = start();
  log_numbers(16, 0, 600);
  EXPECT_EQ(shown(), "");
  EXPECT_NE(ctrl->usr_ring[0].text[0], '\0');
}

TEST(LogShowContract, ShowingChangesNothing) {
  mup_log_ctrl *ctrl = start();
  log_numbers(0, 0, 1030);
  log_numbers(16, 0, 5);
  ctrl->dirty = 0;
  const auto before = std::make_unique<mup_log_ctrl>(*ctrl);
  shown();
  EXPECT_EQ(memcmp(ctrl, before.get(), sizeof *before), 0);
}

TEST(LogShowContract, ClearingEmptiesTheTextsAndRestartsTheSystemRing) {
  VirtualClock clock;
  mup_log_ctrl *ctrl = start();
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
    // The text alone is zeroed: it is what makes a slot empty.
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

TEST(LogShowContract, EveryNonzeroValueClears) {
  mup_log_ctrl *ctrl = start();
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

TEST(LogShowContract, ClearingAnEmptyRingRestartsAndMarksItToo) {
  mup_log_ctrl *ctrl = start();
  ctrl->sys_idx = 9;
  ctrl->dirty = 0x82;
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(ctrl->sys_idx, 0u);
  EXPECT_EQ(ctrl->dirty, 0x83);
}

TEST(LogShowContract, IgnoresTheReservedArgument) {
  mup_log_ctrl *ctrl = start();
  log_numbers(0, 0, 1);
  EXPECT_EQ(mup_log_show(UINT64_MAX, 1), 0);
  EXPECT_STREQ(ctrl->sys_ring[0].text, "");
}
