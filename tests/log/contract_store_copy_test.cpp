// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_file_get: which lines a copy has, and what it does with files that are not there.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <random>

#include "contract_store.h"

using namespace tarn_test;
using testing::MatchesRegex;

namespace {

const std::string kStamp = "2026-01-02 10:00:00";

std::string line_of(const std::string &level, const std::string &module, const std::string &text) {
  return kStamp + "[" + level + "]" + module + ":" + text + "\n";
}

std::string copied(const Store &store, int which, const char *module, unsigned level_count) {
  unlink(store.out().c_str());
  EXPECT_EQ(
      mup_log_file_get(store.out().c_str(), static_cast<int8_t>(which), module, static_cast<uint8_t>(level_count)), 0);
  return Store::bytes_of(store.out());
}

// Copies a file that stands in place of the system log.
std::string copy_of(const Store &store, const std::string &file, const char *module = nullptr, unsigned levels = 0) {
  Store::write(store.sys(), file);
  return copied(store, 0, module, levels);
}

}  // namespace

TEST(LogStoreCopyContract, WithoutAModuleEveryLineIsCopied) {
  Store store;
  store.start();
  const std::string file = std::string(kSysMarker) + line_of("Error", "m0", "a") + "any other line\n\n" +
                           line_of("Debug", "unknown", "b") + line_of("No level", "m1", "") + "unfinished";
  for (const unsigned levels : {0u, 1u, 9u, 255u}) EXPECT_EQ(copy_of(store, file, nullptr, levels), file);
}

TEST(LogStoreCopyContract, ZeroIsTheSystemLogAndAnythingElseTheUserLog) {
  Store store;
  store.start();
  Store::write(store.sys(), "system\n");
  Store::write(store.usr(), "user\n");
  EXPECT_EQ(copied(store, 0, nullptr, 0), "system\n");
  for (const int which : {1, 2, 127, -1, -128}) EXPECT_EQ(copied(store, which, nullptr, 0), "user\n");
}

TEST(LogStoreCopyContract, CopiesTheFileAndNotTheRing) {
  Store store;
  store.start();
  log_text(0, 4, "saved");
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  log_text(0, 4, "not saved");
  EXPECT_EQ(copied(store, 0, nullptr, 0), "SysLog:\n2026-01-02 03:04:05[Error]m0:saved\n");
  EXPECT_EQ(store.ctrl->dirty, 1);
}

TEST(LogStoreCopyContract, AFreshSystemFileIsCopiedAsItsMarkerLine) {
  Store store;
  store.start();
  EXPECT_EQ(copied(store, 0, nullptr, 0), "SysLog:\n");  // a NUL ends a line
  EXPECT_EQ(copied(store, 1, nullptr, 0), "");
}

TEST(LogStoreCopyContract, HoldsTheLockWhileItCopies) {
  Store store;
  store.start();
  int busy = 0;
  Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *mode) {
    if (mu_mutex_trylock(store.ctrl->mutex) == EBUSY) {
      busy++;
    } else {
      mu_mutex_unlock(store.ctrl->mutex);
    }
    return libc::fopen.real(path, mode);
  });
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(busy, 2);
}

TEST(LogStoreCopyContract, OverwritesWhatStoodInTheCopy) {
  Store store;
  store.start();
  Store::write(store.out(), std::string(1000, 'x'));
  Store::write(store.sys(), "short\n");
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(Store::bytes_of(store.out()), "short\n");
}

TEST(LogStoreCopyContract, AModuleAndLevelsSelectRecords) {
  Store store;
  store.start();
  std::string file = kSysMarker;
  for (const char *level : kLevelNames) {
    file += line_of(level, "m1", "text");
    file += line_of(level, "m10", "text");
  }
  file += "\nno record at all\n";
  for (const unsigned count : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 127u, 128u, 255u}) {
    SCOPED_TRACE(count);
    std::string expected = kSysMarker;
    for (unsigned level = 0; level < std::min(count, 9u); level++)
      expected += line_of(kLevelNames[level], "m1", "text");
    ASSERT_EQ(copy_of(store, file, "m1", count), expected + "\nno record at all\n");
  }
}

TEST(LogStoreCopyContract, ALevelsNameCountsAnywhereInTheLine) {
  Store store;
  store.start();
  const std::string off = line_of("Debug", "m1", "the word Off");
  const std::string error = line_of("Info", "m1", "an Errormessage");
  const std::string lower = line_of("Info", "m1", "an error, off");
  const std::string file = kSysMarker + off + error + lower + line_of("Error", "m2", "]m1:");
  EXPECT_EQ(copy_of(store, file, "m1", 1), kSysMarker + off);
  // "]m1:" counts anywhere too.
  EXPECT_EQ(copy_of(store, file, "m1", 5), kSysMarker + off + error + line_of("Error", "m2", "]m1:"));
  EXPECT_EQ(copy_of(store, file, "m1", 8), file);
  EXPECT_EQ(copy_of(store, file, "m1", 9), file);
}

