// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writing the files: what is written, when, and what a save does to the rings.

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <random>

#include "contract_store.h"

using namespace tarn_test;

namespace {

// Puts a record into a ring as a message would.
void put(mup_log_rec *slot, const Record &record, uint32_t line = 0) {
  *slot = {};
  slot->module = static_cast<uint8_t>(record.module);
  slot->level = static_cast<uint8_t>(record.level);
  slot->line = line;
  slot->time = record.time;
  memcpy(slot->text, record.text.data(), std::min<size_t>(record.text.size(), 255));
}

std::string save_system(const Store &store) {
  store.ctrl->dirty = 1;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  return Store::bytes_of(store.sys());
}

std::string save_user(const Store &store) {
  store.ctrl->dirty = 2;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  return Store::bytes_of(store.usr());
}

ino_t inode_of(const std::string &path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_ino;
}

}  // namespace

TEST(LogStoreSaveContract, TheFirstSystemMessageWritesTheMarkerAndOneLine) {
  Store store;
  store.start();
  store.clock.set_wall(1767348000);
  mup_log_msg(0, 3, MUP_LOG_WARNING, 77, "%s", "first");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), "SysLog:\n2026-01-02 10:00:00[Warning]m3:first\n");
  EXPECT_EQ(Store::bytes_of(store.usr()), "");
  EXPECT_EQ(store.ctrl->dirty, 0);
  EXPECT_EQ(store.ctrl->sys_ring[0].line, 77u);
}

TEST(LogStoreSaveContract, TheFirstUserMessageWritesTheHeaderAndOneLine) {
  Store store;
  store.start();
  store.clock.set_wall(1767348000);
  log_text(16, 8, "first");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.usr()),
            "Manufacturer:;\nProductClass:;\nSerialNumber:;\nIP:;\nHWVer:;\nSWVer:;\n\n"
            "2026-01-02 10:00:00[Debug]m16:first\n");
  EXPECT_EQ(Store::bytes_of(store.sys()), std::string("SysLog:\n\0", 9));
}

TEST(LogStoreSaveContract, EachBitWritesItsFileAndEverySaveClearsAll) {
  Store store;
  store.start();
  put(&store.ctrl->sys_ring[0], {0, 4, 0, "s"});
  put(&store.ctrl->usr_ring[0], {16, 4, 0, "u"});
  for (const unsigned dirty : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0x80u, 0xFCu, 0xFFu}) {
    SCOPED_TRACE(dirty);
    Store::write(store.sys(), "old");
    Store::write(store.usr(), "old");
    store.ctrl->dirty = static_cast<uint8_t>(dirty);
    EXPECT_EQ(mup_log_usr_savefile(), 0);
    EXPECT_EQ(store.ctrl->dirty, 0);
    EXPECT_EQ(Store::bytes_of(store.sys()), (dirty & 1) != 0 ? "SysLog:\n1970-01-01 00:00:00[Error]m0:s\n" : "old");
    EXPECT_EQ(Store::bytes_of(store.usr()),
              (dirty & 2) != 0 ? kEmptyHeader + std::string("1970-01-01 00:00:00[Error]m16:u\n") : "old");
  }
}

TEST(LogStoreSaveContract, WithNothingToSaveTheLockIsNotTaken) {
  Store store;
  store.start();
  ASSERT_EQ(mu_mutex_lock(store.ctrl->mutex), 0);
  EXPECT_EQ(mup_log_usr_savefile(), 0);  // would wait for ever
  mu_mutex_unlock(store.ctrl->mutex);
}

TEST(LogStoreSaveContract, TheFilesAreWrittenUnderTheLock) {
  Store store;
  store.start();
  int busy = 0;
  Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *mode) {
    EXPECT_STREQ(mode, "w");
    if (mu_mutex_trylock(store.ctrl->mutex) == EBUSY) {
      busy++;
    } else {
      mu_mutex_unlock(store.ctrl->mutex);
    }
    return libc::fopen.real(path, mode);
  });
  store.ctrl->dirty = 3;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(busy, 2);
  EXPECT_EQ(mu_mutex_trylock(store.ctrl->mutex), 0);
  mu_mutex_unlock(store.ctrl->mutex);
}

