// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Requests to the kernel through the platform device, to the byte.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "event/kernel.h"
#include "support/console.h"
#include "support/guarded.h"
#include "support/sandbox.h"

using namespace event_test;
using namespace tarn_test;

namespace {

const std::string kNoDevice = "Device open failure /dev/mu_pal_ioctl\n";

// A number in host byte order.
template <typename T>
void put(std::string &bytes, size_t offset, T value) {
  memcpy(&bytes[offset], &value, sizeof value);
}

// An argument of 24 bytes, after which nothing can be read.
class Argument {
 public:
  explicit Argument(uint16_t length) { memcpy(bytes_.bytes() + 2, &length, 2); }
  void *get() { return bytes_.bytes(); }

 private:
  Guarded bytes_{24};
};

std::vector<std::string> calls_for(unsigned long request, int file = 88) {
  return {"open /dev/mu_pal_ioctl", line("ioctl %d %lx", file, request), line("close %d", file)};
}

using Calls = std::vector<std::string>;

class PalIoctl : public testing::Test {
 protected:
  Kernel kernel_;
  Console console_;
};

using EventDestSet = PalIoctl;

class EventForward : public PalIoctl {
 protected:
  EventForward() { kernel_.answers().argument_size = 56; }

  static mu_event_msg_t message() {
    return {0x11111111, 0x22222222, 0x33333333, 0x44444444, 0x55555555, 0x66666666, 0x77777777, 0x88888888};
  }

  // The argument for a message.
  static std::string argument(uint16_t device_id, const mu_event_msg_t &msg) {
    std::string bytes(56, '\0');
    put<uint16_t>(bytes, 2, 32);
    put<uint16_t>(bytes, 10, device_id);
    memcpy(&bytes[24], &msg, 32);
    return bytes;
  }
};

}  // namespace

// ---- mu_pal_ioctl ---------------------------------------------------------------------------------------------------

TEST_F(PalIoctl, OpensTheDeviceForEachCallAndClosesIt) {
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0);
  EXPECT_EQ(kernel_.take_calls(), (Calls{"open /dev/mu_pal_ioctl", "ioctl 88 4301", "close 88",
                                         "open /dev/mu_pal_ioctl", "ioctl 88 4301", "close 88"}));
}

TEST_F(PalIoctl, RefusesANullArgumentSilently) {
  EXPECT_EQ(mu_pal_ioctl(1, nullptr), -1);
  EXPECT_EQ(kernel_.take_calls(), Calls{});
  EXPECT_EQ(console_.take(), "");
}

TEST_F(PalIoctl, TakesAPayloadOf4072Bytes) {
  for (const int length : {0, 1, 8, 32, 4071, 4072}) {
    Argument argument(static_cast<uint16_t>(length));
    EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0) << length;
    EXPECT_EQ(kernel_.take_calls(), calls_for(0x4301)) << length;
    EXPECT_EQ(console_.take(), "") << length;
  }
}

TEST_F(PalIoctl, RefusesALongerPayload) {
  for (const int length : {4073, 4096, 0x7fff, 0x8000, 65512, 65535}) {
    Argument argument(static_cast<uint16_t>(length));
    EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1) << length;
    EXPECT_EQ(kernel_.take_calls(), Calls{}) << length;
    EXPECT_EQ(console_.take(), "ioctl: input param is too long.\n") << length;
  }
}

TEST_F(PalIoctl, ReportsThatTheDeviceDoesNotOpen) {
  kernel_.answers().device = -1;
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(kernel_.take_calls(), Calls{"open /dev/mu_pal_ioctl"});
  EXPECT_EQ(console_.take(), kNoDevice);
}

TEST_F(PalIoctl, LooksAtTheLengthBeforeItOpens) {
  kernel_.answers().device = -1;
  Argument argument(4073);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(console_.take(), "ioctl: input param is too long.\n");
}

TEST_F(PalIoctl, OrsTheCommandIntoTheRequest) {
  struct Row {
    uint32_t cmd;
    unsigned long request;
  };
  for (const Row &row : {Row{0, 0x4300}, Row{1, 0x4301}, Row{2, 0x4302}, Row{0xff, 0x43ff}, Row{0x4300, 0x4300},
                         Row{0x4301, 0x4301}, Row{0x100, 0x4300}, Row{0x8000, 0xc300}, Row{0x80000000, 0x80004300},
                         Row{0x80000001, 0x80004301}, Row{UINT32_MAX, 0xffffffff}}) {
    Argument argument(0);
    EXPECT_EQ(mu_pal_ioctl(row.cmd, argument.get()), 0) << row.cmd;
    EXPECT_EQ(kernel_.take_calls(), calls_for(row.request)) << row.cmd;
  }
}

