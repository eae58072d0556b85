// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Programs that a daemon starts do not get the log's descriptors.

#include "support/exec.h"
#include "log/bridge.h"

using namespace tarn_test;

namespace {

using LogExec = LogFiles;

}  // namespace

TEST_F(LogExec, DoesNotPassTheSocketOn) {
  init();
  ASSERT_GE(ctrl->sock, 0);
  EXPECT_FALSE(is_inherited(ctrl->sock));
  const int copy = dup(ctrl->sock);  // this one is passed on: the test would see it
  EXPECT_TRUE(is_inherited(copy));
  close(copy);
}

TEST_F(LogExec, DoesNotPassTheDeviceOn) {
  write_file(root() + "/dev/mulog-ioctl-dev", "");
  int calls = 0;
  bool inherited = true;
  Replace look(libc::ioctl, [&](int device, unsigned long, void *) {
    calls++;
    inherited = is_inherited(device);
    return 0;
  });
  mup_log_kern_level_set(1, 2, 0);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(inherited);
}

TEST_F(LogExec, DoesNotPassTheKernelsMessagesOn) {
  write_file(root() + "/proc/kmsg", "");
  std::atomic<int> reads = 0;
  std::atomic<bool> inherited = true;
  Replace look(libc::read, [&](int file, void *, size_t) -> ssize_t {
    reads++;
    inherited = is_inherited(file);
    return 0;
  });
  ASSERT_NO_FATAL_FAILURE(start_bridge());
  clock.settle();  // it sleeps after its first read
  EXPECT_EQ(reads, 1);
  EXPECT_FALSE(inherited);
}
