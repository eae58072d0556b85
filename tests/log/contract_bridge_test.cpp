// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// How the kernel bridge starts, and what it makes of frames and of the text between them.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "contract_bridge.h"

using namespace tarn_test;

// ---- Start ---------------------------------------------------------------------------------------------------------

TEST(LogBridgeContract, PostsItsSemaphoreAndReadsTheStream) {
  Bridge bridge;  // waits for the semaphore
  ASSERT_EQ(bridge.open_flags.size(), 1u);
  EXPECT_EQ(bridge.open_flags[0] & O_ACCMODE, O_RDONLY);
  EXPECT_EQ(bridge.open_flags[0] & (O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK), 0);
  EXPECT_EQ(bridge.asked, std::vector<size_t>{512});
}

TEST(LogBridgeContract, LeavesTheMessagesToTheSystemsOwnDaemon) {
  for (const bool folder : {false, true}) {
    const Sandbox sandbox;
    Store::write(sandbox.root() + "/proc/kmsg", frame("05:6:", "text") + "x");
    const std::string mark = sandbox.root() + "/overlay/klogd";
    if (folder) {
      ASSERT_EQ(mkdir(mark.c_str(), 0700), 0);
    } else {
      Store::write(mark, "");
    }
    int opened = 0;
    Replace<int(const char *, int, mode_t)> open(libc::open, [&](const char *path, int flags, mode_t mode) {
      opened++;
      return libc::open.real(path, flags, mode);
    });
    sem_t started;
    sem_init(&started, 0, 0);
    Console console;
    EXPECT_EQ(log_msg_process(&started), nullptr);
    EXPECT_EQ(console.take(), "Klogd enable!!\n");
    EXPECT_EQ(sem_trywait(&started), 0);
    EXPECT_EQ(sem_trywait(&started), -1);  // posted once
    EXPECT_EQ(opened, 0);
    sem_destroy(&started);
  }
}

TEST(LogBridgeContract, EndsWithoutAStream) {
  const Sandbox sandbox;
  sem_t started;
  sem_init(&started, 0, 0);
  Console console;
  EXPECT_EQ(log_msg_process(&started), nullptr);
  EXPECT_EQ(console.take(), "Open kmsg fail! \n");
  EXPECT_EQ(sem_trywait(&started), 0);
  EXPECT_EQ(sem_trywait(&started), -1);
  sem_destroy(&started);
  EXPECT_EQ(log_msg_process(nullptr), nullptr);
  EXPECT_EQ(console.take(), "Open kmsg fail! \n");
}

TEST(LogBridgeContract, PostsBeforeItLooksForAnything) {
  const Sandbox sandbox;
  sem_t started;
  sem_init(&started, 0, 0);
  std::vector<std::string> looked;
  Replace<int(const char *, int)> access(libc::access, [&](const char *path, int mode) {
    int posted = 0;
    sem_getvalue(&started, &posted);
    looked.push_back(path + std::string(posted == 1 ? " posted" : " not posted"));
    return libc::access.real(path, mode);
  });
  Replace<int(const char *, int, mode_t)> open(libc::open, [&](const char *path, int flags, mode_t mode) {
    looked.push_back(path);
    return libc::open.real(path, flags, mode);
  });
  Console console;
  EXPECT_EQ(log_msg_process(&started), nullptr);
  console.take();
  EXPECT_EQ(looked, (std::vector<std::string>{"/overlay/klogd posted", "/proc/kmsg"}));
  sem_destroy(&started);
}

TEST(LogBridgeContract, ReadsTheStreamToItsEndAndOn) {
  const Sandbox sandbox;
  VirtualClock clock;
  mup_log_ctrl *ctrl = mup_log_ctrl_get();
  ASSERT_EQ(mup_log_init(0, 21, module_table(numbered_names()).c_str()), 0);
  const std::string kmsg = sandbox.root() + "/proc/kmsg";
  std::string stream;
  for (int i = 0; i < 60; i++) stream += "<6>[1.0] " + frame("05:4:", "N" + std::to_string(i)) + "\n";
  Store::write(kmsg, stream);
  sem_t started;
  sem_init(&started, 0, 0);
  pthread_t thread;
  ASSERT_EQ(mu_thread_create(&thread, "klog", log_msg_process, &started, 1 << 20, 0, 0), 0);
  sem_wait(&started);
  clock.run_ms(1000);
  ASSERT_EQ(ctrl->sys_idx, 60u);
  for (int i = 0; i < 60; i++) EXPECT_EQ(text_of(ctrl->sys_ring[i]), "N" + std::to_string(i) + "\n");
  std::ofstream(kmsg, std::ios::app) << frame("05:4:", "later") << "\n";
  clock.run_ms(200);
  ASSERT_EQ(ctrl->sys_idx, 61u);
  EXPECT_EQ(text_of(ctrl->sys_ring[60]), "later\n");
  sem_destroy(&started);
}

