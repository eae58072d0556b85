// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_usr_init: fresh files, what it prints, the timer, and each way in which a part of it fails.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "contract_store.h"
#include "support/heap.h"
#include "tarn/timer.h"

using namespace tarn_test;
using testing::MatchesRegex;

namespace {

constexpr time_t kTenOClock = 1767348000;  // 2026-01-02 10:00:00 UTC
constexpr const char *kTenOClockLine = "2026-01-02 10:00:00[Error]m0:kept\n";
constexpr const char *kTenOClockUserLine = "2026-01-02 10:00:00[Error]m16:kept\n";

}  // namespace

TEST(LogStoreInitContract, AFreshDeviceGetsBothFiles) {
  Store store;
  EXPECT_EQ(store.start(), std::string(kSysInitLine) + kUsrInitLine + start_line(21));
  EXPECT_EQ(Store::bytes_of(store.sys()), std::string("SysLog:\n\0", 9));
  ASSERT_TRUE(Store::exists(store.usr()));
  EXPECT_EQ(Store::bytes_of(store.usr()), "");
  store.expect_system({});
  store.expect_user({});
  EXPECT_EQ(store.ctrl->dirty, 0);
}

TEST(LogStoreInitContract, ExistingFilesAreReadAndLeftAlone) {
  Store store;
  const std::string system = std::string(kSysMarker) + kTenOClockLine;
  const std::string user = std::string(kEmptyHeader) + kTenOClockUserLine;
  Store::write(store.sys(), system);
  Store::write(store.usr(), user);
  EXPECT_EQ(store.start(), start_line(21));
  store.expect_system({{0, 4, kTenOClock, "kept"}});
  store.expect_user({{16, 4, kTenOClock, "kept"}});
  EXPECT_EQ(store.ctrl->dirty, 0);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()), system);
  EXPECT_EQ(Store::bytes_of(store.usr()), user);
}

TEST(LogStoreInitContract, TheUserFileAloneMayBeMissing) {
  Store store;
  Store::write(store.sys(), std::string(kSysMarker) + kTenOClockLine);
  EXPECT_EQ(store.start(), kUsrInitLine + start_line(21));
  store.expect_system({{0, 4, kTenOClock, "kept"}});
  store.expect_user({});
}

TEST(LogStoreInitContract, TheSystemFileAloneMayBeMissing) {
  Store store;
  Store::write(store.usr(), std::string(kEmptyHeader) + kTenOClockUserLine);
  EXPECT_EQ(store.start(), kSysInitLine + start_line(21));
  store.expect_system({});
  store.expect_user({{16, 4, kTenOClock, "kept"}});
}

TEST(LogStoreInitContract, AnEmptyFileIsNotMadeAgain) {
  Store store;
  Store::write(store.sys(), "");
  Store::write(store.usr(), "");
  EXPECT_EQ(store.start(), start_line(21));
  EXPECT_EQ(Store::bytes_of(store.sys()), "");
  store.expect_system({});
  store.expect_user({});
}

TEST(LogStoreInitContract, AFileThatExistsButCannotBeReadIsMadeAfresh) {
  Store store;
  Store::write(store.sys(), std::string(kSysMarker) + kTenOClockLine);
  Store::write(store.usr(), std::string(kEmptyHeader) + kTenOClockUserLine);
  std::string printed;
  {
    // Whichever call the library reads its files with.
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
    printed = store.start();
  }
  EXPECT_EQ(printed, std::string(kSysInitLine) + kUsrInitLine + start_line(21));
  EXPECT_EQ(Store::bytes_of(store.sys()), std::string("SysLog:\n\0", 9));
  EXPECT_EQ(Store::bytes_of(store.usr()), "");
  store.expect_system({});
  store.expect_user({});
}

TEST(LogStoreInitContract, ADirectoryInPlaceOfAFileLoadsNothing) {
  Store store;
  ASSERT_EQ(mkdir(store.sys().c_str(), 0700), 0);
  ASSERT_EQ(mkdir(store.usr().c_str(), 0700), 0);
  EXPECT_EQ(store.start(), start_line(21));  // it can be opened for reading: only the read fails
  store.expect_system({});
  store.expect_user({});
  log_text(0, 4, "logging goes on");
  store.expect_system({{0, 4, VirtualClock::kStart, "logging goes on"}});
  Console console;
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store.ctrl->dirty, 0);
}

