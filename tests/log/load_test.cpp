// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Reading the files back into the rings: the marker, and every form of line.

#include "log/load.h"

using namespace tarn_test;

namespace {

using LogStoreLoad = LoadedFiles;

}  // namespace

TEST_F(LogStoreLoad, FilesBelowNineBytesLoadNothing) {
  const std::string file = kSysMarker + good("kept");
  for (size_t size = 0; size <= 9; size++) {
    SCOPED_TRACE(size);
    expect_system_load(file.substr(0, size), {});
    expect_user_load(("\n\n" + good("kept")).substr(0, size), {});
  }
}

TEST_F(LogStoreLoad, AFileWithoutItsMarkerLoadsNothing) {
  expect_system_load(good("a") + good("b"), {});
  expect_system_load("SysLog: \n" + good("a"), {});
  expect_system_load("syslog:\n" + good("a"), {});
  expect_system_load("\n\n" + good("a"), {});
  expect_user_load(kSysMarker + good("a"), {});
}

TEST_F(LogStoreLoad, AUserFileWhoseHeaderLacksTheEmptyLineLoadsNothing) {
  std::string header = kEmptyHeader;
  header.pop_back();
  expect_user_load(header + good("a") + good("b"), {});
  expect_user_load(header + "\n" + good("a") + good("b"), {good_record("a"), good_record("b")});
}

TEST_F(LogStoreLoad, TheMarkerMayFollowOtherText) {
  expect_system_load("anything\n\nSysLog:\n" + good("a"), {good_record("a")});
  expect_system_load("xSysLog:\n" + good("a"), {good_record("a")});
  expect_system_load("SysSysLog:\n" + good("a"), {good_record("a")});
  expect_user_load("x\n\n" + good("a"), {good_record("a")});
  // The first marker counts: the line after it is not a record.
  expect_system_load("SysLog:\nSysLog:\n" + good("a"), {});
  expect_user_load("\n\n\n" + good("a"), {});
}

TEST_F(LogStoreLoad, AMarkerIsFoundAfterNuls) {
  expect_system_load(std::string("\0\0\0", 3) + kSysMarker + good("a"), {good_record("a")});
  expect_user_load(std::string("\0\0\0", 3) + kUsrMarker + good("a"), {good_record("a")});
}

TEST_F(LogStoreLoad, MissesAMarkerThatEndsWithTheFirstChunk) {
  // The first read gets the whole file; the marker is at its end.
  expect_system_load(std::string("xSysLog:\n"), {});
  // A first read of 512 bytes: the marker may end before its last byte.
  for (size_t before = 495; before <= 512; before++) {
    SCOPED_TRACE(before);
    const Records one = {good_record("a")};
    expect_system_load(std::string(before, 'h') + kSysMarker + good("a"), before + 8 < 512 ? one : Records());
    expect_user_load(std::string(before, 'h') + kUsrMarker + good("a"), before + 2 < 512 ? one : Records());
  }
}

TEST_F(LogStoreLoad, AllModulesAndLevelsAreRead) {
  std::string file = kSysMarker;
  Records records;
  for (unsigned module = 0; module < 21; module++) {
    for (unsigned level = 0; level <= 8; level++) {
      records.push_back({module, level, kTen, "text"});
      file += line_of(kLevelNames[level], "m" + std::to_string(module), "text");
    }
  }
  expect_system_load(file, records);  // a module of the other ring too: any registered one
}

TEST_F(LogStoreLoad, AnUnknownModuleEndsTheLoad) {
  for (const char *module : {"m21", "M1", "m", "m0 ", " m0", "", "m00", "0123456789abcdef", "0123456789abcdefg"}) {
    SCOPED_TRACE(module);
    expect_system_load(kSysMarker + good("a") + line_of("Error", module, "b") + good("c"), {good_record("a")});
    expect_user_load(kUsrMarker + good("a") + line_of("Error", module, "b") + good("c"), {good_record("a")});
  }
}

TEST_F(LogStoreLoad, AnUnknownLevelEndsTheLoad) {
  for (const char *level : {"error", "ERROR", "Err", "Errors", "", "4", " Error", "Error ", "0123456789abcdef",
                            "0123456789abcdefg", "Error\t"}) {
    SCOPED_TRACE(level);
    expect_system_load(kSysMarker + good("a") + line_of(level, "m0", "b") + good("c"), {good_record("a")});
  }
}

TEST_F(LogStoreLoad, TheFirstOfEqualNamesIsMeant) {
  Names names = numbered_names();
  names[5] = names[2] = "twin";
  write_file(sys(), kSysMarker + line_of("Info", "twin", "text"));
  start(names);
  expect_system({{2, 7, kTen, "text"}});
}

TEST_F(LogStoreLoad, NamesMayHoldAnythingButTheirEnd) {
  Names names = numbered_names();
  names[3] = "with a blank";
  names[4] = "[brackets]";
  names[5] = "abcdefghijklmno";  // 15, the longest
  write_file(sys(), kSysMarker + line_of("Off", "with a blank", "a") + line_of("Debug", "[brackets]", "b") +
                        line_of("Alert", "abcdefghijklmno", "c:d:e"));
  start(names);
  expect_system({{3, 0, kTen, "a"}, {4, 8, kTen, "b"}, {5, 2, kTen, "c:d:e"}});
}

