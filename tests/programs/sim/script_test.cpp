// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The language of scripts: words, times, commands, lines, and the place and reason of faults.

#include "sim/launcher/script.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace tarn_sim;
using Kind = Command::Kind;

namespace {

constexpr std::uint32_t kTypes = 20;

// Parses a line that must be valid.
Line line_of(const std::string &text, Names *names = nullptr) {
  static Names common(kTypes);
  bool is_blank = false;
  Fault fault = {0, ""};
  const auto line = parse_line(text, names != nullptr ? names : &common, &is_blank, &fault);
  EXPECT_TRUE(line) << text << ": " << fault.column << ": " << fault.reason;
  EXPECT_FALSE(is_blank);
  return line.value_or(Line());
}

Command command_of(const std::string &text) { return line_of(text).command; }

struct FaultyLine {
  const char *text;
  std::size_t column;
  const char *reason;
};

std::vector<std::string> texts_of(const std::vector<Word> &words) {
  std::vector<std::string> texts;
  texts.reserve(words.size());
  for (const Word &word : words) texts.push_back(word.text);
  return texts;
}

}  // namespace

TEST(ScriptWords, AreSeparatedByBlanksAndEndedByAComment) {
  Fault fault;
  EXPECT_EQ(texts_of(*split("  at\t1s  say hello\r", &fault)), (std::vector<std::string>{"at", "1s", "say", "hello"}));
  EXPECT_EQ(texts_of(*split("dump# now", &fault)), std::vector<std::string>{"dump"});
  EXPECT_EQ(texts_of(*split("say \"#1\"#2", &fault)), (std::vector<std::string>{"say", "#1"}));
  EXPECT_TRUE(split("", &fault)->empty());
  EXPECT_TRUE(split(" # nothing", &fault)->empty());
}

TEST(ScriptWords, KnowWhereTheyStand) {
  Fault fault;
  const auto words = split("  at 1s \"x y\"", &fault);
  EXPECT_EQ((*words)[0].column, 3u);
  EXPECT_EQ((*words)[1].column, 6u);
  EXPECT_EQ((*words)[2].column, 9u);
  EXPECT_FALSE((*words)[1].is_quoted);
  EXPECT_TRUE((*words)[2].is_quoted);
}

TEST(ScriptWords, TakeEveryEscapeOfAString) {
  Fault fault;
  EXPECT_EQ((*split(R"("a b")", &fault))[0].text, "a b");
  EXPECT_EQ((*split(R"("")", &fault))[0].text, "");
  EXPECT_EQ((*split(R"("\"\\\n\x41\xfF\x00.")", &fault))[0].text, std::string("\"\\\nA\xff\0.", 7));
}

TEST(ScriptWords, RefuseWhatIsNoString) {
  constexpr FaultyLine kRows[] = {
      {R"(say "a)", 5, "the string has no end"},
      {R"(say ")", 5, "the string has no end"},
      {R"(say "a\")", 5, "the string has no end"},
      {R"(say "a"b)", 8, "a blank is missing after the string"},
      {R"(say a"b")", 6, "a quote within a word"},
      {R"(say "\t")", 6, R"(an unknown escape: there are \" \\ \n \xNN)"},
      {R"(say "\x4")", 6, R"(an unknown escape: there are \" \\ \n \xNN)"},
      {R"(say "\xg0")", 6, R"(an unknown escape: there are \" \\ \n \xNN)"},
      {R"(say "\x+1")", 6, R"(an unknown escape: there are \" \\ \n \xNN)"},
      {R"(say "\)", 6, R"(an unknown escape: there are \" \\ \n \xNN)"},
  };
  for (const FaultyLine &row : kRows) {
    SCOPED_TRACE(row.text);
    Fault fault = {0, ""};
    EXPECT_FALSE(split(row.text, &fault));
    EXPECT_EQ(fault.column, row.column);
    EXPECT_EQ(fault.reason, row.reason);
  }
}

