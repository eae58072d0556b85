// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The frames that the kernel bridge logs, and the text between them.

#include "log/bridge.h"

using namespace tarn_test;

namespace {

using LogBridge = Bridge;

}  // namespace

TEST_F(LogBridge, AFrameIsLoggedUnderItsModuleAndLevelWithoutAConsoleLine) {
  const uint32_t before = ctrl->sys_idx;
  EXPECT_EQ(feed("ab" + frame("05:6:", "link up") + "cd"), (Messages{message(5, 6, "link up")}));
  EXPECT_EQ(printed, "");
  EXPECT_EQ(ctrl->sys_idx, before + 1);
  const mup_log_rec &record = ctrl->sys_ring[before];
  EXPECT_EQ(text_of(record), "link up\n");
  EXPECT_EQ(record.line, 0u);
}

TEST_F(LogBridge, AnyModuleAndLevelAndAnySeparators) {
  for (unsigned module = 0; module < 21; module++) {
    const unsigned level = module % 9;
    const char separator = "\0 :<->9\n"[module % 8];
    std::string head = "00.0.";
    head[0] = static_cast<char>('0' + module / 10);
    head[1] = static_cast<char>('0' + module % 10);
    head[2] = separator;
    head[3] = static_cast<char>('0' + level);
    head[4] = separator;
    EXPECT_EQ(feed(frame(head, "text") + "x"), (Messages{message(module, level, "text")})) << head;
    EXPECT_EQ(printed, "");
  }
}

TEST_F(LogBridge, OtherTextIsDropped) {
  EXPECT_EQ(feed("<6>[    0.000000] Booting Linux\n<4>jxlog-05:6:no frame" + kEnd + "\n<jxlog 05:6:no\n"), Messages{});
  EXPECT_EQ(feed("<JXLOG-05:6:no frame" + kEnd + "x"), Messages{});
  for (const char c : {'x', '<', 'x'}) EXPECT_EQ(feed(std::string(512, c)), Messages{});
  EXPECT_EQ(feed("<6>[1.0] " + frame("05:6:", "a") + "\n<6>[1.1] text\n" + frame("16:3:", "b") + "\n"),
            (Messages{message(5, 6, "a"), message(16, 3, "b")}));
  EXPECT_EQ(printed, "");
}

TEST_F(LogBridge, FramesMayFollowOneAnotherDirectly) {
  std::string stream;
  Messages expected;
  for (unsigned i = 0; i < 9; i++) {
    stream += frame("0" + std::to_string(i) + ":" + std::to_string(i) + ":", "text " + std::to_string(i));
    expected.push_back(message(i, i, "text " + std::to_string(i)));
  }
  EXPECT_EQ(feed(stream + "x"), expected);
}

TEST_F(LogBridge, AnEndMarkerCountsOnlyWhenAByteFollowsIt) {
  EXPECT_EQ(feed(frame("05:6:", "first")), Messages{});
  EXPECT_EQ(feed("\n"), (Messages{message(5, 6, "first")}));
  // 7 bytes are held afterwards; nothing of the frame is logged again.
  EXPECT_EQ(feed(frame("05:6:", "second")), Messages{});
  EXPECT_EQ(feed(frame("05:6:", "third")), (Messages{message(5, 6, "second")}));
  EXPECT_EQ(feed("x"), (Messages{message(5, 6, "third")}));
  EXPECT_EQ(feed("xxxxxxxxxxxxxxxxxxxxx"), Messages{});
}

TEST_F(LogBridge, AStreamOfSevenBytesIsHeldWhole) {
  EXPECT_EQ(feed(kStart), Messages{});
  EXPECT_EQ(feed("05:6:text" + kEnd), Messages{});
  EXPECT_EQ(feed("x"), (Messages{message(5, 6, "text")}));
}

TEST_F(LogBridge, AStreamSplitAnywhereLogsTheSame) {
  const std::string stream =
      "ab" + frame("05:6:", "link up") + frame("17 2 ", "") + "c" + frame("03:7:", "third") + "d";
  const Messages expected = {message(5, 6, "link up"), message(17, 2, ""), message(3, 7, "third")};
  const size_t first_end = 2 + frame("05:6:", "link up").size();
  for (size_t at = 0; at <= stream.size(); at++) {
    SCOPED_TRACE(at);
    reset();
    const Messages first = feed(stream.substr(0, at));
    EXPECT_EQ(first.empty(), at <= first_end);
    Messages all = first;
    for (const Message &each : feed(stream.substr(at))) all.push_back(each);
    ASSERT_EQ(all, expected);
  }
}

TEST_F(LogBridge, AStreamInThreePartsLogsTheSame) {
  const std::string stream = frame("05:6:", "a") + frame("06:5:", "b") + ".";
  const Messages expected = {message(5, 6, "a"), message(6, 5, "b")};
  for (size_t first = 1; first < stream.size(); first++) {
    for (size_t second = first + 1; second < stream.size(); second += 3) {
      SCOPED_TRACE(testing::Message() << first << ", " << second);
      ASSERT_EQ(feed_all({stream.substr(0, first), stream.substr(first, second - first), stream.substr(second)}),
                expected);
    }
  }
}

TEST_F(LogBridge, AStreamInSingleBytesLogsTheSame) {
  const std::string stream = "ab" + frame("05:6:", "link up") + frame("06:5:", "<jxlog- <jxlog") + "d";
  Messages all;
  for (const char byte : stream) {
    for (const Message &each : feed({byte})) all.push_back(each);
  }
  EXPECT_EQ(all, (Messages{message(5, 6, "link up"), message(6, 5, "<jxlog- <jxlog")}));
}

