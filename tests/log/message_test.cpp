// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_msg: its checks in their order, the console line, the limits of the text, the steps before the lock, and the
// two rings.

#include <cwchar>

#include "log/fixture.h"

using namespace tarn_test;

namespace {

using LogMsg = InitedLog;

// A text in which neighbours differ.
std::string text_of_length(size_t length) {
  std::string text;
  for (size_t i = 0; i < length; i++) text += static_cast<char>('!' + i % 89);
  return text;
}

bool nothing_is_stored(const mup_log_ctrl &log) { return log.sys_idx == 0 && log.usr_idx == 0 && log.dirty == 0; }

}  // namespace

TEST_F(LogMsg, ChecksFormatThenModuleThenLevelThenTheSwitch) {
  init(5);
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_ENABLE, 0), 0);
  const struct {
    uint8_t module;
    uint8_t level;
    const char *format;
    const char *printed;
  } rows[] = {
      {0, 4, nullptr, ""},
      {6, 4, nullptr, ""},  // a null format is silent whatever else is wrong
      {0, 9, nullptr, ""},
      {6, 4, "a", "unknow module id:6\r\n"},
      {6, 9, "a", "unknow module id:6\r\n"},  // the module first, and only that
      {255, 255, "a", "unknow module id:255\r\n"},
      {128, 0, "a", "unknow module id:128\r\n"},  // unsigned
      {0, 9, "a", "unknow level id:9\r\n"},
      {0, 128, "a", "unknow level id:128\r\n"},
      {0, 255, "a", "unknow level id:255\r\n"},
      {1, 9, "a", "unknow level id:9\r\n"},  // of a disabled module too
      {5, 9, "a", "unknow level id:9\r\n"},  // of the id that equals the number of modules too
      {5, 4, "a", ""},                       // that id passes, and has no record: dropped
      {5, 0, "a", ""},
      {1, 0, "a", ""},  // disabled
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << int{row.module} << ' ' << int{row.level});
    Console console;
    log_unchecked(0, row.module, row.level, 0, row.format);
    EXPECT_EQ(console.take(), row.printed);
    EXPECT_TRUE(nothing_is_stored(*ctrl));
  }
}

TEST_F(LogMsg, AcceptsAndDropsAnIdEqualToTheNumberOfModules) {
  Console console;
  mup_log_msg(0, 21, MUP_LOG_OFF, 1, "x");
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(nothing_is_stored(*ctrl));
}

TEST_F(LogMsg, PrintsTheBareTextWithoutALineNumber) {
  Console console;
  mup_log_msg(0, 1, MUP_LOG_ALERT, 0, "%s is %d", "answer", 42);
  EXPECT_EQ(console.take(), "answer is 42\r\n");
}

TEST_F(LogMsg, PrintsModuleLevelAndLineOtherwise) {
  struct Row {
    int32_t line;
    const char *shown;
  };
  const Row rows[] = {{1, "1"},
                      {731, "731"},
                      {-1, "-1"},
                      {INT32_MAX, "2147483647"},
                      {INT32_MIN, "-2147483648"},
                      {MUP_LOG_NOPRINT - 1, "1313820755"},  // 0x4E4F5054 is 1313820756
                      {MUP_LOG_NOPRINT + 1, "1313820757"}};
  uint32_t slot = 0;
  for (const Row &row : rows) {
    for (unsigned level = 0; level <= 4; level++) {
      SCOPED_TRACE(testing::Message() << row.shown << ' ' << level);
      Console console;
      mup_log_msg(0, 15, static_cast<uint8_t>(level), row.line, "text");
      EXPECT_EQ(console.take(), std::string("[m15-") + kLevelNames[level] + ": " + row.shown + "]: text\r\n");
      EXPECT_EQ(ctrl->sys_ring[slot++].line, static_cast<uint32_t>(row.line));
    }
  }
}

TEST_F(LogMsg, TheMarkerKeepsAMessageOffTheConsole) {
  Console console;
  mup_log_msg(0, 0, MUP_LOG_OFF, 0x4E4F5054, "hidden");
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "hidden too");
  EXPECT_EQ(console.take(), "");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "hidden");
  EXPECT_EQ(ctrl->sys_ring[0].line, 0u);
  EXPECT_STREQ(ctrl->usr_ring[0].text, "hidden too");
  EXPECT_EQ(ctrl->usr_ring[0].line, 0u);
}