TEST(LogStoreSaveContract, BeforeTheStartNothingIsSaved) {
  Store store;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_FALSE(Store::exists(store.sys()));
  EXPECT_FALSE(Store::exists(store.usr()));
}

TEST(LogStoreSaveContract, LineEndsInATextBecomeBlanksInTheRingToo) {
  Store store;
  store.start();
  store.clock.set_wall(0);
  log_text(0, 4, "a\r\nb");
  log_text(16, 4, "\n\n\r");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), "SysLog:\n1970-01-01 00:00:00[Error]m0:a  b\n");
  EXPECT_EQ(Store::bytes_of(store.usr()), kEmptyHeader + std::string("1970-01-01 00:00:00[Error]m16:   \n"));
  EXPECT_STREQ(store.ctrl->sys_ring[0].text, "a  b");
  EXPECT_STREQ(store.ctrl->usr_ring[0].text, "   ");
}

TEST(LogStoreSaveContract, LineEndsAreReplacedInTheWholeFieldOfARecordAndInNoEmptySlot) {
  Store store;
  store.start();
  for (mup_log_rec *ring : {store.ctrl->sys_ring, store.ctrl->usr_ring}) {
    memcpy(ring[0].text, "a\0\r\n.", 5);
    memcpy(ring[0].text + 253, "\n\r\n", 3);  // the last byte too, where a record has its NUL
    memcpy(ring[1].text, "\0\r\n.", 4);
  }
  store.ctrl->dirty = 3;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), "SysLog:\n1970-01-01 00:00:00[Off]m0:a\n");
  for (const mup_log_rec *ring : {store.ctrl->sys_ring, store.ctrl->usr_ring}) {
    EXPECT_EQ(std::string(ring[0].text, 5), std::string("a\0  .", 5));
    EXPECT_EQ(std::string(ring[0].text + 253, 3), "   ");
    EXPECT_EQ(std::string(ring[1].text, 4), std::string("\0\r\n.", 4));
  }
}

TEST(LogStoreSaveContract, OtherBytesAreWrittenAsTheyAre) {
  Store store;
  store.start();
  std::string text;
  for (int byte = 1; byte < 256; byte++) text += static_cast<char>(byte);
  put(&store.ctrl->sys_ring[0], {0, 4, 0, text});
  std::string expected = text;
  expected['\n' - 1] = ' ';
  expected['\r' - 1] = ' ';
  EXPECT_EQ(save_system(store), "SysLog:\n1970-01-01 00:00:00[Error]m0:" + expected + "\n");
}

TEST(LogStoreSaveContract, ALineHasNoMoreThanItsRecord) {
  Store store;
  Names names = numbered_names();
  names[15] = std::string(15, 'N');
  store.start(names);
  const Record longest = {15, 1, 1767348000, std::string(255, 't')};
  put(&store.ctrl->sys_ring[1023], longest);
  EXPECT_EQ(save_system(store), "SysLog:\n2026-01-02 10:00:00[Emergency]NNNNNNNNNNNNNNN:" + longest.text + "\n");
}

TEST(LogStoreSaveContract, BothRingsAreWrittenOldestFirst) {
  Store store;
  store.start();
  for (const uint32_t index : {0u, 1u, 511u}) {
    SCOPED_TRACE(index);
    std::vector<Record> records;
    for (unsigned i = 0; i < MUP_LOG_USR_NUM; i++) {
      records.push_back({16 + i % 5, i % 9, static_cast<time_t>(i) * 1000, "N" + std::to_string(i)});
      put(&store.ctrl->usr_ring[(index + i) % MUP_LOG_USR_NUM], records.back());
    }
    store.ctrl->usr_idx = index;
    EXPECT_EQ(save_user(store), kEmptyHeader + file_lines(records, numbered_names()));
    EXPECT_EQ(store.ctrl->usr_idx, index);
  }
  for (const uint32_t index : {0u, 1u, 700u, 1023u}) {
    SCOPED_TRACE(index);
    std::vector<Record> records;
    for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) {
      records.push_back({i % 16, i % 9, static_cast<time_t>(i) * 1000, "N" + std::to_string(i)});
      put(&store.ctrl->sys_ring[(index + i) % MUP_LOG_SYS_NUM], records.back());
    }
    store.ctrl->sys_idx = index;
    EXPECT_EQ(save_system(store), kSysMarker + file_lines(records, numbered_names()));
    EXPECT_EQ(store.ctrl->sys_idx, index);
  }
}