TEST(LogStoreInitContract, WithoutTheOverlayTheInitLinesArePrintedAllTheSame) {
  Store store;
  std::filesystem::remove(store.path(""));
  ASSERT_FALSE(Store::exists(store.path("")));
  EXPECT_EQ(store.start(), std::string(kSysInitLine) + kUsrInitLine + start_line(21));
  log_text(0, 4, "logging goes on");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  store.expect_system({{0, 4, VirtualClock::kStart, "logging goes on"}});
}

TEST(LogStoreInitContract, InstallsTheKernelHook) {
  Store store;
  EXPECT_EQ(mup_log_init(0, 21, module_table(numbered_names()).c_str()), 0);
  EXPECT_EQ(store.ctrl->level_hook, nullptr);
  store.start();
  EXPECT_EQ(store.ctrl->level_hook, &mup_log_kern_level_set);
}

TEST(LogStoreInitContract, TheStartLineShowsTheCountThatWasGiven) {
  Store store;
  EXPECT_EQ(store.start(numbered_names(300)), std::string(kSysInitLine) + kUsrInitLine + start_line(300));
  EXPECT_EQ(store.ctrl->module_num, 300 - 256);
}

TEST(LogStoreInitContract, OnlyNamesWithinTheTableAreFoundInTheFiles) {
  Store store;
  Store::write(store.sys(), std::string(kSysMarker) + "2026-01-02 10:00:00[Error]m43:last of the table\n" +
                                "2026-01-02 10:00:00[Error]m44:given, but not kept\n");
  store.start(numbered_names(300));
  store.expect_system({{43, 4, kTenOClock, "last of the table"}});
}

TEST(LogStoreInitContract, TheWorkBufferGoesBack) {
  Store store;
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
    store.start();
  }
  EXPECT_EQ(std::count(sizes.begin(), sizes.end(), size_t{1024}), 1);
  const std::vector<void *> freed = heap.freed();
  EXPECT_NE(std::find(freed.begin(), freed.end(), buffer), freed.end());
}

TEST(LogStoreInitContract, WithoutMemoryForReadingNoFileIsReadAndNoTimerStarts) {
  Store store;
  Store::write(store.sys(), std::string(kSysMarker) + kTenOClockLine);
  std::string printed;
  {
    FailingMalloc failing(3);  // behind the modules and the mutex
    printed = store.start();
    EXPECT_EQ(failing.seen(), 3);
  }
  EXPECT_EQ(printed, "Log Malloc fail \n");
  EXPECT_EQ(store.ctrl->inited, 1);
  EXPECT_EQ(store.ctrl->level_hook, &mup_log_kern_level_set);
  store.expect_system({});
  EXPECT_FALSE(Store::exists(store.usr()));
  EXPECT_EQ(timer_initialized, 0);
  log_text(16, 4, "kept");
  EXPECT_EQ(store.ctrl->dirty, 2);
}

TEST(LogStoreInitContract, AFailedCoreInitLeavesTheRestAsItIs) {
  // Without names nothing is set, the paths neither: no file can be made.
  Store store;
  Console console;
  EXPECT_EQ(mup_log_usr_init(21, nullptr), 0);
  EXPECT_THAT(console.take(), MatchesRegex("mup_log_init\\(\\) _[1-9][0-9]*_: assert fail\n"
                                           "Log file: init\nLog file: init\n"
                                           "mu-log: init usr log OK .module_num 21, max_log_num 1024, "
                                           "save_log_timer 3 seconds.\n"));
  EXPECT_FALSE(Store::exists(store.sys()));
  EXPECT_FALSE(Store::exists(store.usr()));
  EXPECT_EQ(store.ctrl->inited, 0);
  EXPECT_EQ(store.ctrl->level_hook, &mup_log_kern_level_set);
  EXPECT_EQ(timer_initialized, 1);
}

