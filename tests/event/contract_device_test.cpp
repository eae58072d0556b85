// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The platform device: its two commands, to the byte, and the application of configuration messages.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"
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

// The device of a test: notes each call, and answers an ioctl as it is told.
class Device {
 public:
  std::vector<std::string> calls;
  std::vector<std::string> requests;               // the bytes of each argument
  std::function<void(std::string &)> answer;       // changes these bytes in place
  std::function<int()> result = [] { return 0; };  // of ioctl
  int file = 77;                                   // what open gives
  size_t size = 24;                                // of an argument
  void *arg = nullptr;                             // of the latest ioctl
  std::vector<std::string> take() { return std::exchange(calls, {}); }

 private:
  Replace<int(const char *, int, mode_t)> open_{libc::open, [this](const char *path, int flags, mode_t) {
                                                  EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
                                                  EXPECT_EQ(flags & (O_CREAT | O_TRUNC | O_APPEND), 0);
                                                  calls.push_back(std::string("open ") + path);
                                                  if (file < 0) errno = ENOENT;
                                                  return file;
                                                }};
  Replace<int(int, unsigned long, void *)> ioctl_{libc::ioctl, [this](int fd, unsigned long request, void *argument) {
                                                    calls.push_back(line("ioctl %d %lx", fd, request));
                                                    arg = argument;
                                                    std::string bytes(static_cast<const char *>(argument), size);
                                                    requests.push_back(bytes);
                                                    if (answer) {
                                                      answer(bytes);
                                                      memcpy(argument, bytes.data(), bytes.size());
                                                    }
                                                    return result();
                                                  }};
  Replace<int(int)> close_{libc::close, [this](int fd) {
                             calls.push_back(line("close %d", fd));
                             return -1;  // ignored
                           }};
};

// An argument of 24 bytes and no more, so that nothing behind can be read.
class Argument {
 public:
  explicit Argument(uint16_t length) : bytes_(new char[24]()) { memcpy(&bytes_[2], &length, 2); }
  void *get() { return bytes_.get(); }

 private:
  std::unique_ptr<char[]> bytes_;
};

std::vector<std::string> calls_for(unsigned long request, int file = 77) {
  return {"open /dev/mu_pal_ioctl", line("ioctl %d %lx", file, request), line("close %d", file)};
}

using Calls = std::vector<std::string>;

class PalIoctlContract : public testing::Test {
 protected:
  Device device_;
  Console console_;
};

using EventDestContract = PalIoctlContract;

class EventForwardContract : public PalIoctlContract {
 protected:
  EventForwardContract() { device_.size = 56; }

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

TEST_F(PalIoctlContract, RefusesANullArgumentSilently) {
  EXPECT_EQ(mu_pal_ioctl(1, nullptr), -1);
  EXPECT_EQ(device_.calls, Calls{});
  EXPECT_EQ(console_.take(), "");
}

TEST_F(PalIoctlContract, TakesAPayloadOf4072Bytes) {
  for (const int length : {0, 1, 32, 4071, 4072}) {
    Argument argument(static_cast<uint16_t>(length));
    EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0) << length;
    EXPECT_EQ(device_.take(), calls_for(0x4301)) << length;
    EXPECT_EQ(console_.take(), "") << length;
  }
}

TEST_F(PalIoctlContract, RefusesALongerPayload) {
  for (const int length : {4073, 4096, 0x7fff, 0x8000, 65512, 65535}) {
    Argument argument(static_cast<uint16_t>(length));
    EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1) << length;
    EXPECT_EQ(device_.calls, Calls{}) << length;
    EXPECT_EQ(console_.take(), "ioctl: input param is too long.\n") << length;
  }
}

TEST_F(PalIoctlContract, TellsWhenTheDeviceCannotBeOpened) {
  device_.file = -1;
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(device_.calls, Calls{"open /dev/mu_pal_ioctl"});
  EXPECT_EQ(console_.take(), kNoDevice);
}

TEST_F(PalIoctlContract, LooksAtTheLengthBeforeItOpens) {
  device_.file = -1;
  Argument argument(4073);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(console_.take(), "ioctl: input param is too long.\n");
}

TEST_F(PalIoctlContract, OrsTheCommandIntoTheRequest) {
  struct Row {
    uint32_t cmd;
    unsigned long request;
  };
  for (const Row &row :
       {Row{0, 0x4300}, Row{1, 0x4301}, Row{2, 0x4302}, Row{0xff, 0x43ff}, Row{0x4301, 0x4301}, Row{0x100, 0x4300},
        Row{0x8000, 0xc300}, Row{0x80000000, 0x80004300}, Row{UINT32_MAX, 0xffffffff}}) {
    Argument argument(0);
    EXPECT_EQ(mu_pal_ioctl(row.cmd, argument.get()), 0) << row.cmd;
    EXPECT_EQ(device_.take(), calls_for(row.request)) << row.cmd;
  }
}