TEST_F(PalIoctl, PassesTheArgumentItself) {
  Argument argument(0);
  kernel_.answers().answer = [](std::string &bytes) { bytes.assign(24, 'x'); };
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0);
  EXPECT_EQ(kernel_.argument(), argument.get());
  EXPECT_EQ(std::string(static_cast<const char *>(argument.get()), 24), std::string(24, 'x'));
}

TEST_F(PalIoctl, TakesAnArgumentAtAnyAddress) {
  std::array<char, 32> bytes = {};
  const uint16_t length = 4072;
  memcpy(&bytes[3], &length, 2);
  EXPECT_EQ(mu_pal_ioctl(1, &bytes[1]), 0);
  EXPECT_EQ(kernel_.take_calls(), calls_for(0x4301));
  bytes[3] = bytes[4] = '\xff';
  EXPECT_EQ(mu_pal_ioctl(1, &bytes[1]), -1);
}

TEST_F(PalIoctl, ReturnsWhatTheDeviceReturned) {
  for (const int result : {0, 1, 5, 42, -2, INT32_MAX, INT32_MIN}) {
    kernel_.answers().ioctl_result = result;
    Argument argument(0);
    EXPECT_EQ(mu_pal_ioctl(2, argument.get()), result);
    EXPECT_EQ(kernel_.take_calls(), calls_for(0x4302));
    EXPECT_EQ(console_.take(), "") << result;
  }
}

TEST_F(PalIoctl, ReportsAFailureAndClosesTheDevice) {
  kernel_.answers().ioctl_result = -1;
  struct Row {
    uint32_t cmd;
    const char *text;
  };
  for (const Row &row :
       {Row{1, "Can not run command '1', ret=-1.\n"}, Row{2, "Can not run command '2', ret=-1.\n"},
        Row{7, "Can not run command '7', ret=-1.\n"}, Row{0x4301, "Can not run command '17153', ret=-1.\n"},
        Row{UINT32_MAX, "Can not run command '-1', ret=-1.\n"}}) {
    Argument argument(0);
    EXPECT_EQ(mu_pal_ioctl(row.cmd, argument.get()), -1);
    EXPECT_EQ(kernel_.take_calls(), calls_for(0x4300u | row.cmd)) << "no second try";
    EXPECT_EQ(console_.take(), row.text);
  }
}

TEST_F(PalIoctl, TakesTheDescriptorZero) {
  kernel_.answers().device = 0;
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0);
  EXPECT_EQ(kernel_.take_calls(), calls_for(0x4301, 0));
}

// Through the shim in place of the fake kernel: the path leads into an empty folder.
TEST(PalIoctlFile, IsReallyOpened) {
  const Sandbox sandbox;
  Console console;
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(console.take(), kNoDevice);
  close(creat((sandbox.root() + "/dev/mu_pal_ioctl").c_str(), 0600));
  const int next = dup(STDIN_FILENO);
  close(next);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(console.take(), "Can not run command '1', ret=-1.\n") << "an ordinary file takes no command";
  const int next_after = dup(STDIN_FILENO);
  EXPECT_EQ(next_after, next) << "no descriptor remains open";
  close(next_after);
}

// ---- mu_event_dest_set ----------------------------------------------------------------------------------------------

TEST_F(EventDestSet, SendsTheSecondCommandWithThePort) {
  for (const uint32_t port : {0u, 1u, 0x12345678u, 0x89abcdefu, UINT32_MAX}) {
    mu_event_dest_set(port);
    std::string expected(24, '\0');
    put<uint32_t>(expected, 20, port);
    EXPECT_EQ(kernel_.take_calls(), calls_for(0x4302));
    EXPECT_EQ(kernel_.take_arguments(), std::vector<std::string>{expected});
  }
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventDestSet, IgnoresAFailure) {
  kernel_.answers().ioctl_result = -1;
  mu_event_dest_set(1);
  EXPECT_EQ(console_.take(), "Can not run command '2', ret=-1.\n");
  kernel_.answers().device = -1;
  mu_event_dest_set(1);
  EXPECT_EQ(console_.take(), kNoDevice);
}

TEST_F(EventDestSet, HasRoomFor1024BytesOfAnswer) {
  kernel_.answers().answer = [](std::string &bytes) { bytes.assign(1024, '\x5a'); };
  mu_event_dest_set(1);
  EXPECT_EQ(kernel_.take_calls(), calls_for(0x4302));
}