TEST(ScriptTimes, AreTicksOfTenMilliseconds) {
  struct Row {
    const char *text;
    std::uint64_t ticks;
  };
  constexpr Row kRows[] = {
      {"0ms", 0},    {"10ms", 1},     {"250ms", 25},      {"1s", 100},
      {"1.5s", 150}, {"0.01s", 1},    {"1.500000s", 150}, {"1.50000000000000000000s", 150},
      {"2m", 12000}, {"0.25m", 1500}, {"10.0ms", 1},      {"999999999m", 5999999994000},
      {"007s", 700},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    std::string reason;
    const auto ticks = parse_time(row.text, &reason);
    EXPECT_EQ(ticks, row.ticks) << reason;
  }
}

TEST(ScriptTimes, RefuseWhatIsNoTimeOrNoMultiple) {
  for (const char *text : {"", "s", ".5s", "1.s", "1", "1h", "1 s", "-1s", "+1s", "1e3ms", "1ms2", "1.5.0s", "1S",
                           "1000000000s", "1sec"}) {
    SCOPED_TRACE(text);
    std::string reason;
    EXPECT_FALSE(parse_time(text, &reason));
    EXPECT_EQ(reason, "'" + std::string(text) + "' is not a time: try 250ms, 1.5s or 2m");
  }
  for (const char *text :
       {"1ms", "15ms", "1.005s", "0.001s", "10.5ms", "1.0000000001s", "0.3333m", "1.23456789012s", "0.000166666666m"}) {
    SCOPED_TRACE(text);
    std::string reason;
    EXPECT_FALSE(parse_time(text, &reason));
    EXPECT_EQ(reason, "'" + std::string(text) + "' is not a multiple of 10 ms");
  }
}

TEST(ScriptLines, SayWhen) {
  const Line at = line_of("at 1.5s dump");
  EXPECT_EQ(at.when, Line::When::kAt);
  EXPECT_EQ(at.ticks, 150u);
  EXPECT_EQ(at.times, 1u);
  const Line after = line_of("after 20ms dump 3 times");
  EXPECT_EQ(after.when, Line::When::kAfter);
  EXPECT_EQ(after.ticks, 2u);
  EXPECT_EQ(after.times, 3u);
  EXPECT_EQ(after.period, 0u);
  const Line plain = line_of("dump");
  EXPECT_EQ(plain.when, Line::When::kAfter);
  EXPECT_EQ(plain.ticks, 0u);
  EXPECT_EQ(plain.times, 1u);
  const Line endless = line_of("every 1m dump");
  EXPECT_EQ(endless.period, 6000u);
  EXPECT_EQ(endless.times, 0u);
  EXPECT_EQ(endless.ticks, 0u);
  const Line counted = line_of("every 20ms event storm 500 times");
  EXPECT_EQ(counted.period, 2u);
  EXPECT_EQ(counted.times, 500u);
  EXPECT_EQ(line_of("await channel # now").awaited, Awaited::kChannel);
  EXPECT_EQ(line_of("await settings").awaited, Awaited::kSettings);
  EXPECT_EQ(plain.awaited, Awaited::kNothing);
}

TEST(ScriptLines, MayBeBlank) {
  Names names(kTypes);
  for (const char *text : {"", "  ", "# at 1s", "\t\r"}) {
    bool is_blank = false;
    Fault fault;
    EXPECT_FALSE(parse_line(text, &names, &is_blank, &fault));
    EXPECT_TRUE(is_blank) << text;
  }
}

TEST(ScriptCommands, SendEvents) {
  Command event = command_of("event 3");
  EXPECT_EQ(event.kind, Kind::kEvent);
  EXPECT_EQ(event.type, 3u);
  EXPECT_EQ(event.device, 0u);
  EXPECT_EQ(event.text, "");
  event = command_of("event link-down port 3");
  EXPECT_EQ(event.type, 2u);
  EXPECT_EQ(event.device, 3u);
  event = command_of("event 19 device 65535 data 00 0aFF");
  EXPECT_EQ(event.type, 19u);
  EXPECT_EQ(event.device, 65535u);
  EXPECT_EQ(event.text, std::string("\0\x0a\xff", 3));
  EXPECT_EQ(command_of("event 0 text \"a b\"").text, "a b");
  EXPECT_EQ(command_of("event link-up").type, 1u);
  EXPECT_EQ(command_of("event traffic").type, 3u);
  EXPECT_EQ(command_of("event storm").type, 4u);
}

