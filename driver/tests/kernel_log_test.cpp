// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The driver's messages in the daemon's log, and the levels that it is sent.

#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/klog.h>
#include <unistd.h>

#include <string>

#include "platform.h"
#include "support/console.h"
#include "tarn/log.h"
#include "tarn/platform.h"

using namespace driver_test;
using tarn_test::Console;

namespace {

constexpr int kSizeUnread = 9;  // of klogctl: the unread size of /proc/kmsg
constexpr int kNames = 21;
constexpr char kModules[kNames][MUP_LOG_NAME_SIZE] = {"main", "config", "uplink", "kernel", "memory", "switch", "m6",
                                                      "m7",   "m8",     "m9",     "m10",    "m11",    "m12",    "m13",
                                                      "m14",  "m15",    "user",   "m17",    "m18",    "m19",    "m20"};

// The log of a daemon with the bridge to the kernel's messages.
void start_log() {
  skip_kernel_messages();
  unlink("/overlay/mu_log.txt");
  unlink("/overlay/user_log.txt");
  ASSERT_EQ(mup_log_usr_init(kNames, kModules[0]), 0);
  for (const auto &module : kModules) mup_log_level_set(0, module, MUP_LOG_SET_RECORD, MUP_LOG_DEBUG);
  sem_t started;
  pthread_t bridge;
  sem_init(&started, 0, 0);
  ASSERT_EQ(mu_thread_create(&bridge, "klog", log_msg_process, &started, 0, 0, 0), 0);
  while (sem_wait(&started) != 0) continue;
}

// The record whose text contains `text`; if there is none, a record with line 99.
mup_log_rec record_with(const std::string &text) {
  mup_log_ctrl *log = mup_log_ctrl_get();
  mup_log_rec found = {};
  found.line = 99;
  mu_mutex_lock(log->mutex);
  for (const mup_log_rec &record : log->sys_ring) {
    if (std::string(record.text).find(text) != std::string::npos) found = record;
  }
  for (const mup_log_rec &record : log->usr_ring) {
    if (std::string(record.text).find(text) != std::string::npos) found = record;
  }
  mu_mutex_unlock(log->mutex);
  return found;
}

bool logs(const std::string &text) {
  return eventually([&] { return record_with(text).line != 99; });
}

// A frame counts as complete only when a byte follows it.
void print_more() { ASSERT_EQ(control("raw a line of another driver"), 0); }

bool kernel_printed(const std::string &text) { return kernel_log().find(text) != std::string::npos; }

}  // namespace

TEST(DriverFrames, ReachTheLogWithTheirModuleAndLevelAndNotTheConsole) {
  Console console;
  start_log();
  console.take();
  ASSERT_EQ(control("kmsg 5 6 port 3 is up"), 0);
  ASSERT_TRUE(logs("port 3 is up"));
  const mup_log_rec record = record_with("port 3 is up");
  EXPECT_STREQ(record.text, "port 3 is up\n");
  EXPECT_EQ(record.module, 5);
  EXPECT_EQ(record.level, MUP_LOG_NOTICE);
  EXPECT_EQ(record.line, 0u);
  EXPECT_EQ(console.take().find("port 3"), std::string::npos);
}

TEST(DriverFrames, OfEachModuleAndLevelArriveAsTheyAre) {
  start_log();
  std::string commands;
  for (int module = 0; module < kNames; module++) {
    for (int level = 1; level <= 8; level++) {
      const std::string pair = std::to_string(module) + ' ' + std::to_string(level);
      commands.append("kmsg ").append(pair).append(" pair ").append(pair).append(".\n");
    }
  }
  ASSERT_EQ(control(commands), 0);
  ASSERT_TRUE(logs("pair 20 8."));
  for (int module = 0; module < kNames; module++) {
    for (int level = 1; level <= 8; level++) {
      const mup_log_rec record = record_with("pair " + std::to_string(module) + ' ' + std::to_string(level) + '.');
      EXPECT_EQ(record.module, module);
      EXPECT_EQ(record.level, level);
    }
  }
}

TEST(DriverFrames, LongerThanAReadArriveWhole) {
  start_log();
  std::string text = "long frame ";
  while (text.size() < 600) text += static_cast<char>('a' + text.size() % 26);
  ASSERT_EQ(control("kmsg 6 7 " + text + "\nkmsg 6 7 after the long frame"), 0);
  ASSERT_TRUE(logs("after the long frame"));
  EXPECT_EQ(record_with(text.substr(0, 255)).text, text.substr(0, 255));  // as much as a record can hold
}

