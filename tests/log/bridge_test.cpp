// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel bridge, fed with reads by the test, and the message to the kernel's log device.

#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <deque>

#include "store_files.h"
#include "support/libc.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

// Runs the bridge on reads of the test's; each round of it is one read. Messages of modules "m0" to "m20" are recorded
// whatever their level.
class LogBridge : public LogStoreTest {
 protected:
  using Strings = std::vector<std::string>;

  LogBridge() {
    write_file(kmsg(), "");
    EXPECT_EQ(mup_log_init(0, 21, module_table(21).c_str()), 0);  // without saves, which would change the texts
    record_all();
  }

  std::string kmsg() const { return overlay("../proc/kmsg"); }

  // Starts the bridge, which finds nothing in its first round.
  void run_bridge() {
    sem_t started;
    sem_init(&started, 0, 0);
    pthread_t thread;
    ASSERT_EQ(mu_thread_create(&thread, "klog", log_msg_process, &started, 0, 0, 0), 0);
    sem_wait(&started);
    clock_.settle();
    sem_destroy(&started);
  }

  // One round of the bridge for each piece.
  void feed(const Strings &pieces) {
    for (const std::string &piece : pieces) {
      reads_.push_back(piece);
      clock_.run_ms(100);
    }
  }

  // The messages so far: module, level and text.
  Strings logged() const {
    Strings found;
    for (const mup_log_rec &record : control().sys_ring) {
      if (record.text[0] == '\0') continue;
      EXPECT_EQ(record.line, 0u);
      found.push_back(std::to_string(record.module) + ' ' + std::to_string(record.level) + ' ' + record.text);
    }
    return found;
  }

  Console console_;

 private:
  std::deque<std::string> reads_;
  Replace<ssize_t(int, void *, size_t)> read_{libc::read, [this](int, void *data, size_t size) -> ssize_t {
                                                EXPECT_EQ(size, 512u);
                                                if (reads_.empty()) return 0;
                                                const std::string piece = reads_.front();
                                                reads_.pop_front();
                                                if (piece == kFailure) {
                                                  errno = EINTR;
                                                  return -1;
                                                }
                                                EXPECT_LE(piece.size(), size);
                                                memcpy(data, piece.data(), piece.size());
                                                return static_cast<ssize_t>(piece.size());
                                              }};

 protected:
  static constexpr const char *kFailure = "(the read fails)";
};

}  // namespace

TEST_F(LogBridge, LogsAFrameUnderItsModuleAndLevel) {
  run_bridge();
  control().modules[5].print_level = MUP_LOG_DEBUG;
  feed({"xx<jxlog-05:6:link up<jxlog>yy"});
  EXPECT_EQ(logged(), Strings{"5 6 link up\n"});
  EXPECT_EQ(console_.take(), "");
}

TEST_F(LogBridge, LogsFramesHoweverTheReadsSplitThem) {
  run_bridge();
  const std::string stream =
      "<6>[1.0] text <jxlog-05:6:one<jxlog><jxlog-06:7:two<jxlog>\n<4>more<jxlog-07-8-3<jxlog>end";
  const Strings expected = {"5 6 one\n", "6 7 two\n", "7 8 3\n"};
  Strings all;
  for (size_t split = 0; split <= stream.size(); split++) {
    feed({stream.substr(0, split), stream.substr(split), "........"});  // drops what is held
    all.insert(all.end(), expected.begin(), expected.end());
  }
  EXPECT_EQ(logged(), all);
}

TEST_F(LogBridge, HoldsAFrameUntilAByteStandsBehindIt) {
  run_bridge();
  feed({"<jxlog-05:6:link up<jxlog>"});
  EXPECT_EQ(logged(), Strings());
  feed({"\n"});
  EXPECT_EQ(logged(), Strings{"5 6 link up\n"});
}

TEST_F(LogBridge, TakesNestedStartMarkersForText) {
  run_bridge();
  feed({"<jxlog-05:6:a<jxlog-06:7:b<jxlog>c<jxlog>d"});
  EXPECT_EQ(logged(), Strings{"5 6 a<jxlog-06:7:b\n"});
}

TEST_F(LogBridge, TakesAnyCharacterForADigit) {
  run_bridge();
  feed({"<jxlog-1a:4:x<jxlog><jxlog-00:9:x<jxlog><jxlog-/::0:x<jxlog>........"});
  EXPECT_EQ(logged(), Strings{"0 0 x\n"});  // "/:" is 10 * -1 + 10
  EXPECT_EQ(console_.take(), "unknow module id:59\r\nunknow level id:9\r\n");
}

TEST_F(LogBridge, LogsWhatFollowsAFrameTooShortForAText) {
  run_bridge();
  feed({"<jxlog-05<jxlog>tail"});  // byte 10, the level, is the 'j' of the end marker: 106 - 48
  EXPECT_EQ(console_.take(), "unknow level id:58\r\n");
  feed({"........<jxlog-05:6<jxlog>tail"});  // the text begins behind the end marker's first byte
  EXPECT_EQ(logged(), Strings{"5 6 jxlog>tail\n"});
}

