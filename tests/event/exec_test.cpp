// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Programs that a daemon starts do not get the event service's descriptors.

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

#include "support/console.h"
#include "support/exec.h"
#include "support/libc.h"
#include "support/sandbox.h"
#include "tarn/event.h"

using namespace tarn_test;

TEST(EventExec, DoesNotPassTheDeviceOn) {
  Sandbox sandbox;
  std::ofstream(sandbox.root() + MU_PAL_DEVICE).close();
  int calls = 0;
  bool inherited = true;
  Replace look(libc::ioctl, [&](int device, unsigned long, void *) {
    calls++;
    inherited = is_inherited(device);
    return 0;
  });
  mu_event_dest_set(1);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(inherited);
}

// A socket of another family, with the flags that were asked for, is in place of the netlink socket.
TEST(EventExec, DoesNotPassTheSocketOn) {
  Sandbox sandbox;
  Console console;
  int calls = 0;
  bool inherited = true;
  Replace make(libc::socket,
               [](int, int type, int) { return libc::socket.real(AF_UNIX, SOCK_DGRAM | (type & SOCK_CLOEXEC), 0); });
  Replace look(libc::bind, [&](int sock, const sockaddr *, socklen_t) {
    calls++;
    inherited = is_inherited(sock);
    errno = EADDRINUSE;
    return -1;  // ends the thread's body
  });
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(inherited);
}
