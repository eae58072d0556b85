// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The event thread before its loop: how it sets the channel up, and when it ends.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "event/kernel.h"
#include "support/console.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

using Calls = std::vector<std::string>;

const std::string kOpened = "socket 16 " + std::to_string(SOCK_RAW | SOCK_CLOEXEC) + " 19";

std::string bind_line(uint32_t port) {
  std::string address(12, '\0');
  const uint16_t family = 16;  // AF_NETLINK
  memcpy(&address[0], &family, 2);
  memcpy(&address[4], &port, 4);
  return "bind 77 " + hex(address);
}

// Standard error, to which perror prints.
std::string run_to_its_end() {
  testing::internal::CaptureStderr();
  EXPECT_EQ(remote_event_process(), nullptr);
  return testing::internal::GetCapturedStderr();
}

std::string failure(int error) { return std::string("!Create pkt_evt channel failed::\n: ") + strerror(error) + "\n"; }

class EventChannel : public testing::Test {
 protected:
  Kernel kernel_;
  Console console_;
};

}  // namespace

TEST_F(EventChannel, OpensSendsItsPortAndBinds) {
  int32_t dest_by_then = 0;
  kernel_.answers().answer = [&](std::string &) { dest_by_then = evt_dest; };
  kernel_.start();
  EXPECT_EQ(kernel_.take_calls(),
            (Calls{kOpened, "getppid", "open /dev/mu_pal_ioctl", "ioctl 88 4302", "close 88", bind_line(4321)}));
  std::string destination(24, '\0');
  const uint32_t port = 4321;
  memcpy(&destination[20], &port, 4);
  EXPECT_EQ(kernel_.take_arguments(), Calls{destination});
  EXPECT_EQ(dest_by_then, 4321);
  EXPECT_EQ(evt_dest, 4321);
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventChannel, TakesThePortFromItsParentWhateverThatIs) {
  kernel_.answers().parent = 0;
  evt_dest = 5;
  kernel_.start();
  EXPECT_EQ(evt_dest, 0);
  EXPECT_EQ(kernel_.take_calls().back(), bind_line(0));
}

TEST_F(EventChannel, GoesOnWithoutTheDevice) {
  kernel_.answers().device = -1;
  kernel_.start();
  EXPECT_EQ(kernel_.take_calls(), (Calls{kOpened, "getppid", "open /dev/mu_pal_ioctl", bind_line(4321)}));
  EXPECT_EQ(console_.take(), "Device open failure /dev/mu_pal_ioctl\n");
  kernel_.feed({arrives(datagram(1, 2, 3))});
  EXPECT_EQ(kernel_.received().size(), 1u);
}

TEST_F(EventChannel, EndsWithoutASocket) {
  kernel_.answers().socket_error = EPROTONOSUPPORT;
  evt_dest = 5;
  EXPECT_EQ(run_to_its_end(), failure(EPROTONOSUPPORT));
  EXPECT_EQ(console_.take(), "");
  EXPECT_EQ(kernel_.take_calls(), Calls{kOpened});
  EXPECT_EQ(evt_dest, 5);
}

TEST_F(EventChannel, EndsWhenItCannotBind) {
  kernel_.answers().bind_error = EADDRINUSE;
  EXPECT_EQ(run_to_its_end(), "");
  EXPECT_EQ(console_.take(), "bind socket failed(" + std::to_string(EADDRINUSE) + ").\n") << "errno of the bind";
  EXPECT_EQ(kernel_.take_calls(), (Calls{kOpened, "getppid", "open /dev/mu_pal_ioctl", "ioctl 88 4302", "close 88",
                                         bind_line(4321), "close 77"}));
  EXPECT_EQ(kernel_.selected().size(), 0u);
  EXPECT_EQ(evt_dest, 4321);
}

TEST_F(EventChannel, PrintsTheBindFailureBeforeItCloses) {
  kernel_.answers().bind_error = EACCES;
  std::string printed;
  const Replace close(libc::close, [&](int file) {
    if (file == 77) printed = console_.take();
    return 0;
  });
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(printed, "bind socket failed(" + std::to_string(EACCES) + ").\n");
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventChannel, EndsWithoutMemoryForTheSetOfAHighDescriptor) {
  kernel_.answers().sock = FD_SETSIZE;
  const FailingMalloc no_memory(1);
  EXPECT_EQ(run_to_its_end(), failure(ENOMEM));
  EXPECT_EQ(kernel_.take_calls().back(), line("close %d", FD_SETSIZE));
  EXPECT_EQ(kernel_.selected().size(), 0u);
}

TEST_F(EventChannel, DropsWhatArrivesBeforeTheRegistryIsReady) {
  kernel_.start();
  kernel_.feed({arrives(datagram(1, 2, 0)), receive_fails()});
  EXPECT_EQ(mu_event_init(20, hook, nullptr), 0);
  EXPECT_EQ(rec(2).count, 0u);
  kernel_.feed({arrives(datagram(1, 2, 0))});
  EXPECT_EQ(rec(2).count, 1u);
}