TEST(LogStoreCopyContract, FiveLevelsCopyWhatNamesOneOfThem) {
  Store store;
  store.start();
  std::string file = kSysMarker;
  std::string expected = kSysMarker;
  for (unsigned level = 0; level <= 8; level++) {
    file += line_of(kLevelNames[level], "m1", "x");
    file += line_of(kLevelNames[level], "m1", "Critical too");
    if (level < 5) expected += line_of(kLevelNames[level], "m1", "x");
    expected += line_of(kLevelNames[level], "m1", "Critical too");
  }
  EXPECT_EQ(copy_of(store, file, "m1", 5), expected);
}

TEST(LogStoreCopyContract, AModulesNameIsTakenWhole) {
  Store store;
  store.start();
  const std::string file = line_of("Error", "m1", "a") + line_of("Error", "m11", "b") + line_of("Error", "", "c") +
                           line_of("Error", "a name of thirty-two characters.", "d");
  EXPECT_EQ(copy_of(store, file, "m1", 9), line_of("Error", "m1", "a"));
  EXPECT_EQ(copy_of(store, file, "m", 9), "");
  EXPECT_EQ(copy_of(store, file, "1", 9), "");
  EXPECT_EQ(copy_of(store, file, "", 9), line_of("Error", "", "c"));  // "]:"
  EXPECT_EQ(copy_of(store, file, "a name of thirty-two characters.", 9),
            line_of("Error", "a name of thirty-two characters.", "d"));
  EXPECT_EQ(copy_of(store, file, "%s", 9), "");
}

TEST(LogStoreCopyContract, AModuleOf33CharactersIsRefusedBeforeAnythingIsOpened) {
  Store store;
  store.start();
  Console console;
  for (const size_t size : std::vector<size_t>{33, 34, 1000}) {
    EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, std::string(size, 'm').c_str(), 9), 2);
  }
  EXPECT_FALSE(Store::exists(store.out()));
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, std::string(32, 'm').c_str(), 9), 0);
  EXPECT_TRUE(Store::exists(store.out()));
  EXPECT_EQ(console.take(), "");
}

TEST(LogStoreCopyContract, ANullPathIsRefused) {
  Store store;
  Console console;
  EXPECT_EQ(mup_log_file_get(nullptr, 0, nullptr, 0), 2);  // before the start too
  EXPECT_THAT(console.take(), MatchesRegex("mup_log_file_get\\(\\) _[1-9][0-9]*_: assert fail\n"));
  store.start();
  EXPECT_EQ(mup_log_file_get(nullptr, 1, "m1", 9), 2);
  EXPECT_THAT(console.take(), MatchesRegex("mup_log_file_get\\(\\) _[1-9][0-9]*_: assert fail\n"));
}

TEST(LogStoreCopyContract, BeforeTheStartIsRefused) {
  Store store;
  Store::write(store.sys(), "SysLog:\n");
  Console console;
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 1);
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, std::string(33, 'm').c_str(), 0), 1);
  EXPECT_EQ(console.take(), "");
  EXPECT_FALSE(Store::exists(store.out()));
}

TEST(LogStoreCopyContract, AMissingLogLeavesAnEmptyCopy) {
  Store store;
  store.start();
  std::filesystem::remove(store.sys());
  Store::write(store.out(), "old");
  Console console;
  EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "open file fail \n");
  ASSERT_TRUE(Store::exists(store.out()));
  EXPECT_EQ(Store::bytes_of(store.out()), "");
}