TEST(ScriptCommands, NumberOfTimesStandsLast) {
  const Line line = line_of("event 3 data 01 02 10 times");
  EXPECT_EQ(line.command.text, "\x01\x02");
  EXPECT_EQ(line.times, 10u);
  EXPECT_EQ(line_of("say \"2 times\"").command.text, "2 times");
  EXPECT_EQ(line_of("dump 1000000000 times").times, 1000000000u);
}

TEST(ScriptCommands, NameTypes) {
  Names names(kTypes);
  const Command name = line_of("name 7 door-open", &names).command;
  EXPECT_EQ(name.kind, Kind::kName);
  EXPECT_EQ(line_of("event door-open", &names).command.type, 7u);
  EXPECT_EQ(names.of(7), "door-open");
  line_of("name 7 door", &names);  // replaces the earlier name
  EXPECT_FALSE(names.find("door-open"));
  line_of("name 7 door", &names);
  line_of("name 1 up_2", &names);  // a built-in one
  EXPECT_EQ(names.find("up_2"), 1u);
  EXPECT_FALSE(names.find("link-up"));
}

TEST(ScriptCommands, NamesThatAreBuiltInEndWithTheTypes) {
  const Names names(2);
  EXPECT_EQ(names.find("link-up"), 1u);
  EXPECT_FALSE(names.find("link-down"));
}

TEST(ScriptCommands, WriteKernelMessages) {
  const Command framed = command_of("kmsg 5 6 \"link up\"");
  EXPECT_EQ(framed.kind, Kind::kDriverLine);
  EXPECT_EQ(framed.module, 5u);
  EXPECT_EQ(framed.level, 6u);
  EXPECT_EQ(framed.text, "link up");
  EXPECT_EQ(command_of("kmsg 99 8 x").module, 99u);
  const Command plain = command_of("kmsg \"usb 1-1: new\"");
  EXPECT_EQ(plain.kind, Kind::kKernelLine);
  EXPECT_EQ(plain.text, "usb 1-1: new");
  const Command raw = command_of(R"(raw-kmsg "<jxlog-05:6:half")");
  EXPECT_EQ(raw.kind, Kind::kKernelBytes);
  EXPECT_EQ(raw.text, "<jxlog-05:6:half");
}

TEST(ScriptCommands, TakeTheOthers) {
  const Command datagram = command_of("raw-datagram 0102 ff");
  EXPECT_EQ(datagram.kind, Kind::kDatagram);
  EXPECT_EQ(datagram.text, "\x01\x02\xff");
  EXPECT_EQ(command_of("dump").kind, Kind::kDump);
  EXPECT_EQ(command_of("stop").kind, Kind::kStop);
  EXPECT_EQ(command_of("say hello").text, "hello");
}

TEST(ScriptCommands, FailTakesItsOwnNumber) {
  Line line = line_of("fail ioctl 2 times");
  EXPECT_EQ(line.command.kind, Kind::kFail);
  EXPECT_EQ(line.command.call, Call::kIoctl);
  EXPECT_EQ(line.command.count, 2u);
  EXPECT_EQ(line.times, 1u);
  EXPECT_EQ(line_of("fail open 1 times").command.call, Call::kOpen);
  EXPECT_EQ(line_of("fail bind 1 times").command.call, Call::kBind);
  EXPECT_EQ(line_of("fail socket 1 times").command.call, Call::kSocket);
  EXPECT_EQ(line_of("fail socket").command.count, 1u);
  EXPECT_EQ(line_of("fail socket 0 times").command.count, 0u);  // no more failures
  line = line_of("every 1s fail ioctl 2 times 3 times");
  EXPECT_EQ(line.command.count, 2u);
  EXPECT_EQ(line.times, 3u);
  EXPECT_EQ(line_of("every 1s fail ioctl 2 times").times, 0u);
}

