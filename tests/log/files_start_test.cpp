// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_usr_init: new files, the text that it prints, the timer, and each way in which a part of it fails.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "log/file_model.h"
#include "support/heap.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

using LogStore = LogFiles;

}  // namespace

TEST_F(LogStore, MakesMissingFiles) {
  EXPECT_EQ(start(), std::string(kSysInitLine) + kUsrInitLine + start_line(21));
  EXPECT_EQ(bytes_of(sys()), kFreshSysFile);
  ASSERT_TRUE(exists(usr()));
  EXPECT_EQ(bytes_of(usr()), "");
  expect_system({});
  expect_user({});
  EXPECT_EQ(ctrl->dirty, 0);
}

TEST_F(LogStore, ExistingFilesAreReadAndNotWritten) {
  const std::string system = std::string(kSysMarker) + good("kept");
  const std::string user = std::string(kEmptyHeader) + line_of("Error", "m16", "kept");
  write_file(sys(), system);
  write_file(usr(), user);
  EXPECT_EQ(start(), start_line(21));
  expect_system({{0, 4, kTen, "kept"}});
  expect_user({{16, 4, kTen, "kept"}});
  EXPECT_EQ(ctrl->dirty, 0);
  save();
  EXPECT_EQ(bytes_of(sys()), system);
  EXPECT_EQ(bytes_of(usr()), user);
}

TEST_F(LogStore, OneFileMayBeMissing) {
  write_file(sys(), kSysMarker + good("kept"));
  EXPECT_EQ(start(), kUsrInitLine + start_line(21));
  expect_system({good_record("kept")});
  expect_user({});

  unlink(sys().c_str());
  write_file(usr(), kEmptyHeader + line_of("Error", "m16", "kept"));
  EXPECT_EQ(start(), kSysInitLine + start_line(21));
  expect_system({});
  expect_user({{16, 4, kTen, "kept"}});
}

TEST_F(LogStore, AnEmptyFileIsNotMadeAgain) {
  write_file(sys(), "");
  write_file(usr(), "");
  EXPECT_EQ(start(), start_line(21));
  EXPECT_EQ(bytes_of(sys()), "");
  expect_system({});
  expect_user({});
}

TEST_F(LogStore, AFileThatExistsButCannotBeReadIsMadeAfresh) {
  write_file(sys(), std::string(kSysMarker) + good("kept"));
  write_file(usr(), std::string(kEmptyHeader) + line_of("Error", "m16", "kept"));
  std::string printed;
  {
    // Whether the library reads its files with fopen or with open.
    Replace<FILE *(const char *, const char *)> no_reading(libc::fopen, [](const char *path, const char *mode) {
      if (mode[0] != 'r') return libc::fopen.real(path, mode);
      errno = EACCES;
      return static_cast<FILE *>(nullptr);
    });
    Replace<int(const char *, int, mode_t)> no_opening(libc::open, [](const char *path, int flags, mode_t mode) {
      if ((flags & O_ACCMODE) != O_RDONLY) return libc::open.real(path, flags, mode);
      errno = EACCES;
      return -1;
    });
    printed = start();
  }
  EXPECT_EQ(printed, std::string(kSysInitLine) + kUsrInitLine + start_line(21));
  EXPECT_EQ(bytes_of(sys()), kFreshSysFile);
  EXPECT_EQ(bytes_of(usr()), "");
  expect_system({});
  expect_user({});
}

TEST_F(LogStore, ADirectoryInPlaceOfAFileLoadsNothing) {
  ASSERT_EQ(mkdir(sys().c_str(), 0700), 0);
  ASSERT_EQ(mkdir(usr().c_str(), 0700), 0);
  EXPECT_EQ(start(), start_line(21));  // it can be opened for reading: only the read fails
  expect_system({});
  expect_user({});
  log_text(0, 4, "logging goes on");
  expect_system({{0, 4, VirtualClock::kStart, "logging goes on"}});
  Console console;
  save();
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(ctrl->dirty, 0);
}

