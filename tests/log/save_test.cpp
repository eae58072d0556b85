// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writing the files: what is written, when, and what a save does to the rings.

#include <sys/stat.h>

#include <filesystem>

#include "log/file_model.h"

using namespace tarn_test;

namespace {

using LogStoreSave = StartedLogFiles;

ino_t inode_of(const std::string &path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_ino;
}

}  // namespace

TEST_F(LogStoreSave, TheFirstSystemMessageWritesTheMarkerAndOneLine) {
  clock.set_wall(kTen);
  mup_log_msg(0, 3, MUP_LOG_WARNING, 77, "%s", "first");
  save();
  EXPECT_EQ(bytes_of(sys()), "SysLog:\n2026-01-02 10:00:00[Warning]m3:first\n");
  EXPECT_EQ(bytes_of(usr()), "");
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(ctrl->sys_ring[0].line, 77u);
}

TEST_F(LogStoreSave, TheFirstUserMessageWritesTheHeaderAndOneLine) {
  clock.set_wall(kTen);
  log_text(16, 8, "first");
  save();
  EXPECT_EQ(bytes_of(usr()),
            "Manufacturer:;\nProductClass:;\nSerialNumber:;\nIP:;\nHWVer:;\nSWVer:;\n\n"
            "2026-01-02 10:00:00[Debug]m16:first\n");
  EXPECT_EQ(bytes_of(sys()), kFreshSysFile);
}

TEST_F(LogStoreSave, EachBitWritesItsFileAndEverySaveClearsAll) {
  put(&ctrl->sys_ring[0], {0, 4, 0, "s"});
  put(&ctrl->usr_ring[0], {16, 4, 0, "u"});
  for (const unsigned dirty : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0x80u, 0xFCu, 0xFFu}) {
    SCOPED_TRACE(dirty);
    write_file(sys(), "old");
    write_file(usr(), "old");
    ctrl->dirty = static_cast<uint8_t>(dirty);
    save();
    EXPECT_EQ(ctrl->dirty, 0);
    EXPECT_EQ(bytes_of(sys()), (dirty & 1) != 0 ? "SysLog:\n1970-01-01 00:00:00[Error]m0:s\n" : "old");
    EXPECT_EQ(bytes_of(usr()),
              (dirty & 2) != 0 ? kEmptyHeader + std::string("1970-01-01 00:00:00[Error]m16:u\n") : "old");
  }
}

TEST_F(LogStoreSave, WithNothingToSaveTheLockIsNotTaken) {
  EXPECT_TRUE(ends_under_the_lock([] { save(); }));
}

TEST_F(LogStoreSave, TheFilesAreWrittenUnderTheLock) {
  int busy = 0;
  Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *mode) {
    EXPECT_STREQ(mode, "w");
    if (!lock_is_free()) busy++;
    return libc::fopen.real(path, mode);
  });
  ctrl->dirty = 3;
  save();
  EXPECT_EQ(busy, 2);
  EXPECT_TRUE(lock_is_free());
}

TEST_F(LogStoreSave, LineEndsInATextBecomeBlanksInTheRingToo) {
  clock.set_wall(0);
  log_text(0, 4, "a\r\nb");
  log_text(16, 4, "\n\n\r");
  save();
  EXPECT_EQ(bytes_of(sys()), "SysLog:\n1970-01-01 00:00:00[Error]m0:a  b\n");
  EXPECT_EQ(bytes_of(usr()), kEmptyHeader + std::string("1970-01-01 00:00:00[Error]m16:   \n"));
  EXPECT_STREQ(ctrl->sys_ring[0].text, "a  b");
  EXPECT_STREQ(ctrl->usr_ring[0].text, "   ");
}

TEST_F(LogStoreSave, LineEndsAreReplacedInTheWholeFieldOfARecordAndInNoEmptySlot) {
  for (mup_log_rec *ring : {ctrl->sys_ring, ctrl->usr_ring}) {
    memcpy(ring[0].text, "a\0\r\n.", 5);
    memcpy(ring[0].text + 253, "\n\r\n", 3);  // the last byte too, where a record has its NUL
    memcpy(ring[1].text, "\0\r\n.", 4);
  }
  ctrl->dirty = 3;
  save();
  EXPECT_EQ(bytes_of(sys()), "SysLog:\n1970-01-01 00:00:00[Off]m0:a\n");
  for (const mup_log_rec *ring : {ctrl->sys_ring, ctrl->usr_ring}) {
    EXPECT_EQ(std::string(ring[0].text, 5), std::string("a\0  .", 5));
    EXPECT_EQ(std::string(ring[0].text + 253, 3), "   ");
    EXPECT_EQ(std::string(ring[1].text, 4), std::string("\0\r\n.", 4));
  }
}

TEST_F(LogStoreSave, OtherBytesAreWrittenAsTheyAre) {
  std::string text;
  for (int byte = 1; byte < 256; byte++) text += static_cast<char>(byte);
  put(&ctrl->sys_ring[0], {0, 4, 0, text});
  std::string expected = text;
  expected['\n' - 1] = ' ';
  expected['\r' - 1] = ' ';
  EXPECT_EQ(save_system(), "SysLog:\n1970-01-01 00:00:00[Error]m0:" + expected + "\n");
}