TEST(ScriptLines, AreRefusedWithTheColumnAndTheReason) {
  const std::string kLongName(33, 'n');
  const std::string long_name_line = "name 7 " + kLongName;
  const std::string long_name_reason =
      "'" + kLongName + "' is not a name: a letter, then letters, digits, '-', '_', 32 at most";
  const FaultyLine kRows[] = {
      {"at", 3, "a time is missing"},
      {"at 1s", 6, "a command is missing"},
      {"at 1x dump", 4, "'1x' is not a time: try 250ms, 1.5s or 2m"},
      {"at 15ms dump", 4, "'15ms' is not a multiple of 10 ms"},
      {"after", 6, "a time is missing"},
      {"every", 6, "a time is missing"},
      {"every 0ms dump", 7, "a period is at least 10ms"},
      {"every 1s", 9, "a command is missing"},
      {"at 1s every 1s dump", 7,
       "'every' only begins a line: give the time to the line before it, as in 'at 1s say now'"},
      {"at 1s at 2s dump", 7, "'at' only begins a line"},
      {"every 1s after 2s dump", 10, "'after' only begins a line"},
      {"await", 6, "only 'channel' and 'settings' can be awaited"},
      {"await ready", 7, "only 'channel' and 'settings' can be awaited"},
      {"await channel now", 15, "'now' is one word too many"},
      {"at 1s await channel", 7, "'await' only begins a line"},
      {"status", 1, "'status' is not a command"},
      {"\"dump\"", 1, "'dump' is not a command"},
      {"at 10ms foo", 9, "'foo' is not a command"},
      {"dump 0 times", 1, "0 times means never: write 1 times or more"},
      {"dump x times", 6, "'x' is not a number of times from 0 to 1000000000"},
      {"dump 1000000001 times", 6, "'1000000001' is not a number of times from 0 to 1000000000"},
      {"dump -1 times", 6, "'-1' is not a number of times from 0 to 1000000000"},
      {"3 times", 1, "a command is missing"},
      {"dump it", 6, "'it' is one word too many"},
      {"stop 1", 6, "'1' is one word too many: a number of times is written '1 times'"},
      {"event 1 \"2\"", 9, "'2' is one word too many"},
      {"fail ioctl 3", 12, "'3' is one word too many: a number of times is written '3 times'"},
      {"event", 6, "an event type is missing"},
      {"event 20", 7, "'20' is not an event type from 0 to 19"},
      {"event -1", 7, "'-1' is not an event type from 0 to 19"},
      {"event 0x1", 7, "'0x1' is not an event type from 0 to 19"},
      {"event door", 7, "no event type is called 'door'"},
      {"event 1 device", 15, "a device is missing"},
      {"event 1 device 65536", 16, "'65536' is not a device from 0 to 65535"},
      {"event 1 device 1 port 2", 18, "'port' is one word too many"},
      {"event 1 data", 13, "bytes in hexadecimal are missing"},
      {"event 1 data 1", 14, "'1' is not hexadecimal, two digits a byte"},
      {"event 1 data 01 0g", 17, "'0g' is not hexadecimal, two digits a byte"},
      {"event 1 text", 13, "a text is missing"},
      {"event 1 text a b", 16, "'b' is one word too many"},
      {"name", 5, "an event type is missing"},
      {"name 7", 7, "a name is missing"},
      {"name 20 x", 6, "'20' is not an event type from 0 to 19"},
      {"name 7 7up", 8, "'7up' is not a name: a letter, then letters, digits, '-', '_', 32 at most"},
      {"name 7 \"\"", 8, "'' is not a name: a letter, then letters, digits, '-', '_', 32 at most"},
      {long_name_line.c_str(), 8, long_name_reason.c_str()},
      {"name 7 storm", 8, "another event type has the name 'storm'"},
      {"kmsg", 5, "a text is missing"},
      {"kmsg 5 6", 9, "a text is missing"},
      {"kmsg 100 6 x", 6, "'100' is not a module from 0 to 99"},
      {"kmsg 5 9 x", 8, "'9' is not a level from 0 to 8"},
      {"kmsg 5 6 x y", 12, "'y' is one word too many"},
      {"raw-kmsg", 9, "a text is missing"},
      {"raw-datagram", 13, "bytes in hexadecimal are missing"},
      {"raw-datagram xyz", 14, "'xyz' is not hexadecimal, two digits a byte"},
      {"fail", 5, "ioctl, open, bind or socket is missing"},
      {"fail 2 times", 6, "ioctl, open, bind or socket is missing"},
      {"fail read 2 times", 6, "'read' is not one of ioctl, open, bind, socket"},
      {"say", 4, "a text is missing"},
      {"say a b", 7, "'b' is one word too many"},
  };
  for (const FaultyLine &row : kRows) {
    SCOPED_TRACE(row.text);
    Names names(kTypes);
    bool is_blank = true;
    Fault fault = {0, ""};
    EXPECT_FALSE(parse_line(row.text, &names, &is_blank, &fault));
    EXPECT_FALSE(is_blank);
    EXPECT_EQ(fault.column, row.column);
    EXPECT_EQ(fault.reason, row.reason);
    EXPECT_EQ(names.of(7), "");  // a faulty line sets no name
  }
}