TEST(LogStoreCopyContract, ACopyThatCannotBeMadeIsReported) {
  Store store;
  store.start();
  std::string mode;
  std::vector<std::string> opened;
  Console console;
  {
    Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *how) {
      opened.push_back(std::string(path) + " " + how);
      return libc::fopen.real(path, how);
    });
    EXPECT_EQ(mup_log_file_get((store.sandbox.root() + "/none/copy").c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(console.take(), "open file fail \n");
    EXPECT_EQ(opened, (std::vector<std::string>{"/overlay/mu_log.txt r", store.sandbox.root() + "/none/copy w"}));
    EXPECT_EQ(mup_log_file_remove(), 0);
    console.take();
    EXPECT_EQ(mup_log_file_get((store.sandbox.root() + "/none/copy").c_str(), 1, nullptr, 0), 0);  // neither
    EXPECT_EQ(console.take(), "open file fail \n");
  }
  EXPECT_EQ(mup_log_file_get("", 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "open file fail \n");
  EXPECT_EQ(mu_mutex_trylock(store.ctrl->mutex), 0);  // released on every road
  mu_mutex_unlock(store.ctrl->mutex);
}

TEST(LogStoreCopyContract, AFailedCopyLeavesNoFileOpen) {
  Store store;
  store.start();
  std::filesystem::remove(store.sys());
  Console console;
  const int before = dup(0);
  close(before);
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(mup_log_file_get((store.sandbox.root() + "/none/copy").c_str(), 1, nullptr, 0), 0);
  }
  console.take();
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);  // the lowest free descriptor
}

TEST(LogStoreCopyContract, ADirectoryInPlaceOfTheLogCopiesNothing) {
  Store store;
  store.start();
  std::filesystem::remove(store.sys());
  ASSERT_EQ(mkdir(store.sys().c_str(), 0700), 0);
  Console console;
  EXPECT_EQ(copied(store, 0, nullptr, 0), "");
  EXPECT_EQ(console.take(), "");
}