// ---- mup_event_cfg_forward ------------------------------------------------------------------------------------------

TEST_F(EventForward, SendsTheFirstCommandWithTheMessage) {
  for (const unsigned number : {0u, 1u, 0xabcdu, 0xbeefu, 0xffffu}) {
    const auto device_id = static_cast<uint16_t>(number);
    mu_event_msg_t msg = message();
    EXPECT_EQ(mup_event_cfg_forward(device_id, &msg), 0);
    EXPECT_EQ(kernel_.take_calls(), calls_for(0x4301));
    EXPECT_EQ(kernel_.take_arguments(), std::vector<std::string>{argument(device_id, message())});
    EXPECT_EQ(bytes_of(msg), bytes_of(message()));
  }
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventForward, CopiesTheAnswerBack) {
  kernel_.answers().answer = [](std::string &bytes) {
    for (size_t i = 0; i < 32; i++) bytes[24 + i] = static_cast<char>('A' + i);
  };
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), "ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`");
}

TEST_F(EventForward, CopiesThirtyTwoBytesWhateverTheHeaderSaysThen) {
  for (const char filler : {'\0', '\xff'}) {
    kernel_.answers().answer = [filler](std::string &bytes) { bytes = std::string(24, filler) + std::string(32, 'z'); };
    mu_event_msg_t msg = message();
    EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
    EXPECT_EQ(bytes_of(msg), std::string(32, 'z'));
  }
}

TEST_F(EventForward, CopiesBackAndSucceedsWhenTheDeviceFails) {
  kernel_.answers().answer = [](std::string &bytes) { bytes.replace(24, 32, std::string(32, 'y')); };
  kernel_.answers().ioctl_result = -1;
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), std::string(32, 'y'));
  EXPECT_EQ(console_.take(), "Can not run command '1', ret=-1.\n");
}

TEST_F(EventForward, SucceedsWithoutTheDevice) {
  kernel_.answers().device = -1;
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), bytes_of(message()));
  EXPECT_EQ(console_.take(), kNoDevice);
}

TEST_F(EventForward, SucceedsWhateverTheDeviceReturns) {
  kernel_.answers().ioctl_result = 5;
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
}

TEST_F(EventForward, HasRoomFor1024BytesOfAnswer) {
  kernel_.answers().answer = [](std::string &bytes) { bytes.assign(1024, '\x5a'); };
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), std::string(32, '\x5a'));
}

// ---- The forwarder as handler ---------------------------------------------------------------------------------------

TEST(EventForwarding, CallsExchangeWithTheDeviceUnderTheLock) {
  const Registry registry(20, nullptr, mup_event_cfg_forward);
  const Kernel kernel;
  kernel.answers().argument_size = 56;
  bool held = false;
  kernel.answers().answer = [&](std::string &bytes) {
    held = lock_is_held();
    put<uint32_t>(bytes, 24 + 12, 1);
    put<uint32_t>(bytes, 24 + 16, 22);
    put<uint32_t>(bytes, 24 + 20, 333);
    put<uint32_t>(bytes, 24 + 24, 4444);
  };
  uint32_t count = 0;
  EXPECT_EQ(mu_event_counter_get(6, 19, &count, 1), 0);
  EXPECT_EQ(count, 4444u);
  EXPECT_TRUE(held);
  std::string expected(56, '\0');
  put<uint16_t>(expected, 2, 32);
  put<uint16_t>(expected, 10, 6);
  put<uint32_t>(expected, 24 + 4, 19);
  put<uint32_t>(expected, 24 + 28, 1);
  EXPECT_EQ(kernel.take_arguments(), std::vector<std::string>{expected});
  mu_event_cfg_t cfg = {};
  EXPECT_EQ(mu_event_get(6, 0, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 22, 333}));
  mu_event_dump();
  EXPECT_FALSE(held);
}

TEST(EventForwarding, CallsSucceedWithoutTheDeviceAndReportIt) {
  const Sandbox sandbox;
  const Registry registry(20, nullptr, mup_event_cfg_forward);
  const std::string before = state_bytes();
  Console console;
  uint32_t count = 9;
  mu_event_cfg_t cfg = {11, 12, 13};
  EXPECT_EQ(mu_event_counter_get(0, 1, &count, 1), 0);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 1), 0);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(mu_event_set(0, 1, &cfg), 0);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(mu_event_get(0, 1, &cfg), 0);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{11, 12, 13}));
  mu_event_dump();
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(state_bytes(), before);
}