TEST(LogStoreSaveContract, EmptySlotsArePassedOver) {
  Store store;
  store.start();
  put(&store.ctrl->sys_ring[10], {1, 4, 60, "second"});
  put(&store.ctrl->sys_ring[900], {1, 4, 0, "first"});
  store.ctrl->sys_idx = 500;
  EXPECT_EQ(save_system(store), "SysLog:\n1970-01-01 00:00:00[Error]m1:first\n1970-01-01 00:01:00[Error]m1:second\n");
}

TEST(LogStoreSaveContract, AnEmptyLogIsItsMarkerOrItsHeaderAlone) {
  Store store;
  store.start();
  EXPECT_EQ(save_system(store), "SysLog:\n");  // no longer the NUL of the fresh file
  EXPECT_EQ(save_user(store), kEmptyHeader);
}

TEST(LogStoreSaveContract, AnUnknownModuleOrLevelHasAnEmptyName) {
  Store store;
  store.start();
  put(&store.ctrl->sys_ring[0], {20, 9, 0, "level"});
  put(&store.ctrl->sys_ring[1], {21, 8, 0, "module"});
  put(&store.ctrl->sys_ring[2], {255, 255, 0, "both"});
  EXPECT_EQ(save_system(store),
            "SysLog:\n1970-01-01 00:00:00[]m20:level\n1970-01-01 00:00:00[Debug]:module\n"
            "1970-01-01 00:00:00[]:both\n");
}

TEST(LogStoreSaveContract, TimesAreWrittenInUtcWhateverTheZone) {
  Store store;
  store.start();
  put(&store.ctrl->sys_ring[0], {0, 4, 1767348000, "winter"});
  put(&store.ctrl->sys_ring[1], {0, 4, 1783504800, "summer"});
  for (const char *zone : {"UTC0", "UTC-2", "CET-1CEST,M3.5.0,M10.5.0/3", "<-12>12", "<+14>-14"}) {
    Store::set_zone(zone);
    EXPECT_EQ(save_system(store),
              "SysLog:\n2026-01-02 10:00:00[Error]m0:winter\n2026-07-08 10:00:00[Error]m0:summer\n");
  }
}

TEST(LogStoreSaveContract, TimesOfEveryOrderAreWrittenAsTheCalendarHasThem) {
  Store store;
  store.start();
  std::mt19937_64 random(3000);
  std::vector<Record> records;
  for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) {
    time_t time = static_cast<time_t>(random() % 315537897600) - 62135596800;  // the years 1 to 9999
    if (i % 4 == 1) time = records.back().time + 1;
    if (i % 4 == 2) time = records.back().time;
    if (i % 4 == 3) time = records.back().time - 1;
    records.push_back({0, 4, time, std::to_string(i)});
  }
  // Ends of days, months, years and the epoch, from both sides.
  const time_t edges[] = {0,          -1,         951782399,   951782400,   951868799,    951868800,    1709164799,
                          1709164800, 1709251199, 1709251200,  1767225599,  1767225600,   4107542399,   4107542400,
                          2147483647, 2147483648, -2203891201, -2203891200, 253402300799, -62135596800, -62167219200,
                          -86400,     -86401,     86399};
  for (size_t i = 0; i < std::size(edges); i++) records[i * 7].time = edges[i];
  for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) put(&store.ctrl->sys_ring[i], records[i]);
  EXPECT_EQ(save_system(store), kSysMarker + file_lines(records, numbered_names()));
}