// ---- Frames --------------------------------------------------------------------------------------------------------

TEST(LogBridgeContract, AFrameIsLoggedUnderItsModuleAndLevelWithoutAConsoleLine) {
  Bridge bridge;
  const uint32_t before = bridge.ctrl->sys_idx;
  EXPECT_EQ(bridge.feed("ab" + frame("05:6:", "link up") + "cd"), (Messages{message(5, 6, "link up")}));
  EXPECT_EQ(bridge.printed, "");
  EXPECT_EQ(bridge.ctrl->sys_idx, before + 1);
  const mup_log_rec &record = bridge.ctrl->sys_ring[before];
  EXPECT_EQ(text_of(record), "link up\n");
  EXPECT_EQ(record.line, 0u);
}

TEST(LogBridgeContract, AnyModuleAndLevelAndAnySeparators) {
  Bridge bridge;
  for (unsigned module = 0; module < 21; module++) {
    const unsigned level = module % 9;
    const char separator = "\0 :<->9\n"[module % 8];
    std::string head = "00.0.";
    head[0] = static_cast<char>('0' + module / 10);
    head[1] = static_cast<char>('0' + module % 10);
    head[2] = separator;
    head[3] = static_cast<char>('0' + level);
    head[4] = separator;
    EXPECT_EQ(bridge.feed(frame(head, "text") + "x"), (Messages{message(module, level, "text")})) << head;
    EXPECT_EQ(bridge.printed, "");
  }
}

TEST(LogBridgeContract, OtherTextIsDropped) {
  Bridge bridge;
  EXPECT_EQ(bridge.feed("<6>[    0.000000] Booting Linux\n<4>jxlog-05:6:no frame" + kEnd + "\n<jxlog 05:6:no\n"),
            Messages{});
  EXPECT_EQ(bridge.feed("<JXLOG-05:6:no frame" + kEnd + "x"), Messages{});
  for (int i = 0; i < 10; i++) EXPECT_EQ(bridge.feed(std::string(512, 'x')), Messages{});
  EXPECT_EQ(bridge.feed("<6>[1.0] " + frame("05:6:", "a") + "\n<6>[1.1] text\n" + frame("16:3:", "b") + "\n"),
            (Messages{message(5, 6, "a"), message(16, 3, "b")}));
  EXPECT_EQ(bridge.printed, "");
}

TEST(LogBridgeContract, FramesStandBackToBack) {
  Bridge bridge;
  std::string stream;
  Messages expected;
  for (unsigned i = 0; i < 9; i++) {
    stream += frame("0" + std::to_string(i) + ":" + std::to_string(i) + ":", "text " + std::to_string(i));
    expected.push_back(message(i, i, "text " + std::to_string(i)));
  }
  EXPECT_EQ(bridge.feed(stream + "x"), expected);
}

TEST(LogBridgeContract, AnEndMarkerCountsOnceAByteStandsBehindIt) {
  Bridge bridge;
  EXPECT_EQ(bridge.feed(frame("05:6:", "first")), Messages{});
  EXPECT_EQ(bridge.feed("\n"), (Messages{message(5, 6, "first")}));
  // What is held afterwards is 7 bytes, with nothing of the frame to be logged again.
  EXPECT_EQ(bridge.feed(frame("05:6:", "second")), Messages{});
  EXPECT_EQ(bridge.feed(frame("05:6:", "third")), (Messages{message(5, 6, "second")}));
  EXPECT_EQ(bridge.feed("x"), (Messages{message(5, 6, "third")}));
  EXPECT_EQ(bridge.feed("xxxxxxxxxxxxxxxxxxxxx"), Messages{});
}

TEST(LogBridgeContract, AStreamOfSevenBytesIsHeldWhole) {
  Bridge bridge;
  EXPECT_EQ(bridge.feed(kStart), Messages{});
  EXPECT_EQ(bridge.feed("05:6:text" + kEnd), Messages{});
  EXPECT_EQ(bridge.feed("x"), (Messages{message(5, 6, "text")}));
}

TEST(LogBridgeContract, AStreamSplitAnywhereLogsTheSame) {
  Bridge bridge;
  const std::string stream =
      "ab" + frame("05:6:", "link up") + frame("17 2 ", "") + "c" + frame("03:7:", "third") + "d";
  const Messages expected = {message(5, 6, "link up"), message(17, 2, ""), message(3, 7, "third")};
  const size_t first_end = 2 + frame("05:6:", "link up").size();
  for (size_t at = 0; at <= stream.size(); at++) {
    SCOPED_TRACE(at);
    bridge.reset();
    const Messages first = bridge.feed(stream.substr(0, at));
    EXPECT_EQ(first.empty(), at <= first_end);
    Messages all = first;
    for (const Message &each : bridge.feed(stream.substr(at))) all.push_back(each);
    ASSERT_EQ(all, expected);
  }
}