TEST_F(PalIoctlContract, PassesTheArgumentItself) {
  Argument argument(0);
  device_.answer = [](std::string &bytes) { bytes.assign(24, 'x'); };
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0);
  EXPECT_EQ(device_.arg, argument.get());
  EXPECT_EQ(std::string(static_cast<const char *>(argument.get()), 24), std::string(24, 'x'));
}

TEST_F(PalIoctlContract, TakesAnArgumentAtAnyAddress) {
  std::array<char, 32> bytes = {};
  const uint16_t length = 4072;
  memcpy(&bytes[3], &length, 2);
  EXPECT_EQ(mu_pal_ioctl(1, &bytes[1]), 0);
  EXPECT_EQ(device_.take(), calls_for(0x4301));
  bytes[3] = bytes[4] = '\xff';
  EXPECT_EQ(mu_pal_ioctl(1, &bytes[1]), -1);
}

TEST_F(PalIoctlContract, ReturnsWhatTheDeviceReturned) {
  for (const int result : {0, 1, 5, -2, INT32_MAX, INT32_MIN}) {
    device_.result = [result] { return result; };
    Argument argument(0);
    EXPECT_EQ(mu_pal_ioctl(2, argument.get()), result);
    EXPECT_EQ(device_.take(), calls_for(0x4302));
    EXPECT_EQ(console_.take(), "") << result;
  }
}

TEST_F(PalIoctlContract, TellsWhenTheDeviceFailsAndClosesIt) {
  device_.result = [] { return -1; };
  struct Row {
    uint32_t cmd;
    const char *text;
  };
  for (const Row &row : {Row{1, "Can not run command '1', ret=-1.\n"}, Row{2, "Can not run command '2', ret=-1.\n"},
                         Row{0x4301, "Can not run command '17153', ret=-1.\n"},
                         Row{UINT32_MAX, "Can not run command '-1', ret=-1.\n"}}) {
    Argument argument(0);
    EXPECT_EQ(mu_pal_ioctl(row.cmd, argument.get()), -1);
    EXPECT_EQ(device_.take(), calls_for(0x4300u | row.cmd)) << "no second try";
    EXPECT_EQ(console_.take(), row.text);
  }
}

TEST_F(PalIoctlContract, TakesTheDescriptorZero) {
  device_.file = 0;
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), 0);
  EXPECT_EQ(device_.take(), calls_for(0x4301, 0));
}

TEST(PalIoctlMissingDeviceContract, TellsSo) {
  const Sandbox sandbox;  // with an empty /dev
  Console console;
  Argument argument(0);
  EXPECT_EQ(mu_pal_ioctl(1, argument.get()), -1);
  EXPECT_EQ(console.take(), kNoDevice);
}

// ---- mu_event_dest_set ----------------------------------------------------------------------------------------------

TEST_F(EventDestContract, SendsTheSecondCommandWithThePort) {
  for (const uint32_t port : {0u, 1u, 0x12345678u, UINT32_MAX}) {
    device_.requests.clear();
    mu_event_dest_set(port);
    std::string expected(24, '\0');
    put<uint32_t>(expected, 20, port);
    EXPECT_EQ(device_.take(), calls_for(0x4302));
    EXPECT_EQ(device_.requests, std::vector<std::string>{expected});
  }
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventDestContract, IgnoresAFailure) {
  device_.result = [] { return -1; };
  mu_event_dest_set(1);
  EXPECT_EQ(console_.take(), "Can not run command '2', ret=-1.\n");
  device_.file = -1;
  mu_event_dest_set(1);
  EXPECT_EQ(console_.take(), kNoDevice);
}

TEST_F(EventDestContract, HasRoomFor1024BytesOfAnswer) {
  device_.answer = [](std::string &bytes) { bytes.assign(1024, '\x5a'); };
  mu_event_dest_set(1);
  EXPECT_EQ(device_.take(), calls_for(0x4302));
}

// ---- mup_event_cfg_forward ------------------------------------------------------------------------------------------