TEST_F(LogMsg, CutsTheTextAt511AndTheStoredTextAt255Characters) {
  uint32_t slot = 0;
  constexpr size_t kLengths[] = {0, 1, 2, 254, 255, 256, 257, 510, 511, 512, 513, 600, 5000};
  for (const size_t length : kLengths) {
    SCOPED_TRACE(length);
    const std::string text = text_of_length(length);
    Console console;
    mup_log_msg(0, 3, MUP_LOG_ERROR, 0, "%s", text.c_str());
    EXPECT_EQ(console.take(), text.substr(0, 511) + "\r\n");
    mup_log_msg(0, 3, MUP_LOG_ERROR, 7, "%s", text.c_str());
    EXPECT_EQ(console.take(), "[m3-Error: 7]: " + text.substr(0, 511) + "\r\n");

    for (int i = 0; i < 2; i++) {
      std::string stored = text.substr(0, 255);
      stored.resize(MUP_LOG_TEXT_SIZE);  // zero to the end
      EXPECT_EQ(std::string(ctrl->sys_ring[slot].text, MUP_LOG_TEXT_SIZE), stored);
      slot++;
    }
  }
}

TEST_F(LogMsg, TheFormatIsExpandedOnceOnly) {
  Console console;
  mup_log_msg(0, 0, MUP_LOG_ERROR, 9, "100%% %s", "%d%s%n%%");
  EXPECT_EQ(console.take(), "[m0-Error: 9]: 100% %d%s%n%%\r\n");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "100% %d%s%n%%");
  EXPECT_EQ(mup_log_show(0, 0), 0);
  EXPECT_THAT(console.take(), testing::EndsWith("]-[Error 9]m0: 100% %d%s%n%%\r\n"));
}

TEST_F(LogMsg, AFormatThatFailsLeavesNoRubbish) {
  Console console;
  // The C locale does not have this character: formatting fails there, with or without the text before it.
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "ab%lcd", static_cast<wint_t>(0x20AC));
  EXPECT_THAT(console.take(), testing::AnyOf("\r\n", "ab\r\n"));
  EXPECT_THAT(ctrl->sys_ring[0].text, testing::AnyOf(testing::StrEq(""), testing::StrEq("ab")));
}

TEST_F(LogMsg, StoresModuleLevelLineAndTime) {
  init(200);
  time_t now = 0;
  Replace<time_t(time_t *)> time(libc::time, [&now](time_t *out) {
    if (out != nullptr) *out = now;
    return now;
  });
  Console console;
  uint32_t slot = 0;
  for (const time_t value : {time_t{1}, time_t{1767323045}, time_t{-5}, time_t{1} << 40}) {
    now = value;
    mup_log_msg(0, 7, MUP_LOG_CRITICAL, 31, "s");
    mup_log_msg(0, 199, MUP_LOG_EMERGENCY, 0, "u");
    const mup_log_rec &system = ctrl->sys_ring[slot];
    EXPECT_EQ(system.module, 7);
    EXPECT_EQ(system.level, 3);
    EXPECT_EQ(system.line, 31u);
    EXPECT_EQ(system.time, value);
    const mup_log_rec &user = ctrl->usr_ring[slot];
    EXPECT_EQ(user.module, 199);
    EXPECT_EQ(user.level, 1);
    EXPECT_EQ(user.line, 0u);
    EXPECT_EQ(user.time, value);
    slot++;
  }
}

TEST_F(LogMsg, ReadsTheTimeOnceAndForNoDroppedMessage) {
  init(4);
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_ENABLE, 0), 0);
  ASSERT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_RECORD, 0), 0);
  int reads = 0;
  Replace<time_t(time_t *)> time(libc::time, [&reads](time_t *out) {
    reads++;
    return libc::time.real(out);
  });
  Console console;
  mup_log_msg(0, 0, MUP_LOG_WARNING, 0, "above both thresholds");
  mup_log_msg(0, 1, MUP_LOG_OFF, 0, "disabled");
  mup_log_msg(0, 4, MUP_LOG_OFF, 0, "no record");
  mup_log_msg(0, 5, MUP_LOG_OFF, 0, "no module");
  mup_log_msg(0, 0, 9, 0, "no level");
  EXPECT_EQ(reads, 0);
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "shown and stored");
  EXPECT_EQ(reads, 1);
  mup_log_msg(0, 2, MUP_LOG_ERROR, 0, "shown only");
  EXPECT_EQ(reads, 2);
}

