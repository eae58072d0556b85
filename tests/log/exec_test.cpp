// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Programs that a daemon starts do not get the log's descriptors.

#include <gtest/gtest.h>
#include <semaphore.h>

#include <atomic>
#include <fstream>

#include "modules.h"
#include "support/console.h"
#include "support/exec.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/log.h"
#include "tarn/platform.h"

using namespace tarn_test;

TEST(LogExec, DoesNotPassTheSocketOn) {
  Console console;
  ASSERT_EQ(mup_log_init(0, 21, module_table(21).c_str()), 0);
  const int sock = mup_log_ctrl_get()->sock;
  ASSERT_GE(sock, 0);
  EXPECT_FALSE(is_inherited(sock));
  const int copy = dup(sock);  // this one is passed on: the test would see it
  EXPECT_TRUE(is_inherited(copy));
  close(copy);
}

TEST(LogExec, DoesNotPassTheDeviceOn) {
  Sandbox sandbox;
  std::ofstream(sandbox.root() + "/dev/mulog-ioctl-dev").close();
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

TEST(LogExec, DoesNotPassTheKernelsMessagesOn) {
  Sandbox sandbox;
  std::ofstream(sandbox.root() + "/proc/kmsg").close();
  VirtualClock clock;
  std::atomic<int> reads = 0;
  std::atomic<bool> inherited = true;
  Replace look(libc::read, [&](int file, void *, size_t) -> ssize_t {
    reads++;
    inherited = is_inherited(file);
    return 0;
  });
  pthread_t bridge;
  ASSERT_EQ(mu_thread_create(&bridge, "klog", log_msg_process, nullptr, 1 << 20, 0, 0), 0);
  clock.settle();  // it sleeps after its first read
  EXPECT_EQ(reads, 1);
  EXPECT_FALSE(inherited);
}