TEST_F(LogStore, WithoutTheOverlayTheInitLinesArePrintedToo) {
  std::filesystem::remove(path(""));
  ASSERT_FALSE(exists(path("")));
  EXPECT_EQ(start(), std::string(kSysInitLine) + kUsrInitLine + start_line(21));
  log_text(0, 4, "logging goes on");
  save();
  EXPECT_EQ(ctrl->dirty, 0);
  expect_system({{0, 4, VirtualClock::kStart, "logging goes on"}});
}

TEST_F(LogStore, TheStartLineShowsTheCountThatWasGiven) {
  EXPECT_EQ(start(numbered_names(300)), std::string(kSysInitLine) + kUsrInitLine + start_line(300));
  EXPECT_EQ(ctrl->module_num, 300 - 256);
}

TEST_F(LogStore, OnlyNamesWithinTheTableAreFoundInTheFiles) {
  write_file(sys(), std::string(kSysMarker) + "2026-01-02 10:00:00[Error]m43:last of the table\n" +
                        "2026-01-02 10:00:00[Error]m44:given, but not kept\n");
  start(numbered_names(300));
  expect_system({{43, 4, kTen, "last of the table"}});
}

TEST_F(LogStore, TheWorkBufferIsFreed) {
  HeapWatch heap;
  std::vector<size_t> sizes;
  void *buffer = nullptr;
  {
    Replace<void *(size_t)> watched(libc::malloc, [&](size_t size) {
      void *block = libc::malloc.real(size);
      sizes.push_back(size);
      if (size == 1024) buffer = block;
      return block;
    });
    start();
  }
  EXPECT_EQ(std::count(sizes.begin(), sizes.end(), size_t{1024}), 1);
  const std::vector<void *> freed = heap.freed();
  EXPECT_NE(std::find(freed.begin(), freed.end(), buffer), freed.end());
}

TEST_F(LogStore, WithoutMemoryForReadingNoFileIsReadAndNoTimerStarts) {
  write_file(sys(), std::string(kSysMarker) + good("kept"));
  std::string printed;
  {
    FailingMalloc failing(3);  // after the modules and the mutex
    printed = start();
    EXPECT_EQ(failing.seen(), 3);
  }
  EXPECT_EQ(printed, "Log Malloc fail \n");
  EXPECT_EQ(ctrl->inited, 1);
  EXPECT_EQ(ctrl->level_hook, &mup_log_kern_level_set);
  expect_system({});
  EXPECT_FALSE(exists(usr()));
  EXPECT_EQ(timer_initialized, 0);
  log_text(16, 4, "kept");
  EXPECT_EQ(ctrl->dirty, 2);
}

TEST_F(LogStore, AfterAFailedInitTheOtherStepsFollow) {
  // Without names nothing is set, not even the paths: no file can be made.
  Console console;
  EXPECT_EQ(mup_log_usr_init(21, nullptr), 0);
  EXPECT_THAT(console.take(), testing::MatchesRegex("mup_log_init\\(\\) _[1-9][0-9]*_: assert fail\n"
                                                    "Log file: init\nLog file: init\n"
                                                    "mu-log: init usr log OK .module_num 21, max_log_num 1024, "
                                                    "save_log_timer 3 seconds.\n"));
  EXPECT_FALSE(exists(sys()));
  EXPECT_FALSE(exists(usr()));
  EXPECT_EQ(ctrl->inited, 0);
  EXPECT_EQ(ctrl->level_hook, &mup_log_kern_level_set);
  EXPECT_EQ(timer_initialized, 1);
}

TEST_F(LogStore, WithoutMemoryForTheModulesNoPathIsSet) {
  Console console;
  FailingMalloc failing(1);
  EXPECT_EQ(mup_log_usr_init(21, module_table().c_str()), 0);
  EXPECT_EQ(console.take(), "No memory \r\nLog file: init\nLog file: init\n" + start_line(21));
  EXPECT_FALSE(exists(sys()));
  EXPECT_EQ(timer_initialized, 1);
}

