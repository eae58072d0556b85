// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_kern_level_set: the message that the log control device gets, and when it gets one.

#include <fcntl.h>
#include <sys/mman.h>

#include "log/fixture.h"

using namespace tarn_test;

namespace {

using LogKernelLevel = StartedLogFiles;

constexpr const char *kDevice = "/dev/mulog-ioctl-dev";
constexpr const char *kNoDevice = "Device open failure /dev/mulog-ioctl-dev\n";

// A device that records its requests.
class Device {
 public:
  struct Request {
    unsigned long code;
    std::string block;  // 256 bytes
    bool locked;        // whether the log mutex was held
  };

  std::vector<Request> requests;
  std::vector<int> open_flags;
  std::vector<std::string> opened;
  int file = -1;  // the last one
  int result = 0;

 private:
  Replace<int(const char *, int, mode_t)> open_{libc::open, [this](const char *path, int flags, mode_t) {
                                                  opened.emplace_back(path);
                                                  open_flags.push_back(flags);
                                                  return file = memfd_create("device", 0);
                                                }};
  Replace<int(int, unsigned long, void *)> ioctl_{
      libc::ioctl, [this](int to, unsigned long code, void *block) {
        EXPECT_EQ(to, file);
        EXPECT_NE(fcntl(to, F_GETFD), -1);
        mu_mutex_t mutex = mup_log_ctrl_get()->mutex;
        const bool locked = mutex != nullptr && mu_mutex_trylock(mutex) == EBUSY;
        if (mutex != nullptr && !locked) mu_mutex_unlock(mutex);
        requests.push_back({code, {static_cast<char *>(block), 256}, locked});
        errno = ENOTTY;
        return result;
      }};
};

// The 256 bytes, put together by hand.
std::string control_block(unsigned module, unsigned type, unsigned value) {
  std::string block(256, '\0');
  const uint16_t command = 3;
  memcpy(&block[10], &command, 2);  // in the processor's byte order
  block[12] = static_cast<char>(module);
  block[13] = static_cast<char>(type);
  block[14] = static_cast<char>(value);
  return block;
}

bool is_open(int file) { return fcntl(file, F_GETFD) != -1; }

}  // namespace

TEST_F(LogKernelLevel, SendsOneBlockOf256BytesAndClosesTheDevice) {
  Device device;
  Console console;
  mup_log_kern_level_set(2, 1, 7);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(device.opened, std::vector<std::string>{kDevice});
  EXPECT_EQ(device.open_flags[0] & O_ACCMODE, O_RDWR);
  EXPECT_EQ(device.open_flags[0] & (O_CREAT | O_TRUNC | O_APPEND), 0);
  ASSERT_EQ(device.requests.size(), 1u);
  EXPECT_EQ(device.requests[0].code, 0x4300u);
  EXPECT_EQ(device.requests[0].block, control_block(2, 1, 7));
  EXPECT_FALSE(is_open(device.file));
}

TEST_F(LogKernelLevel, PassesEveryByteAsItIs) {
  Device device;
  for (unsigned byte = 0; byte < 256; byte++) {
    device.requests.clear();
    mup_log_kern_level_set(static_cast<uint8_t>(byte), 0, 1);
    mup_log_kern_level_set(1, static_cast<uint8_t>(byte), 0);
    mup_log_kern_level_set(0, 1, static_cast<uint8_t>(byte));
    ASSERT_EQ(device.requests.size(), 3u);
    ASSERT_EQ(device.requests[0].block, control_block(byte, 0, 1));
    ASSERT_EQ(device.requests[1].block, control_block(1, byte, 0));
    ASSERT_EQ(device.requests[2].block, control_block(0, 1, byte));
  }
}

TEST_F(LogKernelLevel, OpensTheDeviceAnewForEachCall) {
  Device device;
  for (int i = 0; i < 3; i++) {
    mup_log_kern_level_set(1, 1, 1);
    EXPECT_FALSE(is_open(device.file));
  }
  EXPECT_EQ(device.opened.size(), 3u);
}

TEST_F(LogKernelLevel, ARefusedRequestIsIgnored) {
  Device device;
  device.result = -1;
  Console console;
  mup_log_kern_level_set(1, 2, 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(device.requests.size(), 1u);
  EXPECT_FALSE(is_open(device.file));
}

TEST_F(LogKernelLevel, WithoutTheDeviceItReportsItAndTheSettingStays) {
  int requests = 0;
  Replace<int(int, unsigned long, void *)> ioctl(libc::ioctl,
                                                 [&](int, unsigned long, void *) { return ++requests, 0; });
  Console console;
  mup_log_kern_level_set(1, 1, 1);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_RECORD, 7), 0);
  EXPECT_EQ(console.take(), kNoDevice);
  EXPECT_EQ(ctrl->modules[2].record_level, 7);
  EXPECT_EQ(requests, 0);
}

TEST_F(LogKernelLevel, EverySettingReachesTheDevice) {
  Device device;
  EXPECT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_RECORD, 7), 0);
  EXPECT_EQ(mup_log_level_set(0, "m0", MUP_LOG_SET_PRINT, 8), 0);
  EXPECT_EQ(mup_log_level_set(0, "m20", MUP_LOG_SET_ENABLE, 0), 0);
  EXPECT_EQ(mup_log_level_set(0, "m1", 5, 200), 0);  // changes nothing, and is passed on
  EXPECT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_RECORD, 9), 2);
  EXPECT_EQ(mup_log_level_set(0, "unknown", MUP_LOG_SET_RECORD, 1), 2);
  ASSERT_EQ(device.requests.size(), 4u);
  EXPECT_EQ(device.requests[0].block, control_block(2, 1, 7));
  EXPECT_EQ(device.requests[1].block, control_block(0, 0, 8));
  EXPECT_EQ(device.requests[2].block, control_block(20, 2, 0));
  EXPECT_EQ(device.requests[3].block, control_block(1, 5, 200));
  for (const Device::Request &request : device.requests) EXPECT_FALSE(request.locked);
}

TEST_F(LogKernelLevel, SwitchingAllModulesSendsEachUnderTheLock) {
  Device device;
  EXPECT_EQ(mup_log_set(0), 0);
  EXPECT_EQ(mup_log_usr_set(1), 0);
  ASSERT_EQ(device.requests.size(), 25u);
  for (unsigned i = 0; i < 25; i++) {
    EXPECT_EQ(device.requests[i].block, i < 21 ? control_block(i, 2, 0) : control_block(i - 21 + 16, 2, 1));
    EXPECT_TRUE(device.requests[i].locked);
  }
}

TEST_F(LogKernelLevel, OnlyTheStartWithFilesInstallsTheHook) {
  EXPECT_EQ(ctrl->level_hook, &mup_log_kern_level_set);
  init();
  EXPECT_EQ(ctrl->level_hook, nullptr);
  Device device;
  EXPECT_EQ(mup_log_level_set(0, "m2", MUP_LOG_SET_RECORD, 7), 0);
  EXPECT_TRUE(device.requests.empty());
}

TEST_F(LogKernelLevel, NeedsNoLogAtAll) {
  release();
  Device device;
  mup_log_kern_level_set(255, 255, 255);
  ASSERT_EQ(device.requests.size(), 1u);
  EXPECT_EQ(device.requests[0].block, control_block(255, 255, 255));
}
