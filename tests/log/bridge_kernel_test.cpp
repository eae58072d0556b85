// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel bridge on the machine's own kernel log, where the test may write to it. The lines that it reads there are
// lost for the machine's syslog daemon, if it has one.

#include <fcntl.h>

#include <filesystem>

#include "log/bridge.h"

using namespace tarn_test;

namespace {

using LogBridgeKernel = InitedLog;

constexpr const char *kStream = "/proc/kmsg";

// Why the kernel's log cannot be used; empty when it can.
std::string obstacle() {
  for (const auto &[path, flags] : {std::pair{"/dev/kmsg", O_WRONLY}, std::pair{kStream, O_RDONLY}}) {
    const int file = open(path, flags);
    if (file < 0) return std::string(path) + ": " + strerror(errno);
    close(file);
  }
  return "";
}

bool write_to_kernel_log(const std::string &line) {
  const int file = open("/dev/kmsg", O_WRONLY);
  const bool done = write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  close(file);
  return done;
}

}  // namespace

TEST_F(LogBridgeKernel, LogsWhatIsWrittenToTheKernelsLog) {
  Sandbox sandbox;
  const std::string link = sandbox.root() + kStream;
  std::filesystem::create_symlink(kStream, link);
  if (const std::string reason = obstacle(); !reason.empty()) GTEST_SKIP() << reason;

  Collector collector;
  ctrl->modules[5].record_level = MUP_LOG_DEBUG;
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  // No pauses: a machine that has been up for long has much to read.
  Replace no_pause(libc::select, [](int, fd_set *, fd_set *, fd_set *, timeval *) { return 0; });
  // A read does not wait either: the end of the test would have to wait for the next kernel message.
  Replace open_stream(libc::open, [](const char *path, int flags, mode_t mode) {
    return libc::open.real(path, flags | (strcmp(path, kStream) == 0 ? O_NONBLOCK : 0), mode);
  });
  ASSERT_NO_FATAL_FAILURE(start_bridge());

  const std::string text = "tarn test " + std::to_string(getpid()) + ", port 3 is up";
  const std::string line = "<6><jxlog-05:6:" + text + "<jxlog>\n";
  // Another reader of the kernel's log may take a line before the bridge: then the next attempt counts.
  for (int attempt = 0; attempt < 1000; attempt++) {
    ASSERT_TRUE(write_to_kernel_log(line));
    for (int look = 0; look < 10000; look++) {
      if (collector.next() == text + '\n') return;
      sched_yield();
    }
  }
  FAIL() << "the bridge has not seen any of the lines";
}