TEST(DriverFrames, SplitOverTwoMessagesArriveAsOneWithWhatStandsBetween) {
  start_log();
  ASSERT_EQ(control("raw <jxlog-07:4:the first half"), 0);
  ASSERT_TRUE(eventually([] { return klogctl(kSizeUnread, nullptr, 0) == 0; }));  // the bridge holds the half
  ASSERT_EQ(control("raw and the second<jxlog>"), 0);
  print_more();
  ASSERT_TRUE(logs("the first half"));
  const mup_log_rec record = record_with("the first half");
  EXPECT_EQ(record.module, 7);
  EXPECT_EQ(record.level, MUP_LOG_ERROR);
  EXPECT_NE(std::string(record.text).find("and the second"), std::string::npos);
}

TEST(DriverFrames, WithoutAnEndAreGivenUpAfter512Bytes) {
  start_log();
  ASSERT_EQ(control("raw <jxlog-07:4:endless " + std::string(700, 'e')), 0);
  ASSERT_TRUE(logs("<jxlog-07:4:endless"));
  const mup_log_rec record = record_with("<jxlog-07:4:endless");
  EXPECT_EQ(record.module, 3);
  EXPECT_EQ(record.level, MUP_LOG_INFO);
  ASSERT_EQ(control("kmsg 5 6 the bridge goes on"), 0);
  print_more();
  EXPECT_TRUE(logs("the bridge goes on"));
}

TEST(DriverFrames, OfUnknownModulesAreDroppedAndTheNextOnesArrive) {
  start_log();
  ASSERT_EQ(control("kmsg 21 6 no such module\nraw <jxlog-1a:6:module 59<jxlog>\nkmsg 5 6 a known one"), 0);
  ASSERT_TRUE(logs("a known one"));
  EXPECT_EQ(record_with("no such module").line, 99u);
  EXPECT_EQ(record_with("module 59").line, 99u);
}

TEST(DriverLevels, OfTheDaemonSilenceTheDriver) {
  start_log();
  ASSERT_EQ(control("kmsg 5 6 before the change"), 0);
  EXPECT_TRUE(kernel_printed("before the change"));
  ASSERT_EQ(mup_log_level_set(0, "switch", MUP_LOG_SET_RECORD, MUP_LOG_ERROR), 0);
  EXPECT_EQ(status_line("log 5:"), "log 5: print 8 record 4 enable 1");
  ASSERT_EQ(control("kmsg 5 5 a warning\nkmsg 5 4 an error\nkmsg 6 5 a warning of another"), 0);
  EXPECT_FALSE(kernel_printed("<jxlog-05:5:a warning"));
  EXPECT_TRUE(kernel_printed("<jxlog-05:4:an error"));
  EXPECT_TRUE(kernel_printed("<jxlog-06:5:a warning of another"));
  ASSERT_EQ(mup_log_level_set(0, "switch", MUP_LOG_SET_RECORD, MUP_LOG_NOTICE), 0);
  ASSERT_EQ(control("kmsg 5 6 a notice again"), 0);
  EXPECT_TRUE(kernel_printed("<jxlog-05:6:a notice again"));
}

TEST(DriverLevels, DisableAModuleOfTheDriver) {
  start_log();
  ASSERT_EQ(mup_log_level_set(0, "memory", MUP_LOG_SET_ENABLE, 0), 0);
  EXPECT_EQ(status_line("log 4:"), "log 4: print 8 record 8 enable 0");
  ASSERT_EQ(control("kmsg 4 1 nobody hears this"), 0);
  EXPECT_FALSE(kernel_printed("nobody hears this"));
  ASSERT_EQ(mup_log_level_set(0, "memory", MUP_LOG_SET_ENABLE, 1), 0);
  ASSERT_EQ(control("kmsg 4 1 heard again"), 0);
  EXPECT_TRUE(kernel_printed("heard again"));
}

TEST(DriverLevels, OfPrintingReachTheDriverAndDoNotSilenceIt) {
  start_log();
  ASSERT_EQ(mup_log_level_set(0, "m9", MUP_LOG_SET_PRINT, MUP_LOG_OFF), 0);
  EXPECT_EQ(status_line("log 9:"), "log 9: print 0 record 8 enable 1");
  ASSERT_EQ(control("kmsg 9 8 recorded, not shown"), 0);
  EXPECT_TRUE(kernel_printed("recorded, not shown"));
}