TEST_F(LogStoreLoad, ALineThatIsNotARecordEndsTheLoad) {
  for (const char *bad :
       {"", "x", "2026-01", "2026-01-", "2026/01-02 10:00:00[Error]m0:b", "2026-01/02 10:00:00[Error]m0:b",
        "no dashes here [Error]m0:b", "....-..-", "....-..-.. ..:..:..[Error]m0:b", "2026-01-02[Error]m0:b",
        "2026-01-02 10:00[Error]m0:b", "2026-01-02 10:00:[Error]m0:b", "2026-01-02 10.00.00[Error]m0:b",
        "2026-01-02 10:00:00[Error m0:b", "2026-01-02 aa:bb:cc[Error]m0:b", "-026--1---", "SysLog:", "SWVer:1;"}) {
    SCOPED_TRACE(bad);
    const std::string file = good("a") + bad + "\n" + good("c");
    expect_system_load(kSysMarker + file, {good_record("a")});
    expect_user_load(kUsrMarker + file, {good_record("a")});
  }
}

TEST_F(LogStoreLoad, ALineWithoutABracketEndsTheLoad) {
  expect_system_load(kSysMarker + good("a") + kTenStamp + "Error]m0:b\n" + good("c"), {good_record("a")});
  // This holds even if the empty name is a module: no level has an empty name.
  Names names = numbered_names();
  names[6] = "";
  expect_as_read(kSysMarker + good("a") + kTenStamp + "\n" + good("c"), names);
  expect_system({good_record("a")});
}

TEST_F(LogStoreLoad, TheFirstBracketCounts) {
  expect_system_load(
      kSysMarker + kTenStamp + " (this text is skipped) [Error]m0:a\n" + kTenStamp + "]:[Error]m0:b[Info]m1:c\n",
      {good_record("a"), good_record("b[Info]m1:c")});
}

TEST_F(LogStoreLoad, ANameWithoutItsEndIsTakenAsFarAsItGoes) {
  // The module's name reaches to the end of the line: known, but without a text.
  expect_system_load(kSysMarker + good("a") + kTenStamp + "[Error]m0\n" + good("c"),
                     {good_record("a"), good_record("c")});
  expect_system_load(kSysMarker + good("a") + kTenStamp + "[Error]m9999\n" + good("c"), {good_record("a")});
  // The level's name reaches to the end of the line.
  expect_system_load(kSysMarker + good("a") + kTenStamp + "[Error\n" + good("c"), {good_record("a")});
  Names names = numbered_names();
  names[6] = "";
  expect_as_read(kSysMarker + good("a") + kTenStamp + "[Error\n" + good("c"), names);
  expect_system({good_record("a"), good_record("c")});
  expect_as_read(kSysMarker + good("a") + kTenStamp + "[Error]\n" + good("c"), names);
  expect_system({good_record("a"), good_record("c")});
}

TEST_F(LogStoreLoad, ARecordWithoutTextIsOverwrittenByTheNext) {
  expect_system_load(kSysMarker + good("") + good("a") + line_of("Debug", "m3", "") + good("") + good("b"),
                     {good_record("a"), good_record("b")});
  expect_system_load(kSysMarker + good("a") + good(""), {good_record("a")});
}

TEST_F(LogStoreLoad, ARejectedLineLeavesNoText) {
  expect_system_load(kSysMarker + line_of("Error", "unknown", "must not stay"), {});
  expect_system_load(kSysMarker + line_of("unknown", "m0", "must not stay"), {});
}

TEST_F(LogStoreLoad, TextsAreCutTo255Characters) {
  for (const size_t size : std::vector<size_t>{1, 254, 255, 256, 257, 300, 400}) {
    SCOPED_TRACE(size);
    expect_system_load(kSysMarker + good(std::string(size, 't')) + good("next"),
                       {good_record(std::string(std::min<size_t>(size, 255), 't')), good_record("next")});
  }
}

TEST_F(LogStoreLoad, TextsKeepEveryByteButTheirEnd) {
  std::string text;
  for (int byte = 1; byte < 256; byte++) {
    if (byte != '\n') text += static_cast<char>(byte);
  }
  expect_system_load(kSysMarker + good(text) + good(" :]["), {good_record(text), good_record(" :][")});
}

TEST_F(LogStoreLoad, ANulEndsATextAndNotTheLoad) {
  expect_system_load(kSysMarker + good(std::string("before\0after", 12)) + good("next"),
                     {good_record("before"), good_record("next")});
  expect_system_load(kSysMarker + good(std::string("\0after", 6)) + good("next"), {good_record("next")});
}

TEST_F(LogStoreLoad, ANulAnywhereInALineEndsTheLine) {
  const std::string bad = good("text");
  for (size_t at = 0; at < bad.size() - 1; at++) {
    SCOPED_TRACE(at);
    std::string line = bad;
    line[at] = '\0';
    expect_as_read("\n\nSysLog:\n" + good("a") + line + good("c"));
    expect_as_read("header\n\n" + good("a") + line + good("c"));
  }
}

TEST_F(LogStoreLoad, AnUnfinishedLastLineIsDropped) {
  std::string last = good("last");
  last.pop_back();
  expect_system_load(kSysMarker + good("a") + last, {good_record("a")});
  expect_system_load(kSysMarker + last, {});
  expect_user_load(kUsrMarker + good("a") + last, {good_record("a")});
}

TEST_F(LogStoreLoad, TheFileThatAStartMakesLoadsNothing) { expect_system_load(kFreshSysFile, {}); }

TEST_F(LogStoreLoad, TheSystemFileLeavesNothingForTheUserFile) {
  const std::string left_over = good("a").append(kUsrMarker).append(good("b"));
  for (const char *user : {"", "\n", "12345678", "123456789", "header\n\n"}) {
    SCOPED_TRACE(user);
    write_file(sys(), std::string(kSysMarker).append(left_over).append(left_over));
    write_file(usr(), user);
    EXPECT_EQ(start(), start_line(21));
    expect_system({good_record("a")});
    expect_user({});
  }
}