TEST_F(LogStore, WithoutTheMutexTheFilesAreMadeAndNoRecordIsFound) {
  write_file(usr(), std::string(kEmptyHeader) + line_of("Error", "m16", "kept"));
  Console console;
  {
    FailingMalloc failing(2);
    EXPECT_EQ(mup_log_usr_init(21, module_table().c_str()), 0);
  }
  EXPECT_EQ(console.take(), "create mutex error \r\n" + std::string(kSysInitLine) + start_line(21));
  EXPECT_EQ(bytes_of(sys()), kFreshSysFile);
  expect_user({});  // no module is registered
  EXPECT_EQ(ctrl->level_hook, &mup_log_kern_level_set);
  EXPECT_EQ(timer_initialized, 1);
}

TEST_F(LogStore, ATimerThatCannotStartIsNotReported) {
  Replace<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> no_thread(
      libc::pthread_create, [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  Console console;
  EXPECT_EQ(mup_log_usr_init(21, module_table().c_str()), 0);
  const std::string printed = console.take();
  EXPECT_EQ(printed.substr(0, strlen(kSysInitLine)), kSysInitLine);
  EXPECT_EQ(printed.substr(printed.size() - start_line(21).size()), start_line(21));
}

TEST_F(LogStore, ChangesAreSavedEvery3000Ms) {
  start();
  clock.scan();  // the first scan counts the age of the clock, so the timer is due
  const std::string fresh = bytes_of(sys());
  log_text(0, 4, "kept");
  const Record first = {0, 4, ctrl->sys_ring[0].time, "kept"};
  clock.scan(299);
  EXPECT_EQ(bytes_of(sys()), fresh);
  EXPECT_EQ(ctrl->dirty, 1);
  clock.scan();
  EXPECT_EQ(bytes_of(sys()), kSysMarker + file_line(first, numbered_names()));
  EXPECT_EQ(ctrl->dirty, 0);

  log_text(16, 4, "kept");
  const Record second = {16, 4, ctrl->usr_ring[0].time, "kept"};
  clock.scan(299);
  EXPECT_EQ(bytes_of(usr()), "");
  clock.scan();
  EXPECT_EQ(bytes_of(usr()), kEmptyHeader + file_line(second, numbered_names()));
}

TEST_F(LogStore, AnUnchangedLogIsNotRewritten) {
  const std::string odd = std::string("any line\n") + kSysMarker + good("kept") + "an unfinished line";
  write_file(sys(), odd);
  start();
  expect_system({{0, 4, kTen, "kept"}});
  clock.scan(301);
  EXPECT_EQ(bytes_of(sys()), odd);
}

TEST_F(LogStore, TheFilesAreReadUnderTheLock) {
  write_file(usr(), kEmptyHeader);
  int busy = 0;
  int free = 0;
  {
    Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *mode) {
      if (strncmp(path, "/overlay/", 9) == 0) {
        (lock_is_free() ? free : busy)++;
      }
      return libc::fopen.real(path, mode);
    });
    Console console;
    EXPECT_EQ(mup_log_usr_init(21, module_table().c_str()), 0);
    console.take();
  }
  EXPECT_GE(busy, 2);
  EXPECT_EQ(free, 0);
  EXPECT_TRUE(lock_is_free());  // released again
}

TEST_F(LogStore, ADescriptionFromBeforeTheStartIsWrittenWithTheNextChangeOfTheUserRing) {
  const mup_log_usr_header header = {"tarn", "", "", "", "", ""};
  ASSERT_EQ(mup_log_usr_header_set(&header), 0);
  mup_log_usr_header copy = {};
  EXPECT_EQ(mup_log_usr_header_get(&copy), 0);
  EXPECT_EQ(memcmp(&copy, &header, sizeof header), 0);
  start();
  EXPECT_STREQ(ctrl->usr_header.manufacturer, "tarn");
  save();
  EXPECT_EQ(bytes_of(usr()), "");  // as the start made it
  log_text(16, 4, "change");
  save();
  EXPECT_TRUE(bytes_of(usr()).starts_with("Manufacturer:tarn;\nProductClass:;\n"));
}