TEST_F(LogBridge, MarkersWithinATextBelongToIt) {
  const struct {
    std::string stream;
    Messages expected;
  } rows[] = {
      // A frame without an end takes the next one's.
      {kStart + "05:6:abc" + frame("06:5:", "def"), {message(5, 6, "abc<jxlog-06:5:def")}},
      // The second end marker is outside of a frame.
      {kStart + "05:6:a" + frame("06:7:", "b") + "c" + kEnd, {message(5, 6, "a<jxlog-06:7:b")}},
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
    EXPECT_EQ(feed(row.stream + "........"), row.expected);
    EXPECT_EQ(printed, row.expected.empty() ? "unknow module id:178\r\n" : "");
  }
}

TEST_F(LogBridge, TakesAnyCharacterForADigit) {
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
    EXPECT_EQ(feed(frame(row.head, "text") + "x"), Messages{});
    EXPECT_EQ(printed, row.printed);
  }
  // Other characters that give a known module and level.
  EXPECT_EQ(feed(frame("0::8:", "ten") + "x"), (Messages{message(10, 8, "ten")}));
  EXPECT_EQ(feed(frame("/::0:", "zero") + "x"), (Messages{message(0, 0, "zero")}));  // 10 * -1 + 10
  EXPECT_EQ(feed(frame("J::0:", "14") + "x"), (Messages{message(14, 0, "14")}));     // 10 * 26 + 10 - 256
}

TEST_F(LogBridge, LogsWhatFollowsAFrameTooShortForAText) {
  // The end marker begins at byte 11: its own bytes from "jxlog>" on are the text, with everything that follows up to a
  // NUL.
  EXPECT_EQ(feed(frame("05:6", "") + "rest"), (Messages{message(5, 6, "jxlog>rest")}));
  reset();
  EXPECT_EQ(feed(frame("05:6", "") + "rest" + std::string("\0more", 5)), (Messages{message(5, 6, "jxlog>rest")}));
  reset();
  // The next frames are logged too: the scan continues after the end marker.
  EXPECT_EQ(feed(frame("05:6", "") + frame("07:1:", "next") + "x"),
            (Messages{message(5, 6, "jxlog><jxlog-07:1:next<jxlog>x"), message(7, 1, "next")}));
  reset();
  // Earlier ends: the level is a byte of the marker itself.
  EXPECT_EQ(feed(frame("05", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(printed, "unknow level id:58\r\n");  // 'j'
  EXPECT_EQ(feed(frame("0", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(printed, "unknow level id:72\r\n");  // 'x'; the module is 0 and '<', 12
  EXPECT_EQ(feed(frame("", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(printed, "unknow module id:178\r\n");  // '<' and 'j'
}

TEST_F(LogBridge, AnEndMarkerAtTheLevelIsReadBeforeItIsOverwritten) {
  EXPECT_EQ(feed(frame("05:", "") + "xxxxxxx"), Messages{});
  EXPECT_EQ(printed, "unknow level id:12\r\n");  // '<'
}

TEST_F(LogBridge, AShortFrameAtTheEndOfAFullBufferStaysInBounds) {
  feed(kStart + "05:6:" + std::string(500, 'a'));  // 512 held
  const std::string filler = kEnd + std::string(512 - 7 - 19, 'b');
  EXPECT_EQ(feed(filler + frame("05:6", "") + "c"),
            (Messages{message(5, 6, std::string(500, 'a')), message(5, 6, "jxlog>c")}));
}

TEST_F(LogBridge, TextsAreLoggedAsTheyAre) {
  std::string every;
  for (int byte = 1; byte < 256; byte++) every += static_cast<char>(byte);
  EXPECT_EQ(feed(frame("05:6:", every) + "x"), (Messages{message(5, 6, every)}));
  EXPECT_EQ(feed(frame("05:6:", "%s%n%d%%") + "x"), (Messages{message(5, 6, "%s%n%d%%")}));
  EXPECT_EQ(feed(frame("05:6:", "") + "x"), (Messages{message(5, 6, "")}));
  EXPECT_EQ(feed(frame("05:6:", "two\nlines\r\n") + "x"), (Messages{message(5, 6, "two\nlines\r\n")}));
}

TEST_F(LogBridge, ANulEndsATextAndNotTheFrame) {
  const std::string nul(1, '\0');
  EXPECT_EQ(feed(nul + "x" + nul + frame("05:6:", "before" + nul + "after") + frame("06:5:", "next") + nul),
            (Messages{message(5, 6, "before"), message(6, 5, "next")}));
  reset();
  EXPECT_EQ(feed_all({kStart + "05:6:be" + nul, "after", kEnd + "x"}), (Messages{message(5, 6, "be")}));
}

TEST_F(LogBridge, LongTextsAreCutOnlyByTheLog) {
  for (const size_t size : std::vector<size_t>{254, 255, 256, 480, 509, 510, 511, 512, 700, 1004}) {
    SCOPED_TRACE(size);
    const std::string text(size, 't');
    const std::string stream = frame("05:6:", text) + "x";
    reset();
    Messages all = feed(stream.substr(0, 512));
    if (stream.size() > 512) all = feed(stream.substr(512));
    EXPECT_EQ(all, (Messages{{5, 6, (text + "\n").substr(0, 511)}}));
  }
}

TEST_F(LogBridge, TheLogsFiltersHold) {
  ctrl->modules[5].record_level = 5;
  ctrl->modules[6].enable = 0;
  EXPECT_EQ(feed(frame("05:5:", "kept") + frame("05:6:", "above") + frame("06:0:", "disabled") + "x"),
            (Messages{message(5, 5, "kept")}));
  EXPECT_EQ(printed, "");  // not shown either, whatever the print level
}