TEST(LogBridgeContract, AStreamInThreePartsLogsTheSame) {
  Bridge bridge;
  const std::string stream = frame("05:6:", "a") + frame("06:5:", "b") + ".";
  const Messages expected = {message(5, 6, "a"), message(6, 5, "b")};
  for (size_t first = 1; first < stream.size(); first++) {
    for (size_t second = first + 1; second < stream.size(); second += 3) {
      SCOPED_TRACE(testing::Message() << first << ", " << second);
      ASSERT_EQ(bridge.feed_all({stream.substr(0, first), stream.substr(first, second - first), stream.substr(second)}),
                expected);
    }
  }
}

TEST(LogBridgeContract, AStreamInSingleBytesLogsTheSame) {
  Bridge bridge;
  const std::string stream = "ab" + frame("05:6:", "link up") + frame("06:5:", "<jxlog- <jxlog") + "d";
  Messages all;
  for (const char byte : stream) {
    for (const Message &each : bridge.feed({byte})) all.push_back(each);
  }
  EXPECT_EQ(all, (Messages{message(5, 6, "link up"), message(6, 5, "<jxlog- <jxlog")}));
}

TEST(LogBridgeContract, AFrameOverTwoReadsIsLoggedAfterTheSecond) {
  Bridge bridge;
  EXPECT_EQ(bridge.feed("ab<jxlog-05:6:li"), Messages{});
  EXPECT_EQ(bridge.feed("nk up<jxlog>cd"), (Messages{message(5, 6, "link up")}));
}

TEST(LogBridgeContract, MarkersWithinATextBelongToIt) {
  Bridge bridge;
  const struct {
    std::string stream;
    Messages expected;
  } rows[] = {
      // A frame without an end takes the next one's.
      {kStart + "05:6:abc" + frame("06:5:", "def"), {message(5, 6, "abc<jxlog-06:5:def")}},
      {kStart + frame("06:5:", "def"), {}},  // the digits are "<j": see the console below
      {kEnd + frame("06:5:", "def"), {message(6, 5, "def")}},
      {frame("06:5:", "def") + kEnd, {message(6, 5, "def")}},
      {"<" + frame("06:5:", "def"), {message(6, 5, "def")}},
      {"<jxlog" + frame("06:5:", "def"), {message(6, 5, "def")}},
      {frame("06:5:", "def<"), {message(6, 5, "def<")}},
      {frame("06:5:", "def<jxlog"), {message(6, 5, "def<jxlog")}},
      {frame("06:5:", "<jxlog-"), {message(6, 5, "<jxlog-")}},
      {frame("06:5:", "a") + frame("07:5:", "<jxlog-<jxlog-"), {message(6, 5, "a"), message(7, 5, "<jxlog-<jxlog-")}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.stream);
    EXPECT_EQ(bridge.feed(row.stream + "........"), row.expected);
    EXPECT_EQ(bridge.printed, row.expected.empty() ? "unknow module id:178\r\n" : "");
  }
}

TEST(LogBridgeContract, DigitsAreNotChecked) {
  Bridge bridge;
  const struct {
    const char *head;
    const char *printed;
  } rows[] = {
      {"1a:6:", "unknow module id:59\r\n"},   // 10 + 49
      {"22:6:", "unknow module id:22\r\n"},   // 21 modules, so 21 passes
      {"99:6:", "unknow module id:99\r\n"},   //
      {" 5:6:", "unknow module id:101\r\n"},  // 10 * -16 + 5 + 256
      {"0/:6:", "unknow module id:255\r\n"},  // -1
      {"//:6:", "unknow module id:245\r\n"},  // -11
      {"05:9:", "unknow level id:9\r\n"},     //
      {"05:/:", "unknow level id:255\r\n"},   //
      {"05:a:", "unknow level id:49\r\n"},    //
      {"05: :", "unknow level id:240\r\n"},   // -16
      {"05:\xff:", "unknow level id:207\r\n"},
      {"\xff\xff:9:", "unknow module id:229\r\n"},  // 10 * -49 + -49, or 10 * 207 + 207: the same modulo 256
      {"21:6:", ""},                                // accepted, and dropped
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.head);
    EXPECT_EQ(bridge.feed(frame(row.head, "text") + "x"), Messages{});
    EXPECT_EQ(bridge.printed, row.printed);
  }
  // Letters that come out as a module and a level after all.
  EXPECT_EQ(bridge.feed(frame("0::8:", "ten") + "x"), (Messages{message(10, 8, "ten")}));
  EXPECT_EQ(bridge.feed(frame("J::0:", "14") + "x"), (Messages{message(14, 0, "14")}));  // 10 * 26 + 10 - 256
}

