// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Reading the files back into the rings: the marker, and every form of line.

#include "contract_load.h"

using namespace tarn_test;

TEST(LogStoreLoadContract, FilesBelowNineBytesLoadNothing) {
  Store store;
  const std::string file = kSysMarker + good("kept");
  for (size_t size = 0; size <= 9; size++) {
    SCOPED_TRACE(size);
    expect_system_load(store, file.substr(0, size), {});
    expect_user_load(store, ("\n\n" + good("kept")).substr(0, size), {});
  }
}

TEST(LogStoreLoadContract, AFileWithoutItsMarkerLoadsNothing) {
  Store store;
  expect_system_load(store, good("a") + good("b"), {});
  expect_system_load(store, "SysLog: \n" + good("a"), {});
  expect_system_load(store, "syslog:\n" + good("a"), {});
  expect_system_load(store, "\n\n" + good("a"), {});
  expect_user_load(store, kSysMarker + good("a"), {});
}

TEST(LogStoreLoadContract, AUserFileWhoseHeaderLacksTheEmptyLineLoadsNothing) {
  Store store;
  std::string header = kEmptyHeader;
  header.pop_back();
  expect_user_load(store, header + good("a") + good("b"), {});
  expect_user_load(store, header + "\n" + good("a") + good("b"), {good_record("a"), good_record("b")});
}

TEST(LogStoreLoadContract, TheMarkerMayStandBehindOtherText) {
  Store store;
  expect_system_load(store, "anything\n\nSysLog:\n" + good("a"), {good_record("a")});
  expect_system_load(store, "xSysLog:\n" + good("a"), {good_record("a")});
  expect_system_load(store, "SysSysLog:\n" + good("a"), {good_record("a")});
  expect_user_load(store, "x\n\n" + good("a"), {good_record("a")});
  // The first marker counts: what follows it is no record.
  expect_system_load(store, "SysLog:\nSysLog:\n" + good("a"), {});
  expect_user_load(store, "\n\n\n" + good("a"), {});
}

TEST(LogStoreLoadContract, AMarkerIsFoundBehindNuls) {
  Store store;
  expect_system_load(store, std::string("\0\0\0", 3) + kSysMarker + good("a"), {good_record("a")});
  expect_user_load(store, std::string("\0\0\0", 3) + kUsrMarker + good("a"), {good_record("a")});
}

TEST(LogStoreLoadContract, AMarkerAtTheEndOfTheFirstReadIsNotFound) {
  Store store;
  // The whole file within the first read, the marker its last bytes.
  expect_system_load(store, std::string("xSysLog:\n"), {});
  // A first read of 512 bytes: the marker may end before its last byte.
  for (size_t before = 495; before <= 512; before++) {
    SCOPED_TRACE(before);
    const std::vector<Record> one = {good_record("a")};
    expect_system_load(store, std::string(before, 'h') + kSysMarker + good("a"),
                       before + 8 < 512 ? one : std::vector<Record>());
    expect_user_load(store, std::string(before, 'h') + kUsrMarker + good("a"),
                     before + 2 < 512 ? one : std::vector<Record>());
  }
}

TEST(LogStoreLoadContract, AllModulesAndLevelsAreRead) {
  Store store;
  std::string file = kSysMarker;
  std::vector<Record> records;
  for (unsigned module = 0; module < 21; module++) {
    for (unsigned level = 0; level <= 8; level++) {
      records.push_back({module, level, kTen, "text"});
      file += line_of(kLevelNames[level], "m" + std::to_string(module), "text");
    }
  }
  expect_system_load(store, file, records);  // a module of the other ring too: any registered one
}

TEST(LogStoreLoadContract, AnUnknownModuleEndsTheLoad) {
  Store store;
  for (const char *module : {"m21", "M1", "m", "m0 ", " m0", "", "m00", "0123456789abcdef", "0123456789abcdefg"}) {
    SCOPED_TRACE(module);
    expect_system_load(store, kSysMarker + good("a") + line_of("Error", module, "b") + good("c"), {good_record("a")});
    expect_user_load(store, kUsrMarker + good("a") + line_of("Error", module, "b") + good("c"), {good_record("a")});
  }
}

TEST(LogStoreLoadContract, AnUnknownLevelEndsTheLoad) {
  Store store;
  for (const char *level : {"error", "ERROR", "Err", "Errors", "", "4", " Error", "Error ", "0123456789abcdef",
                            "0123456789abcdefg", "Error\t"}) {
    SCOPED_TRACE(level);
    expect_system_load(store, kSysMarker + good("a") + line_of(level, "m0", "b") + good("c"), {good_record("a")});
  }
}

TEST(LogStoreLoadContract, TheFirstOfEqualNamesIsMeant) {
  Store store;
  Names names = numbered_names();
  names[5] = names[2] = "twin";
  Store::write(store.sys(), kSysMarker + line_of("Info", "twin", "text"));
  store.start(names);
  store.expect_system({{2, 7, kTen, "text"}});
}