TEST(LogStoreInitContract, WithoutMemoryForTheModulesNoPathIsSet) {
  Store store;
  Console console;
  FailingMalloc failing(1);
  EXPECT_EQ(mup_log_usr_init(21, module_table(numbered_names()).c_str()), 0);
  EXPECT_EQ(console.take(), "No memory \r\nLog file: init\nLog file: init\n" + start_line(21));
  EXPECT_FALSE(Store::exists(store.sys()));
  EXPECT_EQ(timer_initialized, 1);
}

TEST(LogStoreInitContract, WithoutTheMutexTheFilesAreMadeAndNoRecordIsFound) {
  Store store;
  Store::write(store.usr(), std::string(kEmptyHeader) + kTenOClockUserLine);
  Console console;
  {
    FailingMalloc failing(2);
    EXPECT_EQ(mup_log_usr_init(21, module_table(numbered_names()).c_str()), 0);
  }
  EXPECT_EQ(console.take(), "create mutex error \r\n" + std::string(kSysInitLine) + start_line(21));
  EXPECT_EQ(Store::bytes_of(store.sys()), std::string("SysLog:\n\0", 9));
  store.expect_user({});  // no module is registered
  EXPECT_EQ(store.ctrl->level_hook, &mup_log_kern_level_set);
  EXPECT_EQ(timer_initialized, 1);
}

TEST(LogStoreInitContract, ATimerThatCannotStartIsNotReported) {
  Store store;
  Replace<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> no_thread(
      libc::pthread_create, [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  Console console;
  EXPECT_EQ(mup_log_usr_init(21, module_table(numbered_names()).c_str()), 0);
  const std::string printed = console.take();
  EXPECT_EQ(printed.substr(0, strlen(kSysInitLine)), kSysInitLine);
  EXPECT_EQ(printed.substr(printed.size() - start_line(21).size()), start_line(21));
}

TEST(LogStoreInitContract, ChangesAreSavedEvery3000Ms) {
  Store store;
  store.start();
  store.clock.scan();  // the first scan counts the age of the clock: the timer is due
  const std::string fresh = Store::bytes_of(store.sys());
  log_text(0, 4, "kept");
  const Record first = {0, 4, store.ctrl->sys_ring[0].time, "kept"};
  store.clock.scan(299);
  EXPECT_EQ(Store::bytes_of(store.sys()), fresh);
  EXPECT_EQ(store.ctrl->dirty, 1);
  store.clock.scan();
  EXPECT_EQ(Store::bytes_of(store.sys()), kSysMarker + file_line(first, numbered_names()));
  EXPECT_EQ(store.ctrl->dirty, 0);

  log_text(16, 4, "kept");
  const Record second = {16, 4, store.ctrl->usr_ring[0].time, "kept"};
  store.clock.scan(299);
  EXPECT_EQ(Store::bytes_of(store.usr()), "");
  store.clock.scan();
  EXPECT_EQ(Store::bytes_of(store.usr()), kEmptyHeader + file_line(second, numbered_names()));
}

TEST(LogStoreInitContract, AnUnchangedLogIsNotRewritten) {
  Store store;
  const std::string odd = std::string("any line\n") + kSysMarker + kTenOClockLine + "an unfinished line";
  Store::write(store.sys(), odd);
  store.start();
  store.expect_system({{0, 4, kTenOClock, "kept"}});
  store.clock.scan(301);
  EXPECT_EQ(Store::bytes_of(store.sys()), odd);
}

TEST(LogStoreInitContract, TheFilesAreReadUnderTheLock) {
  Store store;
  Store::write(store.usr(), kEmptyHeader);
  int busy = 0;
  int free = 0;
  {
    Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *mode) {
      if (strncmp(path, "/overlay/", 9) == 0) {
        if (mu_mutex_trylock(store.ctrl->mutex) == EBUSY) {
          busy++;
        } else {
          mu_mutex_unlock(store.ctrl->mutex);
          free++;
        }
      }
      return libc::fopen.real(path, mode);
    });
    Console console;
    EXPECT_EQ(mup_log_usr_init(21, module_table(numbered_names()).c_str()), 0);
    console.take();
  }
  EXPECT_GE(busy, 2);
  EXPECT_EQ(free, 0);
  EXPECT_EQ(mu_mutex_trylock(store.ctrl->mutex), 0);  // released again
  mu_mutex_unlock(store.ctrl->mutex);
}