TEST(LogStoreSaveContract, AYearOfFiveDigitsIsWrittenWhole) {
  Store store;
  store.start();
  put(&store.ctrl->sys_ring[0], {0, 4, 253402300800, "a"});
  EXPECT_EQ(save_system(store), "SysLog:\n10000-01-01 00:00:00[Error]m0:a\n");
}

TEST(LogStoreSaveContract, AFileIsRewrittenInPlace) {
  Store store;
  store.start();
  ASSERT_EQ(link(store.sys().c_str(), store.path("other_name").c_str()), 0);
  const ino_t inode = inode_of(store.sys());
  log_text(0, 4, std::string(100, 'x'));
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  const std::string longer = Store::bytes_of(store.sys());
  EXPECT_EQ(inode_of(store.sys()), inode);
  EXPECT_EQ(Store::bytes_of(store.path("other_name")), longer);
  EXPECT_EQ(mup_log_show(0, 1), 0);
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), "SysLog:\n");  // nothing of the longer file is left
  size_t files = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(store.path(""))) files++;
  EXPECT_EQ(files, 3u);
}

TEST(LogStoreSaveContract, AFileThatCannotBeOpenedIsSkippedAndNotTriedAgain) {
  Store store;
  store.start();
  log_text(0, 4, "system");
  log_text(16, 4, "user");
  std::filesystem::remove(store.sys());
  ASSERT_EQ(mkdir(store.sys().c_str(), 0700), 0);
  Console console;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store.ctrl->dirty, 0);
  EXPECT_NE(Store::bytes_of(store.usr()).find("]m16:user\n"), std::string::npos);  // the other one is written

  ASSERT_EQ(rmdir(store.sys().c_str()), 0);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_FALSE(Store::exists(store.sys()));
  log_text(0, 4, "changed anew");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), kSysMarker + file_lines({{0, 4, VirtualClock::kStart, "system"},
                                                                   {0, 4, VirtualClock::kStart, "changed anew"}},
                                                                  numbered_names()));
}

TEST(LogStoreSaveContract, AFileThatCannotBeOpenedKeepsItsLineEndsInTheRing) {
  Store store;
  store.start();
  log_text(0, 4, "a\nb");
  std::filesystem::remove(store.sys());
  ASSERT_EQ(mkdir(store.sys().c_str(), 0700), 0);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_STREQ(store.ctrl->sys_ring[0].text, "a\nb");
}

TEST(LogStoreSaveContract, AFullDiskIsSilentAndLoggingGoesOn) {
  Store store;
  for (const std::string &path : {store.sys(), store.usr()}) {
    ASSERT_EQ(symlink("/dev/full", path.c_str()), 0);
  }
  EXPECT_EQ(store.start(), start_line(21));  // reads as zeros: no marker
  store.expect_system({});
  store.expect_user({});
  for (int i = 0; i < 1100; i++) log_text(i % 2 == 0 ? 0 : 16, 4, std::string(200, 'x'));
  Console console;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store.ctrl->dirty, 0);
  EXPECT_EQ(store.ctrl->sys_idx, 550u);
}

TEST(LogStoreSaveContract, SaveLeavesNoFileOpen) {
  Store store;
  store.start();
  const int before = dup(0);
  close(before);
  for (int i = 0; i < 5; i++) {
    store.ctrl->dirty = 3;
    EXPECT_EQ(mup_log_usr_savefile(), 0);
    EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(mup_log_file_get(store.out().c_str(), 1, "m1", 9), 0);
  }
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);  // the lowest free descriptor
}

TEST(LogStoreSaveContract, WhatWasSavedIsWhatTheNextStartHolds) {
  Store store;
  store.start();
  store.clock.set_wall(1767348000);
  log_text(0, 4, "system");
  log_text(15, 8, "the last system module");
  log_text(16, 0, "user");
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(store.start(), start_line(21));
  store.expect_system({{0, 4, 1767348000, "system"}, {15, 8, 1767348000, "the last system module"}});
  store.expect_user({{16, 0, 1767348000, "user"}});
  log_text(1, 4, "goes on behind them");
  EXPECT_EQ(store.ctrl->sys_idx, 3u);
  EXPECT_EQ(text_of(store.ctrl->sys_ring[2]), "goes on behind them");
}