TEST(LogBridgeContract, AFrameTooShortForItsHeadLogsWhatStandsFromByte12On) {
  Bridge bridge;
  // The end marker begins at byte 11: its own bytes from "jxlog>" on are the text, and all that follows up to a NUL.
  EXPECT_EQ(bridge.feed(frame("05:6", "") + "rest"), (Messages{message(5, 6, "jxlog>rest")}));
  bridge.reset();
  EXPECT_EQ(bridge.feed(frame("05:6", "") + "rest" + std::string("\0more", 5)),
            (Messages{message(5, 6, "jxlog>rest")}));
  bridge.reset();
  // The frames that follow are logged as well: the scan goes on behind the end marker.
  EXPECT_EQ(bridge.feed(frame("05:6", "") + frame("07:1:", "next") + "x"),
            (Messages{message(5, 6, "jxlog><jxlog-07:1:next<jxlog>x"), message(7, 1, "next")}));
  bridge.reset();
  // Earlier ends: the level is a byte of the marker itself.
  EXPECT_EQ(bridge.feed(frame("05", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(bridge.printed, "unknow level id:58\r\n");  // 'j'
  EXPECT_EQ(bridge.feed(frame("0", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(bridge.printed, "unknow level id:72\r\n");  // 'x'; the module is 0 and '<', 12
  EXPECT_EQ(bridge.feed(frame("", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(bridge.printed, "unknow module id:178\r\n");  // '<' and 'j'
}

TEST(LogBridgeContract, AnEndMarkerAtTheLevelIsReadBeforeItIsOverwritten) {
  Bridge bridge;
  EXPECT_EQ(bridge.feed(frame("05:", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(bridge.printed, "unknow level id:12\r\n");  // '<'
}

TEST(LogBridgeContract, AShortFrameAtTheEndOfAFullBufferStaysInBounds) {
  Bridge bridge;
  bridge.feed(kStart + "05:6:" + std::string(500, 'a'));  // 512 held
  const std::string filler = kEnd + std::string(512 - 7 - 19, 'b');
  EXPECT_EQ(bridge.feed(filler + frame("05:6", "") + "c"),
            (Messages{message(5, 6, std::string(500, 'a')), message(5, 6, "jxlog>c")}));
}

TEST(LogBridgeContract, TextsAreLoggedAsTheyAre) {
  Bridge bridge;
  std::string every;
  for (int byte = 1; byte < 256; byte++) every += static_cast<char>(byte);
  EXPECT_EQ(bridge.feed(frame("05:6:", every) + "x"), (Messages{message(5, 6, every)}));
  EXPECT_EQ(bridge.feed(frame("05:6:", "%s%n%d%%") + "x"), (Messages{message(5, 6, "%s%n%d%%")}));
  EXPECT_EQ(bridge.feed(frame("05:6:", "") + "x"), (Messages{message(5, 6, "")}));
  EXPECT_EQ(bridge.feed(frame("05:6:", "two\nlines\r\n") + "x"), (Messages{message(5, 6, "two\nlines\r\n")}));
}

TEST(LogBridgeContract, ANulEndsATextAndNotTheFrame) {
  Bridge bridge;
  const std::string nul(1, '\0');
  EXPECT_EQ(bridge.feed(nul + "x" + nul + frame("05:6:", "before" + nul + "after") + frame("06:5:", "next") + nul),
            (Messages{message(5, 6, "before"), message(6, 5, "next")}));
  bridge.reset();
  EXPECT_EQ(bridge.feed_all({kStart + "05:6:be" + nul, "after", kEnd + "x"}), (Messages{message(5, 6, "be")}));
}

TEST(LogBridgeContract, LongTextsAreCutByTheLogAlone) {
  Bridge bridge;
  for (const size_t size : std::vector<size_t>{254, 255, 256, 480, 509, 510, 511, 512, 700, 1004}) {
    SCOPED_TRACE(size);
    const std::string text(size, 't');
    const std::string stream = frame("05:6:", text) + "x";
    bridge.reset();
    Messages all = bridge.feed(stream.substr(0, 512));
    if (stream.size() > 512) all = bridge.feed(stream.substr(512));
    EXPECT_EQ(all, (Messages{{5, 6, (text + "\n").substr(0, 511)}}));
  }
}

TEST(LogBridgeContract, TheLogsFiltersHold) {
  Bridge bridge;
  bridge.ctrl->modules[5].record_level = 5;
  bridge.ctrl->modules[6].enable = 0;
  EXPECT_EQ(bridge.feed(frame("05:5:", "kept") + frame("05:6:", "above") + frame("06:0:", "disabled") + "x"),
            (Messages{message(5, 5, "kept")}));
  EXPECT_EQ(bridge.printed, "");  // not shown either, whatever the print level
}