TEST_F(LogMsg, FormatsThenReadsTheTimeThenLocks) {
  static char argument[] = "before";
  int free_locks = 0;
  Replace<time_t(time_t *)> time(libc::time, [&](time_t *out) {
    strcpy(argument, "after!");  // too late for the message
    if (lock_is_free()) free_locks++;
    return libc::time.real(out);
  });
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%s", argument);
  EXPECT_STREQ(argument, "after!");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "before");
  EXPECT_EQ(free_locks, 1);
}

TEST_F(LogMsg, DropsWithoutTakingTheLock) {
  init(2);
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_ENABLE, 0), 0);
  Console console;
  EXPECT_TRUE(ends_under_the_lock([] {
    mup_log_msg(0, 0, MUP_LOG_WARNING, 0, "above both thresholds");
    mup_log_msg(0, 1, MUP_LOG_OFF, 0, "disabled");
    mup_log_msg(0, 2, MUP_LOG_OFF, 0, "no record");
  }));
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(nothing_is_stored(*ctrl));
}

TEST_F(LogMsg, ReleasesTheLockHoweverItEnds) {
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_RECORD, 0), 0);
  Console console;
  for (uint8_t mode = 0; mode <= 2; mode++) {
    for (uint8_t module = 0; module <= 1; module++) {
      SCOPED_TRACE(testing::Message() << int{mode} << ' ' << int{module});
      ctrl->remote_mode = mode;
      mup_log_msg(0, module, MUP_LOG_ERROR, 0, "text");
      EXPECT_TRUE(lock_is_free());
    }
  }
}

// ---- The rings -----------------------------------------------------------------------------------------------------

TEST_F(LogMsg, ModulesUpTo15AreSystemModulesAndTheOthersUserModules) {
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

TEST_F(LogMsg, AMessageAddsItsDirtyBitToTheOthers) {
  ctrl->dirty = 0x80;
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  EXPECT_EQ(ctrl->dirty, 0x82);
  mup_log_msg(0, 15, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  EXPECT_EQ(ctrl->dirty, 0x83);
}

// Fills a ring twice through a module whose messages go there. The other ring stays empty.
template <size_t kSize, size_t kOtherSize>
void expect_latest_are_kept(uint8_t module, const mup_log_rec (&ring)[kSize], const uint32_t &next,
                            const mup_log_rec (&other)[kOtherSize], const uint32_t &other_next) {
  constexpr int kCount = kSize;
  for (int count = 1; count <= 2 * kCount + 3; count++) {
    log_numbers(module, count - 1, count);
    ASSERT_EQ(next, static_cast<uint32_t>(count % kCount));
    ASSERT_EQ("N " + std::to_string(count - 1), ring[(count - 1) % kCount].text);
    // The slot that comes next holds the oldest message, once the ring is full.
    ASSERT_EQ(count < kCount ? "" : "N " + std::to_string(count - kCount), ring[count % kCount].text);
  }
  EXPECT_EQ(other_next, 0u);
  for (const mup_log_rec &record : other) ASSERT_STREQ(record.text, "");
}

TEST_F(LogMsg, TheSystemRingKeepsTheLast1024Messages) {
  static_assert(std::extent_v<decltype(mup_log_ctrl::sys_ring)> == 1024);
  expect_latest_are_kept(0, ctrl->sys_ring, ctrl->sys_idx, ctrl->usr_ring, ctrl->usr_idx);
}

TEST_F(LogMsg, TheUserRingKeepsTheLast512Messages) {
  static_assert(std::extent_v<decltype(mup_log_ctrl::usr_ring)> == 512);
  expect_latest_are_kept(16, ctrl->usr_ring, ctrl->usr_idx, ctrl->sys_ring, ctrl->sys_idx);
}

TEST_F(LogMsg, BothRingsWrapSideBySide) {
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

TEST_F(LogMsg, AShortTextLeavesNothingOfTheLongOneBeforeIt) {
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
