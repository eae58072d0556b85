// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_file_get: which file it copies, which records the filter selects, and files that do not open.

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "log/fixture.h"

using namespace tarn_test;

namespace {

using LogFileGet = StartedLogFiles;

// The state when a file was closed.
struct Close {
  Console *console;
  int calls = 0;
  std::string printed;
  int lock = 0;  // what an attempt to take the log mutex gave
};

int note_close(void *cookie) {
  auto &close = *static_cast<Close *>(cookie);
  close.calls++;
  close.printed = close.console->take();
  close.lock = mu_mutex_trylock(mup_log_ctrl_get()->mutex);
  return 0;
}

// Opens only the file with this mode.
auto only(const char *mode, Close &close) {
  return [mode, &close](const char *, const char *wanted) -> FILE * {
    if (strcmp(wanted, mode) != 0) {
      errno = EACCES;
      return nullptr;
    }
    cookie_io_functions_t functions = {};
    functions.close = note_close;
    return fopencookie(&close, mode, functions);
  };
}

}  // namespace

TEST_F(LogFileGet, WithoutAModuleEveryLineIsCopied) {
  const std::string file = std::string(kSysMarker) + line_of("Error", "m0", "a") + "any other line\n\n" +
                           line_of("Debug", "unknown", "b") + line_of("No level", "m1", "") + "unfinished";
  for (const unsigned levels : {0u, 1u, 9u, 255u}) EXPECT_EQ(copy_of(file, nullptr, levels), file);
}

TEST_F(LogFileGet, ZeroIsTheSystemLogAndAnythingElseTheUserLog) {
  write_file(sys(), "system\n");
  write_file(usr(), "user\n");
  EXPECT_EQ(copied(0, nullptr, 0), "system\n");
  for (const int which : {1, 2, 127, -1, -128}) EXPECT_EQ(copied(which, nullptr, 0), "user\n");
}

TEST_F(LogFileGet, CopiesTheFileAndNotTheRing) {
  log_text(0, 4, "saved");
  save();
  log_text(0, 4, "not saved");
  EXPECT_EQ(copied(0, nullptr, 0), "SysLog:\n2026-01-02 03:04:05[Error]m0:saved\n");
  EXPECT_EQ(ctrl->dirty, 1);
}

TEST_F(LogFileGet, AFreshSystemFileIsCopiedAsItsMarkerLine) {
  EXPECT_EQ(copied(0, nullptr, 0), "SysLog:\n");  // a NUL ends a line
  EXPECT_EQ(copied(1, nullptr, 0), "");
}

TEST_F(LogFileGet, HoldsTheLockWhileItCopies) {
  int busy = 0;
  Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *mode) {
    if (!lock_is_free()) busy++;
    return libc::fopen.real(path, mode);
  });
  EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(busy, 2);
}

TEST_F(LogFileGet, OverwritesTheCopy) {
  write_file(out(), std::string(1000, 'x'));
  write_file(sys(), "short\n");
  EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(bytes_of(out()), "short\n");
}

// ---- The filter -----------------------------------------------------------------------------------------------------

TEST_F(LogFileGet, AModuleAndLevelsSelectRecords) {
  std::string file = kSysMarker;
  for (const char *level : kLevelNames) {
    file += line_of(level, "m1", "text");
    file += line_of(level, "m10", "text");
  }
  file += "\nnot a record\n";
  for (const unsigned count : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 127u, 128u, 255u}) {
    SCOPED_TRACE(count);
    std::string expected = kSysMarker;
    for (unsigned level = 0; level < std::min(count, 9u); level++)
      expected += line_of(kLevelNames[level], "m1", "text");
    ASSERT_EQ(copy_of(file, "m1", count), expected + "\nnot a record\n");
  }
}

TEST_F(LogFileGet, FindsALevelAnywhereInTheLine) {
  const std::string off = line_of("Debug", "m1", "the word Off");
  const std::string error = line_of("Info", "m1", "an Errormessage");
  const std::string lower = line_of("Info", "m1", "an error, off");
  const std::string file = kSysMarker + off + error + lower + line_of("Error", "m2", "]m1:");
  EXPECT_EQ(copy_of(file, "m1", 1), kSysMarker + off);
  // "]m1:" counts anywhere too.
  EXPECT_EQ(copy_of(file, "m1", 5), kSysMarker + off + error + line_of("Error", "m2", "]m1:"));
  EXPECT_EQ(copy_of(file, "m1", 8), file);
  EXPECT_EQ(copy_of(file, "m1", 9), file);
}

TEST_F(LogFileGet, FiveLevelsCopyWhatNamesOneOfThem) {
  std::string file = kSysMarker;
  std::string expected = kSysMarker;
  for (unsigned level = 0; level <= 8; level++) {
    file += line_of(kLevelNames[level], "m1", "x");
    file += line_of(kLevelNames[level], "m1", "Critical too");
    if (level < 5) expected += line_of(kLevelNames[level], "m1", "x");
    expected += line_of(kLevelNames[level], "m1", "Critical too");
  }
  EXPECT_EQ(copy_of(file, "m1", 5), expected);
}

