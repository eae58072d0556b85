// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Requests to the kernel through the platform's device.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "event/kernel.h"
#include "event/subscribers.h"
#include "support/console.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr const char *kOpenFailure = "Device open failure /dev/mu_pal_ioctl\n";

// An argument with that payload length, at an odd address; its other bytes are `fill`.
class OddArgument {
 public:
  explicit OddArgument(uint16_t length, uint8_t fill = 0) : bytes_(5000, fill) { memcpy(&bytes_[3], &length, 2); }
  void *get() { return &bytes_[1]; }

 private:
  Bytes bytes_;
};

// The first `size` bytes of an argument: zeros, and numbers of the machine's byte order at their offsets.
template <typename... Fields>
Bytes argument(size_t size, Fields... fields) {
  Bytes bytes(size);
  (memcpy(bytes.data() + fields.first, &fields.second, sizeof fields.second), ...);
  return bytes;
}

// With the kernel in place from the start.
class EventDevice : public testing::Test {
 protected:
  EventDevice() { kernel(); }
};

using EventDestination = EventDevice;
using EventForward = EventDevice;

Bytes sent(const Kernel::Ioctl &call, size_t size) { return {call.argument.begin(), call.argument.begin() + size}; }

}  // namespace

TEST_F(EventDevice, OpensSendsAndCloses) {
  Console console;
  OddArgument arg(8, 0x11);
  EXPECT_EQ(mu_pal_ioctl(2, arg.get()), 0);
  EXPECT_EQ(kernel().take_calls(), "open ioctl close");
  EXPECT_EQ(kernel().open_path, "/dev/mu_pal_ioctl");
  EXPECT_EQ(kernel().open_flags, O_RDWR | O_CLOEXEC);
  EXPECT_EQ(kernel().ioctls[0].file, kDevice);
  EXPECT_EQ(kernel().ioctls[0].request, 0x4302u);
  EXPECT_EQ(kernel().closed, std::vector<int>{kDevice});
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventDevice, OpensItAnewForEachCall) {
  OddArgument arg(0);
  mu_pal_ioctl(1, arg.get());
  mu_pal_ioctl(1, arg.get());
  EXPECT_EQ(kernel().take_calls(), "open ioctl close open ioctl close");
}

TEST_F(EventDevice, OrsTheCommandIntoTheRequestCode) {
  const std::pair<uint32_t, unsigned long> rows[] = {{0, 0x4300},    {1, 0x4301},      {2, 0x4302},
                                                     {0xFF, 0x43FF}, {0x4300, 0x4300}, {0x80000001, 0x80004301}};
  OddArgument arg(0);
  for (const auto &[cmd, request] : rows) {
    mu_pal_ioctl(cmd, arg.get());
    EXPECT_EQ(kernel().ioctls.back().request, request);
  }
}

TEST_F(EventDevice, PassesTheCallersArgumentItself) {
  OddArgument arg(8);
  void *seen = nullptr;
  kernel().answer = [&](void *given) { seen = given; };
  mu_pal_ioctl(1, arg.get());
  EXPECT_EQ(seen, arg.get());
}