TEST(LogStoreLoadContract, NamesMayHoldAnythingButTheirEnd) {
  Store store;
  Names names = numbered_names();
  names[3] = "with a blank";
  names[4] = "[brackets]";
  names[5] = "abcdefghijklmno";  // 15, the longest
  Store::write(store.sys(), kSysMarker + line_of("Off", "with a blank", "a") + line_of("Debug", "[brackets]", "b") +
                                line_of("Alert", "abcdefghijklmno", "c:d:e"));
  store.start(names);
  store.expect_system({{3, 0, kTen, "a"}, {4, 8, kTen, "b"}, {5, 2, kTen, "c:d:e"}});
}

TEST(LogStoreLoadContract, ALineThatIsNoRecordEndsTheLoad) {
  Store store;
  for (const char *bad :
       {"", "x", "2026-01", "2026-01-", "2026/01-02 10:00:00[Error]m0:b", "2026-01/02 10:00:00[Error]m0:b",
        "no dashes here [Error]m0:b", "....-..-", "....-..-.. ..:..:..[Error]m0:b", "2026-01-02[Error]m0:b",
        "2026-01-02 10:00[Error]m0:b", "2026-01-02 10:00:[Error]m0:b", "2026-01-02 10.00.00[Error]m0:b",
        "2026-01-02 aa:bb:cc[Error]m0:b", "-026--1---", "SysLog:", "SWVer:1;"}) {
    SCOPED_TRACE(bad);
    const std::string file = good("a") + bad + "\n" + good("c");
    expect_system_load(store, kSysMarker + file, {good_record("a")});
    expect_user_load(store, kUsrMarker + file, {good_record("a")});
  }
}

TEST(LogStoreLoadContract, ALineWithoutABracketEndsTheLoad) {
  Store store;
  expect_system_load(store, kSysMarker + good("a") + kStamp + "Error]m0:b\n" + good("c"), {good_record("a")});
  // Even where the empty name is a module: there is no empty level.
  Names names = numbered_names();
  names[6] = "";
  expect_as_read(store, kSysMarker + good("a") + kStamp + "\n" + good("c"), names);
  store.expect_system({good_record("a")});
}

TEST(LogStoreLoadContract, TheFirstBracketCounts) {
  Store store;
  expect_system_load(
      store,
      kSysMarker + kStamp + " (what stands here is passed over) [Error]m0:a\n" + kStamp + "]:[Error]m0:b[Info]m1:c\n",
      {good_record("a"), good_record("b[Info]m1:c")});
}

TEST(LogStoreLoadContract, ANameWithoutItsEndIsTakenAsFarAsItGoes) {
  Store store;
  // The module's name reaches to the end of the line: known, but without a text.
  expect_system_load(store, kSysMarker + good("a") + kStamp + "[Error]m0\n" + good("c"),
                     {good_record("a"), good_record("c")});
  expect_system_load(store, kSysMarker + good("a") + kStamp + "[Error]m9999\n" + good("c"), {good_record("a")});
  // The level's name reaches to the end of the line.
  expect_system_load(store, kSysMarker + good("a") + kStamp + "[Error\n" + good("c"), {good_record("a")});
  Names names = numbered_names();
  names[6] = "";
  expect_as_read(store, kSysMarker + good("a") + kStamp + "[Error\n" + good("c"), names);
  store.expect_system({good_record("a"), good_record("c")});
  expect_as_read(store, kSysMarker + good("a") + kStamp + "[Error]\n" + good("c"), names);
  store.expect_system({good_record("a"), good_record("c")});
}

TEST(LogStoreLoadContract, ARecordWithoutTextIsOverwrittenByTheNext) {
  Store store;
  expect_system_load(store, kSysMarker + good("") + good("a") + line_of("Debug", "m3", "") + good("") + good("b"),
                     {good_record("a"), good_record("b")});
  expect_system_load(store, kSysMarker + good("a") + good(""), {good_record("a")});
}

TEST(LogStoreLoadContract, ARejectedLineLeavesNoText) {
  Store store;
  expect_system_load(store, kSysMarker + line_of("Error", "unknown", "must not stay"), {});
  expect_system_load(store, kSysMarker + line_of("unknown", "m0", "must not stay"), {});
}

TEST(LogStoreLoadContract, TextsAreCutTo255Characters) {
  Store store;
  for (const size_t size : std::vector<size_t>{1, 254, 255, 256, 257, 300, 400}) {
    SCOPED_TRACE(size);
    expect_system_load(store, kSysMarker + good(std::string(size, 't')) + good("next"),
                       {good_record(std::string(std::min<size_t>(size, 255), 't')), good_record("next")});
  }
}