TEST_F(EventForwardContract, SendsTheFirstCommandWithTheMessage) {
  for (const unsigned number : {0u, 1u, 0xabcdu, 0xffffu}) {
    const auto device_id = static_cast<uint16_t>(number);
    device_.requests.clear();
    mu_event_msg_t msg = message();
    EXPECT_EQ(mup_event_cfg_forward(device_id, &msg), 0);
    EXPECT_EQ(device_.take(), calls_for(0x4301));
    EXPECT_EQ(device_.requests, std::vector<std::string>{argument(device_id, message())});
    EXPECT_EQ(bytes_of(msg), bytes_of(message()));
  }
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventForwardContract, CopiesTheAnswerBack) {
  device_.answer = [](std::string &bytes) {
    for (size_t i = 0; i < 32; i++) bytes[24 + i] = static_cast<char>('A' + i);
  };
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), "ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`");
}

TEST_F(EventForwardContract, CopiesThirtyTwoBytesWhateverTheHeaderSaysThen) {
  for (const char filler : {'\0', '\xff'}) {
    device_.answer = [filler](std::string &bytes) { bytes = std::string(24, filler) + std::string(32, 'z'); };
    mu_event_msg_t msg = message();
    EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
    EXPECT_EQ(bytes_of(msg), std::string(32, 'z'));
  }
}

TEST_F(EventForwardContract, CopiesBackAndSucceedsWhenTheDeviceFails) {
  device_.answer = [](std::string &bytes) { bytes.replace(24, 32, std::string(32, 'y')); };
  device_.result = [] { return -1; };
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), std::string(32, 'y'));
  EXPECT_EQ(console_.take(), "Can not run command '1', ret=-1.\n");
}

TEST_F(EventForwardContract, SucceedsWithTheMessageUnchangedWithoutTheDevice) {
  device_.file = -1;
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), bytes_of(message()));
  EXPECT_EQ(console_.take(), kNoDevice);
}

TEST_F(EventForwardContract, SucceedsWhateverTheDeviceReturns) {
  device_.result = [] { return 5; };
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
}

TEST_F(EventForwardContract, HasRoomFor1024BytesOfAnswer) {
  device_.answer = [](std::string &bytes) { bytes.assign(1024, '\x5a'); };
  mu_event_msg_t msg = message();
  EXPECT_EQ(mup_event_cfg_forward(1, &msg), 0);
  EXPECT_EQ(bytes_of(msg), std::string(32, '\x5a'));
}

// ---- The forwarder as handler ---------------------------------------------------------------------------------------

TEST(EventForwardedContract, CallsExchangeWithTheDeviceUnderTheLock) {
  const Registry registry(20, nullptr, mup_event_cfg_forward);
  Device device;
  device.size = 56;
  bool held = false;
  device.answer = [&](std::string &bytes) {
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
  EXPECT_EQ(device.requests, std::vector<std::string>{expected});
  mu_event_cfg_t cfg = {};
  EXPECT_EQ(mu_event_get(6, 0, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 22, 333}));
  mu_event_dump();
  EXPECT_FALSE(held);
}