TEST_F(LogStoreSave, TheLongestRecordIsWrittenWhole) {
  Names names = numbered_names();
  names[15] = std::string(15, 'N');
  start(names);
  const Record longest = {15, 1, kTen, std::string(255, 't')};
  put(&ctrl->sys_ring[1023], longest);
  EXPECT_EQ(save_system(), "SysLog:\n2026-01-02 10:00:00[Emergency]NNNNNNNNNNNNNNN:" + longest.text + "\n");
}

TEST_F(LogStoreSave, BothRingsAreWrittenOldestFirst) {
  for (const uint32_t index : {0u, 1u, 511u}) {
    SCOPED_TRACE(index);
    Records records;
    for (unsigned i = 0; i < MUP_LOG_USR_NUM; i++) {
      records.push_back({16 + i % 5, i % 9, static_cast<time_t>(i) * 1000, "N" + std::to_string(i)});
      put(&ctrl->usr_ring[(index + i) % MUP_LOG_USR_NUM], records.back());
    }
    ctrl->usr_idx = index;
    EXPECT_EQ(save_user(), kEmptyHeader + file_lines(records, numbered_names()));
    EXPECT_EQ(ctrl->usr_idx, index);
  }
  for (const uint32_t index : {0u, 1u, 700u, 1023u}) {
    SCOPED_TRACE(index);
    Records records;
    for (unsigned i = 0; i < MUP_LOG_SYS_NUM; i++) {
      records.push_back({i % 16, i % 9, static_cast<time_t>(i) * 1000, "N" + std::to_string(i)});
      put(&ctrl->sys_ring[(index + i) % MUP_LOG_SYS_NUM], records.back());
    }
    ctrl->sys_idx = index;
    EXPECT_EQ(save_system(), kSysMarker + file_lines(records, numbered_names()));
    EXPECT_EQ(ctrl->sys_idx, index);
  }
}

TEST_F(LogStoreSave, EmptySlotsAreSkipped) {
  put(&ctrl->sys_ring[10], {1, 4, 60, "second"});
  put(&ctrl->sys_ring[900], {1, 4, 0, "first"});
  ctrl->sys_idx = 500;
  EXPECT_EQ(save_system(), "SysLog:\n1970-01-01 00:00:00[Error]m1:first\n1970-01-01 00:01:00[Error]m1:second\n");
}

TEST_F(LogStoreSave, AnEmptyLogIsOnlyItsMarkerOrItsHeader) {
  EXPECT_EQ(save_system(), "SysLog:\n");  // no longer the NUL of the fresh file
  EXPECT_EQ(save_user(), kEmptyHeader);
}

TEST_F(LogStoreSave, AnUnknownModuleOrLevelHasAnEmptyName) {
  put(&ctrl->sys_ring[0], {20, 9, 0, "level"});
  put(&ctrl->sys_ring[1], {21, 8, 0, "module"});
  put(&ctrl->sys_ring[2], {255, 255, 0, "both"});
  EXPECT_EQ(save_system(),
            "SysLog:\n1970-01-01 00:00:00[]m20:level\n1970-01-01 00:00:00[Debug]:module\n"
            "1970-01-01 00:00:00[]:both\n");
}

TEST_F(LogStoreSave, AFileIsRewrittenInPlace) {
  ASSERT_EQ(link(sys().c_str(), path("other_name").c_str()), 0);
  const ino_t inode = inode_of(sys());
  log_text(0, 4, std::string(100, 'x'));
  save();
  const std::string longer = bytes_of(sys());
  EXPECT_EQ(inode_of(sys()), inode);
  EXPECT_EQ(bytes_of(path("other_name")), longer);
  EXPECT_EQ(mup_log_show(0, 1), 0);
  save();
  EXPECT_EQ(bytes_of(sys()), "SysLog:\n");  // nothing of the longer file is left
  size_t files = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(path(""))) files++;
  EXPECT_EQ(files, 3u);
}

TEST_F(LogStoreSave, SavesAndCopiesLeaveNoFileOpen) {
  const int before = lowest_free_descriptor();
  for (int i = 0; i < 5; i++) {
    ctrl->dirty = 3;
    save();
    EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(mup_log_file_get(out().c_str(), 1, "m1", 9), 0);
  }
  EXPECT_EQ(lowest_free_descriptor(), before);
}

TEST_F(LogStoreSave, WhatWasSavedIsWhatTheNextStartHolds) {
  clock.set_wall(kTen);
  mup_log_msg(0, 3, MUP_LOG_NOTICE, 42, "system");  // the line number is lost
  log_text(15, 8, "the last system module");
  log_text(16, 0, "user");
  save();
  EXPECT_EQ(start(), start_line(21));
  expect_system({{3, 6, kTen, "system"}, {15, 8, kTen, "the last system module"}});
  expect_user({{16, 0, kTen, "user"}});
  log_text(1, 4, "continues after them");
  EXPECT_EQ(ctrl->sys_idx, 3u);
  EXPECT_EQ(text_of(ctrl->sys_ring[2]), "continues after them");
}
