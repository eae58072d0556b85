// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_file_get when one of its two files does not open.

#include <cerrno>
#include <cstring>

#include "store_files.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

using LogFileGetFailure = LogStoreTest;

// What was there when a file was closed.
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

// Lets the file that is opened in `mode` open, and no other.
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

TEST_F(LogFileGetFailure, ClosesTheFileThatOpenedThenPrintsThenUnlocks) {
  start();
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
    EXPECT_EQ(mu_mutex_trylock(control().mutex), 0);
    mu_mutex_unlock(control().mutex);
  }
}