TEST(ScriptLines, HaveEventDataOfAtMost65535Bytes) {
  EXPECT_EQ(command_of("event 1 text \"" + std::string(65535, 'x') + '"').text.size(), 65535u);
  Names names(kTypes);
  bool is_blank = false;
  Fault fault;
  EXPECT_FALSE(parse_line("event 1 text \"" + std::string(65536, 'x') + '"', &names, &is_blank, &fault));
  EXPECT_EQ(fault.column, 9u);
  EXPECT_EQ(fault.reason, "more than 65535 bytes of data");
}

class ScriptFiles : public testing::Test {
 protected:
  ScriptFiles() { close(mkstemp(path_.data())); }
  ~ScriptFiles() override { std::filesystem::remove(path_); }

  void write(const std::string &text) const { std::ofstream(path_) << text; }

  // Reads the script; its faults are in `faults_`.
  std::vector<Line> read(const std::string &path) {
    faults_.clear();
    return read_script(path, &names_, &faults_);
  }

  std::string path_ = (std::filesystem::temp_directory_path() / "tarn-script-XXXXXX").string();
  std::vector<std::string> faults_;

 private:
  Names names_ = Names(kTypes);
};

TEST_F(ScriptFiles, GiveTheirLines) {
  write("# a day\nawait channel\nat 1s dump\n\nstop");
  const std::vector<Line> lines = read(path_);
  EXPECT_TRUE(faults_.empty());
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[2].command.kind, Kind::kStop);
  write("");
  EXPECT_TRUE(read(path_).empty());
  EXPECT_TRUE(faults_.empty());
}

TEST_F(ScriptFiles, ReportEveryFaultWithFileLineAndColumn) {
  write("dump\n\n  at 1s foo\ndump\nsay \"x\nname 7 storm\n");
  read(path_);
  EXPECT_EQ(faults_,
            (std::vector<std::string>{path_ + ":3:9: 'foo' is not a command", path_ + ":5:5: the string has no end",
                                      path_ + ":6:8: another event type has the name 'storm'"}));
}

TEST_F(ScriptFiles, ReportWhyTheyCannotBeRead) {
  read(path_ + "-none");
  EXPECT_EQ(faults_, std::vector<std::string>{path_ + "-none: No such file or directory"});
  const std::string folder = std::filesystem::temp_directory_path().string();
  read(folder);
  EXPECT_EQ(faults_, std::vector<std::string>{folder + ": Is a directory"});
}