TEST(LogStoreLoadContract, TextsKeepEveryByteButTheirEnd) {
  Store store;
  std::string text;
  for (int byte = 1; byte < 256; byte++) {
    if (byte != '\n') text += static_cast<char>(byte);
  }
  expect_system_load(store, kSysMarker + good(text) + good(" :]["), {good_record(text), good_record(" :][")});
}

TEST(LogStoreLoadContract, ANulEndsATextAndNotTheLoad) {
  Store store;
  expect_system_load(store, kSysMarker + good(std::string("before\0after", 12)) + good("next"),
                     {good_record("before"), good_record("next")});
  expect_system_load(store, kSysMarker + good(std::string("\0after", 6)) + good("next"), {good_record("next")});
}

TEST(LogStoreLoadContract, ANulAnywhereInALineEndsTheLine) {
  Store store;
  const std::string bad = good("text");
  for (size_t at = 0; at < bad.size() - 1; at++) {
    SCOPED_TRACE(at);
    std::string line = bad;
    line[at] = '\0';
    expect_as_read(store, "\n\nSysLog:\n" + good("a") + line + good("c"));
    expect_as_read(store, "header\n\n" + good("a") + line + good("c"));
  }
}

TEST(LogStoreLoadContract, AnUnfinishedLastLineIsDropped) {
  Store store;
  std::string last = good("last");
  last.pop_back();
  expect_system_load(store, kSysMarker + good("a") + last, {good_record("a")});
  expect_system_load(store, kSysMarker + last, {});
  expect_user_load(store, kUsrMarker + good("a") + last, {good_record("a")});
}

TEST(LogStoreLoadContract, TheFileThatStartUpMakesLoadsNothing) {
  Store store;
  expect_system_load(store, std::string("SysLog:\n\0", 9), {});
}

TEST(LogStoreLoadContract, TheSystemFileLeavesNothingForTheUserFile) {
  Store store;
  const std::string left_over = good("a").append(kUsrMarker).append(good("b"));
  for (const char *user : {"", "\n", "12345678", "123456789", "header\n\n"}) {
    SCOPED_TRACE(user);
    Store::write(store.sys(), std::string(kSysMarker).append(left_over).append(left_over));
    Store::write(store.usr(), user);
    EXPECT_EQ(store.start(), start_line(21));
    store.expect_system({good_record("a")});
    store.expect_user({});
  }
}

TEST(LogStoreLoadContract, OddStampsAreReadAsScanfReadsThem) {
  Store store;
  const char *stamps[] = {
      "2026-01-02 10:00:00",  "2026-1 -2 10:00:00",  "0026-01-02 10:00:00",  "  26-01-02 10:00:00",
      "+026-01-02 10:00:00",  "-026-01-02 10:00:00", "2026-13-02 10:00:00",  "2026-00-00 00:00:00",
      "2026-02-31 24:60:60",  "2026-99-99 99:99:99", "2026- 1- 2 10:00:00",  "2026-01-02 1:2:3",
      "2026-01-02   10:0:0",  "2026-01-0210:00:00",  "2026-01-02\t10: 0: 0", "2026-+1-+2 +1:+2:+3",
      "2026--1--2 -1:-2:-3",  "2026-01-02 10:00: 7", "2026-01-02 10:00:0",   "2026-01-02 10:00:000",
      "2026-01-02 10:00:0x",  "2026-01-02 10 :00:0", "2026-01-02 100:0:00",  "2026-01-2 10:00:00",
      "2026-01-002 0:00:00",  "9999-12-31 23:59:59", "0000-01-01 00:00:00",  "1970-01-01 00:00:00",
      "1969-12-31 23:59:59",  "2024-02-29 12:00:00", "2023-02-29 12:00:00",  "1900-02-29 12:00:00",
      "2000-02-29 12:00:00",  "2038-01-19 03:14:08", "20 6-01-02 10:00:00",  "202x-01-02 10:00:00",
      "2026-0x-02 10:00:00",  "2026-01-0x 10:00:00", "2026-01-02 x0:00:00",  "2026-01-02 10:x0:00",
      "2026-01-02 10:00:x0",  "2026-01-02T10:00:00", "2026-01-02 ",          "2026-01-02",
      "2026-01-02 10:00:+",   "2026-01-02 10:00:-0", "2026-01-  10:00:00",   "2026-01-02 10:00 :0",
      "2026-01-02\v10:00:00", "\t\t26-01-02 1:1:1",
  };
  for (const char *zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3"}) {
    Store::set_zone(zone);
    for (const char *stamp : stamps) {
      SCOPED_TRACE(testing::Message() << zone << ": " << stamp);
      expect_as_read(store,
                     std::string(kSysMarker) + "2026-01-02 10:00:00[Error]m0:\n" + stamp + "[Error]m0:b\n" + good("c"));
      expect_as_read(store, std::string(kUsrMarker) + good("a") + stamp + "[Info]m16:b\n" + good("c"));
    }
  }
}