TEST_F(EventDevice, RefusesANullArgumentSilently) {
  Console console;
  EXPECT_EQ(mu_pal_ioctl(1, nullptr), -1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(kernel().take_calls(), "");
}

TEST_F(EventDevice, RefusesAPayloadAbove4072Bytes) {
  Console console;
  for (uint16_t length : {uint16_t{4072}, uint16_t{4073}, uint16_t{0xFFFF}}) {
    OddArgument arg(length);
    const bool fits = length == 4072;
    EXPECT_EQ(mu_pal_ioctl(1, arg.get()), fits ? 0 : -1) << length;
    EXPECT_EQ(console.take(), fits ? "" : "ioctl: input param is too long.\n") << length;
    EXPECT_EQ(kernel().take_calls(), fits ? "open ioctl close" : "") << length;
  }
}

TEST_F(EventDevice, WithoutTheDeviceSaysSo) {
  Console console;
  kernel().open_errno = ENOENT;
  OddArgument arg(0);
  EXPECT_EQ(mu_pal_ioctl(1, arg.get()), -1);
  EXPECT_EQ(console.take(), kOpenFailure);
  EXPECT_EQ(kernel().take_calls(), "open");
}

TEST_F(EventDevice, TellsOfAFailedCommandAndClosesAllTheSame) {
  Console console;
  kernel().ioctl_errno = EINVAL;
  OddArgument arg(0);
  EXPECT_EQ(mu_pal_ioctl(7, arg.get()), -1);
  EXPECT_EQ(console.take(), "Can not run command '7', ret=-1.\n");
  EXPECT_EQ(kernel().take_calls(), "open ioctl close");
  EXPECT_EQ(mu_pal_ioctl(0xFFFFFFFF, arg.get()), -1);
  EXPECT_EQ(console.take(), "Can not run command '-1', ret=-1.\n");
}

TEST_F(EventDevice, ReturnsAnyOtherResultSilently) {
  Console console;
  OddArgument arg(0);
  for (int result : {1, 42, -2}) {
    Replace ioctl(libc::ioctl, [&](int, unsigned long, void *) { return result; });
    EXPECT_EQ(mu_pal_ioctl(1, arg.get()), result);
  }
  EXPECT_EQ(console.take(), "");
}

// Through the shim instead of the kernel above: the path leads into an empty folder.
TEST(EventDeviceFile, IsReallyOpened) {
  Sandbox sandbox;
  Console console;
  OddArgument arg(0);
  EXPECT_EQ(mu_pal_ioctl(1, arg.get()), -1);
  EXPECT_EQ(console.take(), kOpenFailure);
  const std::string path = sandbox.root() + "/dev/mu_pal_ioctl";
  close(creat(path.c_str(), 0600));
  EXPECT_EQ(mu_pal_ioctl(1, arg.get()), -1);
  EXPECT_EQ(console.take(), "Can not run command '1', ret=-1.\n") << "a file is no device";
  const int next = dup(STDIN_FILENO);
  close(next);
  mu_pal_ioctl(1, arg.get());
  const int next_after = dup(STDIN_FILENO);
  EXPECT_EQ(next_after, next) << "no descriptor is left open";
  close(next_after);
  console.take();
}

TEST_F(EventDestination, IsAHeaderWithThePort) {
  Console console;
  mu_event_dest_set(0x89ABCDEF);
  ASSERT_EQ(kernel().ioctls.size(), 1u);
  EXPECT_EQ(kernel().ioctls[0].request, 0x4302u);
  EXPECT_EQ(sent(kernel().ioctls[0], 24), argument(24, std::pair{20, uint32_t{0x89ABCDEF}}));
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventDestination, TellsOfAMissingDeviceAndGoesOn) {
  Console console;
  kernel().open_errno = EACCES;
  mu_event_dest_set(1);
  EXPECT_EQ(console.take(), kOpenFailure);
}

TEST_F(EventForward, SendsTheMessageBehindAHeader) {
  mu_event_msg_t msg;
  memset(&msg, 0x77, sizeof msg);
  msg.op = 3;
  EXPECT_EQ(mup_event_cfg_forward(0xBEEF, &msg), 0);
  ASSERT_EQ(kernel().ioctls.size(), 1u);
  EXPECT_EQ(kernel().ioctls[0].request, 0x4301u);
  EXPECT_EQ(sent(kernel().ioctls[0], 24 + 32),
            argument(24 + 32, std::pair{2, uint16_t{32}}, std::pair{10, uint16_t{0xBEEF}}, std::pair{24, msg}));
}

TEST_F(EventForward, TakesTheAnswer) {
  kernel().answer = [](void *argument) { memset(static_cast<uint8_t *>(argument) + 24, 0x99, 32); };
  mu_event_msg_t msg = {};
  mu_event_msg_t expected;
  memset(&expected, 0x99, sizeof expected);
  EXPECT_EQ(mup_event_cfg_forward(0, &msg), 0);
  EXPECT_EQ(memcmp(&msg, &expected, sizeof msg), 0);
  // Whatever the result.
  Console console;
  kernel().ioctl_errno = EIO;
  msg = {};
  EXPECT_EQ(mup_event_cfg_forward(0, &msg), 0);
  EXPECT_EQ(memcmp(&msg, &expected, sizeof msg), 0);
  EXPECT_EQ(console.take(), "Can not run command '1', ret=-1.\n");
}

TEST_F(EventForward, SucceedsWithoutTheDevice) {
  Console console;
  kernel().open_errno = ENOENT;
  mu_event_msg_t msg = {};
  msg.op = 4;
  msg.count = 5;
  const mu_event_msg_t before = msg;
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(memcmp(&msg, &before, sizeof msg), 0);
  EXPECT_EQ(console.take(), kOpenFailure);
}

// Every configuration call of a registry that forwards, without the device: it is told on the console, and succeeds.
TEST_F(EventForward, ConfigurationCallsSucceedWithoutTheDevice) {
  VirtualClock clock;
  mu_event_init(4, nullptr, mup_event_cfg_forward);
  kernel().open_errno = ENOENT;
  Console console;
  mu_event_cfg_t cfg = {1, 2, 3};
  uint32_t count = 9;
  EXPECT_EQ(mu_event_counter_get(1, 2, &count, 0), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(console.take(), kOpenFailure);
  EXPECT_EQ(mu_event_counter_clear(1, 2), 0);
  EXPECT_EQ(console.take(), kOpenFailure);
  EXPECT_EQ(mu_event_counter_clear_all(1), 0);
  EXPECT_EQ(console.take(), kOpenFailure);
  EXPECT_EQ(mu_event_set(1, 2, &cfg), 0);
  EXPECT_EQ(console.take(), kOpenFailure);
  EXPECT_EQ(mu_event_get(1, 2, &cfg), 0);
  EXPECT_EQ(cfg.suprs_en * 100 + cfg.threshold * 10 + cfg.period, 123u);
  EXPECT_EQ(console.take(), kOpenFailure);
  mu_event_dump();
  EXPECT_EQ(console.take(), kOpenFailure);
}