TEST(LogStoreCopyContract, AFullDiskIsNotReported) {
  Store store;
  store.start();
  std::string file = kSysMarker;
  for (int i = 0; i < 300; i++) file += line_of("Error", "m0", std::string(200, 'x'));
  Store::write(store.sys(), file);
  const std::string full = store.path("full");
  ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
  Console console;
  EXPECT_EQ(mup_log_file_get(full.c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "");
}

TEST(LogStoreCopyContract, LinesOfEveryLengthAreCopiedWhole) {
  Store store;
  store.start();
  for (const size_t size :
       std::vector<size_t>{300, 317, 318, 319, 320, 321, 500, 637, 638, 639, 640, 956, 957, 958, 1000}) {
    SCOPED_TRACE(size);
    std::string line = line_of("Error", "m1", "");
    line.insert(line.size() - 1, size - line.size(), 'x');
    const std::string file = std::string(kSysMarker).append(line).append(line_of("Error", "m1", "next")).append(line);
    ASSERT_EQ(copy_of(store, file), file);
    ASSERT_EQ(copy_of(store, file, "m1", 9), file);
    // The pieces behind the first are no records: a filter that drops the record leaves them.
    const std::string rest = size > 319 ? line.substr(319) : "";
    ASSERT_EQ(copy_of(store, file, "m2", 9), std::string(kSysMarker).append(rest).append(rest));
    ASSERT_EQ(copy_of(store, file, "m2", 9), copy_model(file, "m2", 9));
  }
}

TEST(LogStoreCopyContract, APieceThatLooksLikeARecordIsTreatedAsOne) {
  Store store;
  store.start();
  std::string line = line_of("Error", "m1", "");
  line.insert(line.size() - 1, 319 - line.size() + 1, 'x');
  line.insert(line.size() - 1, kStamp + "[Debug]m2:second piece");
  ASSERT_EQ(line.substr(319), line_of("Debug", "m2", "second piece"));
  EXPECT_EQ(copy_of(store, line, "m1", 9), line.substr(0, 319));
  EXPECT_EQ(copy_of(store, line, "m2", 9), line.substr(319));
  Store::set_zone("UTC-1");
  EXPECT_EQ(copy_of(store, line), "2026-01-02 11" + line.substr(13, 306) + "2026-01-02 11" + line.substr(319 + 13));
}

TEST(LogStoreCopyContract, LinesWithoutAReadableStampAreNoRecords) {
  Store store;
  store.start();
  Store::set_zone("UTC-1");
  for (const char *line :
       {"2026-01-", "2026-01-02", "....-..-.. ..:..:..[Error]m1:a", "2026-01-02 10.00.00[Error]m1:a",
        "2026-01-02T10:00:00[Error]m1:a", "2026-01-02 10:00[Error]m1:aaaaaaaaaa", "2026-01-xx 10:00:00[Error]m1:a",
        "2026/01-02 10:00:00[Error]m1:a", "2026-01/02 10:00:00[Error]m1:a", "    -  -           "}) {
    SCOPED_TRACE(line);
    const std::string file = line + std::string("\n") + line;
    EXPECT_EQ(copy_of(store, file), file);
    EXPECT_EQ(copy_of(store, file, "m2", 9), file);  // and so in every filtered copy
  }
}

TEST(LogStoreCopyContract, ALineOf18CharactersIsNoRecordThoughItsStampCanBeRead) {
  // The local stamp would be written over its line feed.
  Store store;
  store.start();
  Store::set_zone("UTC-1");
  const std::string file = "2026-01-02 10:00:0\n2026-01-02 10:00:0";
  EXPECT_EQ(copy_of(store, file), file);
  EXPECT_EQ(copy_of(store, file, "m2", 9), file);
}

TEST(LogStoreCopyContract, OddStampsAreReadAsScanfReadsThem) {
  Store store;
  store.start();
  for (const char *zone : {"UTC0", "UTC-2", "EST5EDT,M3.2.0,M11.1.0"}) {
    Store::set_zone(zone);
    for (const char *stamp :
         {"2026-1 -2 10:00:00",  "2026-13-02 10:00:00", "2026-00-00 00:00:00", "2026-02-31 24:60:60",
          "2026-99-99 99:99:99", "2026-01-02   10:0:0", "2026-01-0210:00:00 ", "2026--1--2 -1:-2:-3",
          "2026-01-02 1:2:3   ", "2026-01-02 10:00:7x", "0001-03-01 00:00:00", "0026-01-02 10:00:00",
          "  26-01-02 10:00:00", "+026-01-02 10:00:00", "2000-02-29 23:59:59", "1900-03-01 00:00:00",
          "1900-02-28 23:59:59", "9998-12-31 23:59:59", "1969-12-31 23:59:59", "2026-01-02 10:00:000"}) {
      SCOPED_TRACE(testing::Message() << zone << ": " << stamp);
      const std::string file = stamp + std::string("[Error]m1:text\n");
      EXPECT_EQ(copy_of(store, file), copy_model(file, nullptr, 0));
      EXPECT_EQ(copy_of(store, file, "m1", 9), copy_model(file, "m1", 9));
      EXPECT_EQ(copy_of(store, file, "m2", 9), copy_model(file, "m2", 9));
    }
  }
}

TEST(LogStoreCopyContract, AYearOfFiveDigitsFillsNoMoreThanTheStamp) {
  Store store;
  store.start();
  Store::set_zone("UTC-2");
  EXPECT_EQ(copy_of(store, "9999-12-31 23:30:00[Error]m1:a\n"), "10000-01-01 01:30:0[Error]m1:a\n");
}

TEST(LogStoreCopyContract, AStampAloneIsARecordLine) {
  Store store;
  store.start();
  Store::set_zone("UTC-1");
  EXPECT_EQ(copy_of(store, kStamp), "2026-01-02 11:00:00");
  EXPECT_EQ(copy_of(store, kStamp + "\n"), "2026-01-02 11:00:00\n");
  EXPECT_EQ(copy_of(store, kStamp + "\n", "m1", 9), "");
}

TEST(LogStoreCopyContract, TheLocalStampIsInPlaceBeforeTheFilterLooks) {
  // Nothing in a stamp can be a module or a level; what stands behind a short stamp within its 19 characters can.
  Store store;
  store.start();
  const std::string line = "2026-01-02 1:2:3]m1:Off\n";
  EXPECT_EQ(copy_of(store, line, "m1", 9), "");  // the stamp is written over "]m1"
  EXPECT_EQ(copy_of(store, line), "2026-01-02 01:02:03:Off\n");
}

TEST(LogStoreCopyContract, RandomFilesAreCopiedAsTheModelSays) {
  Store store;
  store.start();
  std::mt19937 random(319);
  const auto below = [&random](size_t bound) { return static_cast<size_t>(random() % bound); };
  Store::set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  for (int round = 0; round < 60; round++) {
    SCOPED_TRACE(round);
    std::string file = below(2) == 0 ? kSysMarker : kEmptyHeader;
    for (size_t lines = below(30); lines > 0; lines--) {
      std::string line = line_of(kLevelNames[below(9)], "m" + std::to_string(below(4)),
                                 std::string(below(5) == 0 ? 250 + below(800) : below(30), 'x'));
      line[5] = static_cast<char>('0' + below(2));
      line[6] = static_cast<char>('1' + below(2));
      if (below(4) == 0) line.insert(below(line.size()), kLevelNames[below(9)]);
      if (below(6) == 0) line[below(22)] = "-:0[] x"[below(7)];
      file += line;
    }
    const std::string module = "m" + std::to_string(below(4));
    const auto levels = static_cast<unsigned>(below(11));
    ASSERT_EQ(copy_of(store, file, module.c_str(), levels), copy_model(file, module.c_str(), levels));
    ASSERT_EQ(copy_of(store, file), copy_model(file, nullptr, 0));
  }
}