TEST_F(LogBridge, FlushesWhatItCannotHold) {
  run_bridge();
  control().modules[3].record_level = MUP_LOG_INFO;
  const std::string frame = "<jxlog-05:6:" + std::string(500, 'x');
  ASSERT_EQ(frame.size(), 512u);
  feed({frame});
  EXPECT_EQ(logged(), Strings());
  feed({"y"});  // 513 bytes
  EXPECT_EQ(logged(), Strings{"3 7 " + frame.substr(0, 255)});
  feed({"<jxlog>z<jxlog-05:6:ok<jxlog>."});
  EXPECT_EQ(logged().size(), 2u);
}

TEST_F(LogBridge, HoldsAsMuchAsTwoReadsGive) {
  run_bridge();
  feed({"<jxlog-05:6:" + std::string(500, 'x'), std::string(504, 'y') + "<jxlog>."});
  ASSERT_EQ(logged().size(), 1u);
  EXPECT_EQ(logged()[0], "5 6 " + std::string(255, 'x'));
  feed({"<jxlog-05:6:" + std::string(500, 'x'), std::string(512, 'y')});
  ASSERT_EQ(logged().size(), 2u);
  EXPECT_EQ(logged()[1].substr(0, 4), "3 7 ");
}

TEST_F(LogBridge, DropsTextOutsideFrames) {
  run_bridge();
  feed({std::string(512, 'x'), std::string(512, '<'), std::string(512, 'z')});
  EXPECT_EQ(logged(), Strings());
}

TEST_F(LogBridge, TakesAFailedReadForAnEmptyOne) {
  run_bridge();
  feed({"<jxlog-05:6:link", kFailure, "", " up<jxlog>."});
  EXPECT_EQ(logged(), Strings{"5 6 link up\n"});
}

TEST_F(LogBridge, ReadsEvery100Ms) {
  run_bridge();
  feed({"<jxlog-05:6:a<jxlog>."});
  clock_.run_ms(90);
  EXPECT_EQ(logged().size(), 1u);
}

TEST_F(LogBridge, LeavesTheKernelToItsOwnDaemon) {
  write_file(overlay("klogd"), "");
  Replace no_open(libc::open, [](const char *path, int, mode_t) -> int {
    ADD_FAILURE() << path;
    return -1;
  });
  sem_t started;
  sem_init(&started, 0, 0);
  EXPECT_EQ(log_msg_process(&started), nullptr);
  EXPECT_EQ(sem_trywait(&started), 0);
  EXPECT_EQ(console_.take(), "Klogd enable!!\n");
}

TEST_F(LogBridge, EndsWithoutAStream) {
  Replace no_open(libc::open, [](const char *path, int flags, mode_t) -> int {
    EXPECT_STREQ(path, "/proc/kmsg");
    EXPECT_EQ(flags & O_ACCMODE, O_RDONLY);
    errno = EPERM;
    return -1;
  });
  EXPECT_EQ(log_msg_process(nullptr), nullptr);
  EXPECT_EQ(console_.take(), "Open kmsg fail! \n");
}

TEST(LogKernelLevel, SendsAMessageToTheDevice) {
  Sandbox sandbox;
  const std::string device = sandbox.root() + "/dev/mulog-ioctl-dev";
  write_file(device, "");
  int opened = -1;
  Replace open(libc::open, [&](const char *path, int flags, mode_t mode) {
    EXPECT_STREQ(path, "/dev/mulog-ioctl-dev");
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    return opened = libc::open.real(path, flags, mode);
  });
  std::vector<std::string> messages;
  Replace ioctl(libc::ioctl, [&](int file, unsigned long request, void *argument) {
    EXPECT_EQ(file, opened);
    EXPECT_EQ(request, 0x4300ul);
    messages.emplace_back(static_cast<const char *>(argument), 256);
    errno = EINVAL;
    return -1;
  });
  Console console;
  mup_log_kern_level_set(2, 1, 7);
  std::string expected(256, '\0');
  const uint16_t command = 3;
  memcpy(&expected[10], &command, sizeof command);
  expected[12] = 2;
  expected[13] = 1;
  expected[14] = 7;
  EXPECT_EQ(messages, std::vector<std::string>{expected});
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(fcntl(opened, F_GETFD), -1);  // closed
}

TEST(LogKernelLevel, TellsOfAMissingDevice) {
  Sandbox sandbox;
  Console console;
  mup_log_kern_level_set(2, 1, 7);
  EXPECT_EQ(console.take(), "Device open failure /dev/mulog-ioctl-dev\n");
}

TEST(LogKernelLevel, HearsOfEachSetting) {
  Sandbox sandbox;
  Console console;
  ASSERT_EQ(mup_log_usr_init(21, module_table(21).c_str()), 0);
  write_file(sandbox.root() + "/dev/mulog-ioctl-dev", "");
  std::vector<std::string> messages;
  Replace ioctl(libc::ioctl, [&](int, unsigned long, void *argument) {
    messages.emplace_back(static_cast<const char *>(argument) + 12, 3);
    return 0;
  });
  EXPECT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_RECORD, 7), 0);
  EXPECT_EQ(mup_log_level_set(0, "m20", MUP_LOG_SET_PRINT, 0), 0);
  EXPECT_EQ(mup_log_level_set(0, "m1", MUP_LOG_SET_RECORD, 9), 2);  // refused, so not told
  EXPECT_EQ(messages, (std::vector<std::string>{{2, 1, 7}, {20, 0, 0}}));
}