TEST(EventForwardedContract, CallsSucceedWithoutTheDeviceAndSaySo) {
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

// ---- event_cfg_set --------------------------------------------------------------------------------------------------

namespace {

class EventCfgSetContract : public testing::Test {
 protected:
  EventCfgSetContract() {
    rec(2).count = 55;
    rec(2).suprs_cnt = 66;
  }

  // Applies a message; EXPECTs that no word of it changes but those that `change` names.
  static int apply(
      mu_event_msg_t msg, const std::function<void(mu_event_msg_t &)> &change = [](mu_event_msg_t &) {}) {
    mu_event_msg_t expected = msg;
    change(expected);
    const int result = event_cfg_set(7, &msg);
    EXPECT_EQ(bytes_of(msg), bytes_of(expected));
    return result;
  }

  Registry registry_{3};
  Console console_;
};

}  // namespace

TEST_F(EventCfgSetContract, RefusesANullMessage) { EXPECT_EQ(event_cfg_set(0, nullptr), -1); }

TEST_F(EventCfgSetContract, RefusesAnUnknownOperation) {
  const std::string before = state_bytes();
  for (const uint32_t op : {6u, 7u, 255u, 256u, 0x10000u, 0x7fffffffu, 0x80000000u, UINT32_MAX}) {
    EXPECT_EQ(apply({op, 2, 3, 4, 5, 6, 7, 8}), -1) << op;
  }
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(console_.take(), "");
}

TEST_F(EventCfgSetContract, GetsACounter) {
  EXPECT_EQ(apply({0, 2, 3, 4, 5, 6, 7, 0}, [](mu_event_msg_t &msg) { msg.count = 55; }), -1);
  EXPECT_EQ(rec(2).count, 55u);
  EXPECT_EQ(apply({0, 2, 3, 4, 5, 6, 7, 8}, [](mu_event_msg_t &msg) { msg.count = 55; }), -1);
  EXPECT_EQ(rec(2).count, 0u);
  EXPECT_EQ(rec(2).suprs_cnt, 66u);
}

TEST_F(EventCfgSetContract, SetsTheCountToZeroForATypeOutOfRange) {
  for (const uint32_t type : {3u, UINT32_MAX}) {
    EXPECT_EQ(apply({0, type, 3, 4, 5, 6, 7, 8}, [](mu_event_msg_t &msg) { msg.count = 0; }), -1) << type;
  }
}

TEST_F(EventCfgSetContract, ClearsACounter) {
  EXPECT_EQ(apply({1, 2, 3, 4, 5, 6, 7, 8}), 0);
  EXPECT_EQ(rec(2).count, 0u);
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
  EXPECT_EQ(apply({1, 3, 3, 4, 5, 6, 7, 8}), -1);
}

TEST_F(EventCfgSetContract, ClearsAllCounters) {
  rec(0).count = 5;
  EXPECT_EQ(apply({2, 99, 3, 4, 5, 6, 7, 8}), 0) << "the type has no meaning";
  EXPECT_EQ(rec(0).count, 0u);
  EXPECT_EQ(rec(2).count, 0u);
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
}

TEST_F(EventCfgSetContract, SetsAConfiguration) {
  EXPECT_EQ(apply({3, 2, 3, 4, 5, 60, 7, 8}), 0);
  EXPECT_EQ(rec(2).suprs_en, 1);
  EXPECT_EQ(rec(2).threshold, 5u);
  EXPECT_EQ(rec(2).period, 6u);
  EXPECT_EQ(rec(2).suprs_cnt, 0u);
  EXPECT_EQ(apply({3, 3, 3, 4, 5, 60, 7, 8}), -1);
}

TEST_F(EventCfgSetContract, GetsAConfiguration) {
  configure(2, 1, 77, 25);
  EXPECT_EQ(apply({4, 2, 3, 4, 5, 6, 7, 8},
                  [](mu_event_msg_t &msg) {
                    msg.suprs_en = 1;
                    msg.threshold = 77;
                    msg.period = 20;
                  }),
            0);
  EXPECT_EQ(apply({4, 3, 3, 4, 5, 6, 7, 8}), -1);
}

TEST_F(EventCfgSetContract, Dumps) {
  EXPECT_EQ(apply({5, 99, 3, 4, 5, 6, 7, 8}), 0);
  const std::string text = console_.take();
  mu_event_dump();
  EXPECT_EQ(text, console_.take());
  EXPECT_EQ(text.substr(0, 64), std::string(63, '=') + '\n');
}

TEST_F(EventCfgSetContract, TakesNegativeTypesAsSetAndGetDo) {
  const RecordsBeforeTheTable records(2);
  EXPECT_EQ(apply({3, UINT32_MAX, 3, 4, 5, 60, 7, 8}), 0);
  EXPECT_EQ(rec(-1).threshold, 5u);
  EXPECT_EQ(apply({4, UINT32_MAX, 3, 0, 0, 0, 7, 8},
                  [](mu_event_msg_t &msg) {
                    msg.suprs_en = 1;
                    msg.threshold = 5;
                    msg.period = 60;
                  }),
            0);
  EXPECT_EQ(apply({1, UINT32_MAX, 3, 0, 0, 0, 7, 8}), -1);
}

TEST(EventCfgSetForwardingContract, PassesTheDeviceAndTheHandlersAnswer) {
  static std::vector<std::string> seen;
  const Registry registry(3, nullptr, [](uint16_t device_id, mu_event_msg_t *msg) {
    seen.push_back(line("device %u op %u", device_id, msg->op));
    msg->count = 99;
    return -1;
  });
  for (uint32_t op = 0; op < 6; op++) {
    mu_event_msg_t msg = {op, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(event_cfg_set(0xfedc, &msg), 0) << op;
    EXPECT_EQ(msg.count, op == 0 ? 99u : 7u) << op;
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"device 65244 op 0", "device 65244 op 1", "device 65244 op 2",
                                            "device 65244 op 3", "device 65244 op 4", "device 0 op 5"}));
}

TEST(EventCfgSetUninitialisedContract, ReturnsWhatTheOperationsDo) {
  Console console;
  for (uint32_t op = 0; op < 6; op++) {
    mu_event_msg_t msg = {op, 0, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(event_cfg_set(0, &msg), op == 2 || op == 5 ? 0 : -1) << op;
    EXPECT_EQ(msg.count, op == 0 ? 0u : 7u) << op;
  }
}
