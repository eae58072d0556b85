// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Saves that fail: a file that does not open, and a disk that takes only a part. Such a file is a prefix of its
// intended content.

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "log/file_model.h"

using namespace tarn_test;

namespace {

using LogStoreSave = StartedLogFiles;

constexpr int kRecords = 1000;

// A file that takes as much of each write as a test says.
struct Disk {
  std::string content;
  int writes = 0;
  int short_write = 0;  // the number of the write that is not taken whole, counted from 1
  size_t fitting = 0;   // bytes that this write takes
  bool fails = false;   // it takes nothing and reports an error
};

ssize_t write_to(void *cookie, const char *data, size_t size) {
  auto &disk = *static_cast<Disk *>(cookie);
  if (++disk.writes == disk.short_write) {
    errno = ENOSPC;
    if (disk.fails) return 0;  // what a failed write of a cookie reports
    size = std::min(size, disk.fitting);
  }
  disk.content.append(data, size);
  return static_cast<ssize_t>(size);
}

// Saves 1000 records to the disk in place of the system file.
void save_to(Disk &disk) {
  Replace to_disk(libc::fopen, [&disk](const char *path, const char *mode) {
    if (strcmp(path, "/overlay/mu_log.txt") != 0 || strcmp(mode, "w") != 0) return libc::fopen.real(path, mode);
    cookie_io_functions_t functions = {};
    functions.write = write_to;
    return fopencookie(&disk, mode, functions);
  });
  for (int i = 0; i < kRecords; i++) mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "record %d of some length", i);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
}

std::vector<std::string> sys_texts(const mup_log_ctrl &log) {
  std::vector<std::string> texts;
  for (const mup_log_rec &record : log.sys_ring) {
    if (record.text[0] != '\0') texts.push_back(text_of(record));
  }
  return texts;
}

}  // namespace

TEST_F(LogStoreSave, DoesNotTryAFileAgainThatDidNotOpen) {
  log_text(0, 4, "system");
  log_text(16, 4, "user");
  std::filesystem::remove(sys());
  ASSERT_EQ(symlink((root() + "/none/log.txt").c_str(), sys().c_str()), 0);
  Console console;
  save();
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_NE(bytes_of(usr()).find("]m16:user\n"), std::string::npos);  // the other one is written

  ASSERT_EQ(unlink(sys().c_str()), 0);
  save();
  EXPECT_FALSE(exists(sys()));
  log_text(0, 4, "changed anew");
  save();
  EXPECT_EQ(bytes_of(sys()), kSysMarker + file_lines({{0, 4, VirtualClock::kStart, "system"},
                                                      {0, 4, VirtualClock::kStart, "changed anew"}},
                                                     numbered_names()));
}

TEST_F(LogStoreSave, TriesNeitherFileAgainIfBothDidNotOpen) {
  log_text(0, 4, "system");
  log_text(16, 4, "user");
  {
    Replace refuse(libc::fopen, [](const char *, const char *) -> FILE * {
      errno = EROFS;
      return nullptr;
    });
    save();
  }
  EXPECT_EQ(ctrl->dirty, 0);
  save();
  EXPECT_EQ(bytes_of(sys()), kFreshSysFile);
  EXPECT_EQ(bytes_of(usr()), "");
}

TEST_F(LogStoreSave, AFileThatCannotBeOpenedKeepsItsLineEndsInTheRing) {
  log_text(0, 4, "a\nb");
  std::filesystem::remove(sys());
  ASSERT_EQ(mkdir(sys().c_str(), 0700), 0);
  save();
  EXPECT_STREQ(ctrl->sys_ring[0].text, "a\nb");
}

TEST_F(LogStoreSave, AFullDiskIsSilentAndLoggingGoesOn) {
  for (const std::string &path : {sys(), usr()}) {
    unlink(path.c_str());
    ASSERT_EQ(symlink("/dev/full", path.c_str()), 0);
  }
  EXPECT_EQ(start(), start_line(21));  // reads as zeros: no marker
  expect_system({});
  expect_user({});
  for (int i = 0; i < 1100; i++) log_text(i % 2 == 0 ? 0 : 16, 4, std::string(200, 'x'));
  Console console;
  save();
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(ctrl->sys_idx, 550u);
}

TEST_F(LogStoreSave, WritesNothingAfterAShortWrite) {
  Disk whole;
  save_to(whole);
  mup_log_show(0, 1);          // the same records once more
  ASSERT_GE(whole.writes, 4);  // there are blocks after the short one
  Disk disk;
  disk.short_write = 2;
  disk.fitting = 1000;
  save_to(disk);
  EXPECT_EQ(disk.writes, 2);
  EXPECT_LT(disk.content.size(), whole.content.size());
  EXPECT_TRUE(whole.content.starts_with(disk.content));
}

TEST_F(LogStoreSave, WritesNothingAfterAFailedWrite) {
  Disk whole;
  save_to(whole);
  ASSERT_NE(whole.content, "");
  Disk disk;
  disk.short_write = 1;
  disk.fails = true;
  save_to(disk);
  EXPECT_EQ(disk.writes, 1);
  EXPECT_EQ(disk.content, "");
}

// Whatever a write leaves of a block, what is read back are the first records, each as it was.
TEST_F(LogStoreSave, LeavesOnlyRecordsThatAreReadBackAsTheyWere) {
  for (const size_t fitting : {size_t{0}, size_t{1}, size_t{19}, size_t{500}, size_t{777}, size_t{8192}}) {
    SCOPED_TRACE(fitting);
    write_file(sys(), "");
    start();
    Disk disk;
    disk.short_write = 2;
    disk.fitting = fitting;
    save_to(disk);
    const std::vector<std::string> logged = sys_texts(*ctrl);
    ASSERT_EQ(logged.size(), size_t{kRecords});
    write_file(sys(), disk.content);
    start();
    const std::vector<std::string> loaded = sys_texts(*ctrl);
    const auto lines = std::count(disk.content.begin(), disk.content.end(), '\n');
    ASSERT_EQ(loaded.size(), static_cast<size_t>(lines) - 1);  // without "SysLog:"
    EXPECT_TRUE(std::equal(loaded.begin(), loaded.end(), logged.begin()));
  }
}
