// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_msg: its checks in their order, the console line, the text's limits, and what is done before the lock.

#include <gmock/gmock.h>

#include <cstring>
#include <cwchar>
#include <string>

#include "support/console.h"
#include "support/libc.h"
#include "tarn/log.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

constexpr const char *kLevelNames[] = {"Off",     "Emergency", "Alert", "Critical", "Error",
                                       "Warning", "Notice",    "Info",  "Debug"};

// The entry point under a type that the compiler does not check formats for: null and empty ones are meant here.
void (*const log_unchecked)(uint64_t, uint8_t, uint8_t, int32_t, const char *, ...) = mup_log_msg;

// Initialises the log with modules "m0", "m1", ...
mup_log_ctrl *start(uint16_t count) {
  std::string table;
  for (unsigned i = 0; i < count; i++) {
    std::string field = "m" + std::to_string(i);
    field.resize(MUP_LOG_NAME_SIZE);
    table += field;
  }
  EXPECT_EQ(mup_log_init(0, count, table.c_str()), 0);
  return mup_log_ctrl_get();
}

// A text whose characters tell their place.
std::string text_of(size_t length) {
  std::string text;
  for (size_t i = 0; i < length; i++) text += static_cast<char>('!' + i % 89);
  return text;
}

bool nothing_stored(const mup_log_ctrl *ctrl) { return ctrl->sys_idx == 0 && ctrl->usr_idx == 0 && ctrl->dirty == 0; }

}  // namespace

TEST(LogMessageContract, BeforeInitNothingHappens) {
  Console console;
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "a");
  mup_log_msg(0, 255, MUP_LOG_ERROR, 0, "a");
  mup_log_msg(0, 0, 255, 0, "a");
  log_unchecked(0, 0, MUP_LOG_ERROR, 0, nullptr);
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(nothing_stored(mup_log_ctrl_get()));
}

TEST(LogMessageContract, ChecksFormatThenModuleThenLevelThenTheSwitch) {
  const mup_log_ctrl *ctrl = start(5);
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
    EXPECT_TRUE(nothing_stored(ctrl));
  }
}

TEST(LogMessageContract, PrintsTheBareTextWithoutALineNumber) {
  start(2);
  Console console;
  mup_log_msg(0, 1, MUP_LOG_ALERT, 0, "%s is %d", "answer", 42);
  EXPECT_EQ(console.take(), "answer is 42\r\n");
}

TEST(LogMessageContract, PrintsModuleLevelAndLineOtherwise) {
  const mup_log_ctrl *ctrl = start(21);
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

TEST(LogMessageContract, TheMarkerKeepsAMessageOffTheConsole) {
  const mup_log_ctrl *ctrl = start(21);
  Console console;
  mup_log_msg(0, 0, MUP_LOG_OFF, 0x4E4F5054, "hidden");
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "hidden too");
  EXPECT_EQ(console.take(), "");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "hidden");
  EXPECT_EQ(ctrl->sys_ring[0].line, 0u);
  EXPECT_STREQ(ctrl->usr_ring[0].text, "hidden too");
  EXPECT_EQ(ctrl->usr_ring[0].line, 0u);
}

TEST(LogMessageContract, CutsTheTextAt511AndTheStoredTextAt255Characters) {
  const mup_log_ctrl *ctrl = start(21);
  uint32_t slot = 0;
  constexpr size_t kLengths[] = {0, 1, 2, 254, 255, 256, 257, 510, 511, 512, 513, 600, 5000};
  for (const size_t length : kLengths) {
    SCOPED_TRACE(length);
    const std::string text = text_of(length);
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

TEST(LogMessageContract, TheFormatIsExpandedOnceOnly) {
  const mup_log_ctrl *ctrl = start(1);
  Console console;
  mup_log_msg(0, 0, MUP_LOG_ERROR, 9, "100%% %s", "%d%s%n%%");
  EXPECT_EQ(console.take(), "[m0-Error: 9]: 100% %d%s%n%%\r\n");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "100% %d%s%n%%");
  EXPECT_EQ(mup_log_show(0, 0), 0);
  EXPECT_THAT(console.take(), testing::EndsWith("]-[Error 9]m0: 100% %d%s%n%%\r\n"));
}

TEST(LogMessageContract, AFormatThatFailsLeavesNoRubbish) {
  const mup_log_ctrl *ctrl = start(1);
  Console console;
  // A character that the C locale has not: formatting fails there, with or without what came before it.
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "ab%lcd", static_cast<wint_t>(0x20AC));
  EXPECT_THAT(console.take(), testing::AnyOf("\r\n", "ab\r\n"));
  EXPECT_THAT(ctrl->sys_ring[0].text, testing::AnyOf(testing::StrEq(""), testing::StrEq("ab")));
}

TEST(LogMessageContract, StoresModuleLevelLineAndTime) {
  const mup_log_ctrl *ctrl = start(200);
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

TEST(LogMessageContract, ReadsTheTimeOnceAndForNoDroppedMessage) {
  start(4);
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

TEST(LogMessageContract, FormatsThenReadsTheTimeThenLocks) {
  const mup_log_ctrl *ctrl = start(1);
  static char argument[] = "before";
  int free_locks = 0;
  Replace<time_t(time_t *)> time(libc::time, [&](time_t *out) {
    strcpy(argument, "after!");  // too late for the message
    if (mu_mutex_trylock(ctrl->mutex) == 0) {
      free_locks++;
      mu_mutex_unlock(ctrl->mutex);
    }
    return libc::time.real(out);
  });
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%s", argument);
  EXPECT_STREQ(argument, "after!");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "before");
  EXPECT_EQ(free_locks, 1);
}

TEST(LogMessageContract, DropsWithoutTakingTheLock) {
  const mup_log_ctrl *ctrl = start(2);
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_ENABLE, 0), 0);
  Console console;
  ASSERT_EQ(mu_mutex_lock(ctrl->mutex), 0);  // not recursive: whoever locks it now hangs
  mup_log_msg(0, 0, MUP_LOG_WARNING, 0, "above both thresholds");
  mup_log_msg(0, 1, MUP_LOG_OFF, 0, "disabled");
  mup_log_msg(0, 2, MUP_LOG_OFF, 0, "no record");
  ASSERT_EQ(mu_mutex_unlock(ctrl->mutex), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(nothing_stored(ctrl));
}

TEST(LogMessageContract, ReleasesTheLockHoweverItEnds) {
  mup_log_ctrl *ctrl = start(2);
  ASSERT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_RECORD, 0), 0);
  Console console;
  for (uint8_t mode = 0; mode <= 2; mode++) {
    for (uint8_t module = 0; module <= 1; module++) {
      SCOPED_TRACE(testing::Message() << int{mode} << ' ' << int{module});
      ctrl->remote_mode = mode;
      mup_log_msg(0, module, MUP_LOG_ERROR, 0, "text");
      EXPECT_EQ(mu_mutex_trylock(ctrl->mutex), 0);
      mu_mutex_unlock(ctrl->mutex);
    }
  }
}

TEST(LogMessageContract, IgnoresTheReservedArgument) {
  start(1);
  Console console;
  mup_log_msg(UINT64_MAX, 0, MUP_LOG_ERROR, 0, "text");
  EXPECT_EQ(console.take(), "text\r\n");
}