TEST_F(LogFileGet, AModulesNameIsTakenWhole) {
  const std::string file = line_of("Error", "m1", "a") + line_of("Error", "m11", "b") + line_of("Error", "", "c") +
                           line_of("Error", "a name of thirty-two characters.", "d");
  EXPECT_EQ(copy_of(file, "m1", 9), line_of("Error", "m1", "a"));
  EXPECT_EQ(copy_of(file, "m", 9), "");
  EXPECT_EQ(copy_of(file, "1", 9), "");
  EXPECT_EQ(copy_of(file, "", 9), line_of("Error", "", "c"));  // "]:"
  EXPECT_EQ(copy_of(file, "a name of thirty-two characters.", 9),
            line_of("Error", "a name of thirty-two characters.", "d"));
  EXPECT_EQ(copy_of(file, "%s", 9), "");
}

TEST_F(LogFileGet, AModuleOf33CharactersIsRefusedBeforeAnythingIsOpened) {
  Console console;
  for (const size_t size : std::vector<size_t>{33, 34, 1000}) {
    EXPECT_EQ(mup_log_file_get(out().c_str(), 0, std::string(size, 'm').c_str(), 9), 2);
  }
  EXPECT_FALSE(exists(out()));
  EXPECT_EQ(mup_log_file_get(out().c_str(), 0, std::string(32, 'm').c_str(), 9), 0);
  EXPECT_TRUE(exists(out()));
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogFileGet, ANullPathIsRefused) {
  Console console;
  EXPECT_EQ(mup_log_file_get(nullptr, 1, "m1", 9), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_file_get"));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_F(LogFileGet, AMissingLogLeavesAnEmptyCopy) {
  std::filesystem::remove(sys());
  write_file(out(), "old");
  Console console;
  EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "open file fail \n");
  ASSERT_TRUE(exists(out()));
  EXPECT_EQ(bytes_of(out()), "");
}

TEST_F(LogFileGet, ReturnsZeroWhenAFileDoesNotOpen) {
  std::vector<std::string> opened;
  Console console;
  {
    Replace<FILE *(const char *, const char *)> watched(libc::fopen, [&](const char *path, const char *how) {
      opened.push_back(std::string(path) + " " + how);
      return libc::fopen.real(path, how);
    });
    EXPECT_EQ(mup_log_file_get((root() + "/none/copy").c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(console.take(), "open file fail \n");
    EXPECT_EQ(opened, (std::vector<std::string>{"/overlay/mu_log.txt r", root() + "/none/copy w"}));
    EXPECT_EQ(mup_log_file_remove(), 0);
    console.take();
    EXPECT_EQ(mup_log_file_get((root() + "/none/copy").c_str(), 1, nullptr, 0), 0);  // neither file opens
    EXPECT_EQ(console.take(), "open file fail \n");
  }
  EXPECT_EQ(mup_log_file_get("", 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "open file fail \n");
  EXPECT_TRUE(lock_is_free());  // released after each failure
}

TEST_F(LogFileGet, AFailedCopyLeavesNoFileOpen) {
  std::filesystem::remove(sys());
  Console console;
  const int before = lowest_free_descriptor();
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(mup_log_file_get((root() + "/none/copy").c_str(), 1, nullptr, 0), 0);
  }
  console.take();
  EXPECT_EQ(lowest_free_descriptor(), before);
}

TEST_F(LogFileGet, ADirectoryInPlaceOfTheLogCopiesNothing) {
  std::filesystem::remove(sys());
  ASSERT_EQ(mkdir(sys().c_str(), 0700), 0);
  Console console;
  EXPECT_EQ(copied(0, nullptr, 0), "");
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogFileGet, AFullDiskIsNotReported) {
  std::string file = kSysMarker;
  for (int i = 0; i < 300; i++) file += line_of("Error", "m0", std::string(200, 'x'));
  write_file(sys(), file);
  const std::string full = path("full");
  ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
  Console console;
  EXPECT_EQ(mup_log_file_get(full.c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogFileGet, ClosesTheFileThatOpenedThenPrintsThenUnlocks) {
  for (const char *mode : {"r", "w"}) {
    SCOPED_TRACE(mode);
    Console console;
    Close close = {.console = &console, .printed = "not called"};
    Replace open_one(libc::fopen, only(mode, close));
    EXPECT_EQ(mup_log_file_get("copy.txt", 0, nullptr, 0), 0);
    EXPECT_EQ(close.calls, 1);
    EXPECT_EQ(close.printed, "");
    EXPECT_EQ(close.lock, EBUSY);
    EXPECT_EQ(console.take(), "open file fail \n");
    EXPECT_TRUE(lock_is_free());
  }
}
